#include "search/win/search_dialogs.h"

#include "markup/language_table.h"
#include "platform/win/dialog_language.h"
#include "platform/win/list_view.h"
#include "platform/win/module.h"
#include "search/browse_history.h"
#include "search/search_window_model.h"
#include "search/win/search_resources.h"

#include <commctrl.h>

namespace corvid::search {
namespace {

constexpr std::uint32_t kTextNoAddress = 32959;    // "Please input the IP address"
constexpr std::uint32_t kTextClearHistory = 34025; // "Clear?"

void InitControls() {
    INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_LISTVIEW_CLASSES | ICC_INTERNET_CLASSES};
    ::InitCommonControlsEx(&controls);
}

} // namespace

int TarvoMessageBox(HWND owner, const std::string& text, UINT type) {
    return ::MessageBoxA(owner, text.c_str(), "Tarvo Explorer", type);
}

INT_PTR DialogState::ShowModal(HWND owner) {
    InitControls();
    modeless_ = false;
    return ::DialogBoxParamA(win::ModuleHandle(), MAKEINTRESOURCEA(resourceId_), owner, &Procedure,
                             reinterpret_cast<LPARAM>(this));
}

HWND DialogState::CreateModeless(HWND owner) {
    InitControls();
    modeless_ = true;
    return ::CreateDialogParamA(win::ModuleHandle(), MAKEINTRESOURCEA(resourceId_), owner,
                                &Procedure, reinterpret_cast<LPARAM>(this));
}

void DialogState::End(HWND dialog, INT_PTR result) {
    ended_ = true;
    result_ = result;
    if (modeless_) {
        ::DestroyWindow(dialog);
    } else {
        ::EndDialog(dialog, result);
    }
}

std::string DialogState::Text(std::uint32_t id) const {
    std::string text;
    language_.LoadText(id, text);
    return text;
}

INT_PTR CALLBACK DialogState::Procedure(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* state = reinterpret_cast<DialogState*>(::GetWindowLongPtrA(dialog, DWLP_USER));
    if (message == WM_INITDIALOG) {
        state = reinterpret_cast<DialogState*>(lParam);
        ::SetWindowLongPtrA(dialog, DWLP_USER, lParam);
        win::ApplyLanguageToDialog(dialog, state->language_, state->resourceId_);
        state->OnInit(dialog);
        return TRUE;
    }
    if (!state) {
        return FALSE;
    }
    if (message == WM_COMMAND) {
        return state->OnCommand(dialog, LOWORD(wParam), HIWORD(wParam)) ? TRUE : FALSE;
    }
    if (message == WM_CLOSE) {
        state->End(dialog, IDCANCEL);
        return TRUE;
    }
    if (message == WM_NCDESTROY) {
        ::SetWindowLongPtrA(dialog, DWLP_USER, 0);
    }
    return FALSE;
}

FileExistsDialog::FileExistsDialog(const LanguageTable& language, std::string path)
    : DialogState(language, IDD_FILE_EXISTS), path_(std::move(path)) {}

void FileExistsDialog::OnInit(HWND dialog) {
    ::SetDlgItemTextA(dialog, IDC_FILE_EXISTS_PATH, path_.c_str());
}

bool FileExistsDialog::OnCommand(HWND dialog, int id, int) {
    if (id == IDOK || id == IDCANCEL) {
        End(dialog, id);
        return true;
    }
    return false;
}

PropertiesDialog::PropertiesDialog(const LanguageTable& language, const ResultGroup& group,
                                   int sourceIndex)
    : DialogState(language, IDD_RESULT_PROPERTIES) {
    for (const PropertyField& field : SourceProperties(group, sourceIndex)) {
        fields_.emplace_back(Text(field.nameId), field.value);
    }
}

void PropertiesDialog::OnInit(HWND dialog) {
    HWND list = ::GetDlgItem(dialog, IDC_PROPERTIES_LIST);
    ListView_SetExtendedListViewStyle(list, LVS_EX_FULLROWSELECT | LVS_EX_INFOTIP);
    RECT client;
    ::GetClientRect(list, &client);
    const int nameWidth = (client.right - client.left) * 3 / 10;
    win::AddListColumn(list, 0, nameWidth);
    win::AddListColumn(list, 1,
                       client.right - client.left - nameWidth - ::GetSystemMetrics(SM_CXVSCROLL));
    int row = 0;
    for (auto& [name, value] : fields_) {
        LVITEMA item = {};
        item.mask = LVIF_TEXT;
        item.iItem = row;
        item.pszText = name.data();
        ::SendMessageA(list, LVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&item));
        item.iSubItem = 1;
        item.pszText = value.data();
        ::SendMessageA(list, LVM_SETITEMTEXTA, row, reinterpret_cast<LPARAM>(&item));
        ++row;
    }
}

bool PropertiesDialog::OnCommand(HWND dialog, int id, int) {
    if (id == IDOK || id == IDCANCEL) {
        End(dialog, id);
        return true;
    }
    return false;
}

BrowseHostDialog::BrowseHostDialog(const LanguageTable& language, std::string historyPath,
                                   MessagePrompt prompt)
    : DialogState(language, IDD_BROWSE_HOST), historyPath_(std::move(historyPath)),
      prompt_(std::move(prompt)) {}

void BrowseHostDialog::OnInit(HWND dialog) {
    history_ = LoadBrowseHistory(historyPath_);
    HWND combo = ::GetDlgItem(dialog, IDC_BROWSE_HISTORY);
    for (const std::string& entry : history_) {
        ::SendMessageA(combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(entry.c_str()));
    }
    ::SendDlgItemMessageA(dialog, IDC_BROWSE_PORT, EM_LIMITTEXT, 11, 0);
}

bool BrowseHostDialog::OnCommand(HWND dialog, int id, int code) {
    switch (id) {
    case IDC_BROWSE_HISTORY:
        if (code == CBN_SELCHANGE) {
            ChooseHistoryLine(dialog);
        }
        return true;
    case IDC_BROWSE_CLEAR_HISTORY:
        if (code == BN_CLICKED) {
            ClearHistory(dialog);
        }
        return true;
    case IDOK:
        Accept(dialog);
        return true;
    case IDCANCEL:
        End(dialog, IDCANCEL);
        return true;
    default:
        return false;
    }
}

void BrowseHostDialog::ChooseHistoryLine(HWND dialog) {
    const LRESULT chosen = ::SendDlgItemMessageA(dialog, IDC_BROWSE_HISTORY, CB_GETCURSEL, 0, 0);
    if (chosen < 0 || static_cast<std::size_t>(chosen) >= history_.size()) {
        return;
    }
    const HistoryAddress address = ParseHistoryAddress(history_[static_cast<std::size_t>(chosen)]);
    ::SendDlgItemMessageA(dialog, IDC_BROWSE_ADDRESS, IPM_SETADDRESS, 0,
                          static_cast<LPARAM>(PackAddress(address.octets)));
    if (address.port) {
        ::SetDlgItemInt(dialog, IDC_BROWSE_PORT, static_cast<UINT>(*address.port), TRUE);
    } else {
        ::MessageBeep(MB_OK);
        ::SetFocus(::GetDlgItem(dialog, IDC_BROWSE_PORT));
    }
}

void BrowseHostDialog::Accept(HWND dialog) {
    BOOL isNumber = FALSE;
    const int port = static_cast<int>(::GetDlgItemInt(dialog, IDC_BROWSE_PORT, &isNumber, TRUE));
    if (!isNumber || !IsValidPort(port)) {
        HWND field = ::GetDlgItem(dialog, IDC_BROWSE_PORT);
        ::SetFocus(field);
        ::SendMessageA(field, EM_SETSEL, 0, -1);
        return;
    }
    if (::SendDlgItemMessageA(dialog, IDC_BROWSE_ADDRESS, IPM_ISBLANK, 0, 0)) {
        prompt_(dialog, Text(kTextNoAddress), MB_OK);
        return;
    }
    DWORD address = 0;
    ::SendDlgItemMessageA(dialog, IDC_BROWSE_ADDRESS, IPM_GETADDRESS, 0,
                          reinterpret_cast<LPARAM>(&address));
    entry_ = HistoryEntry(address, port);
    url_ = BrowseUrl(address, port);
    AddToBrowseHistory(history_, entry_);
    SaveBrowseHistory(historyPath_, history_);
    End(dialog, IDOK);
}

void BrowseHostDialog::ClearHistory(HWND dialog) {
    if (prompt_(dialog, Text(kTextClearHistory), MB_YESNO | MB_ICONQUESTION | MB_DEFBUTTON2) !=
        IDYES) {
        return;
    }
    ::DeleteFileA(historyPath_.c_str());
    history_.clear();
    ::SendDlgItemMessageA(dialog, IDC_BROWSE_HISTORY, CB_RESETCONTENT, 0, 0);
}

std::string BrowseHistoryPath() {
    char temp[MAX_PATH + 1] = {};
    const DWORD length = ::GetTempPathA(MAX_PATH, temp);
    const std::string tempPath(temp, length > 0 && length <= MAX_PATH ? length : 0);
    for (const std::string& folder : BrowseHistoryFolders(tempPath)) {
        ::CreateDirectoryA(folder.c_str(), nullptr);
    }
    return BrowseHistoryFolder(tempPath) + kBrowseHistoryFile;
}

bool AskBrowseHost(HWND owner, const LanguageTable& language, std::string& url) {
    BrowseHostDialog dialog(language, BrowseHistoryPath());
    if (dialog.ShowModal(owner) != IDOK) {
        return false;
    }
    url = dialog.Url();
    return true;
}

} // namespace corvid::search
