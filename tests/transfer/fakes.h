#pragma once

// Fakes of the download page's ports: they record what the page asked for and answer as a test
// sets them up. All of them may be called from several threads at once.

#include "resources/string_table.h"
#include "transfer/download_page.h"

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace corvid::transfer::testing {

class FakeEngine : public DownloadEngine {
public:
    struct Object {
        std::string path;
        std::map<std::uint32_t, std::string> sources;
        EngineEventCallback callback = nullptr;
        void* context = nullptr;
        bool downloading = false;
        bool stopped = false;
        bool closed = false;
        bool deleted = false;
    };

    std::uint32_t CreateDownloadObject(const std::string& localPath) override {
        std::lock_guard guard(lock);
        if (refuseCreate)
            return 0;
        const auto handle = nextHandle++;
        objects[handle].path = localPath;
        return handle;
    }
    std::uint32_t AddDownloadSource(std::uint32_t handle, const std::string& url) override {
        std::lock_guard guard(lock);
        if (refusedUrls.count(url))
            return 0;
        const auto id = nextSourceId++;
        objects[handle].sources[id] = url;
        return id;
    }
    void Download(std::uint32_t handle, EngineEventCallback callback, void* context) override {
        std::lock_guard guard(lock);
        auto& object = objects[handle];
        object.callback = callback;
        object.context = context;
        object.downloading = true;
    }
    std::int32_t GetDownloadInfo(std::uint32_t handle, std::int32_t, std::int32_t code) override {
        std::lock_guard guard(lock);
        infoAsked.push_back(handle);
        const auto found = info.find(code);
        return found == info.end() ? 0 : found->second;
    }
    void StopDownload(std::uint32_t handle) override {
        std::lock_guard guard(lock);
        objects[handle].stopped = true;
    }
    void CloseDownloadObject(std::uint32_t handle) override {
        std::lock_guard guard(lock);
        objects[handle].closed = true;
    }
    void DeleteDownloadObject(std::uint32_t handle) override {
        std::lock_guard guard(lock);
        objects[handle].deleted = true;
    }

    // Fires an event the way the library does, through the callback given to Download.
    int Fire(std::uint32_t handle, std::uint32_t sourceId, std::int32_t code,
             std::uintptr_t argument = 0) {
        EngineEventCallback callback;
        void* context;
        {
            std::lock_guard guard(lock);
            callback = objects[handle].callback;
            context = objects[handle].context;
        }
        return callback ? callback(context, handle, sourceId, code, argument) : -1;
    }
    int FireText(std::uint32_t handle, std::uint32_t sourceId, std::int32_t code,
                 const std::string& text) {
        return Fire(handle, sourceId, code, reinterpret_cast<std::uintptr_t>(text.c_str()));
    }
    Object Get(std::uint32_t handle) {
        std::lock_guard guard(lock);
        return objects[handle];
    }

    std::mutex lock;
    std::uint32_t nextHandle = 100;
    std::uint32_t nextSourceId = 1;
    bool refuseCreate = false;
    std::set<std::string> refusedUrls;
    std::map<std::int32_t, std::int32_t> info;
    std::vector<std::uint32_t> infoAsked;
    std::map<std::uint32_t, Object> objects;
};

class FakeList : public DownloadListView {
public:
    void AddRow(const std::shared_ptr<DownloadItem>& item, const RowCells& cells) override {
        std::lock_guard guard(lock);
        rows[item.get()] = cells;
    }
    void UpdateRow(const DownloadItem& item, const RowCells& cells) override {
        std::lock_guard guard(lock);
        const auto found = rows.find(&item);
        if (found == rows.end())
            return;
        for (const auto& cell : cells) {
            for (auto& shown : found->second)
                if (shown.column == cell.column)
                    shown.text = cell.text;
        }
    }
    void RemoveRow(const DownloadItem& item) override {
        std::lock_guard guard(lock);
        rows.erase(&item);
    }
    void PostRefresh() override {
        std::lock_guard guard(lock);
        ++refreshes;
    }
    std::string Cell(const DownloadItem& item, std::uint32_t column) {
        std::lock_guard guard(lock);
        for (const auto& cell : rows.at(&item))
            if (cell.column == column)
                return cell.text;
        return "<no such column>";
    }
    bool HasRow(const DownloadItem& item) {
        std::lock_guard guard(lock);
        return rows.count(&item) != 0;
    }

    std::mutex lock;
    std::map<const DownloadItem*, RowCells> rows;
    int refreshes = 0;
};

class FakePane : public SourcePane {
public:
    void Clear() override { Record("Clear"); }
    void UpdateSource(const std::shared_ptr<DownloadSource>& source) override {
        Record("UpdateSource " + std::to_string(source->sourceId));
    }
    void RefreshDetail(const std::shared_ptr<DownloadItem>&) override { Record("RefreshDetail"); }
    bool ForgetItem(const std::shared_ptr<DownloadItem>&) override {
        Record("ForgetItem");
        return knowsItem;
    }
    void RebuildSources(const std::shared_ptr<DownloadItem>&) override { Record("RebuildSources"); }
    void AppendLogLines(const std::shared_ptr<DownloadItem>&) override { Record("AppendLogLines"); }
    void ShowReceived(const std::shared_ptr<DownloadItem>&, std::int64_t bytes) override {
        Record("ShowReceived " + std::to_string(bytes));
    }
    void Record(std::string call) {
        std::lock_guard guard(lock);
        calls.push_back(std::move(call));
    }
    std::vector<std::string> Take() {
        std::lock_guard guard(lock);
        return std::exchange(calls, {});
    }

    std::mutex lock;
    std::vector<std::string> calls;
    bool knowsItem = true;
};

class FakePrompts : public UserPrompts {
public:
    bool AskYesNo(const std::string& text, const std::string& caption) override {
        questions.push_back({text, caption});
        return answerYes;
    }
    void ShowFileExists(const std::string& message, const std::string& detail) override {
        fileExists.push_back(message + detail);
    }

    bool answerYes = true;
    std::vector<std::pair<std::string, std::string>> questions;
    std::vector<std::string> fileExists;
};

class FakeLibrary : public LibraryComponent {
public:
    bool Present() override { return present; }
    bool IsFileOnDisk(const std::string& sha1) override { return onDisk.count(sha1) != 0; }
    std::string CompletedFilePath(const std::string& localPath) override {
        const auto found = keptAt.find(localPath);
        return found == keptAt.end() ? localPath : found->second;
    }
    bool SharesDownloads() override { return shares; }
    void ShareFile(const std::string& path) override { shared.push_back(path); }

    bool present = false;
    bool shares = false;
    std::set<std::string> onDisk;
    std::map<std::string, std::string> keptAt;
    std::vector<std::string> shared;
};

class FakeFiles : public FileShell {
public:
    bool Exists(const std::string& path) override {
        std::lock_guard guard(lock);
        return existing.count(path) != 0;
    }
    void Remove(const std::string& path) override {
        std::lock_guard guard(lock);
        removed.push_back(path);
        existing.erase(path);
    }
    bool PlayInTheater(const std::string& path) override {
        played.push_back(path);
        return theaterAccepts;
    }
    void Open(const std::string& path) override { opened.push_back(path); }

    std::mutex lock;
    std::set<std::string> existing;
    std::vector<std::string> removed;
    bool theaterAccepts = false;
    std::vector<std::string> played;
    std::vector<std::string> opened;
};

class FakeClock : public Clock {
public:
    std::time_t Now() override { return now; }
    std::time_t now = 1'000'000'000;
};

// A page over fresh fakes.
struct PageFixture {
    FakeEngine engine;
    FakeList list;
    FakePane pane;
    FakePrompts prompts;
    FakeLibrary library;
    FakeFiles files;
    FakeClock clock;
    DownloadPage page{DownloadPorts{engine, list, pane, prompts, library, files, clock,
                                    [](std::uint32_t id) { return std::string(BuiltinText(id)); }},
                      "C:\\Corvid\\download"};
};

inline ResultSource Hit(std::string name, std::string host, std::int32_t port = 6346,
                        std::int32_t size = 1234567) {
    ResultSource source;
    source.name = std::move(name);
    source.host = std::move(host);
    source.port = port;
    source.size = size;
    source.fileIndex = 7;
    source.type = "Audio";
    source.vendorCode = "CRVD";
    source.nodeId = "node";
    source.info = "info";
    return source;
}

inline ResultGroup Group(std::string sha1, std::vector<ResultSource> sources) {
    ResultGroup group;
    group.sha1 = std::move(sha1);
    group.sources = std::move(sources);
    return group;
}

} // namespace corvid::transfer::testing
