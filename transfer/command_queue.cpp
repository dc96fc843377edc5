#include "transfer/command_queue.h"

namespace corvid::transfer {

void AutoResetEvent::Signal() {
    {
        std::lock_guard guard(lock_);
        signalled_ = true;
    }
    wake_.notify_one();
}

void AutoResetEvent::Wait() {
    std::unique_lock guard(lock_);
    wake_.wait(guard, [this] { return signalled_; });
    signalled_ = false;
}

CommandQueue::CommandQueue(std::unique_ptr<WakeSignal> posted)
    : posted_(posted ? std::move(posted) : std::make_unique<AutoResetEvent>()) {}

void CommandQueue::Post(std::int32_t code, CommandArgument argument) {
    std::lock_guard guard(lock_);
    commands_.push_back(Command{code, std::move(argument)});
    posted_->Signal();
}

void CommandQueue::PopFront() {
    std::lock_guard guard(lock_);
    if (commands_.empty())
        return;
    commands_.pop_front();
    if (commands_.empty())
        emptied_.notify_all();
}

bool CommandQueue::ReadHead(Command& out) const {
    std::lock_guard guard(lock_);
    if (commands_.empty())
        return false;
    out = commands_.front();
    return true;
}

bool CommandQueue::WaitForHead(Command& out) {
    if (ReadHead(out))
        return true;
    posted_->Wait();
    return ReadHead(out);
}

std::size_t CommandQueue::Count() const {
    std::lock_guard guard(lock_);
    return commands_.size();
}

bool CommandQueue::WaitUntilEmpty(std::chrono::milliseconds limit) {
    std::unique_lock guard(lock_);
    return emptied_.wait_for(guard, limit, [this] { return commands_.empty(); });
}

} // namespace corvid::transfer
