#pragma once

// Resource numbers of the transfer pages, shared by transfer.rc and the code.

#define IDB_TRANSFER_LOG_ICONS 340
#define IDD_DOWNLOAD_UPLOAD 212
#define IDD_FILE_EXISTS 339

#define IDC_DOWNLOAD_FOLDER 2121
#define IDC_DOWNLOAD_BROWSE 2122
#define IDC_TEMP_FOLDER 2123
#define IDC_TEMP_BROWSE 2124
#define IDC_UPLOAD_LIMIT 2125
#define IDC_FILE_EXISTS_TEXT 3391
