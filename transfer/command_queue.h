#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <variant>

namespace corvid::transfer {

struct DownloadItem;
struct DownloadSource;

// The worker's commands.
enum CommandCode : std::int32_t {
    kCmdNone = 0,
    kCmdUpdateSource = 1,
    kCmdRefreshDetail = 2,
    kCmdUpdateRow = 3,
    kCmdDelete = 4,
    kCmdStop = 5,
    kCmdRestart = 6,
    kCmdComplete = 7,
    kCmdForgetInPane = 8,
    kCmdGiveUp = 9,
    kCmdRebuildSources = 10,
    kCmdAddAltSource = 11,
};

// An alternate source a peer told us of, waiting for the worker to hand it to the engine.
struct AltSourceRecord {
    std::uint32_t handle = 0;
    std::string url;
};

using CommandArgument = std::variant<std::monostate, std::shared_ptr<DownloadItem>,
                                     std::shared_ptr<DownloadSource>, AltSourceRecord>;

struct Command {
    std::int32_t code = kCmdNone;
    CommandArgument argument;
};

// A Windows auto-reset event: Signal wakes one waiter, or the next one to wait, and resets itself.
class AutoResetEvent {
public:
    void Signal();
    void Wait();

private:
    std::mutex lock_;
    std::condition_variable wake_;
    bool signalled_ = false;
};

// Commands in arrival order. Anyone may Post; only the worker reads the head and pops it, and it
// leaves the head in the queue while it works, so posts made meanwhile go behind it.
class CommandQueue {
public:
    void Post(std::int32_t code, CommandArgument argument = {});
    // Removes the head, if there is one.
    void PopFront();
    // The head without removing it; false when the queue is empty.
    bool ReadHead(Command& out) const;
    // The worker's wait: reads the head when there is one; otherwise waits for a post and reads the
    // head again. False when the queue is still empty after the wake-up (one signal may stand for
    // several posts, or for none left).
    bool WaitForHead(Command& out);
    std::size_t Count() const;
    // Waits until the queue is empty, at most `limit`; true when it is.
    bool WaitUntilEmpty(std::chrono::milliseconds limit);

private:
    mutable std::mutex lock_;
    std::condition_variable emptied_;
    std::deque<Command> commands_;
    AutoResetEvent posted_;
};

} // namespace corvid::transfer
