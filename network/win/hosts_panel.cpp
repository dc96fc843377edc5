#include "network/win/hosts_panel.h"

#include "engine_h.h"
#include "markup/language_table.h"
#include "network/host_info.h"
#include "network/win/dialog_language.h"
#include "network/win/netviews_ids.h"
#include "network/win/options_sheet.h"
#include "platform/win/com_error.h"
#include "platform/win/handles.h"
#include "platform/win/list_view.h"
#include "platform/win/module.h"
#include "platform/win/text.h"
#include "platform/win/window.h"
#include "search/win/search_dialogs.h"

#include <commctrl.h>

namespace corvid::network {

namespace {

constexpr UINT_PTR kRefreshTimer = 1;
constexpr UINT kRefreshPeriodMs = 1000;
constexpr int kListId = 100;
constexpr std::uint32_t kHostsTitle = 36124; // "Hosts", the main view's tab title

class HostsPanel : public shell::Panel, private win::WindowBase {
public:
    HostsPanel(shell::PanelSite& site, HostsViewPorts ports)
        : site_(site), ports_(std::move(ports)) {}

    bool Create(HWND parent) override {
        RECT rect = {0, 0, 0, 0};
        if (!WindowBase::Create("CorvidHostsView", "", WS_CHILD | WS_CLIPCHILDREN, 0, parent,
                                rect)) {
            return false;
        }
        list_ = ::CreateWindowExA(
            WS_EX_CLIENTEDGE, WC_LISTVIEWA, "",
            WS_CHILD | WS_VISIBLE | LVS_REPORT | LVS_OWNERDATA | LVS_SINGLESEL | LVS_SHOWSELALWAYS,
            0, 0, 0, 0, hwnd(), reinterpret_cast<HMENU>(kListId), win::ModuleHandle(), nullptr);
        if (!list_) {
            return false;
        }
        ListView_SetExtendedListViewStyle(list_, LVS_EX_FULLROWSELECT | LVS_EX_HEADERDRAGDROP |
                                                     LVS_EX_INFOTIP);
        static constexpr int kWidths[] = {130, 70, 60, 80, 80, 80, 95, 70, 150, 70};
        for (std::size_t i = 0; i < kHostColumns.size(); ++i) {
            win::AddListColumn(list_, static_cast<int>(i), kWidths[i], LVCFMT_LEFT,
                               Text(site_.Language(), kHostColumns[i]).c_str());
        }
        ::SetTimer(hwnd(), kRefreshTimer, kRefreshPeriodMs, nullptr);
        return true;
    }

    HWND Window() const override { return hwnd(); }
    std::string Title() const override { return Text(site_.Language(), kHostsTitle); }

    // The engine came or went: a new one's nodes show at once rather than at the next tick.
    void OnEngine(IGnutellaEngine* engine) override {
        if (engine) {
            Guarded([this] { Refresh(); });
        }
    }

    // The options sheet belongs to the network views: the main view hands its command here.
    bool OnPanelCommand(const std::string& name) override {
        if (name != "p2p_options") {
            return false;
        }
        ShowOptionsSheet(site_);
        return true;
    }

    void ApplyLanguage() override {
        for (std::size_t i = 0; i < kHostColumns.size(); ++i) {
            LVCOLUMNA column = {};
            column.mask = LVCF_TEXT;
            std::string title = Text(site_.Language(), kHostColumns[i]);
            column.pszText = title.data();
            ::SendMessageA(list_, LVM_SETCOLUMNA, i, reinterpret_cast<LPARAM>(&column));
        }
    }

private:
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override {
        switch (message) {
        case WM_SIZE:
            ::MoveWindow(list_, 0, 0, LOWORD(lParam), HIWORD(lParam), TRUE);
            return 0;
        case WM_TIMER:
            if (wParam == kRefreshTimer) {
                Guarded([this] { Refresh(); });
            }
            return 0;
        case WM_NOTIFY:
            return OnNotify(*reinterpret_cast<NMHDR*>(lParam));
        case WM_CONTEXTMENU:
            ShowPopup(lParam);
            return 0;
        case WM_COMMAND:
            Guarded([this, wParam] { OnCommand(LOWORD(wParam)); });
            return 0;
        case WM_DESTROY:
            ::KillTimer(hwnd(), kRefreshTimer);
            break;
        }
        return Default(message, wParam, lParam);
    }

    // A failing engine call ends the operation it was part of, and nothing more.
    template <typename Body> static void Guarded(Body&& body) {
        try {
            body();
        } catch (const win::ComError&) {
            ::MessageBeep(MB_ICONWARNING);
        }
    }

    void Refresh() {
        IGnutellaEngine* engine = site_.Engine();
        if (!engine) {
            return;
        }
        const std::string remembered = SelectedRow() ? table_.Cell(*SelectedRow(), 0) : "";
        win::Bstr text;
        win::ThrowIfFailed(engine->GetHostsInfo(text.put()), IID_IGnutellaEngine);
        table_.Rebuild(win::BstrToAnsi(text.get()), ports_.tickCount());

        ListView_SetItemState(list_, -1, 0, LVIS_SELECTED | LVIS_FOCUSED);
        ListView_SetItemCountEx(list_, static_cast<int>(table_.RowCount()), LVSICF_NOSCROLL);
        if (std::optional<std::size_t> row = table_.FindByFirstColumn(remembered)) {
            const int index = static_cast<int>(*row);
            ListView_SetItemState(list_, index, LVIS_SELECTED | LVIS_FOCUSED,
                                  LVIS_SELECTED | LVIS_FOCUSED);
            ListView_EnsureVisible(list_, index, FALSE);
        }
        ::InvalidateRect(list_, nullptr, FALSE);
    }

    std::optional<std::size_t> SelectedRow() const {
        const int index = ListView_GetNextItem(list_, -1, LVNI_SELECTED);
        if (index < 0 || static_cast<std::size_t>(index) >= table_.RowCount()) {
            return std::nullopt;
        }
        return static_cast<std::size_t>(index);
    }

    LRESULT OnNotify(const NMHDR& header) {
        if (header.hwndFrom != list_) {
            return 0;
        }
        switch (header.code) {
        case LVN_GETDISPINFOA: {
            LVITEMA& item =
                const_cast<NMLVDISPINFOA&>(reinterpret_cast<const NMLVDISPINFOA&>(header)).item;
            if ((item.mask & LVIF_TEXT) && item.pszText && item.cchTextMax > 0) {
                const std::string& cell = table_.Cell(item.iItem, item.iSubItem);
                lstrcpynA(item.pszText, cell.c_str(), item.cchTextMax);
            }
            return 0;
        }
        case NM_DBLCLK:
            OnCommand(ID_HOSTS_PROPERTIES);
            return 0;
        }
        return 0;
    }

    void ShowPopup(LPARAM at) {
        win::UniqueHandle<MenuTraits> menu(
            ::LoadMenuA(win::ModuleHandle(), MAKEINTRESOURCEA(IDR_HOSTS_POPUP)));
        if (!menu) {
            return;
        }
        HMENU popup = ::GetSubMenu(menu.get(), 0);
        const std::string addNode = Text(site_.Language(), ID_HOSTS_ADD_NODE);
        if (!addNode.empty()) {
            ::ModifyMenuA(popup, ID_HOSTS_ADD_NODE, MF_BYCOMMAND | MF_STRING, ID_HOSTS_ADD_NODE,
                          addNode.c_str());
        }
        const bool engine = site_.Engine() != nullptr;
        const bool selected = SelectedRow().has_value();
        ::EnableMenuItem(popup, ID_HOSTS_ADD_NODE, engine ? MF_ENABLED : MF_GRAYED);
        ::EnableMenuItem(popup, ID_HOSTS_DISCONNECT, engine && selected ? MF_ENABLED : MF_GRAYED);
        ::EnableMenuItem(popup, ID_HOSTS_BROWSE, selected ? MF_ENABLED : MF_GRAYED);
        POINT point = {static_cast<short>(LOWORD(at)), static_cast<short>(HIWORD(at))};
        if (at == static_cast<LPARAM>(-1)) {
            // From the keyboard: under the selected row, or the list's corner.
            RECT rect = {};
            const int index = ListView_GetNextItem(list_, -1, LVNI_SELECTED);
            if (index < 0 || !ListView_GetItemRect(list_, index, &rect, LVIR_LABEL)) {
                ::GetClientRect(list_, &rect);
            }
            point = {rect.left, rect.bottom};
            ::ClientToScreen(list_, &point);
        }
        ::TrackPopupMenu(popup, TPM_LEFTALIGN | TPM_RIGHTBUTTON, point.x, point.y, 0, hwnd(),
                         nullptr);
    }

    void OnCommand(int command) {
        IGnutellaEngine* engine = site_.Engine();
        const std::optional<std::size_t> row = SelectedRow();
        switch (command) {
        case ID_HOSTS_ADD_NODE:
            if (engine) {
                if (std::optional<std::string> address = ports_.askAddress(hwnd())) {
                    win::Bstr text(win::ToWide(*address).c_str());
                    win::ThrowIfFailed(engine->ConnectNode(text.get()), IID_IGnutellaEngine);
                }
            }
            break;
        case ID_HOSTS_DISCONNECT:
            // The node id is what the engine knows its connections by.
            if (engine && row) {
                win::Bstr id(win::ToWide(table_.Row(*row).id).c_str());
                win::ThrowIfFailed(engine->DisconnectNode(id.get()), IID_IGnutellaEngine);
            }
            break;
        case ID_HOSTS_BROWSE:
            if (row) {
                if (std::optional<std::string> address = BrowseAddress(table_.Row(*row).node)) {
                    ::SendMessageA(site_.MainWindow(), shell::kMsgBrowseHost, 0,
                                   reinterpret_cast<LPARAM>(address->c_str()));
                }
            }
            break;
        case ID_HOSTS_PROPERTIES:
            // Our choice for Properties: the node's fields in a small dialog, where the long ones
            // (agent, node id) read in full.
            if (row) {
                const LanguageTable& language = site_.Language();
                ports_.showProperties(
                    hwnd(),
                    HostPropertiesText(table_.Row(*row), ports_.tickCount(),
                                       [&](std::uint32_t id) { return Text(language, id); }));
            }
            break;
        }
    }

    struct MenuTraits {
        using Handle = HMENU;
        static Handle Invalid() { return nullptr; }
        static void Close(Handle h) { ::DestroyMenu(h); }
    };

    shell::PanelSite& site_;
    HostsViewPorts ports_;
    HWND list_ = nullptr;
    HostsTable table_;
};

struct PropertiesSetup {
    const LanguageTable* language;
    const std::string* fields;
};

INT_PTR CALLBACK PropertiesProcedure(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_INITDIALOG: {
        const auto& setup = *reinterpret_cast<const PropertiesSetup*>(lParam);
        TranslateDialog(dialog, *setup.language, IDD_HOST_PROPERTIES);
        ::SetDlgItemTextA(dialog, IDC_HOST_FIELDS, setup.fields->c_str());
        return TRUE;
    }
    case WM_COMMAND:
        if (LOWORD(wParam) == IDOK || LOWORD(wParam) == IDCANCEL) {
            ::EndDialog(dialog, LOWORD(wParam));
            return TRUE;
        }
        break;
    }
    return FALSE;
}

} // namespace

std::optional<std::string> AskNodeAddress(HWND owner, const LanguageTable& language) {
    // The browse-host dialog asks for exactly this, and keeps the addresses typed before.
    search::BrowseHostDialog dialog(language, search::BrowseHistoryPath());
    if (dialog.ShowModal(owner) != IDOK) {
        return std::nullopt;
    }
    return dialog.Entry();
}

HostsViewPorts SystemHostsViewPorts(shell::PanelSite& site) {
    HostsViewPorts ports;
    ports.tickCount = [] { return static_cast<std::uint32_t>(::GetTickCount()); };
    ports.askAddress = [&site](HWND owner) { return AskNodeAddress(owner, site.Language()); };
    ports.showProperties = [&site](HWND owner, const std::string& fields) {
        PropertiesSetup setup{&site.Language(), &fields};
        ::DialogBoxParamA(win::ModuleHandle(), MAKEINTRESOURCEA(IDD_HOST_PROPERTIES), owner,
                          PropertiesProcedure, reinterpret_cast<LPARAM>(&setup));
    };
    return ports;
}

std::unique_ptr<shell::Panel> MakeHostsPanel(shell::PanelSite& site) {
    return MakeHostsPanel(site, SystemHostsViewPorts(site));
}

std::unique_ptr<shell::Panel> MakeHostsPanel(shell::PanelSite& site, HostsViewPorts ports) {
    return std::make_unique<HostsPanel>(site, std::move(ports));
}

HWND HostsListOf(HWND hostsPanelWindow) {
    return ::GetDlgItem(hostsPanelWindow, kListId);
}

} // namespace corvid::network
