#pragma once

// The download page: the toolbar "DownloadToolbar", the list "DownloadList" of the items and, below
// it, the source tree and the log of the chosen source. The model (DownloadPage) does the work on
// its worker thread; this face implements the model's ports by posting to its own window, so no
// other thread ever touches a control.

#include <windows.h>

#include <commctrl.h>

#include "platform/win/handles.h"
#include "platform/win/window.h"
#include "shell/win/panel.h"
#include "transfer/download_log_model.h"
#include "transfer/download_page.h"
#include "transfer/magnet_link.h"
#include "transfer/win/download_dll_engine.h"
#include "transfer/win/source_search.h"
#include "transfer/win/transfer_bar.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace corvid::transfer::win {

struct DownloadPanelOptions {
    std::string downloadFolder;
    // Where partial files wait until they are complete; empty: at their final place.
    std::string tempFolder;
    // The per-user file the list is kept in between runs; empty: the list is not kept.
    std::string listFile;
    // "Automatic resume downloading": restored items that were running start again.
    bool autoResume = true;
    // Download.dll; empty: the one beside this module.
    std::string libraryPath;
    // How often an item that needs more sources asks the network for its SHA1 again (OnTick
    // counts the seconds).
    int requerySeconds = 180;
    // Questions to the user; null: message boxes and dialog 339.
    UserPrompts* prompts = nullptr;
    // The Theater page's player: true when it took the file. Null: no player.
    std::function<bool(const std::string&)> playInTheater;
    // Opens a file for Run; null: the shell's "open".
    std::function<void(const std::string&)> openFile;
};

// The options from the registry and the user's folders.
DownloadPanelOptions DefaultDownloadPanelOptions();

// Tells every open download page the download folder the options now name, so that a folder
// chosen in the options takes the next download without a restart. The temporary folder still
// waits for the next start: items already listed find their partial files in the one they began
// in.
void ApplyDownloadFolderToOpenPages();

// Toolbar commands (WM_COMMAND to the panel's window).
enum DownloadCommand : int {
    kDownloadDelete = 34001,
    kDownloadStop = 34006,
    kDownloadRestart = 34002,
    kDownloadClearStopped = 34003,
    kDownloadClearCompleted = 34004,
    kDownloadRun = 34005,
};

class DownloadPanel : public shell::Panel,
                      private corvid::win::WindowBase,
                      private DownloadListView,
                      private SourcePane,
                      private LibraryComponent,
                      private FileShell,
                      private Clock,
                      private LogPaneView {
public:
    DownloadPanel(shell::PanelSite& site, DownloadPanelOptions options);
    ~DownloadPanel() override;

    bool Create(HWND parent) override;
    HWND Window() const override { return hwnd(); }
    std::string Title() const override;
    void OnShow(bool shown) override;
    void OnEngine(IGnutellaEngine* engine) override;
    void OnTick() override;
    void ApplyLanguage() override;

    // The model, for the main view's PanelSite::Downloads().
    DownloadPage* Page() { return page_.get(); }
    DownloadPage* DownloadModel() override { return page_.get(); }
    bool LibraryLoaded() const { return engine_->Loaded(); }

    HWND List() const { return list_; }
    HWND Toolbar() const { return bar_.toolbar(); }
    HWND Tree() const { return tree_; }
    HWND LogList() const { return log_; }
    HWND Counter() const { return bar_.counter(); }

    // Writes the list file when the list changed since it was last written.
    void SaveList();

    // Starts the download a magnet link names from its sources, and asks the network for more;
    // a link without sources waits for the network's first answer. False when the page refused
    // it (the file is listed already).
    bool StartMagnet(const MagnetLink& link);
    // Asks the network for sources of the items that need them (OnTick does so every
    // requerySeconds).
    void AskForSources();

    // The panel whose model this is, if it is alive.
    static DownloadPanel* FromPage(const DownloadPage* page);

    // Downloads started from now on go to this folder (made when missing); listed items stay
    // where they are.
    void UseDownloadFolder(const std::string& folder);

private:
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override;
    void CreateControls();
    void Layout();
    void OnCommand(int id);
    LRESULT OnNotify(const NMHDR& header);
    void OnRefresh();
    void UpdateToolbar();
    std::vector<std::shared_ptr<DownloadItem>> Selected() const;
    void ShowSelected();
    void ShowLogOfNode(HTREEITEM node);
    int RowOf(const DownloadItem* item) const;
    void SetCells(int row, const RowCells& cells);
    std::string Text(std::uint32_t id) const;
    void Restore();
    void OnSourceFound(const std::string& sha1, const ResultSource& hit);

    // DownloadListView (any thread: posted to the window)
    void AddRow(const std::shared_ptr<DownloadItem>& item, const RowCells& cells) override;
    void UpdateRow(const DownloadItem& item, const RowCells& cells) override;
    void RemoveRow(const DownloadItem& item) override;
    void PostRefresh() override;
    // SourcePane (any thread: posted to the window)
    void Clear() override;
    void UpdateSource(const std::shared_ptr<DownloadSource>& source) override;
    void RefreshDetail(const std::shared_ptr<DownloadItem>& item) override;
    bool ForgetItem(const std::shared_ptr<DownloadItem>& item) override;
    void RebuildSources(const std::shared_ptr<DownloadItem>& item) override;
    void AppendLogLines(const std::shared_ptr<DownloadItem>& item) override;
    void ShowReceived(const std::shared_ptr<DownloadItem>& item, std::int64_t bytes) override;
    // LibraryComponent (the worker: answers from what the user-interface thread last saw)
    bool Present() override { return libraryPresent_; }
    bool IsFileOnDisk(const std::string& sha1) override;
    std::string CompletedFilePath(const std::string& localPath) override;
    bool SharesDownloads() override { return librarySharesDownloads_; }
    void ShareFile(const std::string& path) override;
    // FileShell
    bool Exists(const std::string& path) override;
    void Remove(const std::string& path) override;
    bool PlayInTheater(const std::string& path) override;
    void Open(const std::string& path) override;
    // Clock
    std::time_t Now() override;
    // LogPaneView (the user-interface thread)
    bool TreeExists() override;
    void DeleteAllNodes() override;
    Node InsertNode(Node parent, const std::string& text, int icon) override;
    Node Root() override;
    void ExpandAndSelect(Node node) override;
    bool ListExists() override;
    void DeleteAllRows() override;
    void BeginRows() override;
    void AppendRow(const std::string& time, const std::string& information, int icon,
                   std::int32_t parameter) override;
    void ScrollToLastRow() override;

    void ReadLibraryState();
    void Post(std::function<void()> work);

    shell::PanelSite& site_;
    DownloadPanelOptions options_;
    std::unique_ptr<UserPrompts> ownPrompts_;
    std::unique_ptr<DownloadDllEngine> engine_;
    std::unique_ptr<DownloadPage> page_;
    DownloadLogModel logModel_{*this};
    corvid::win::KernelHandle worker_;
    std::atomic<bool> libraryPresent_{false};
    std::atomic<bool> librarySharesDownloads_{false};
    std::string lastSaved_;
    int secondsToRequery_ = 0;
    std::map<std::string, MagnetLink> waitingMagnets_;
    SourceSearches searches_{
        [this](const std::string& sha1, const ResultSource& hit) { OnSourceFound(sha1, hit); }};

    TransferBar bar_;
    HWND list_ = nullptr;
    HWND tree_ = nullptr;
    HWND log_ = nullptr;
    corvid::win::GdiObject font_;
    HIMAGELIST logImages_ = nullptr;
    HIMAGELIST sourceImages_ = nullptr;
    // The items the list's rows stand for; a row's parameter is its item's address.
    std::map<const DownloadItem*, std::shared_ptr<DownloadItem>> rows_;
    // The display order of the columns, by identifier.
    std::vector<std::uint32_t> columns_;

    // Last, so that it goes first: nothing posted runs once the panel is going.
    corvid::win::UiDispatcher dispatcher_;
};

std::unique_ptr<shell::Panel> MakeDownloadPanel(shell::PanelSite& site);

// What the main view's SearchOnP2P and the host's search bar do with keywords that begin with
// "magnet:": the download page starts the link's download. A link this program cannot fetch is
// explained in a message box (or in *error) and starts nothing.
bool IsMagnetLink(const std::string& keywords);
bool StartMagnet(shell::PanelSite& site, const std::string& link);
bool StartMagnet(shell::PanelSite& site, const std::string& link, std::string* error);

} // namespace corvid::transfer::win
