#pragma once

// The plug-in's face in its host tab: the tab strip over the panels of the panel table, the
// status bar, the toolbar it lends the host, the engine connection and its events, the command
// routing and the host's settings. Everything runs on the tab's user-interface thread.

#include "engine_h.h"
#include "host_h.h"
#include "platform/win/window.h"
#include "shell/settings.h"
#include "shell/win/host_link.h"
#include "shell/win/panel.h"
#include "shell/win/prompt.h"
#include "shell/win/status_bar.h"
#include "shell/win/tab_strip.h"
#include "shell/win/toolbar_band.h"

#include <memory>
#include <string>
#include <vector>

namespace corvid::shell {

// Timer 1: the node counter and the network information, once a second.
inline constexpr UINT_PTR kRefreshTimer = 1;
inline constexpr UINT kRefreshPeriodMs = 1000;

class MainView final : public win::WindowBase, public PanelSite, public TabStripOwner {
public:
    // plugIn is the plug-in object's identity, handed to the host with every command state.
    MainView(IUnknown* plugIn, UserPrompt& prompt);
    ~MainView() override;

    // Builds the view in the host's tab: settings, panels, timer, then "AutoOnline".
    bool Attach(IUnknown* host, HWND tab);

    // The engine connection. Failing engine calls throw ComError with the engine's IID.
    bool CreateEngine();
    bool Connect();
    bool Disconnect();
    // The home page's search: shows the search panel, asks to connect when offline, selects a
    // search window with the same keywords or creates and starts a new search.
    void SearchOnP2P(const std::string& keywords, const std::string& type);

    // A command chosen in the host by name; false for a name that is not ours.
    bool Execute(const std::string& name);
    // One menu of the contribution by id, or the list of search windows.
    std::string MenuText(const std::string& menuId) const;
    // The toolbar band, made in parent on the first call.
    HWND Toolbar(HWND parent);

    void ApplySkinByName(const std::string& name, bool relayout);
    void SetLanguageByName(const std::string& name, bool refresh);
    void Place(const RECT& rect);
    void Focus();

    // What tests and the plug-in object look at.
    TabStrip* tabStrip() const { return tabStrip_.get(); }
    StatusBar* statusBar() const { return statusBar_.get(); }
    ToolbarBand* toolbar() const { return toolbar_.get(); }
    Panel* CurrentPanel() const { return current_; }
    int CurrentCommand() const;
    Panel* PanelFor(int commandId) const;
    const ShellSettings& settings() const { return settings_; }
    DWORD engineCookie() const { return engineAdvice_.cookie(); }
    DWORD hostCookie() const { return hostAdvice_.cookie(); }

    // PanelSite
    HWND MainWindow() const override { return hwnd(); }
    const LanguageTable& Language() const override;
    const SkinRecord& Skin() const override;
    void SetStatusText(const std::string& text) override;
    void SetStatusCounter(int paneId, int count) override;
    IGnutellaEngine* Engine() const override { return engine_.get(); }
    bool Online() const override { return online_; }
    bool EnsureOnline() override;
    IFileManager* FileManager() override;
    transfer::DownloadPage* Downloads() override;
    bool HostValue(const char* name, int& value) const override;
    bool ShowDownloaded() const override { return settings_.showDownloaded; }
    Panel* OpenTab(std::unique_ptr<Panel> panel, bool select) override;
    void CloseTab(Panel* panel) override;
    void ShowPanel(int commandId) override;
    void RetitleTab(Panel* panel) override;
    void RefreshCommands() override { UpdateCommands(); }

    // TabStripOwner
    void OnTabSelected(Panel* panel) override { Show(panel); }
    void OnTabCloseRequested(Panel* panel) override { CloseTab(panel); }
    void OnTabMenuRequested(Panel* panel, POINT screen) override { panel->ShowTabMenu(screen); }

protected:
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override;

private:
    struct OpenPanel {
        std::unique_ptr<Panel> panel;
        int commandId; // 0 for tabs opened by panels and for the information panel
    };

    LRESULT Dispatch(UINT message, WPARAM wParam, LPARAM lParam);
    void CreatePanels();
    void Show(Panel* panel);
    void Layout();
    void UpdateCommands();
    void Tick();
    void ShutDown();
    void OnEngineEvent(DISPID id, DISPPARAMS* params);
    void OnHostChanged();
    void BuildToolbar();
    void CustomiseToolbar();
    void Refresh();
    bool OfferToPanels(const std::string& name);
    void RemoveTab(Panel* panel);
    std::string Text(std::uint32_t id) const;

    IUnknown* plugIn_;
    UserPrompt& prompt_;
    std::unique_ptr<HostLink> host_;
    ShellSettings settings_;

    win::ComPtr<IGnutellaEngine> engine_;
    bool online_ = false;
    win::ComPtr<DispatchSink> engineSink_;
    win::ComPtr<IGnutellaEngine> sinkEngine_; // the sink's own reference, while advised
    Advice engineAdvice_;
    win::ComPtr<DispatchSink> hostSink_;
    Advice hostAdvice_;
    win::ComPtr<IFileManager> fileManager_;

    std::unique_ptr<TabStrip> tabStrip_;
    std::unique_ptr<StatusBar> statusBar_;
    std::unique_ptr<ToolbarBand> toolbar_;
    std::vector<OpenPanel> panels_;
    Panel* current_ = nullptr;
    bool hasInfoPanel_ = false;
    bool shutDown_ = false;
};

// The skin and language files are looked for beside the running host program.
void InstallHostFolderFiles();

} // namespace corvid::shell
