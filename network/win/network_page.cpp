#include "engine_h.h"
#include "markup/language_table.h"
#include "network/network_options.h"
#include "network/win/config_paths.h"
#include "network/win/dialog_language.h"
#include "network/win/netviews_ids.h"
#include "network/win/options_sheet.h"
#include "network/win/settings_files.h"
#include "platform/win/module.h"

#include <commctrl.h>

#include <array>
#include <memory>
#include <string>

namespace corvid::network {

namespace {

constexpr std::array<int, kNumberFieldCount> kFieldIds = {
    IDC_PORT,           IDC_UPLOAD_PORT,    IDC_PEER_MAX,
    IDC_ULTRA_PEER_MAX, IDC_ULTRA_PEER_MIN, IDC_LEAF_PEER_MAX,
};
constexpr std::array<int, kNumberFieldCount> kSpinIds = {
    IDC_PORT_SPIN,           IDC_UPLOAD_PORT_SPIN,    IDC_PEER_MAX_SPIN,
    IDC_ULTRA_PEER_MAX_SPIN, IDC_ULTRA_PEER_MIN_SPIN, IDC_LEAF_PEER_MAX_SPIN,
};
// Ports take the whole port range; a node keeping more than 500 connections of one kind is a
// typing error, not a setting.
constexpr std::array<int, kNumberFieldCount> kSpinMaximum = {65535, 65535, 500, 500, 500, 500};
constexpr std::uint32_t kNodeTypeNames = 348; // 348-351: automatic, ultra, leaf, serverlet

class NetworkPage {
public:
    explicit NetworkPage(shell::PanelSite& site) : site_(site), profile_(NetworkIniPath()) {}

    HPROPSHEETPAGE Make() {
        PROPSHEETPAGEA page = {};
        page.dwSize = sizeof page;
        page.dwFlags = PSP_USECALLBACK;
        page.hInstance = win::ModuleHandle();
        page.pszTemplate = MAKEINTRESOURCEA(IDD_NETWORK_PAGE);
        page.pfnDlgProc = Procedure;
        page.pfnCallback = Release;
        page.lParam = reinterpret_cast<LPARAM>(this);
        // A page's tab shows its template's caption; only a title given here replaces it.
        if (auto caption = site_.Language().ChangesForDialog(IDD_NETWORK_PAGE).caption) {
            title_ = std::move(*caption);
            page.dwFlags |= PSP_USETITLE;
            page.pszTitle = title_.c_str();
        }
        return ::CreatePropertySheetPageA(&page);
    }

private:
    static INT_PTR CALLBACK Procedure(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message == WM_INITDIALOG) {
            auto* self = reinterpret_cast<NetworkPage*>(
                reinterpret_cast<const PROPSHEETPAGEA*>(lParam)->lParam);
            ::SetWindowLongPtrA(dialog, DWLP_USER, reinterpret_cast<LONG_PTR>(self));
            self->dialog_ = dialog;
            self->Load();
            return TRUE;
        }
        auto* self = reinterpret_cast<NetworkPage*>(::GetWindowLongPtrA(dialog, DWLP_USER));
        return self ? self->Handle(message, wParam, lParam) : FALSE;
    }

    static UINT CALLBACK Release(HWND, UINT message, PROPSHEETPAGEA* page) {
        if (message == PSPCB_RELEASE) {
            delete reinterpret_cast<NetworkPage*>(page->lParam);
        }
        return 1;
    }

    INT_PTR Handle(UINT message, WPARAM wParam, LPARAM lParam) {
        switch (message) {
        case WM_COMMAND:
            if (loaded_ && (HIWORD(wParam) == EN_CHANGE || HIWORD(wParam) == BN_CLICKED ||
                            HIWORD(wParam) == CBN_SELCHANGE)) {
                PropSheet_Changed(::GetParent(dialog_), dialog_);
            }
            return FALSE;
        case WM_NOTIFY:
            if (reinterpret_cast<const NMHDR*>(lParam)->code == PSN_APPLY) {
                ::SetWindowLongPtrA(dialog_, DWLP_MSGRESULT,
                                    Apply() ? PSNRET_NOERROR : PSNRET_INVALID_NOCHANGEPAGE);
                return TRUE;
            }
            return FALSE;
        }
        return FALSE;
    }

    void Load() {
        const LanguageTable& language = site_.Language();
        TranslateDialog(dialog_, language, IDD_NETWORK_PAGE);
        const NetworkPageValues values = LoadNetworkPage(profile_, settings_);
        const HWND nodeType = ::GetDlgItem(dialog_, IDC_NODE_TYPE);
        for (std::uint32_t i = 0; i < 4; ++i) {
            ::SendMessageA(nodeType, CB_ADDSTRING, 0,
                           reinterpret_cast<LPARAM>(Text(language, kNodeTypeNames + i).c_str()));
        }
        ::SendMessageA(nodeType, CB_SETCURSEL, values.nodeMode, 0);
        ::CheckDlgButton(dialog_, IDC_AUTO_ONLINE, values.autoOnline ? BST_CHECKED : 0);
        ::CheckDlgButton(dialog_, IDC_AUTO_RESUME, values.autoResume ? BST_CHECKED : 0);
        ::CheckDlgButton(dialog_, IDC_BEHIND_FIREWALL, values.behindFirewall ? BST_CHECKED : 0);
        for (int field = 0; field < kNumberFieldCount; ++field) {
            ::SendDlgItemMessageA(dialog_, kSpinIds[field], UDM_SETRANGE32, 1, kSpinMaximum[field]);
            ::SetDlgItemInt(dialog_, kFieldIds[field], values.numbers[field], FALSE);
        }
        loaded_ = true;
    }

    bool Apply() {
        NetworkPageInput input;
        input.autoOnline = ::IsDlgButtonChecked(dialog_, IDC_AUTO_ONLINE) == BST_CHECKED;
        input.autoResume = ::IsDlgButtonChecked(dialog_, IDC_AUTO_RESUME) == BST_CHECKED;
        input.behindFirewall = ::IsDlgButtonChecked(dialog_, IDC_BEHIND_FIREWALL) == BST_CHECKED;
        const LRESULT nodeMode = ::SendDlgItemMessageA(dialog_, IDC_NODE_TYPE, CB_GETCURSEL, 0, 0);
        input.nodeMode = nodeMode >= 0 && nodeMode <= 3 ? static_cast<int>(nodeMode) : 0;
        for (int field = 0; field < kNumberFieldCount; ++field) {
            char text[32] = {};
            ::GetDlgItemTextA(dialog_, kFieldIds[field], text, sizeof text);
            input.numbers[field] = text;
        }
        if (std::optional<NumberField> bad = ApplyNetworkPage(input, profile_, settings_)) {
            const HWND field = ::GetDlgItem(dialog_, kFieldIds[*bad]);
            ::SetFocus(field);
            ::SendMessageA(field, EM_SETSEL, 0, -1);
            return false;
        }
        // The engine reads the file when it starts; a running one is told to read it again so
        // the new counts apply now. A new port or node mode waits for the next connect
        // (S_FALSE) and a failure only delays everything to the next start: neither is worth a
        // box the user must close.
        if (IGnutellaEngine* engine = site_.Engine()) {
            engine->ReloadSettings();
        }
        return true;
    }

    shell::PanelSite& site_;
    ProfileFile profile_;
    RegistrySettings settings_;
    // The tab's title in the user's language; the sheet reads it until the page is released.
    std::string title_;
    HWND dialog_ = nullptr;
    bool loaded_ = false;
};

} // namespace

HPROPSHEETPAGE CreateNetworkPage(shell::PanelSite& site) {
    auto page = std::make_unique<NetworkPage>(site);
    HPROPSHEETPAGE made = page->Make();
    if (made) {
        // The sheet owns it now; PSPCB_RELEASE frees it.
        page.release();
    }
    return made;
}

} // namespace corvid::network
