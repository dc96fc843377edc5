#pragma once

#include <cstdint>

namespace corvid::transfer {

// The values of DownloadItem::state.
enum ItemState : std::int32_t {
    kItemCreated = 0,
    kItemDownloading = 5,
    kItemCompleted = 6,
    kItemNeedsSources = 7,
    kItemStopped = 8,
};

// The values of DownloadSource::status; they double as the source's icon in the log pane.
enum SourceStatus : std::int32_t {
    kSourceIdle = 0,
    kSourceConnecting = 1,
    kSourceReceiving = 2,
    kSourceFailed = 3,
    kSourceWaiting = 4,
};

// The kinds of log lines; each kind has an icon of its own in the log pane.
enum LogKind : std::int32_t {
    kLogStatus = 0,
    kLogRequestLine = 1,
    kLogError = 2,
    kLogResponseLine = 3,
};

} // namespace corvid::transfer
