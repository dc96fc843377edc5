#include "shell/win/main_view.h"

#include "markup/host_files.h"
#include "markup/language_table.h"
#include "markup/skin.h"
#include "platform/win/text.h"
#include "shell/commands.h"
#include "shell/menu.h"
#include "shell/win/customise_dialog.h"
#include "shell/win/panel_table.h"
#include "shell/win/toolbar_store.h"

#include <algorithm>
#include <cstdio>

namespace corvid::shell {

namespace {

// Posted to ourselves: close a tab once the panel that asked has returned.
constexpr UINT kMsgCloseTab = WM_APP + 20;

std::string HostFolder() {
    char path[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string folder(path, length < MAX_PATH ? length : 0);
    const std::size_t cut = folder.find_last_of('\\');
    return cut == std::string::npos ? std::string(".") : folder.substr(0, cut);
}

// The text argument of an event, null and non-text arguments read as empty.
std::string TextArgument(const VARIANT& argument) {
    VARIANT copy;
    ::VariantInit(&copy);
    std::string text;
    if (argument.vt == VT_BSTR) {
        text = win::BstrToAnsi(argument.bstrVal);
    } else if (SUCCEEDED(::VariantChangeType(&copy, const_cast<VARIANT*>(&argument), 0, VT_BSTR))) {
        text = win::BstrToAnsi(copy.bstrVal);
    }
    ::VariantClear(&copy);
    return text;
}

// The wait cursor for as long as it lives.
class WaitCursor {
public:
    WaitCursor() : previous_(::SetCursor(::LoadCursor(nullptr, IDC_WAIT))) {}
    WaitCursor(const WaitCursor&) = delete;
    WaitCursor& operator=(const WaitCursor&) = delete;
    ~WaitCursor() { ::SetCursor(previous_); }

private:
    HCURSOR previous_;
};

} // namespace

void InstallHostFolderFiles() {
    static const StdioHostFiles files(HostFolder());
    InstallHostFiles(&files);
}

MainView::MainView(IUnknown* plugIn, UserPrompt& prompt) : plugIn_(plugIn), prompt_(prompt) {
    InstallHostFolderFiles();
    engineSink_ =
        DispatchSink::Make(DIID__IGnutellaEngineEvents,
                           [this](DISPID id, DISPPARAMS* params) { OnEngineEvent(id, params); });
    hostSink_ = DispatchSink::Make(DIID__ITarvoHostEvents, [this](DISPID id, DISPPARAMS*) {
        if (id == 1) {
            OnHostChanged();
        }
    });
}

MainView::~MainView() {
    engineSink_->Disconnect();
    hostSink_->Disconnect();
    if (hwnd()) {
        ::DestroyWindow(hwnd());
    }
    ShutDown();
}

std::string MainView::Text(std::uint32_t id) const {
    std::string text;
    corvid::Language().LoadText(id, text);
    return text;
}

const LanguageTable& MainView::Language() const {
    return corvid::Language();
}

const SkinRecord& MainView::Skin() const {
    return GlobalSkin();
}

bool MainView::Attach(IUnknown* host, HWND tab) {
    if (hwnd()) {
        return false;
    }
    host_ = std::make_unique<HostLink>(host);
    RECT rect = {};
    ::GetClientRect(tab, &rect);
    if (!Create("CorvidMainView", "Corvid", WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN, 0, tab, rect,
                nullptr, CS_DBLCLKS, nullptr)) {
        return false;
    }
    tabStrip_ = std::make_unique<TabStrip>(*this);
    tabStrip_->Create(hwnd());
    LoadAtCreation(*host_, settings_);
    tabStrip_->Apply(settings_.tabs);
    tabStrip_->SetSkin(GlobalSkin());
    if (hostAdvice_.cookie() == kNotAdvised) {
        hostAdvice_.Advise(host, DIID__ITarvoHostEvents, hostSink_->Identity());
    }
    CreatePanels();
    ::SetTimer(hwnd(), kRefreshTimer, kRefreshPeriodMs, nullptr);
    ShowPanel(kCmdSearch);
    if (!current_ && !panels_.empty()) {
        Show(panels_.front().panel.get());
    }
    Layout();
    UpdateCommands();
    if (AutoOnline(*host_)) {
        try {
            Connect();
        } catch (const win::ComError&) {
            // The engine refused; the user can connect again from the menu.
        }
    }
    return true;
}

void MainView::CreatePanels() {
    std::vector<const PanelEntry*> rows;
    for (const PanelEntry& entry : PanelTable()) {
        rows.push_back(&entry);
    }
    std::stable_sort(rows.begin(), rows.end(), [](const PanelEntry* a, const PanelEntry* b) {
        return a->creationOrder < b->creationOrder;
    });
    // The status bar comes second, after the library view.
    constexpr int kStatusBarOrder = 2;
    auto makeStatusBar = [this] {
        statusBar_ = std::make_unique<StatusBar>();
        if (!statusBar_->Create(hwnd())) {
            statusBar_.reset();
            return;
        }
        statusBar_->SetSkin(GlobalSkin());
        statusBar_->SetText(Text(36172));
        for (int pane : {kPaneResults, kPaneNodes, kPaneShared, kPaneDownloading, kPaneUploading}) {
            statusBar_->SetCounter(pane, 0);
        }
    };
    for (const PanelEntry* row : rows) {
        if (!statusBar_ && row->creationOrder > kStatusBarOrder) {
            makeStatusBar();
        }
        std::unique_ptr<Panel> panel = row->make(*this);
        if (!panel || !panel->Create(hwnd())) {
            continue;
        }
        Panel* made = panel.get();
        // The one row without a command is the information panel.
        hasInfoPanel_ |= row->commandId == 0;
        panels_.push_back({std::move(panel), row->commandId});
        tabStrip_->Add(made, made->Title(), made->Closable());
    }
    if (!statusBar_) {
        makeStatusBar();
    }
}

Panel* MainView::PanelFor(int commandId) const {
    if (commandId == 0) {
        return nullptr;
    }
    for (const OpenPanel& open : panels_) {
        if (open.commandId == commandId) {
            return open.panel.get();
        }
    }
    return nullptr;
}

int MainView::CurrentCommand() const {
    for (const OpenPanel& open : panels_) {
        if (open.panel.get() == current_) {
            return open.commandId;
        }
    }
    return 0;
}

void MainView::Show(Panel* panel) {
    if (!panel || panel == current_) {
        return;
    }
    Panel* previous = current_;
    current_ = panel;
    if (tabStrip_) {
        tabStrip_->Select(panel);
    }
    Layout();
    ::ShowWindow(panel->Window(), SW_SHOW);
    panel->OnShow(true);
    if (previous) {
        ::ShowWindow(previous->Window(), SW_HIDE);
        previous->OnShow(false);
    }
    UpdateCommands();
}

void MainView::ShowPanel(int commandId) {
    Show(PanelFor(commandId));
}

void MainView::Layout() {
    if (!hwnd() || shutDown_) {
        return;
    }
    RECT client = {};
    ::GetClientRect(hwnd(), &client);
    int bottom = client.bottom;
    if (statusBar_) {
        bottom -= statusBar_->Layout();
    }
    int top = client.top;
    if (tabStrip_) {
        const int height = tabStrip_->PreferredHeight();
        if (settings_.tabs.visible) {
            const int y = settings_.tabs.firstPosition ? top : bottom - height;
            ::MoveWindow(tabStrip_->hwnd(), 0, y, client.right, height, TRUE);
            ::ShowWindow(tabStrip_->hwnd(), SW_SHOW);
            if (settings_.tabs.firstPosition) {
                top += height;
            } else {
                bottom -= height;
            }
        } else {
            ::ShowWindow(tabStrip_->hwnd(), SW_HIDE);
        }
    }
    for (OpenPanel& open : panels_) {
        ::MoveWindow(open.panel->Window(), 0, top, client.right, std::max(bottom - top, 0), TRUE);
    }
}

void MainView::UpdateCommands() {
    if (!host_ || shutDown_) {
        return;
    }
    const int current = CurrentCommand();
    for (const auto& [name, state] : CommandStates(current, online_)) {
        host_->ReportCommandState(plugIn_, name, state);
    }
    if (toolbar_) {
        toolbar_->SetButtonState(34001, !online_, false);
        toolbar_->SetButtonState(34002, online_, false);
        for (int id = kCmdSearch; id <= kCmdHosts; ++id) {
            toolbar_->SetButtonState(id, true, id == current);
        }
    }
}

bool MainView::CreateEngine() {
    engine_.reset();
    win::ComPtr<IUnknown> unknown;
    HRESULT hr = ::CoCreateInstance(CLSID_GnutellaEngine, nullptr, CLSCTX_ALL, IID_IUnknown,
                                    unknown.put_void());
    if (SUCCEEDED(hr)) {
        hr = ::OleRun(unknown.get());
        if (SUCCEEDED(hr)) {
            hr = unknown.As(IID_IGnutellaEngine, engine_);
        }
    }
    unknown.reset();
    if (FAILED(hr) || !engine_) {
        engine_.reset();
        return false;
    }
    if (Panel* hosts = PanelFor(kCmdHosts)) {
        hosts->OnEngine(engine_.get());
    }
    sinkEngine_ = engine_;
    if (engineAdvice_.cookie() == kNotAdvised) {
        engineAdvice_.Advise(engine_.get(), DIID__IGnutellaEngineEvents, engineSink_->Identity());
    }
    return true;
}

bool MainView::Connect() {
    if (!engine_) {
        CreateEngine();
    }
    if (!engine_) {
        prompt_.Error(hwnd(), Text(32960));
        return false;
    }
    win::ThrowIfFailed(engine_->Connect(), IID_IGnutellaEngine);
    if (Panel* uploads = PanelFor(kCmdUpload)) {
        win::ComPtr<IUploadManager> manager;
        win::ThrowIfFailed(engine_->GetUploads(manager.put()), IID_IGnutellaEngine);
        uploads->OnUploads(manager.get());
    }
    online_ = true;
    if (Panel* library = PanelFor(kCmdLibrary); library && statusBar_) {
        if (const int shared = library->SharedFileCount(); shared >= 0) {
            statusBar_->SetCounter(kPaneShared, shared);
        }
    }
    UpdateCommands();
    for (OpenPanel& open : panels_) {
        open.panel->OnEngine(engine_.get());
    }
    if (statusBar_ && statusBar_->texts().Text(0) == Text(36172)) {
        statusBar_->SetText(Text(36164));
    }
    return true;
}

bool MainView::Disconnect() {
    if (!engine_) {
        return false;
    }
    WaitCursor wait;
    win::ThrowIfFailed(engine_->Disconnect(), IID_IGnutellaEngine);
    online_ = false;
    UpdateCommands();
    if (statusBar_) {
        statusBar_->SetText(Text(36172));
        statusBar_->SetCounter(kPaneNodes, 0);
    }
    return true;
}

void MainView::SearchOnP2P(const std::string& keywords, const std::string& type) {
    ::SendMessageA(hwnd(), WM_COMMAND, MAKEWPARAM(kCmdSearch, 0), 0);
    if (!engine_) {
        if (!prompt_.AskYesNo(hwnd(), Text(32949))) {
            return;
        }
        Connect();
    }
    if (tabStrip_ && !keywords.empty()) {
        for (std::size_t i = 0; i < tabStrip_->Count(); ++i) {
            Panel* panel = tabStrip_->At(i);
            const std::string held = panel->SearchKeywords();
            if (!held.empty() && ::lstrcmpiA(held.c_str(), keywords.c_str()) == 0) {
                Show(panel);
                return;
            }
        }
    }
    const std::string mediaType = type.empty() ? "All" : type;
    if (!engine_) {
        throw win::ComError(E_POINTER, IID_IGnutellaEngine);
    }
    win::Bstr keywordText = MakeBstr(keywords, IID_IGnutellaEngine);
    win::Bstr typeText = MakeBstr(mediaType, IID_IGnutellaEngine);
    win::ComPtr<IGnutellaSearch> search;
    win::ThrowIfFailed(
        engine_->CreateSearch(keywordText.get(), typeText.get(), 0, 0, 0, 1, search.put()),
        IID_IGnutellaEngine);
    if (!search) {
        return;
    }
    if (tabStrip_) {
        if (Panel* searchView = PanelFor(kCmdSearch)) {
            searchView->OpenSearch(search.get(), keywords, mediaType);
        }
    }
    win::ThrowIfFailed(search->Start(), IID_IGnutellaSearch);
}

bool MainView::OfferToPanels(const std::string& name) {
    for (OpenPanel& open : panels_) {
        if (open.panel->OnPanelCommand(name)) {
            return true;
        }
    }
    return false;
}

bool MainView::Execute(const std::string& name) {
    const CommandInfo* command = FindCommand(std::string_view(name));
    if (!command) {
        const std::string none = std::string(kSearchWindowList) + "_none";
        if (name == none) {
            return true;
        }
        const std::optional<int> place = SearchWindowPlace(name);
        if (!place) {
            return false;
        }
        int seen = 0;
        for (std::size_t i = 0; tabStrip_ && i < tabStrip_->Count(); ++i) {
            if (tabStrip_->At(i)->IsSearchWindow() && ++seen == *place) {
                Show(tabStrip_->At(i));
                break;
            }
        }
        return true;
    }
    switch (command->action) {
    case CommandAction::kConnect:
        Connect();
        break;
    case CommandAction::kDisconnect:
        Disconnect();
        break;
    case CommandAction::kBrowseHost:
        if (!OfferToPanels(name)) {
            prompt_.Error(hwnd(), Text(36147));
        }
        break;
    case CommandAction::kEdit:
        if (current_) {
            current_->OnEditCommand(name);
        }
        break;
    case CommandAction::kToolbarCustomise:
        CustomiseToolbar();
        break;
    case CommandAction::kShowPanel:
        ShowPanel(command->id);
        break;
    case CommandAction::kOptions:
        if (!OfferToPanels(name)) {
            prompt_.Error(hwnd(), Text(36146));
        }
        break;
    case CommandAction::kSearchWindowList:
        break;
    }
    return true;
}

std::string MainView::MenuText(const std::string& menuId) const {
    if (menuId == kSearchWindowList) {
        std::vector<std::string> titles;
        for (std::size_t i = 0; tabStrip_ && i < tabStrip_->Count(); ++i) {
            if (tabStrip_->At(i)->IsSearchWindow()) {
                titles.push_back(tabStrip_->TitleAt(i));
            }
        }
        return SearchWindowListText(titles, corvid::Language());
    }
    return shell::MenuText(menuId, corvid::Language());
}

void MainView::BuildToolbar() {
    if (!toolbar_) {
        return;
    }
    const std::vector<int> order = LoadToolbarOrder().value_or(BuiltinToolbarOrder());
    toolbar_->Build(order, settings_.toolbar, GlobalSkin());
    UpdateCommands();
}

HWND MainView::Toolbar(HWND parent) {
    if (!toolbar_) {
        toolbar_ = std::make_unique<ToolbarBand>();
        if (!toolbar_->Create(parent, hwnd())) {
            toolbar_.reset();
            return nullptr;
        }
        if (host_) {
            LoadToolbarSettings(*host_, settings_.toolbar);
        }
        BuildToolbar();
    }
    return toolbar_->hwnd();
}

void MainView::CustomiseToolbar() {
    std::vector<int> current =
        toolbar_ ? toolbar_->order() : LoadToolbarOrder().value_or(BuiltinToolbarOrder());
    CustomiseDialog dialog(std::move(current));
    const std::optional<std::vector<int>> chosen = dialog.Run(hwnd());
    if (!chosen) {
        return;
    }
    SaveToolbarOrder(*chosen);
    if (toolbar_) {
        BuildToolbar();
        host_->RequestLayout(plugIn_);
    }
}

void MainView::OnHostChanged() {
    if (!host_ || shutDown_) {
        return;
    }
    const SettingsChange change =
        Reload(*host_, settings_, tabStrip_ != nullptr, toolbar_ != nullptr);
    if (tabStrip_) {
        tabStrip_->Apply(settings_.tabs);
        if (change.position || change.pushLike || change.visible) {
            Layout();
        }
    }
    if (change.rebuildToolbar && toolbar_) {
        BuildToolbar();
        host_->RequestLayout(plugIn_);
    }
    for (OpenPanel& open : panels_) {
        open.panel->OnSettingsChanged();
    }
}

void MainView::ApplySkinByName(const std::string& name, bool relayout) {
    corvid::ApplySkin(name, relayout);
    if (!hwnd()) {
        return;
    }
    if (tabStrip_) {
        tabStrip_->SetSkin(GlobalSkin());
    }
    if (statusBar_) {
        statusBar_->SetSkin(GlobalSkin());
    }
    for (OpenPanel& open : panels_) {
        open.panel->ApplySkin();
    }
    if (relayout) {
        Layout();
        if (toolbar_ && host_) {
            BuildToolbar();
            host_->RequestLayout(plugIn_);
        }
    } else if (toolbar_) {
        ::InvalidateRect(toolbar_->hwnd(), nullptr, TRUE);
    }
}

void MainView::SetLanguageByName(const std::string& name, bool refresh) {
    corvid::Language().Load(name);
    if (refresh && hwnd()) {
        Refresh();
    }
}

void MainView::Refresh() {
    for (OpenPanel& open : panels_) {
        open.panel->ApplyLanguage();
        if (tabStrip_) {
            tabStrip_->SetTitle(open.panel.get(), open.panel->Title());
        }
    }
    if (statusBar_) {
        statusBar_->ApplyLanguage();
    }
    Layout();
    if (toolbar_ && host_) {
        BuildToolbar();
        host_->RequestLayout(plugIn_);
    }
    if (host_) {
        host_->MenusChanged(plugIn_);
    }
}

void MainView::Place(const RECT& rect) {
    if (hwnd()) {
        ::MoveWindow(hwnd(), rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top,
                     TRUE);
    }
}

void MainView::Focus() {
    if (current_) {
        ::SetFocus(current_->Window());
    }
}

void MainView::SetStatusText(const std::string& text) {
    if (statusBar_) {
        statusBar_->SetText(text);
    }
}

void MainView::SetStatusCounter(int paneId, int count) {
    if (statusBar_) {
        statusBar_->SetCounter(paneId, count);
    }
}

bool MainView::EnsureOnline() {
    if (online_) {
        return true;
    }
    if (prompt_.AskYesNo(hwnd(), Text(32949))) {
        try {
            Connect();
        } catch (const win::ComError&) {
            return false;
        }
    }
    return online_;
}

IFileManager* MainView::FileManager() {
    if (!fileManager_) {
        ::CoCreateInstance(CLSID_FileManager, nullptr, CLSCTX_ALL, IID_IFileManager,
                           fileManager_.put_void());
    }
    return fileManager_.get();
}

transfer::DownloadPage* MainView::Downloads() {
    for (OpenPanel& open : panels_) {
        if (transfer::DownloadPage* page = open.panel->DownloadModel()) {
            return page;
        }
    }
    return nullptr;
}

bool MainView::HostValue(const char* name, int& value) const {
    if (!host_) {
        return false;
    }
    const std::optional<int> read = host_->HostValue(name);
    if (read) {
        value = *read;
    }
    return read.has_value();
}

Panel* MainView::OpenTab(std::unique_ptr<Panel> panel, bool select) {
    if (!panel || !hwnd() || shutDown_ || !panel->Create(hwnd())) {
        return nullptr;
    }
    Panel* made = panel.get();
    panels_.push_back({std::move(panel), 0});
    tabStrip_->Add(made, made->Title(), made->Closable());
    Layout();
    if (select) {
        Show(made);
    }
    return made;
}

void MainView::CloseTab(Panel* panel) {
    if (hwnd()) {
        ::PostMessageA(hwnd(), kMsgCloseTab, 0, reinterpret_cast<LPARAM>(panel));
    }
}

void MainView::RemoveTab(Panel* panel) {
    auto found = std::find_if(panels_.begin(), panels_.end(),
                              [&](const OpenPanel& open) { return open.panel.get() == panel; });
    // The panels of the table stay for the view's life; only opened tabs close.
    if (found == panels_.end() || found->commandId != 0 || !panel->Closable()) {
        return;
    }
    if (current_ == panel) {
        current_ = nullptr;
        Show(PanelFor(kCmdSearch));
    }
    tabStrip_->Remove(panel);
    std::unique_ptr<Panel> closing = std::move(found->panel);
    panels_.erase(found);
    closing.reset();
    UpdateCommands();
}

void MainView::RetitleTab(Panel* panel) {
    if (tabStrip_ && panel) {
        tabStrip_->SetTitle(panel, panel->Title());
    }
}

void MainView::OnEngineEvent(DISPID id, DISPPARAMS* params) {
    if (shutDown_) {
        return;
    }
    if (id == 4) {
        if (params && params->cArgs >= 1) {
            const VARIANT& argument = params->rgvarg[params->cArgs - 1];
            IUnknown* object = argument.vt == VT_UNKNOWN || argument.vt == VT_DISPATCH
                                   ? argument.punkVal
                                   : nullptr;
            if (object) {
                win::ComPtr<IGnutellaSearch> search;
                object->QueryInterface(IID_IGnutellaSearch, search.put_void());
            }
        }
        return;
    }
    if (id < 1 || id > 3 || !statusBar_ || !engine_) {
        return;
    }
    std::string text;
    if (id == 1) {
        text = Text(36170);
    } else if (id == 2) {
        text = Text(36171);
    } else if (params && params->cArgs >= 1) {
        text = TextArgument(params->rgvarg[params->cArgs - 1]);
    }
    statusBar_->SetText(text);
    for (OpenPanel& open : panels_) {
        open.panel->OnStatusMessage(text);
    }
    long nodes = 0;
    win::ThrowIfFailed(engine_->GetNodeCount(&nodes), IID_IGnutellaEngine);
    statusBar_->SetCounter(kPaneNodes, static_cast<int>(nodes));
}

void MainView::Tick() {
    if (statusBar_ && engine_) {
        long nodes = 0;
        win::ThrowIfFailed(engine_->GetNodeCount(&nodes), IID_IGnutellaEngine);
        statusBar_->SetCounter(kPaneNodes, static_cast<int>(nodes));
    }
    if (hasInfoPanel_ && engine_) {
        win::Bstr info;
        win::ThrowIfFailed(engine_->GetNetworkInfo(info.put()), IID_IGnutellaEngine);
        const std::string text = win::BstrToAnsi(info.get());
        for (OpenPanel& open : panels_) {
            open.panel->OnNetworkInfo(text);
        }
    }
    for (OpenPanel& open : panels_) {
        open.panel->OnTick();
    }
}

void MainView::ShutDown() {
    if (shutDown_) {
        return;
    }
    shutDown_ = true;
    engineAdvice_.Unadvise();
    sinkEngine_.reset();
    hostAdvice_.Unadvise();
    if (tabStrip_) {
        for (std::size_t i = tabStrip_->Count(); i > 0; --i) {
            Panel* panel = tabStrip_->At(i - 1);
            tabStrip_->Remove(panel);
            auto found = std::find_if(panels_.begin(), panels_.end(), [&](const OpenPanel& open) {
                return open.panel.get() == panel;
            });
            if (found != panels_.end()) {
                found->panel.reset();
                panels_.erase(found);
            }
        }
    }
    panels_.clear();
    current_ = nullptr;
    if (engine_) {
        // Nothing to do with a failure here: the view is going either way.
        engine_->Disconnect();
        engine_.reset();
    }
    statusBar_.reset();
    tabStrip_.reset();
}

LRESULT MainView::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    try {
        return Dispatch(message, wParam, lParam);
    } catch (const win::ComError& error) {
        // A failed engine call ends the command that made it; the console keeps the failure.
        char text[64];
        std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(error.result()));
        for (OpenPanel& open : panels_) {
            open.panel->OnStatusMessage(text);
        }
        return 0;
    } catch (const std::exception&) {
        return 0;
    }
}

LRESULT MainView::Dispatch(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_SIZE:
        Layout();
        return 0;
    case WM_ERASEBKGND:
        return 1;
    case WM_TIMER:
        if (wParam == kRefreshTimer) {
            Tick();
        }
        return 0;
    case WM_COMMAND: {
        const int id = LOWORD(wParam);
        if (lParam == 0 && id >= kCmdSearch && id <= kCmdHosts) {
            ShowPanel(id);
            return 0;
        }
        if (lParam == 0) {
            if (const CommandInfo* command = FindCommand(id)) {
                Execute(command->name);
            }
        }
        return 0;
    }
    case kMsgBrowseHost:
        if (lParam) {
            OfferToPanels(std::string("browse:") + reinterpret_cast<const char*>(lParam));
        }
        return 0;
    case kMsgCloseTab:
        RemoveTab(reinterpret_cast<Panel*>(lParam));
        return 0;
    case WM_SETFOCUS:
        Focus();
        return 0;
    case WM_DESTROY:
        ::KillTimer(hwnd(), kRefreshTimer);
        ShutDown();
        return 0;
    default:
        return Default(message, wParam, lParam);
    }
}

} // namespace corvid::shell
