#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace corvid::gnutella {

// One running upload as the upload list shows it.
struct UploadInfo {
    std::int32_t id = 0;
    std::int32_t progress = 0; // percent of the part being sent
    std::int32_t speed = 0;    // bytes per second
    std::string description;
    std::string fileName;
    std::uint64_t fileSize = 0;
    std::string ip;
    std::int32_t port = 0;
};

// The running uploads and the slots they hold. Sessions begin and end uploads on the network
// thread; the upload list and "stop this one" come from the engine's caller. Thread-safe.
class UploadRegistry {
public:
    using Clock = std::chrono::steady_clock;

    explicit UploadRegistry(std::size_t slots = 4) : slots_(slots) {}

    void SetSlots(std::size_t slots);
    std::size_t slots() const;

    struct Start {
        std::string fileName;
        std::uint64_t fileSize = 0;
        std::uint64_t length = 0; // of the part being sent
        std::string ip;
        std::int32_t port = 0;
        std::string description;
    };

    // Takes a slot; nullopt when all are in use. stop is called (once, from Stop) to end it.
    std::optional<std::int32_t> Begin(Start start, Clock::time_point now,
                                      std::function<void()> stop);
    void Progress(std::int32_t id, std::uint64_t sent, Clock::time_point now);
    void End(std::int32_t id);
    // Ends the upload with that id through its stop callback; false when there is none.
    bool Stop(std::int32_t id);
    void StopAll();

    std::vector<UploadInfo> List() const;
    std::size_t Count() const;

private:
    struct Running {
        UploadInfo info;
        std::uint64_t length = 0;
        std::uint64_t sent = 0;
        Clock::time_point started;
        Clock::time_point markTime;
        std::uint64_t markSent = 0;
        std::function<void()> stop;
    };

    mutable std::mutex mutex_;
    std::size_t slots_;
    std::int32_t nextId_ = 1;
    std::map<std::int32_t, Running> running_;
};

} // namespace corvid::gnutella
