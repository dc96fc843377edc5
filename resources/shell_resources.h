/* Resource ids of the main view: shared by the module's resource script and the code. */
#pragma once

#define IDB_STATUS_ICONS 36300
#define IDB_TOOLBAR_SMALL 36301
#define IDB_TOOLBAR_LARGE 36302

#define IDD_TOOLBAR_CUSTOMISE 36200
#define IDC_AVAILABLE_LABEL 1001
#define IDC_AVAILABLE 1002
#define IDC_CURRENT_LABEL 1003
#define IDC_CURRENT 1004
#define IDC_ADD 1005
#define IDC_REMOVE 1006
#define IDC_MOVE_UP 1007
#define IDC_MOVE_DOWN 1008
#define IDC_ADD_SEPARATOR 1009
#define IDC_RESET 1010
