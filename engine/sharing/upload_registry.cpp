#include "engine/sharing/upload_registry.h"

#include <limits>

namespace corvid::gnutella {
namespace {

// The speed shown is measured over spans of this length, so it follows changes of pace.
constexpr auto kSpeedSpan = std::chrono::seconds(2);

std::int32_t ClampToInt(double value) {
    if (value <= 0) {
        return 0;
    }
    const double max = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(value < max ? value : max);
}

} // namespace

void UploadRegistry::SetSlots(std::size_t slots) {
    std::lock_guard lock(mutex_);
    slots_ = slots;
}

std::size_t UploadRegistry::slots() const {
    std::lock_guard lock(mutex_);
    return slots_;
}

std::optional<std::int32_t> UploadRegistry::Begin(Start start, Clock::time_point now,
                                                  std::function<void()> stop) {
    std::lock_guard lock(mutex_);
    if (running_.size() >= slots_) {
        return std::nullopt;
    }
    const std::int32_t id = nextId_;
    nextId_ = nextId_ == std::numeric_limits<std::int32_t>::max() ? 1 : nextId_ + 1;
    Running& upload = running_[id];
    upload.info.id = id;
    upload.info.description = std::move(start.description);
    upload.info.fileName = std::move(start.fileName);
    upload.info.fileSize = start.fileSize;
    upload.info.ip = std::move(start.ip);
    upload.info.port = start.port;
    upload.length = start.length;
    upload.started = now;
    upload.markTime = now;
    upload.stop = std::move(stop);
    return id;
}

void UploadRegistry::Progress(std::int32_t id, std::uint64_t sent, Clock::time_point now) {
    std::lock_guard lock(mutex_);
    const auto found = running_.find(id);
    if (found == running_.end()) {
        return;
    }
    Running& upload = found->second;
    upload.sent = sent;
    upload.info.progress =
        upload.length == 0 ? 100 : static_cast<std::int32_t>(sent * 100 / upload.length);
    const double span = std::chrono::duration<double>(now - upload.markTime).count();
    if (now - upload.markTime >= kSpeedSpan) {
        upload.info.speed = ClampToInt(static_cast<double>(sent - upload.markSent) / span);
        upload.markTime = now;
        upload.markSent = sent;
    } else if (upload.markTime == upload.started && span > 0) {
        // Until the first span is over, the average since the start.
        upload.info.speed = ClampToInt(static_cast<double>(sent) / span);
    }
}

void UploadRegistry::End(std::int32_t id) {
    std::lock_guard lock(mutex_);
    running_.erase(id);
}

bool UploadRegistry::Stop(std::int32_t id) {
    std::function<void()> stop;
    {
        std::lock_guard lock(mutex_);
        const auto found = running_.find(id);
        if (found == running_.end()) {
            return false;
        }
        stop = std::move(found->second.stop);
        running_.erase(found);
    }
    if (stop) {
        stop();
    }
    return true;
}

void UploadRegistry::StopAll() {
    std::vector<std::int32_t> ids;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [id, upload] : running_) {
            ids.push_back(id);
        }
    }
    for (std::int32_t id : ids) {
        Stop(id);
    }
}

std::vector<UploadInfo> UploadRegistry::List() const {
    std::lock_guard lock(mutex_);
    std::vector<UploadInfo> list;
    for (const auto& [id, upload] : running_) {
        list.push_back(upload.info);
    }
    return list;
}

std::size_t UploadRegistry::Count() const {
    std::lock_guard lock(mutex_);
    return running_.size();
}

} // namespace corvid::gnutella
