#include "transfer/download_page.h"

#include "resources/string_table.h"
#include "search/result_cells.h"
#include "transfer/engine_events.h"
#include "transfer/safe_file_name.h"

#include <algorithm>
#include <cctype>

namespace corvid::transfer {
namespace {

constexpr std::uint32_t kTextFileExists = 32958;
constexpr std::uint32_t kTextConfirmDelete = 32950;
constexpr std::uint32_t kTextConfirmClearCompleted = 32865;
constexpr std::uint32_t kTextConfirmClearStopped = 32846;
constexpr std::uint32_t kTextRunUnfinished = 32951;
constexpr const char* kCaptionQuestion = "Tarvo";
constexpr const char* kCaptionRunUnfinished = "Downloading";

// Engine values read for a row.
constexpr std::int32_t kInfoTransferring = 0;
constexpr std::int32_t kInfoSpeed = 1;
constexpr std::int32_t kInfoProgress = 6;

// A peer can name any number of alternate sources over time; an item takes no more than this.
constexpr std::size_t kMaxSourcesPerItem = 512;

bool SamePathIgnoringCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

template <typename T> std::shared_ptr<T> ArgumentAs(const Command& command) {
    if (const auto* held = std::get_if<std::shared_ptr<T>>(&command.argument))
        return *held;
    return nullptr;
}

std::string_view TextArgument(std::uintptr_t argument) {
    const auto* text = reinterpret_cast<const char*>(argument);
    return text ? std::string_view(text) : std::string_view();
}

} // namespace

DownloadPage::DownloadPage(DownloadPorts ports, std::string downloadFolder,
                           std::unique_ptr<WakeSignal> wake)
    : ports_(std::move(ports)), downloadFolder_(std::move(downloadFolder)),
      queue_(std::move(wake)) {
    if (!ports_.text)
        ports_.text = [](std::uint32_t id) { return std::string(BuiltinText(id)); };
}

DownloadPage::~DownloadPage() = default;

// ---------------------------------------------------------------------------------------------
// Reading the model

std::vector<std::shared_ptr<DownloadItem>> DownloadPage::Items() const {
    std::lock_guard guard(mapsLock_);
    return items_;
}

std::shared_ptr<DownloadItem> DownloadPage::FindByHandle(std::uint32_t handle) const {
    std::lock_guard guard(mapsLock_);
    const auto found = itemsByHandle_.find(handle);
    return found == itemsByHandle_.end() ? nullptr : found->second;
}

std::shared_ptr<DownloadItem> DownloadPage::FindBySha1(const std::string& sha1) const {
    std::lock_guard guard(mapsLock_);
    // sha1 is written once, before the item is listed.
    const auto found = std::find_if(items_.begin(), items_.end(),
                                    [&](const auto& item) { return item->sha1 == sha1; });
    return found == items_.end() ? nullptr : *found;
}

std::shared_ptr<DownloadSource> DownloadPage::FindSource(std::uint32_t handle,
                                                         std::uint32_t sourceId) const {
    std::lock_guard guard(mapsLock_);
    const auto found = sourcesByKey_.find({handle, sourceId});
    return found == sourcesByKey_.end() ? nullptr : found->second;
}

bool DownloadPage::IsLive(const DownloadItem& item) const {
    std::lock_guard guard(mapsLock_);
    const auto found = itemsByHandle_.find(item.handle);
    return found != itemsByHandle_.end() && found->second.get() == &item;
}

bool DownloadPage::IsListed(const std::shared_ptr<DownloadItem>& item) const {
    std::lock_guard guard(mapsLock_);
    return std::find(items_.begin(), items_.end(), item) != items_.end();
}

bool DownloadPage::IsShown(const std::shared_ptr<DownloadItem>& item) const {
    std::lock_guard guard(mapsLock_);
    return item && shownItem_ == item;
}

void DownloadPage::SetShownItem(std::shared_ptr<DownloadItem> item) {
    std::lock_guard guard(mapsLock_);
    shownItem_ = std::move(item);
}

std::shared_ptr<DownloadItem> DownloadPage::ShownItem() const {
    std::lock_guard guard(mapsLock_);
    return shownItem_;
}

void DownloadPage::ClearPaneIfShowing(const std::shared_ptr<DownloadItem>& item) {
    {
        std::lock_guard guard(mapsLock_);
        if (shownItem_ != item)
            return;
        shownItem_.reset();
    }
    ports_.pane.Clear();
}

// ---------------------------------------------------------------------------------------------
// Row texts

RowCells DownloadPage::CreationCells(const DownloadItem& item) {
    RowCells cells;
    const auto& group = item.group;
    if (group.sources.empty())
        return cells;
    const auto& first = group.sources.front();
    for (std::uint32_t column : kResultColumns) {
        switch (column) {
        case kColumnName:
            cells.push_back({column, first.name});
            break;
        case kColumnSize:
            cells.push_back({column, FormatSize(first.size)});
            break;
        case kColumnHost:
            cells.push_back(
                {column, group.sources.size() < 2
                             ? first.host
                             : "multiple(" + std::to_string(group.sources.size()) + ")"});
            break;
        case kColumnSpeed:
            cells.push_back({column, "0"});
            break;
        case kColumnSha1:
            cells.push_back({column, item.sha1});
            break;
        default:
            // The first source's own values, as its row in the result list shows them.
            cells.push_back({column, CellText(group, 0, column)});
            break;
        }
    }
    cells.push_back({kColumnProgress, "0"});
    cells.push_back({kColumnStatus, ""});
    return cells;
}

RowCells DownloadPage::ProgressCells(DownloadItem& item) {
    std::lock_guard itemGuard(item.lock);
    const bool live = IsLive(item);
    // A closed or deleted engine object is asked nothing: its handle may already name another.
    const auto info = [&](std::int32_t code) {
        return live ? ports_.engine.GetDownloadInfo(item.handle, 0, code) : 0;
    };
    const std::int32_t speed = item.state == kItemCompleted ? 0 : std::max(info(kInfoSpeed), 0);
    if (live)
        item.lastProgress = std::max(info(kInfoProgress), 0);
    std::string status;
    switch (item.state) {
    case kItemCompleted:
        status = "Completed";
        break;
    case kItemNeedsSources:
        status = "More sources needed";
        break;
    case kItemStopped:
        status = "Stopped";
        break;
    default: {
        const auto transferring = info(kInfoTransferring);
        const auto v3 = info(3), v5 = info(5), v4 = info(4), v2 = info(2);
        status = transferring != 0
                     ? "Downloading(" + std::to_string(v3) + "/" + std::to_string(v5) + "/" +
                           std::to_string(v4) + "/" + std::to_string(v2) + ")"
                     : "Stoppted(" + std::to_string(v2) + ")";
        break;
    }
    }
    return {{kColumnSpeed, FormatSize(speed)},
            {kColumnProgress, std::to_string(item.lastProgress) + "%"},
            {kColumnStatus, status}};
}

void DownloadPage::UpdateRow(const std::shared_ptr<DownloadItem>& item) {
    const auto cells = ProgressCells(*item);
    ports_.list.UpdateRow(*item, cells);
}

// ---------------------------------------------------------------------------------------------
// Starting a download

std::string DownloadPage::ChooseLocalPath(const ResultGroup& group) const {
    // The name was chosen by a remote peer: SafeFileName keeps it inside the download folder,
    // and UniquePath keeps two downloads (or a download and a file already there) apart.
    const auto name = SafeFileName(group.sources.front().name);
    const auto items = Items();
    return UniquePath(downloadFolder_, name, [&](const std::string& path) {
        for (const auto& item : items) {
            std::lock_guard guard(item->lock);
            if (SamePathIgnoringCase(item->localPath, path))
                return true;
        }
        return ports_.files.Exists(path);
    });
}

bool DownloadPage::AddSource(const std::shared_ptr<DownloadItem>& item, const std::string& url) {
    const auto sourceId = ports_.engine.AddDownloadSource(item->handle, url);
    if (sourceId == 0)
        return false;
    auto source = std::make_shared<DownloadSource>();
    source->handle = item->handle;
    source->sourceId = sourceId;
    source->url = url;
    item->sources.push_back(source);
    std::lock_guard guard(mapsLock_);
    sourcesByKey_[{item->handle, sourceId}] = std::move(source);
    return true;
}

void DownloadPage::AddGroupSources(const std::shared_ptr<DownloadItem>& item) {
    for (const auto& hit : item->group.sources) {
        if (const auto url = SourceUrlOf(hit, item->sha1))
            AddSource(item, *url);
    }
}

bool DownloadPage::UnregisterEngineObject(DownloadItem& item) {
    std::lock_guard guard(mapsLock_);
    for (const auto& source : item.sources) {
        const auto found = sourcesByKey_.find({source->handle, source->sourceId});
        if (found != sourcesByKey_.end() && found->second == source)
            sourcesByKey_.erase(found);
    }
    const auto found = itemsByHandle_.find(item.handle);
    if (found == itemsByHandle_.end() || found->second.get() != &item)
        return false;
    itemsByHandle_.erase(found);
    return true;
}

bool DownloadPage::StartDownload(const ResultGroup& group, bool showNow) {
    if (group.sources.empty())
        return false;
    if (FindBySha1(group.sha1)) {
        ports_.prompts.ShowFileExists(ports_.text(kTextFileExists), group.sources.front().name);
        return false;
    }
    const auto localPath = ChooseLocalPath(group);
    const auto handle = ports_.engine.CreateDownloadObject(localPath);
    if (handle == 0)
        return false;

    auto item = std::make_shared<DownloadItem>();
    item->handle = handle;
    item->sha1 = group.sha1;
    item->localPath = localPath;
    item->group = group;
    RowCells cells;
    {
        std::lock_guard itemGuard(item->lock);
        {
            std::lock_guard guard(mapsLock_);
            items_.push_back(item);
            itemsByHandle_[handle] = item;
        }
        AddGroupSources(item);
        ports_.engine.Download(handle, &DownloadPage::EngineCallback, this);
        cells = CreationCells(*item);
    }
    ports_.list.AddRow(item, cells);
    if (showNow) {
        SetShownItem(item);
        queue_.Post(kCmdRebuildSources, item);
    }
    return true;
}

bool DownloadPage::OfferSearchHit(const std::string& sha1, const ResultSource& hit) {
    const auto item = FindBySha1(sha1);
    if (!item)
        return false;
    {
        std::lock_guard itemGuard(item->lock);
        const bool running = item->state == kItemCreated || item->state == kItemDownloading;
        auto& sources = item->group.sources;
        if (!running || !IsLive(*item) || sources.empty() || sources.front().size != hit.size)
            return false;
        if (std::any_of(sources.begin(), sources.end(), [&](const ResultSource& known) {
                return known.host == hit.host && known.sourceUrl == hit.sourceUrl;
            }))
            return false;
        sources.push_back(hit);
        const auto url = SourceUrlOf(hit, sha1);
        if (!url || item->HasSourceUrl(*url) || item->sources.size() >= kMaxSourcesPerItem ||
            !AddSource(item, *url))
            return false;
    }
    queue_.Post(kCmdRebuildSources, item);
    return true;
}

// ---------------------------------------------------------------------------------------------
// The user's commands

void DownloadPage::RequestDelete(const std::vector<std::shared_ptr<DownloadItem>>& selected) {
    if (selected.empty())
        return;
    if (!ports_.prompts.AskYesNo(ports_.text(kTextConfirmDelete), kCaptionQuestion))
        return;
    for (const auto& item : selected)
        queue_.Post(kCmdDelete, item);
}

void DownloadPage::RequestStop(const std::shared_ptr<DownloadItem>& item) {
    queue_.Post(kCmdStop, item);
}

void DownloadPage::RequestRestart(const std::shared_ptr<DownloadItem>& item) {
    queue_.Post(kCmdRestart, item);
}

void DownloadPage::PostForItems(std::int32_t command,
                                const std::function<bool(std::int32_t)>& byState) {
    for (const auto& item : Items()) {
        std::int32_t state;
        {
            std::lock_guard guard(item->lock);
            state = item->state;
        }
        if (byState(state))
            queue_.Post(command, item);
    }
}

void DownloadPage::ClearCompleted() {
    if (Items().empty())
        return;
    if (!ports_.prompts.AskYesNo(ports_.text(kTextConfirmClearCompleted), kCaptionQuestion))
        return;
    PostForItems(kCmdDelete, [](std::int32_t state) { return state == kItemCompleted; });
}

void DownloadPage::ClearStopped() {
    if (!ports_.prompts.AskYesNo(ports_.text(kTextConfirmClearStopped), kCaptionQuestion))
        return;
    // Items that need more sources count as stopped here.
    PostForItems(kCmdDelete, [](std::int32_t state) {
        return state == kItemStopped || state == kItemNeedsSources;
    });
}

void DownloadPage::Run(const std::vector<std::shared_ptr<DownloadItem>>& selected) {
    if (selected.empty())
        return;
    const auto& item = selected.front();
    std::int32_t state;
    std::string path;
    {
        std::lock_guard guard(item->lock);
        state = item->state;
        path = item->localPath;
    }
    if (state != kItemCompleted &&
        !ports_.prompts.AskYesNo(ports_.text(kTextRunUnfinished) + "\n" + path,
                                 kCaptionRunUnfinished))
        return;
    if (!ports_.files.PlayInTheater(path))
        ports_.files.Open(path);
}

void DownloadPage::BeginClosing() {
    closing_ = true;
    queue_.Post(kCmdNone);
}

void DownloadPage::CloseEngineObjects() {
    for (const auto& item : Items()) {
        std::uint32_t handle;
        {
            std::lock_guard itemGuard(item->lock);
            if (!UnregisterEngineObject(*item))
                continue;
            handle = item->handle;
            item->sources.clear();
        }
        ports_.engine.CloseDownloadObject(handle);
    }
}

// ---------------------------------------------------------------------------------------------
// Between runs

std::vector<SavedDownload> DownloadPage::Snapshot() const {
    std::vector<SavedDownload> saved;
    for (const auto& item : Items()) {
        std::lock_guard guard(item->lock);
        SavedDownload record;
        record.sha1 = item->sha1;
        record.localPath = item->localPath;
        record.state = item->state;
        record.progress = item->lastProgress;
        record.sources = item->group.sources;
        saved.push_back(std::move(record));
    }
    return saved;
}

bool DownloadPage::Restore(const SavedDownload& saved, bool resume) {
    if (saved.sources.empty() || FindBySha1(saved.sha1))
        return false;
    auto item = std::make_shared<DownloadItem>();
    item->sha1 = saved.sha1;
    item->localPath = saved.localPath;
    item->group.sha1 = saved.sha1;
    item->group.sources = saved.sources;
    item->lastProgress = saved.progress;
    const bool wasRunning = saved.state == kItemCreated || saved.state == kItemDownloading;
    item->state = wasRunning ? kItemStopped : saved.state;
    if (item->state == kItemCompleted)
        item->lastProgress = 100;

    std::uint32_t handle = 0;
    if (wasRunning && resume) {
        handle = ports_.engine.CreateDownloadObject(item->localPath);
        if (handle == 0)
            return false;
        item->handle = handle;
        item->state = kItemCreated;
    }
    RowCells cells;
    {
        std::lock_guard itemGuard(item->lock);
        {
            std::lock_guard guard(mapsLock_);
            items_.push_back(item);
            if (handle != 0)
                itemsByHandle_[handle] = item;
        }
        if (handle != 0) {
            AddGroupSources(item);
            ports_.engine.Download(handle, &DownloadPage::EngineCallback, this);
        }
        cells = CreationCells(*item);
    }
    ports_.list.AddRow(item, cells);
    UpdateRow(item);
    return true;
}

std::vector<std::string> DownloadPage::Sha1sNeedingSources() const {
    std::vector<std::string> sha1s;
    for (const auto& item : Items()) {
        std::lock_guard guard(item->lock);
        if (item->state == kItemNeedsSources)
            sha1s.push_back(item->sha1);
    }
    return sha1s;
}

bool DownloadPage::OfferFoundSource(const std::string& sha1, const ResultSource& hit) {
    const auto item = FindBySha1(sha1);
    if (!item)
        return false;
    {
        std::lock_guard itemGuard(item->lock);
        auto& sources = item->group.sources;
        if (item->state != kItemNeedsSources || sources.empty() ||
            sources.front().size != hit.size || sources.size() >= kMaxSourcesPerItem ||
            !SourceUrlOf(hit, sha1))
            return false;
        if (std::any_of(sources.begin(), sources.end(), [&](const ResultSource& known) {
                return known.host == hit.host && known.port == hit.port &&
                       known.sourceUrl == hit.sourceUrl;
            }))
            return false;
        sources.push_back(hit);
    }
    queue_.Post(kCmdRestart, item);
    return true;
}

// ---------------------------------------------------------------------------------------------
// The worker's commands

void DownloadPage::DeleteItem(const std::shared_ptr<DownloadItem>& item) {
    std::uint32_t handle;
    bool live;
    bool completed;
    std::string path;
    {
        std::lock_guard itemGuard(item->lock);
        if (!IsListed(item))
            return;
        live = UnregisterEngineObject(*item);
        handle = item->handle;
        item->sources.clear();
        completed = item->state == kItemCompleted;
        path = item->localPath;
    }
    ClearPaneIfShowing(item);
    if (live) {
        ports_.engine.StopDownload(handle);
        ports_.engine.DeleteDownloadObject(handle);
    }
    ports_.list.RemoveRow(*item);
    // A completed file is the user's: only a partial one goes with its item.
    if (!completed)
        ports_.files.Remove(path);
    {
        std::lock_guard guard(mapsLock_);
        std::erase(items_, item);
    }
    ports_.list.PostRefresh();
}

bool DownloadPage::StopItem(const std::shared_ptr<DownloadItem>& item, std::int32_t newState) {
    std::uint32_t handle;
    bool live;
    {
        std::lock_guard itemGuard(item->lock);
        // A completed item is never stopped: Clear stopped would then delete a finished file.
        if (!IsListed(item) || item->state == kItemNeedsSources || item->state == kItemStopped ||
            item->state == kItemCompleted)
            return false;
        item->state = newState;
        item->fileLength = {};
        // The handle leaves the map first, so that no event still in flight acts on the item.
        live = UnregisterEngineObject(*item);
        handle = item->handle;
        item->sources.clear();
    }
    UpdateRow(item);
    ClearPaneIfShowing(item);
    // Closed, not deleted: the partial file stays for a Restart.
    if (live)
        ports_.engine.CloseDownloadObject(handle);
    ports_.list.PostRefresh();
    return true;
}

bool DownloadPage::RestartItem(const std::shared_ptr<DownloadItem>& item) {
    const auto refused = [&] {
        return !IsListed(item) || item->state == kItemDownloading || item->state == kItemCompleted;
    };
    std::uint32_t oldHandle;
    bool oldLive;
    {
        std::lock_guard itemGuard(item->lock);
        if (refused())
            return true;
        oldLive = UnregisterEngineObject(*item);
        oldHandle = item->handle;
        item->sources.clear();
    }
    // An item that was never started still has its first object.
    if (oldLive)
        ports_.engine.CloseDownloadObject(oldHandle);
    {
        std::lock_guard itemGuard(item->lock);
        if (refused())
            return true;
        const auto handle = ports_.engine.CreateDownloadObject(item->localPath);
        if (handle == 0)
            return false;
        item->handle = handle;
        {
            std::lock_guard guard(mapsLock_);
            itemsByHandle_[handle] = item;
        }
        AddGroupSources(item);
        ports_.engine.Download(handle, &DownloadPage::EngineCallback, this);
        item->state = kItemDownloading;
    }
    if (IsShown(item))
        ports_.pane.RebuildSources(item);
    UpdateRow(item);
    return true;
}

void DownloadPage::CompleteItem(const std::shared_ptr<DownloadItem>& item) {
    std::uint32_t handle;
    std::string path;
    {
        std::lock_guard itemGuard(item->lock);
        // Only a running engine object can have succeeded; a stopped item stays as it is.
        if (!IsListed(item) || item->state == kItemCompleted || !UnregisterEngineObject(*item))
            return;
        handle = item->handle;
        item->sources.clear();
        item->state = kItemCompleted;
        item->lastProgress = 100;
        item->fileLength = {};
        path = item->localPath;
    }
    UpdateRow(item);
    ClearPaneIfShowing(item);
    ports_.engine.DeleteDownloadObject(handle);
    if (ports_.library.Present()) {
        auto kept = ports_.library.CompletedFilePath(path);
        if (!kept.empty()) {
            {
                std::lock_guard itemGuard(item->lock);
                item->localPath = kept;
            }
            if (ports_.library.SharesDownloads())
                ports_.library.ShareFile(kept);
        }
    }
    ports_.list.PostRefresh();
}

void DownloadPage::AddAltSource(const AltSourceRecord& record) {
    const auto item = FindByHandle(record.handle);
    if (!item)
        return;
    std::lock_guard itemGuard(item->lock);
    if (IsLive(*item) && item->handle == record.handle && !item->HasSourceUrl(record.url) &&
        item->sources.size() < kMaxSourcesPerItem)
        AddSource(item, record.url);
}

void DownloadPage::Execute(const Command& command) {
    switch (command.code) {
    case kCmdUpdateSource:
        if (auto source = ArgumentAs<DownloadSource>(command))
            ports_.pane.UpdateSource(source);
        break;
    case kCmdRefreshDetail:
        if (auto item = ArgumentAs<DownloadItem>(command))
            ports_.pane.RefreshDetail(item);
        break;
    case kCmdUpdateRow:
        if (auto item = ArgumentAs<DownloadItem>(command))
            UpdateRow(item);
        break;
    case kCmdDelete:
        if (auto item = ArgumentAs<DownloadItem>(command))
            DeleteItem(item);
        break;
    case kCmdStop:
        if (auto item = ArgumentAs<DownloadItem>(command))
            StopItem(item, kItemStopped);
        break;
    case kCmdRestart:
        if (auto item = ArgumentAs<DownloadItem>(command))
            RestartItem(item);
        break;
    case kCmdComplete:
        if (auto item = ArgumentAs<DownloadItem>(command))
            CompleteItem(item);
        break;
    case kCmdForgetInPane:
        if (auto item = ArgumentAs<DownloadItem>(command); item && ports_.pane.ForgetItem(item))
            ports_.pane.RefreshDetail(item);
        break;
    case kCmdGiveUp:
        if (auto item = ArgumentAs<DownloadItem>(command))
            StopItem(item, kItemNeedsSources);
        break;
    case kCmdRebuildSources:
        if (auto item = ArgumentAs<DownloadItem>(command))
            ports_.pane.RebuildSources(item);
        break;
    case kCmdAddAltSource:
        if (const auto* record = std::get_if<AltSourceRecord>(&command.argument))
            AddAltSource(*record);
        break;
    default:
        break;
    }
}

void DownloadPage::RunWorker() {
    for (;;) {
        Command command;
        const bool hasHead = queue_.WaitForHead(command);
        if (closing_)
            return;
        if (!hasHead)
            continue;
        Execute(command);
        // Only a head that was read is popped: a post that came after an empty wake-up stays.
        queue_.PopFront();
    }
}

std::size_t DownloadPage::RunQueuedCommands() {
    std::size_t done = 0;
    Command command;
    while (!closing_ && queue_.ReadHead(command)) {
        Execute(command);
        queue_.PopFront();
        ++done;
    }
    return done;
}

// ---------------------------------------------------------------------------------------------
// Engine events

int DownloadPage::EngineCallback(void* context, std::uint32_t handle, std::uint32_t sourceId,
                                 std::int32_t code, std::uintptr_t argument) {
    auto* page = static_cast<DownloadPage*>(context);
    return page ? page->HandleEngineEvent(handle, sourceId, code, argument) : 0;
}

void DownloadPage::RecountReceived(DownloadItem& item) {
    item.receivedTotal = 0;
    for (const auto& source : item.sources)
        item.receivedTotal += std::max(source->received, 0);
}

void DownloadPage::LogToAllSources(DownloadItem& item, const std::string& text) {
    const auto now = ports_.clock.Now();
    for (const auto& source : item.sources)
        source->log->Append(now, kLogStatus, text);
}

int DownloadPage::HandleEngineEvent(std::uint32_t handle, std::uint32_t sourceId, std::int32_t code,
                                    std::uintptr_t argument) {
    if (closing_)
        return 1;
    const auto item = FindByHandle(handle);
    if (!item)
        return 0;
    std::lock_guard itemGuard(item->lock);
    // Stopped, completed or deleted between the look-up and the lock: the handle is dead.
    if (item->handle != handle || !IsLive(*item))
        return 0;
    if (IsItemEvent(code)) {
        HandleItemEvent(item, code, argument);
        return 1;
    }
    if (const auto source = FindSource(handle, sourceId))
        HandleSourceEvent(item, *source, source, code, argument);
    return 1;
}

void DownloadPage::HandleItemEvent(const std::shared_ptr<DownloadItem>& item, std::int32_t code,
                                   std::uintptr_t argument) {
    const bool shown = IsShown(item);
    switch (code) {
    case kEventStopped:
        ports_.list.PostRefresh();
        break;
    case kEventStart:
        item->state = kItemDownloading;
        ports_.list.PostRefresh();
        break;
    case kEventFileLength:
        if (const auto* words = reinterpret_cast<const std::uint32_t*>(argument))
            item->fileLength = {words[0], words[1], words[2]};
        break;
    case kEventProgress:
        queue_.Post(kCmdUpdateRow, item);
        break;
    case kEventNoValidSource:
        queue_.Post(kCmdGiveUp, item);
        break;
    case kEventUserAbort:
        item->state = kItemStopped;
        ports_.list.PostRefresh();
        if (shown) {
            for (const auto& source : item->sources) {
                source->status = kSourceIdle;
                queue_.Post(kCmdUpdateSource, source);
            }
        }
        break;
    case kEventSucceeded:
        queue_.Post(kCmdComplete, item);
        break;
    default:
        break;
    }
    const auto text = ItemEventText(code, static_cast<std::int32_t>(item->fileLength[0]));
    if (!text.empty())
        LogToAllSources(*item, text);
    if (shown) {
        if (!detailed_)
            queue_.Post(kCmdRefreshDetail, item);
        ports_.pane.AppendLogLines(item);
    }
}

void DownloadPage::HandleSourceEvent(const std::shared_ptr<DownloadItem>& item,
                                     DownloadSource& source,
                                     const std::shared_ptr<DownloadSource>& sourceRef,
                                     std::int32_t code, std::uintptr_t argument) {
    const bool takesText = code == kEventConnecting || code == kEventResolveFailed ||
                           code == kEventSendRequest || code == kEventHeaderReceived ||
                           code == kEventRedirect || code == kEventFileName;
    const auto text = takesText ? TextArgument(argument) : std::string_view();
    const auto number = static_cast<std::int32_t>(argument);
    const auto effect = DescribeSourceEvent(code, text, number);
    const auto oldStatus = source.status;
    const bool shown = IsShown(item);

    if (code == kEventReceivedBytes) {
        source.received = number;
        RecountReceived(*item);
        if (detailed_ && shown)
            ports_.pane.ShowReceived(item, item->receivedTotal);
    } else {
        const auto now = ports_.clock.Now();
        source.log->Append(now, effect.kind, effect.text);
        if (code == kEventSendRequest || code == kEventHeaderReceived) {
            const auto lineKind = code == kEventSendRequest ? kLogRequestLine : kLogResponseLine;
            for (auto& line : SplitLines(text))
                source.log->Append(now, lineKind, std::move(line));
        }
        if (effect.status)
            source.status = *effect.status;
        if (effect.failed) {
            source.received = -1;
            RecountReceived(*item);
        }
    }
    const bool ownLine =
        code != kEventSendRequest && code != kEventHeaderReceived && code != kEventReceivedBytes;
    if (ownLine && !detailed_)
        queue_.Post(kCmdRefreshDetail, item);
    if (shown && source.status != oldStatus)
        queue_.Post(kCmdUpdateSource, sourceRef);
    if (code == kEventHeaderReceived)
        PostAltSources(item, text);
}

void DownloadPage::PostAltSources(const std::shared_ptr<DownloadItem>& item,
                                  std::string_view header) {
    for (auto& url : AltSourceUrls(header, item->sha1)) {
        if (!item->HasSourceUrl(url))
            queue_.Post(kCmdAddAltSource, AltSourceRecord{item->handle, std::move(url)});
    }
    queue_.Post(kCmdRebuildSources, item);
}

// ---------------------------------------------------------------------------------------------

DownloadWorker::DownloadWorker(DownloadPage& page)
    : page_(page), thread_([this] { page_.RunWorker(); }) {}

DownloadWorker::~DownloadWorker() {
    page_.BeginClosing();
    thread_.join();
}

} // namespace corvid::transfer
