#pragma once

// A PanelSite for testing one panel on its own: a plain top-level window as the main view, the
// built-in texts and look, and a record of everything the panel asked of the main view.

#include "markup/language_table.h"
#include "markup/skin.h"
#include "platform/win/window.h"
#include "shell/win/panel.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace corvid::testing {

class FakePanelSite : public shell::PanelSite, private win::WindowBase {
public:
    // Creates a visible 1000x700 top-level window titled `title` to hold the panel under test.
    explicit FakePanelSite(const char* title = "Corvid panel test");
    ~FakePanelSite() override;

    // Creates the panel in the window, sized to its client area, and shows it.
    bool Adopt(shell::Panel& panel);

    HWND MainWindow() const override { return hwnd(); }
    const LanguageTable& Language() const override { return language_; }
    const SkinRecord& Skin() const override { return skin_; }
    void SetStatusText(const std::string& text) override { statusText = text; }
    void SetStatusCounter(int paneId, int count) override { counters[paneId] = count; }
    IGnutellaEngine* Engine() const override { return engine; }
    bool Online() const override { return engine != nullptr; }
    bool EnsureOnline() override {
        ++ensureOnlineCalls;
        return engine != nullptr;
    }
    IFileManager* FileManager() override { return fileManager; }
    transfer::DownloadPage* Downloads() override { return downloads; }
    bool HostValue(const char* name, int& value) const override;
    bool ShowDownloaded() const override { return showDownloaded; }
    shell::Panel* OpenTab(std::unique_ptr<shell::Panel> panel, bool select) override;
    void CloseTab(shell::Panel* panel) override;
    void ShowPanel(int commandId) override { shownPanels.push_back(commandId); }
    void RetitleTab(shell::Panel* panel) override { retitled.push_back(panel); }
    void RefreshCommands() override { ++commandRefreshes; }

    // What the panel did, and what the test gives it. Pointers are borrowed.
    std::string statusText;
    std::map<int, int> counters;
    IGnutellaEngine* engine = nullptr;
    IFileManager* fileManager = nullptr;
    transfer::DownloadPage* downloads = nullptr;
    std::map<std::string, int> hostValues;
    bool showDownloaded = false;
    int ensureOnlineCalls = 0;
    int commandRefreshes = 0;
    std::vector<int> shownPanels;
    std::vector<shell::Panel*> retitled;
    std::vector<std::unique_ptr<shell::Panel>> tabs;
    // Messages sent to the main window by panels (e.g. 2028 with its address text).
    std::vector<std::pair<UINT, std::string>> mainMessages;

private:
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override;

    LanguageTable language_;
    SkinRecord skin_;
};

} // namespace corvid::testing
