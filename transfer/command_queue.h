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

// What wakes the worker: an auto-reset event. Signal wakes one waiter, or the next one to wait,
// and resets itself. The Windows face hands the queue a kernel event of its own name.
class WakeSignal {
public:
    virtual ~WakeSignal() = default;
    virtual void Signal() = 0;
    virtual void Wait() = 0;
};

// The portable auto-reset event.
class AutoResetEvent : public WakeSignal {
public:
    void Signal() override;
    void Wait() override;

private:
    std::mutex lock_;
    std::condition_variable wake_;
    bool signalled_ = false;
};

// Commands in arrival order. Anyone may Post; only the worker reads the head and pops it, and it
// leaves the head in the queue while it works, so posts made meanwhile go behind it.
class CommandQueue {
public:
    // Without a signal of its own the queue wakes its worker with an AutoResetEvent.
    explicit CommandQueue(std::unique_ptr<WakeSignal> posted = nullptr);

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
    std::unique_ptr<WakeSignal> posted_;
};

} // namespace corvid::transfer
