#include "transfer/win/download_upload_page.h"

#include "markup/language_table.h"
#include "platform/win/dialog_language.h"
#include "platform/win/module.h"
#include "shell/win/panel.h"
#include "transfer/safe_file_name.h"
#include "transfer/upload_list.h"
#include "transfer/win/download_panel.h"
#include "transfer/win/transfer_resources.h"
#include "transfer/win/transfer_settings.h"

#include <shlobj.h>

namespace corvid::transfer::win {
namespace {

constexpr std::uint32_t kTextBadUploadSpeed = 33132;

struct PageState {
    shell::PanelSite& site;
    std::function<void(const std::string&)> report;
    // The tab's title in the user's language; the sheet reads it until the page is released.
    std::string title;
};

std::string Text(const PageState& state, std::uint32_t id) {
    std::string text;
    state.site.Language().LoadText(id, text);
    return text;
}

std::string ItemText(HWND dialog, int id) {
    char text[MAX_PATH * 2] = {};
    ::GetDlgItemTextA(dialog, id, text, sizeof text);
    std::string value = text;
    // Blanks around a pasted path are never part of it.
    const auto first = value.find_first_not_of(' ');
    const auto last = value.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : value.substr(first, last - first + 1);
}

void Browse(HWND dialog, int editId) {
    char chosen[MAX_PATH] = {};
    BROWSEINFOA browse = {};
    browse.hwndOwner = dialog;
    browse.pszDisplayName = chosen;
    browse.ulFlags = BIF_RETURNONLYFSDIRS | BIF_NEWDIALOGSTYLE;
    if (LPITEMIDLIST list = ::SHBrowseForFolderA(&browse)) {
        if (::SHGetPathFromIDListA(list, chosen))
            ::SetDlgItemTextA(dialog, editId, chosen);
        ::CoTaskMemFree(list);
    }
}

// False (with the reason told and the focus on the field) when the page cannot be applied.
bool Validate(HWND dialog, const PageState& state) {
    const auto refuse = [&](int id, const std::string& text) {
        state.report(text);
        ::SetFocus(::GetDlgItem(dialog, id));
        return false;
    };
    for (int id : {IDC_DOWNLOAD_FOLDER, IDC_TEMP_FOLDER}) {
        auto folder = ItemText(dialog, id);
        // A folder typed without its root is made full here, where the user sees what it means,
        // rather than read against whatever the current folder is at each download.
        if (!folder.empty() && !IsFullFolderPath(folder)) {
            char full[MAX_PATH] = {};
            const DWORD length = ::GetFullPathNameA(folder.c_str(), MAX_PATH, full, nullptr);
            if (length > 0 && length < MAX_PATH) {
                folder = full;
                ::SetDlgItemTextA(dialog, id, full);
            }
        }
        if (const auto problem = FolderProblem(folder))
            return refuse(id, Text(state, problem) + "\n" + folder);
    }
    if (!ParseUploadSpeed(ItemText(dialog, IDC_UPLOAD_LIMIT)))
        return refuse(IDC_UPLOAD_LIMIT, Text(state, kTextBadUploadSpeed));
    return true;
}

void Save(HWND dialog) {
    WriteText(kP2PViewKey, kDownloadFolderValue, ItemText(dialog, IDC_DOWNLOAD_FOLDER));
    WriteText(kP2PViewKey, kTempFolderValue, ItemText(dialog, IDC_TEMP_FOLDER));
    if (const auto speed = ParseUploadSpeed(ItemText(dialog, IDC_UPLOAD_LIMIT)))
        WriteDword(kP2PViewKey, kUploadLimitValue, *speed);
    ApplyDownloadFolderToOpenPages();
}

INT_PTR CALLBACK PageProcedure(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* state = reinterpret_cast<PageState*>(::GetWindowLongPtrA(dialog, DWLP_USER));
    switch (message) {
    case WM_INITDIALOG: {
        state = reinterpret_cast<PageState*>(reinterpret_cast<PROPSHEETPAGEA*>(lParam)->lParam);
        ::SetWindowLongPtrA(dialog, DWLP_USER, reinterpret_cast<LONG_PTR>(state));
        corvid::win::ApplyLanguageToDialog(dialog, state->site.Language(), IDD_DOWNLOAD_UPLOAD);
        ::SetDlgItemTextA(dialog, IDC_DOWNLOAD_FOLDER, DownloadFolder().c_str());
        ::SetDlgItemTextA(dialog, IDC_TEMP_FOLDER, TempFolder().c_str());
        ::SetDlgItemInt(dialog, IDC_UPLOAD_LIMIT,
                        ReadDword(kP2PViewKey, kUploadLimitValue).value_or(kDefaultUploadLimit),
                        FALSE);
        return TRUE;
    }
    case WM_COMMAND:
        if (LOWORD(wParam) == IDC_DOWNLOAD_BROWSE || LOWORD(wParam) == IDC_TEMP_BROWSE) {
            Browse(dialog,
                   LOWORD(wParam) == IDC_DOWNLOAD_BROWSE ? IDC_DOWNLOAD_FOLDER : IDC_TEMP_FOLDER);
            ::SendMessageA(::GetParent(dialog), PSM_CHANGED, reinterpret_cast<WPARAM>(dialog), 0);
        } else if (HIWORD(wParam) == EN_CHANGE) {
            ::SendMessageA(::GetParent(dialog), PSM_CHANGED, reinterpret_cast<WPARAM>(dialog), 0);
        }
        return TRUE;
    case WM_NOTIFY: {
        const auto& header = *reinterpret_cast<const NMHDR*>(lParam);
        if (header.code == PSN_KILLACTIVE) {
            ::SetWindowLongPtrA(dialog, DWLP_MSGRESULT, state && !Validate(dialog, *state));
            return TRUE;
        }
        if (header.code == PSN_APPLY) {
            if (!state || !Validate(dialog, *state)) {
                ::SetWindowLongPtrA(dialog, DWLP_MSGRESULT, PSNRET_INVALID_NOCHANGEPAGE);
                return TRUE;
            }
            Save(dialog);
            ::SetWindowLongPtrA(dialog, DWLP_MSGRESULT, PSNRET_NOERROR);
            return TRUE;
        }
        return FALSE;
    }
    default:
        return FALSE;
    }
}

UINT CALLBACK PageCallback(HWND, UINT message, PROPSHEETPAGEA* page) {
    if (message == PSPCB_RELEASE)
        delete reinterpret_cast<PageState*>(page->lParam);
    return 1;
}

} // namespace

HPROPSHEETPAGE CreateDownloadUploadPage(shell::PanelSite& site) {
    return CreateDownloadUploadPage(site, [&site](const std::string& text) {
        ::MessageBoxA(site.MainWindow(), text.c_str(), "Tarvo Explorer", MB_OK | MB_ICONWARNING);
    });
}

HPROPSHEETPAGE CreateDownloadUploadPage(shell::PanelSite& site,
                                        std::function<void(const std::string&)> report) {
    PROPSHEETPAGEA page = {};
    page.dwSize = sizeof page;
    page.dwFlags = PSP_DEFAULT | PSP_USECALLBACK;
    page.hInstance = corvid::win::ModuleHandle();
    page.pszTemplate = MAKEINTRESOURCEA(IDD_DOWNLOAD_UPLOAD);
    page.pfnDlgProc = &PageProcedure;
    page.pfnCallback = &PageCallback;
    auto* state = new PageState{site, std::move(report), {}};
    // A page's tab shows its template's caption; only a title given here replaces it.
    if (auto caption = site.Language().ChangesForDialog(IDD_DOWNLOAD_UPLOAD).caption) {
        state->title = std::move(*caption);
        page.dwFlags |= PSP_USETITLE;
        page.pszTitle = state->title.c_str();
    }
    page.lParam = reinterpret_cast<LPARAM>(state);
    HPROPSHEETPAGE created = ::CreatePropertySheetPageA(&page);
    if (!created)
        delete state;
    return created;
}

} // namespace corvid::transfer::win
