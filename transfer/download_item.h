#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "search/result_records.h"
#include "transfer/download_states.h"

namespace corvid::transfer {

struct LogLine {
    std::time_t time = 0;
    std::int32_t kind = kLogStatus;
    std::string text;
};

// A run of a log's lines and the number of the first of them.
struct LogLines {
    std::size_t first = 0;
    std::vector<LogLine> lines;
};

// The log of one source. The log pane keeps a reference to the log it shows, so a log outlives the
// source it belongs to when the source is dropped while shown; its lines have a lock of their own
// that the pane takes for reading (the writers also hold the item's lock, so nobody holds this one
// for longer than a copy: a reader that filled controls under it would stall the writer, and with
// it everyone waiting for the item).
// Only the newest kKeptLines lines are kept: a source retried for days writes a request and an
// answer at every try, and what happened a thousand tries ago helps nobody. Lines keep the number
// they were written with, so a reader asking from a line the log has let go gets what is left.
class SourceLog {
public:
    static constexpr std::size_t kKeptLines = 2000;

    void Append(std::time_t time, std::int32_t kind, std::string text);
    // The number of lines ever written.
    std::size_t Size() const;
    // A copy of the kept lines numbered `from` on.
    LogLines LinesFrom(std::size_t from) const;

private:
    mutable std::mutex lock_;
    std::deque<LogLine> lines_;
    std::size_t dropped_ = 0;
};

// One URL handed to the engine for an item. Fields other than the log are guarded by the item's
// lock.
struct DownloadSource {
    std::uint32_t handle = 0;
    std::uint32_t sourceId = 0;
    std::string url;
    std::int32_t received = 0;
    std::int32_t status = kSourceIdle;
    std::shared_ptr<SourceLog> log = std::make_shared<SourceLog>();
};

// One file being downloaded. Whoever reads or changes the fields below `lock` holds it; the lock is
// recursive because the engine may call back on the thread that is inside one of its operations.
struct DownloadItem {
    mutable std::recursive_mutex lock;
    std::uint32_t handle = 0;
    std::string sha1;
    std::string localPath;
    ResultGroup group;
    std::array<std::uint32_t, 3> fileLength{};
    std::int32_t state = kItemCreated;
    std::vector<std::shared_ptr<DownloadSource>> sources;
    // Bytes received over all sources, as last reported by the engine.
    std::int64_t receivedTotal = 0;
    // The progress last read from the engine, shown once its object is closed.
    std::int32_t lastProgress = 0;

    bool HasSourceUrl(const std::string& url) const;
};

} // namespace corvid::transfer
