#include "host/host_window.h"

#include "host/settings_dialog.h"
#include "platform/win/text.h"

#include <commctrl.h>

#include <algorithm>

namespace corvid::host {

namespace {

enum HostCommand : int {
    kHide = 100,
    kExit,
    kLockToolbars,
    kTabPanel,
    kBrowserOptions,
    kAbout,
    kSearchButton,
    kFirstPlugInCommand = 1000,
    kLastPlugInCommand = 30000,
};

constexpr UINT_PTR kQuitTimer = 7;
constexpr UINT kMsgAfterShow = WM_APP + 30;

struct HostCommandName {
    const char* name;
    int id;
};
constexpr HostCommandName kHostCommands[] = {
    {"sys_hide", kHide},
    {"sys_exit", kExit},
    {"sys_lock_toolbars", kLockToolbars},
    {"sys_tabpanel", kTabPanel},
    {"sys_browser_options", kBrowserOptions},
    {"sys_about", kAbout},
};

const wchar_t* const kSearchTypes[] = {L"All",   L"Audio",    L"Video",
                                       L"Image", L"Document", L"Application"};

constexpr int kMargin = 6;

} // namespace

// The window the plug-in lives in: it only keeps the plug-in sized to itself.
class TabPage final : public win::WindowBase {
public:
    bool Create(HWND parent) {
        RECT rect = {0, 0, 100, 100};
        return WindowBase::Create("TarvoTabPage", "", WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN, 0,
                                  parent, rect, nullptr, 0,
                                  reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1)) != nullptr;
    }
    void SetPlugIn(ITarvoPlugIn* plugIn) { plugIn_ = plugIn; }

protected:
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override {
        if (message == WM_SIZE && plugIn_) {
            plugIn_->SetRect(0, 0, LOWORD(lParam), HIWORD(lParam));
            return 0;
        }
        if (message == WM_SETFOCUS && plugIn_) {
            plugIn_->Focus();
            return 0;
        }
        return Default(message, wParam, lParam);
    }

private:
    ITarvoPlugIn* plugIn_ = nullptr;
};

HostWindow::HostWindow(std::wstring hostFolder, HostOptions options)
    : hostFolder_(std::move(hostFolder)), options_(std::move(options)) {}

HostWindow::~HostWindow() {
    Close();
    if (font_) {
        ::DeleteObject(font_);
    }
}

bool HostWindow::Open(ITarvoPlugIn* plugIn) {
    RECT rect = {0, 0, 1024, 768};
    if (!Create(kFrameClass, "Tarvo Explorer - Corvid", WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN, 0,
                nullptr, rect, nullptr, CS_HREDRAW | CS_VREDRAW,
                reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1))) {
        return false;
    }
    host_ = HostObject::Make(*this, hostFolder_);
    DWORD locked = 0;
    lockedToolbars_ = ReadHostDword(L"Lock Toolbars", locked) && locked == 1;

    NONCLIENTMETRICSA metrics = {};
    metrics.cbSize = sizeof metrics;
    ::SystemParametersInfoA(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0);
    font_ = ::CreateFontIndirectA(&metrics.lfMessageFont);
    auto child = [&](const char* className, const char* text, DWORD style, int id,
                     DWORD exStyle = 0) {
        HWND made =
            ::CreateWindowExA(exStyle, className, text, WS_CHILD | WS_VISIBLE | style, 0, 0, 10, 10,
                              hwnd(), reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                              ::GetModuleHandleA(nullptr), nullptr);
        ::SendMessageA(made, WM_SETFONT, reinterpret_cast<WPARAM>(font_), FALSE);
        return made;
    };
    searchLabel_ = child("STATIC", "Search the Gnutella network:", SS_LEFT | SS_CENTERIMAGE, 0);
    searchEdit_ = child("EDIT", "", ES_AUTOHSCROLL | WS_TABSTOP, 0, WS_EX_CLIENTEDGE);
    searchType_ = child("COMBOBOX", "", CBS_DROPDOWNLIST | WS_TABSTOP | WS_VSCROLL, 0);
    for (const wchar_t* type : kSearchTypes) {
        ::SendMessageW(searchType_, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(type));
    }
    ::SendMessageA(searchType_, CB_SETCURSEL, 0, 0);
    searchButton_ = child("BUTTON", "&Search", BS_PUSHBUTTON | WS_TABSTOP, kSearchButton);
    tabs_ = child(WC_TABCONTROLA, "", TCS_FOCUSNEVER | WS_CLIPSIBLINGS, 0);
    TCITEMA item = {};
    item.mask = TCIF_TEXT;
    char title[] = "Corvid";
    item.pszText = title;
    ::SendMessageA(tabs_, TCM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&item));
    page_ = std::make_unique<TabPage>();
    page_->Create(hwnd());
    ::SetWindowPos(page_->hwnd(), HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);

    plugIn_ = win::ComPtr<ITarvoPlugIn>(plugIn);
    const std::wstring language = ReadHostString(L"Language");
    const std::wstring skin = ReadHostString(L"Skin");
    win::Bstr languageText(language.c_str());
    win::Bstr skinText(skin.c_str());
    plugIn_->SetLanguage(languageText.get(), 0);
    plugIn_->ApplySkin(skinText.get(), 0);
    page_->SetPlugIn(plugIn_.get());
    if (FAILED(plugIn_->Attach(host_->Identity(), page_->hwnd()))) {
        page_->SetPlugIn(nullptr);
        plugIn_.reset();
        return false;
    }
    if (FAILED(plugIn_->GetToolbar(hwnd(), &toolbar_))) {
        toolbar_ = nullptr;
    }
    ReloadMenus();
    LayOut();
    ::ShowWindow(hwnd(), SW_SHOW);
    ::UpdateWindow(hwnd());
    ::PostMessageA(hwnd(), kMsgAfterShow, 0, 0);
    if (!options_.quitFile.empty()) {
        ::SetTimer(hwnd(), kQuitTimer, 200, nullptr);
    }
    return true;
}

bool HostWindow::PreTranslate(MSG& message) {
    if (!hwnd()) {
        return false;
    }
    if (message.message == WM_KEYDOWN && message.wParam == VK_RETURN &&
        message.hwnd == searchEdit_) {
        Search();
        return true;
    }
    return ::IsDialogMessageW(hwnd(), &message) != FALSE;
}

void HostWindow::Close() {
    if (plugIn_) {
        page_->SetPlugIn(nullptr);
        plugIn_->Detach();
        plugIn_.reset();
    }
    if (host_) {
        host_->DisconnectAll();
        host_->DetachFrame();
        host_.reset();
    }
}

void HostWindow::OnWindowGone() {
    ::PostQuitMessage(0);
}

void HostWindow::LayOut() {
    if (!hwnd() || !tabs_) {
        return;
    }
    RECT client = {};
    ::GetClientRect(hwnd(), &client);
    int y = 0;
    if (toolbar_) {
        RECT bar = {};
        ::GetWindowRect(toolbar_, &bar);
        const int height = bar.bottom - bar.top;
        ::MoveWindow(toolbar_, 0, 0, client.right, height, TRUE);
        y += height;
    }
    const int row = 24;
    y += 4;
    const int labelWidth = 170;
    const int buttonWidth = 84;
    const int typeWidth = 120;
    int x = kMargin;
    ::MoveWindow(searchLabel_, x, y, labelWidth, row, TRUE);
    x += labelWidth + kMargin;
    const int editWidth =
        std::max<int>(client.right - x - typeWidth - buttonWidth - 4 * kMargin, 80);
    ::MoveWindow(searchEdit_, x, y, editWidth, row, TRUE);
    x += editWidth + kMargin;
    ::MoveWindow(searchType_, x, y, typeWidth, 200, TRUE);
    x += typeWidth + kMargin;
    ::MoveWindow(searchButton_, x, y - 1, buttonWidth, row + 2, TRUE);
    y += row + 6;
    ::MoveWindow(tabs_, 2, y, client.right - 4, client.bottom - y - 2, TRUE);
    RECT page = {2, y, client.right - 2, client.bottom - 2};
    ::SendMessageA(tabs_, TCM_ADJUSTRECT, FALSE, reinterpret_cast<LPARAM>(&page));
    ::MoveWindow(page_->hwnd(), page.left, page.top, page.right - page.left, page.bottom - page.top,
                 TRUE);
}

HMENU HostWindow::BuildMenu(const MenuEntry& menu, bool bar) {
    HMENU made = bar ? ::CreateMenu() : ::CreatePopupMenu();
    for (const MenuEntry& entry : menu.children) {
        if (entry.separator) {
            ::AppendMenuA(made, MF_SEPARATOR, 0, nullptr);
        } else if (entry.isMenu) {
            HMENU popup = BuildMenu(entry, false);
            ::AppendMenuA(made, MF_POPUP, reinterpret_cast<UINT_PTR>(popup), entry.label.c_str());
        } else if (entry.dynamic) {
            dynamicPopups_[made] = entry.id;
        } else {
            int id = 0;
            for (const HostCommandName& command : kHostCommands) {
                if (entry.id == command.name) {
                    id = command.id;
                }
            }
            if (id == 0 && entry.fromPlugIn && nextPlugInId_ < kLastPlugInCommand) {
                auto known = ids_.find(entry.id);
                id = known != ids_.end() ? known->second : nextPlugInId_++;
                names_[id] = entry.id;
                ids_[entry.id] = id;
            }
            ::AppendMenuA(made, id ? MF_STRING : MF_STRING | MF_GRAYED, id, entry.label.c_str());
        }
    }
    return made;
}

void HostWindow::ReloadMenus() {
    if (!hwnd()) {
        return;
    }
    bar_ = HostMenuBar();
    if (plugIn_) {
        win::Bstr root(L"IDR_XML_MENU");
        win::Bstr text;
        if (plugIn_->GetMenu(root.get(), text.put()) == S_OK) {
            MergePlugInMenus(bar_, win::BstrToAnsi(text.get()));
        }
    }
    dynamicPopups_.clear();
    if (nextPlugInId_ == 0) {
        nextPlugInId_ = kFirstPlugInCommand;
    }
    HMENU old = menu_;
    menu_ = BuildMenu(bar_, true);
    ::SetMenu(hwnd(), menu_);
    if (old) {
        ::DestroyMenu(old);
    }
    ::CheckMenuItem(menu_, kLockToolbars, lockedToolbars_ ? MF_CHECKED : MF_UNCHECKED);
    DWORD visible = 1;
    ::CheckMenuItem(menu_, kTabPanel,
                    !ReadHostDword(L"Tab Visible", visible) || visible == 1 ? MF_CHECKED
                                                                            : MF_UNCHECKED);
    for (const auto& [name, id] : ids_) {
        const int state = host_ ? host_->CommandState(name) : -1;
        if (state >= 0) {
            ApplyState(name, state);
        }
    }
    ReportMenus();
}

void HostWindow::ApplyState(const std::string& name, int state) {
    auto found = ids_.find(name);
    if (found == ids_.end() || !menu_) {
        return;
    }
    ::EnableMenuItem(menu_, found->second,
                     MF_BYCOMMAND | ((state & MF_GRAYED) ? MF_GRAYED : MF_ENABLED));
    ::CheckMenuItem(menu_, found->second,
                    MF_BYCOMMAND | ((state & MF_CHECKED) ? MF_CHECKED : MF_UNCHECKED));
}

void HostWindow::CommandStateChanged(const std::string& name, int state) {
    ApplyState(name, state);
    ReportMenus();
}

namespace {

void DescribeMenu(HMENU menu, int depth, std::string& out) {
    const int count = ::GetMenuItemCount(menu);
    for (int i = 0; i < count; ++i) {
        char text[256] = {};
        MENUITEMINFOA info = {};
        info.cbSize = sizeof info;
        info.fMask = MIIM_FTYPE | MIIM_STATE | MIIM_ID | MIIM_SUBMENU | MIIM_STRING;
        info.dwTypeData = text;
        info.cch = sizeof text;
        if (!::GetMenuItemInfoA(menu, i, TRUE, &info)) {
            continue;
        }
        out.append(static_cast<std::size_t>(depth), '\t');
        if (info.fType & MFT_SEPARATOR) {
            out += "-\n";
            continue;
        }
        out += text;
        out += '|';
        out += std::to_string(info.wID);
        out += '|';
        out += (info.fState & MFS_GRAYED) ? "g" : "";
        out += (info.fState & MFS_CHECKED) ? "c" : "";
        out += "\n";
        if (info.hSubMenu) {
            DescribeMenu(info.hSubMenu, depth + 1, out);
        }
    }
}

} // namespace

void HostWindow::ReportMenus() {
    if (options_.menuReport.empty() || !menu_) {
        return;
    }
    std::string report;
    DescribeMenu(menu_, 0, report);
    // Written aside and moved into place, so a reader never sees half a report.
    const std::wstring aside = options_.menuReport + L".new";
    HANDLE file = ::CreateFileW(aside.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return;
    }
    DWORD written = 0;
    ::WriteFile(file, report.data(), static_cast<DWORD>(report.size()), &written, nullptr);
    ::CloseHandle(file);
    ::MoveFileExW(aside.c_str(), options_.menuReport.c_str(), MOVEFILE_REPLACE_EXISTING);
}

void HostWindow::SetTabTitle(const std::wstring& title) {
    TCITEMW item = {};
    item.mask = TCIF_TEXT;
    std::wstring text = title;
    item.pszText = text.data();
    ::SendMessageW(tabs_, TCM_SETITEMW, 0, reinterpret_cast<LPARAM>(&item));
}

// The plug-in's list (the open search windows) is asked for each time its menu opens.
void HostWindow::FillDynamic(HMENU popup) {
    auto found = dynamicPopups_.find(popup);
    if (found == dynamicPopups_.end() || !plugIn_) {
        return;
    }
    while (::GetMenuItemCount(popup) > 0) {
        ::DeleteMenu(popup, 0, MF_BYPOSITION);
    }
    win::Bstr id(win::ToWide(found->second).c_str());
    win::Bstr text;
    if (plugIn_->GetMenu(id.get(), text.put()) != S_OK) {
        return;
    }
    for (const MenuEntry& entry : ReadMenuItems(win::BstrToAnsi(text.get()))) {
        if (entry.separator) {
            ::AppendMenuA(popup, MF_SEPARATOR, 0, nullptr);
            continue;
        }
        auto known = ids_.find(entry.id);
        int itemId = 0;
        if (known != ids_.end()) {
            itemId = known->second;
        } else if (nextPlugInId_ < kLastPlugInCommand) {
            itemId = nextPlugInId_++;
            names_[itemId] = entry.id;
            ids_[entry.id] = itemId;
        }
        const bool none =
            entry.id.size() > 5 && entry.id.compare(entry.id.size() - 5, 5, "_none") == 0;
        ::AppendMenuA(popup, none ? MF_STRING | MF_GRAYED : MF_STRING, itemId, entry.label.c_str());
    }
}

void HostWindow::Search() {
    if (!plugIn_) {
        return;
    }
    // Exactly what the plug-in's home page script does: a late-bound call by name.
    win::ComPtr<IDispatch> script;
    if (FAILED(plugIn_.As(IID_IDispatch, script))) {
        return;
    }
    wchar_t name[] = L"SearchOnP2P";
    LPOLESTR names[] = {name};
    DISPID id = 0;
    if (FAILED(script->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id))) {
        return;
    }
    const int length = ::GetWindowTextLengthW(searchEdit_);
    std::wstring keywords(static_cast<std::size_t>(length) + 1, L'\0');
    ::GetWindowTextW(searchEdit_, keywords.data(), length + 1);
    keywords.resize(static_cast<std::size_t>(length));
    const int typeIndex = static_cast<int>(::SendMessageA(searchType_, CB_GETCURSEL, 0, 0));
    const wchar_t* type = typeIndex >= 0 && typeIndex < static_cast<int>(std::size(kSearchTypes))
                              ? kSearchTypes[typeIndex]
                              : L"All";
    win::Bstr keywordText(keywords.c_str());
    win::Bstr typeText(type);
    VARIANT arguments[2];
    ::VariantInit(&arguments[0]);
    ::VariantInit(&arguments[1]);
    arguments[1].vt = VT_BSTR; // arguments go in reverse order
    arguments[1].bstrVal = keywordText.get();
    arguments[0].vt = VT_BSTR;
    arguments[0].bstrVal = typeText.get();
    DISPPARAMS parameters = {arguments, nullptr, 2, 0};
    script->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, nullptr,
                   nullptr, nullptr);
}

void HostWindow::OpenSettings() {
    const SettingsOutcome outcome = RunSettingsDialog(hwnd(), hostFolder_);
    if (!outcome.saved || !host_) {
        return;
    }
    if (plugIn_ && outcome.skinChanged) {
        win::Bstr skin(outcome.skin.c_str());
        plugIn_->ApplySkin(skin.get(), 1);
    }
    if (plugIn_ && outcome.languageChanged) {
        win::Bstr language(outcome.language.c_str());
        plugIn_->SetLanguage(language.get(), 1);
    }
    host_->FireSettingsChanged();
    ReloadMenus();
    LayOut();
}

void HostWindow::OnCommand(int id) {
    switch (id) {
    case kHide:
        ::ShowWindow(hwnd(), SW_MINIMIZE);
        return;
    case kExit:
        ::DestroyWindow(hwnd());
        return;
    case kLockToolbars:
        lockedToolbars_ = !lockedToolbars_;
        WriteHostDword(L"Lock Toolbars", lockedToolbars_ ? 1 : 0);
        ::CheckMenuItem(menu_, kLockToolbars, lockedToolbars_ ? MF_CHECKED : MF_UNCHECKED);
        ReportMenus();
        return;
    case kTabPanel: {
        DWORD visible = 1;
        const bool shown = !ReadHostDword(L"Tab Visible", visible) || visible == 1;
        WriteHostDword(L"Tab Visible", shown ? 0 : 1);
        ::CheckMenuItem(menu_, kTabPanel, shown ? MF_UNCHECKED : MF_CHECKED);
        if (host_) {
            host_->FireSettingsChanged();
        }
        return;
    }
    case kBrowserOptions:
        OpenSettings();
        return;
    case kAbout:
        ::MessageBoxA(hwnd(), "Tarvo Explorer\n\nA small host for the Corvid Gnutella plug-in.",
                      "Tarvo Explorer", MB_OK | MB_ICONINFORMATION);
        return;
    case kSearchButton:
        Search();
        return;
    default:
        break;
    }
    auto found = names_.find(id);
    if (found != names_.end() && plugIn_) {
        win::Bstr name(win::ToWide(found->second).c_str());
        LONG handled = 0;
        plugIn_->Execute(name.get(), &handled);
    }
}

LRESULT HostWindow::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_SIZE:
        LayOut();
        return 0;
    case WM_GETMINMAXINFO: {
        auto* limits = reinterpret_cast<MINMAXINFO*>(lParam);
        limits->ptMinTrackSize = {640, 420};
        return 0;
    }
    case WM_COMMAND:
        if (HIWORD(wParam) == 0 || HIWORD(wParam) == BN_CLICKED) {
            OnCommand(LOWORD(wParam));
        }
        return 0;
    case WM_INITMENUPOPUP:
        FillDynamic(reinterpret_cast<HMENU>(wParam));
        return 0;
    case kMsgAfterShow:
        // Ready before the search: a search while offline asks its question in a modal box.
        if (!options_.readyFile.empty()) {
            HANDLE file = ::CreateFileW(options_.readyFile.c_str(), GENERIC_WRITE, 0, nullptr,
                                        CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
            if (file != INVALID_HANDLE_VALUE) {
                ::CloseHandle(file);
            }
        }
        if (options_.search) {
            ::SetWindowTextW(searchEdit_, options_.searchKeywords.c_str());
            for (int i = 0; i < static_cast<int>(std::size(kSearchTypes)); ++i) {
                if (::lstrcmpiW(kSearchTypes[i], options_.searchType.c_str()) == 0) {
                    ::SendMessageA(searchType_, CB_SETCURSEL, i, 0);
                }
            }
            Search();
        }
        return 0;
    case WM_TIMER:
        if (wParam == kQuitTimer &&
            ::GetFileAttributesW(options_.quitFile.c_str()) != INVALID_FILE_ATTRIBUTES) {
            ::KillTimer(hwnd(), kQuitTimer);
            ::DestroyWindow(hwnd());
        }
        return 0;
    case WM_CLOSE:
        ::DestroyWindow(hwnd());
        return 0;
    case WM_DESTROY:
        Close();
        if (menu_) {
            ::SetMenu(hwnd(), nullptr);
            ::DestroyMenu(menu_);
            menu_ = nullptr;
        }
        return 0;
    default:
        return Default(message, wParam, lParam);
    }
}

} // namespace corvid::host
