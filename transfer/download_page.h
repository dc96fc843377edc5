#pragma once

#include "transfer/command_queue.h"
#include "transfer/download_item.h"
#include "transfer/download_list_file.h"
#include "transfer/download_ports.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace corvid::transfer {

// The columns of the download list beyond those it shares with the result list.
inline constexpr std::uint32_t kColumnProgress = 33023;
inline constexpr std::uint32_t kColumnStatus = 33024;

struct DownloadPorts {
    DownloadEngine& engine;
    DownloadListView& list;
    SourcePane& pane;
    UserPrompts& prompts;
    LibraryComponent& library;
    FileShell& files;
    Clock& clock;
    // Texts by string-table id (the language table in the plug-in); the built-in texts when empty.
    std::function<std::string(std::uint32_t)> text;
};

// The model of the download page: its items, their engine objects and sources, the engine's
// events and the commands the worker carries out.
//
// Threads: the user-interface thread calls the user's commands (StartDownload, the Request...
// operations, Run, OfferSearchHit, SetShownItem); the engine's threads call HandleEngineEvent; the
// worker runs the queued commands. Locks are taken in this order only: an item's lock, then the
// maps' lock or the queue's lock; never an item's lock while holding either of those.
//
// Going away: BeginClosing, then the worker goes (DownloadWorker), then every engine object is
// closed so that no callback still holds the page, and last the page itself.
class DownloadPage {
public:
    // wake: what the worker waits on (the portable event when null).
    DownloadPage(DownloadPorts ports, std::string downloadFolder,
                 std::unique_ptr<WakeSignal> wake = nullptr);
    ~DownloadPage();
    DownloadPage(const DownloadPage&) = delete;
    DownloadPage& operator=(const DownloadPage&) = delete;

    // --- user-interface thread ---
    // The local path is made here, in the download folder, from the first source's file name.
    bool StartDownload(const ResultGroup& group, bool showNow);
    // Where downloads started from now on go; items already listed keep their paths.
    void SetDownloadFolder(std::string folder) { downloadFolder_ = std::move(folder); }
    void RequestDelete(const std::vector<std::shared_ptr<DownloadItem>>& selected);
    void RequestStop(const std::shared_ptr<DownloadItem>& item);
    void RequestRestart(const std::shared_ptr<DownloadItem>& item);
    void ClearCompleted();
    void ClearStopped();
    void Run(const std::vector<std::shared_ptr<DownloadItem>>& selected);
    // A search window's hit for a file; when it belongs to a running item and is new to the item,
    // the item gains it as a source. True when a source was added.
    bool OfferSearchHit(const std::string& sha1, const ResultSource& hit);
    void SetShownItem(std::shared_ptr<DownloadItem> item);
    std::shared_ptr<DownloadItem> ShownItem() const;
    void SetDetailed(bool detailed) { detailed_ = detailed; }
    // Marks the page as going away: engine events are ignored from now on and the worker stops at
    // its next wake-up (this wakes it).
    void BeginClosing();
    bool Closing() const { return closing_; }
    // Once the worker is gone: closes every live engine object (the partial files and their range
    // maps stay, for the next run), so that no callback still holds the page.
    void CloseEngineObjects();

    // The list as it is kept between runs, in the list's order.
    std::vector<SavedDownload> Snapshot() const;
    // Brings back one item of a former run. A completed, stopped or starved item comes back as it
    // was; one that was running is started again on its file when `resume` is set (the engine
    // takes up the bytes already there) and comes back stopped otherwise. False when the SHA1 is
    // listed already or the engine refuses the object.
    bool Restore(const SavedDownload& saved, bool resume);

    // The SHA1s of the items waiting for more sources (state 7).
    std::vector<std::string> Sha1sNeedingSources() const;
    // A hit found by asking the network for an item waiting for more sources: when it is new to
    // the item's group it joins it and the item is restarted. True when it joined.
    bool OfferFoundSource(const std::string& sha1, const ResultSource& hit);

    // --- the engine's threads ---
    int HandleEngineEvent(std::uint32_t handle, std::uint32_t sourceId, std::int32_t code,
                          std::uintptr_t argument);
    static int EngineCallback(void* context, std::uint32_t handle, std::uint32_t sourceId,
                              std::int32_t code, std::uintptr_t argument);

    // --- the worker ---
    // The worker thread's loop; returns once the closing flag is seen.
    void RunWorker();
    // Carries out the queued commands on the calling thread until the queue is empty (for a page
    // that runs without a worker thread). Returns the number carried out.
    std::size_t RunQueuedCommands();
    void Execute(const Command& command);
    CommandQueue& Queue() { return queue_; }

    // The commands themselves, as the worker runs them.
    void DeleteItem(const std::shared_ptr<DownloadItem>& item);
    bool StopItem(const std::shared_ptr<DownloadItem>& item, std::int32_t newState);
    bool RestartItem(const std::shared_ptr<DownloadItem>& item);
    void CompleteItem(const std::shared_ptr<DownloadItem>& item);
    void UpdateRow(const std::shared_ptr<DownloadItem>& item);
    void AddAltSource(const AltSourceRecord& record);

    // --- reading the model ---
    std::vector<std::shared_ptr<DownloadItem>> Items() const;
    std::shared_ptr<DownloadItem> FindByHandle(std::uint32_t handle) const;
    std::shared_ptr<DownloadItem> FindBySha1(const std::string& sha1) const;
    std::shared_ptr<DownloadSource> FindSource(std::uint32_t handle, std::uint32_t sourceId) const;
    // The row's cells at creation, in column order (33006-33020, 33023, 33024).
    static RowCells CreationCells(const DownloadItem& item);
    // The Speed, Progress and Status cells as the engine reports them now.
    RowCells ProgressCells(DownloadItem& item);

private:
    using SourceKey = std::pair<std::uint32_t, std::uint32_t>;

    std::string ChooseLocalPath(const ResultGroup& group) const;
    // Registers a source for every URL of the item's group the engine accepts; item lock held.
    void AddGroupSources(const std::shared_ptr<DownloadItem>& item);
    // Hands one URL to the engine and registers the source; item lock held.
    bool AddSource(const std::shared_ptr<DownloadItem>& item, const std::string& url);
    // Takes the item's handle and sources out of the maps; item lock held. True when the handle was
    // registered to this item (its engine object is live).
    bool UnregisterEngineObject(DownloadItem& item);
    bool IsLive(const DownloadItem& item) const;
    bool IsListed(const std::shared_ptr<DownloadItem>& item) const;
    bool IsShown(const std::shared_ptr<DownloadItem>& item) const;
    void ClearPaneIfShowing(const std::shared_ptr<DownloadItem>& item);
    void LogToAllSources(DownloadItem& item, const std::string& text);
    static void RecountReceived(DownloadItem& item);
    void HandleItemEvent(const std::shared_ptr<DownloadItem>& item, std::int32_t code,
                         std::uintptr_t argument);
    void HandleSourceEvent(const std::shared_ptr<DownloadItem>& item, DownloadSource& source,
                           const std::shared_ptr<DownloadSource>& sourceRef, std::int32_t code,
                           std::uintptr_t argument);
    void PostAltSources(const std::shared_ptr<DownloadItem>& item, std::string_view header);
    void PostForItems(std::int32_t command, const std::function<bool(std::int32_t)>& byState);

    DownloadPorts ports_;
    std::string downloadFolder_;
    CommandQueue queue_;
    std::atomic<bool> closing_{false};
    std::atomic<bool> detailed_{false};

    // The maps' lock guards the three containers and the shown item.
    mutable std::mutex mapsLock_;
    std::vector<std::shared_ptr<DownloadItem>> items_; // the list's items, in order of creation
    std::map<std::uint32_t, std::shared_ptr<DownloadItem>> itemsByHandle_;
    std::map<SourceKey, std::shared_ptr<DownloadSource>> sourcesByKey_;
    std::shared_ptr<DownloadItem> shownItem_;
};

// The worker thread of a page: started with the page's model, stopped (closing flag, wake-up,
// join) when it goes.
class DownloadWorker {
public:
    explicit DownloadWorker(DownloadPage& page);
    ~DownloadWorker();
    DownloadWorker(const DownloadWorker&) = delete;
    DownloadWorker& operator=(const DownloadWorker&) = delete;

private:
    DownloadPage& page_;
    std::thread thread_;
};

} // namespace corvid::transfer
