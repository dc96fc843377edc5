#pragma once

// The contract between the main view and everything shown in its tab strip. A panel is one class
// behind this interface; the main view knows panels only through the panel table
// (shell/win/panel_table.h) and the tabs it opens at a panel's request (search windows, browse
// host). Panels reach the rest of the plug-in only through PanelSite.

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>

struct IGnutellaEngine;
struct IGnutellaSearch;
struct IUploadManager;
struct IFileManager;

namespace corvid {
class LanguageTable;
struct SkinRecord;
namespace transfer {
class DownloadPage;
}
} // namespace corvid

namespace corvid::shell {

class Panel;

// Status bar panes by their id (the string id of their format).
enum StatusPane : int {
    kPaneStatusText = 0,
    kPaneNodes = 33001,
    kPaneResults = 33002,
    kPaneDownloading = 33003,
    kPaneUploading = 33004,
    kPaneShared = 33005,
};

// Panel command numbers (tab strip, WM_COMMAND) and the plug-in's own window messages.
enum PanelCommand : int {
    kCmdSearch = 34008,
    kCmdDownload = 34009,
    kCmdUpload = 34010,
    kCmdLibrary = 34011,
    kCmdTheater = 34012,
    kCmdConsole = 34013,
    kCmdHosts = 34014,
};
// Sent to the main view with an address text "http://%s:%d" (lParam: const char*): open a
// browse-host tab.
constexpr UINT kMsgBrowseHost = 2028;
// Posted to the download list: refresh counters and toolbar.
constexpr UINT kMsgDownloadRefresh = 2029;

// What the main view offers its panels. Every call is made on the user-interface thread.
class PanelSite {
public:
    virtual ~PanelSite() = default;

    // The main view's window: owner of message boxes, receiver of kMsgBrowseHost.
    virtual HWND MainWindow() const = 0;
    // Every user-visible text by string-table id, translated.
    virtual const LanguageTable& Language() const = 0;
    virtual const SkinRecord& Skin() const = 0;

    virtual void SetStatusText(const std::string& text) = 0;
    // One of the five counters (kPaneNodes ... kPaneShared); other ids do nothing.
    virtual void SetStatusCounter(int paneId, int count) = 0;

    // The engine while one exists (owned by the main view; AddRef to keep it), else null.
    virtual IGnutellaEngine* Engine() const = 0;
    virtual bool Online() const = 0;
    // For a feature that needs the network: when offline, asks the user (string 32949) and
    // connects on Yes. True when online afterwards.
    virtual bool EnsureOnline() = 0;
    // The file manager, created on first use; null when it cannot be created.
    virtual IFileManager* FileManager() = 0;
    // The download page's model once the download panel exists, else null: search windows hand
    // groups and new sources to it.
    virtual transfer::DownloadPage* Downloads() = 0;

    // Host values (the host's settings object, slot 13); false when absent.
    virtual bool HostValue(const char* name, int& value) const = 0;
    // "Search ShowDownloaded" as last read from the host.
    virtual bool ShowDownloaded() const = 0;

    // Tabs beyond the fixed panels: search windows and browse-host tabs. The main view owns the
    // panel from here on. OpenTab returns the panel, or null when it could not be created.
    virtual Panel* OpenTab(std::unique_ptr<Panel> panel, bool select) = 0;
    virtual void CloseTab(Panel* panel) = 0;
    // Brings a panel forward by its command number.
    virtual void ShowPanel(int commandId) = 0;
    // A tab's title changed (a search window's counts, say).
    virtual void RetitleTab(Panel* panel) = 0;
    // The commands' enabled and checked state changed; the host is told again.
    virtual void RefreshCommands() = 0;
};

// Something shown in the tab strip.
class Panel {
public:
    virtual ~Panel() = default;

    // Creates the panel's window as a hidden child of parent; false on failure.
    virtual bool Create(HWND parent) = 0;
    virtual HWND Window() const = 0;
    // The tab's text.
    virtual std::string Title() const = 0;
    // The panel becomes current (shown) or stops being current (hidden).
    virtual void OnShow(bool shown) { (void)shown; }

    // Engine lifetime: given after a successful connect and when the engine is released.
    virtual void OnEngine(IGnutellaEngine* engine) { (void)engine; }
    // Timer 1, once a second, whether shown or not.
    virtual void OnTick() {}

    // A plug-in command aimed at the focused panel: p2p_cut, p2p_copy, p2p_paste, p2p_selectall.
    // False when the panel does nothing with it.
    virtual bool OnEditCommand(const std::string& name) {
        (void)name;
        return false;
    }

    // The language or skin changed: re-text and repaint what is on screen.
    virtual void ApplyLanguage() {}
    virtual void ApplySkin() {}
    // A host setting changed (the change event).
    virtual void OnSettingsChanged() {}

    // Search windows answer with their keywords (so a repeated search selects its tab), others
    // with an empty text.
    virtual std::string SearchKeywords() const { return {}; }
    // Search windows are listed in the "Window" menu.
    virtual bool IsSearchWindow() const { return false; }

    // Whether the user may close the tab (search windows and browse-host tabs).
    virtual bool Closable() const { return false; }
    // A right click on the panel's tab, at a screen point: the panel shows its tab menu, if it has
    // one. False when it has none.
    virtual bool ShowTabMenu(POINT screen) {
        (void)screen;
        return false;
    }

    // The engine's network information text (engine slot 14), once a second while an engine
    // exists; the information panel shows it.
    virtual void OnNetworkInfo(const std::string& text) { (void)text; }
    // Every status message of the engine (event 3) and the connection events' texts; the console
    // keeps them.
    virtual void OnStatusMessage(const std::string& text) { (void)text; }
    // The engine's upload component (engine slot 13), handed over at every connect.
    virtual void OnUploads(IUploadManager* uploads) { (void)uploads; }
    // The library view's count of shared files, or -1 when the panel keeps none.
    virtual int SharedFileCount() const { return -1; }
    // The download page's model, from the download panel; null from every other panel.
    virtual transfer::DownloadPage* DownloadModel() { return nullptr; }
    // The search view opens a search window for a search the main view created (SearchOnP2P);
    // false when the panel opens none.
    virtual bool OpenSearch(IGnutellaSearch* search, const std::string& keywords,
                            const std::string& type) {
        (void)search;
        (void)keywords;
        (void)type;
        return false;
    }
    // A command that some panel carries out for the main view: "p2p_browse_host" (ask for an
    // address), "p2p_options" (the options sheet), "p2p_search_window_list_%d"; and the
    // kMsgBrowseHost request as "browse:<address>". False when the panel does not.
    virtual bool OnPanelCommand(const std::string& name) {
        (void)name;
        return false;
    }
};

} // namespace corvid::shell
