#pragma once

// Resource and control ids of the search windows and the browse-host dialog, shared by
// search.rc and the code. Plain #defines: the resource compiler reads this file too.

#define IDR_SEARCH_TAB_MENU 202
#define IDR_RESULT_MENU 203
#define IDD_RESULT_PROPERTIES 207
#define IDD_BROWSE_HOST 337
#define IDD_FILE_EXISTS 339
#define IDB_HEADER_ARROWS 344

// Tab menu 202
#define ID_SEARCH_CLOSE 32771
#define ID_SEARCH_RESTART 32772
#define ID_SEARCH_AGAIN 32773
#define ID_SEARCH_STOP 32774
#define ID_SEARCH_CLEAR 32775
#define ID_SEARCH_PAUSE 32776

// Result list menu 203
#define ID_RESULT_DOWNLOAD 32777
#define ID_RESULT_PROPERTIES 32779
#define ID_RESULT_RESTART 32839
#define ID_RESULT_STOP 32840
#define ID_RESULT_CLEAR 32841
#define ID_RESULT_BROWSE_HOST 32845

// Dialog controls
#define IDC_BROWSE_PORT 208
#define IDC_BROWSE_PROMPT 1201
#define IDC_BROWSE_ADDRESS_LABEL 1202
#define IDC_BROWSE_ADDRESS 1203
#define IDC_BROWSE_PORT_LABEL 1204
#define IDC_BROWSE_HISTORY_LABEL 1205
#define IDC_BROWSE_HISTORY 1206
#define IDC_BROWSE_CLEAR_HISTORY 1207
#define IDC_PROPERTIES_LIST 1211
#define IDC_FILE_EXISTS_TEXT 1221
#define IDC_FILE_EXISTS_PATH 1222
