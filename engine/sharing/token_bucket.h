#pragma once

#include <chrono>
#include <cstdint>

namespace corvid::gnutella {

// The total upload speed limit: every upload takes its bytes from one bucket that fills at the
// limit's rate. The time comes from the caller, so the bucket never reads a clock itself.
class TokenBucket {
public:
    using Clock = std::chrono::steady_clock;

    // bytesPerSecond 0 means no limit.
    explicit TokenBucket(std::uint64_t bytesPerSecond = 0, Clock::time_point now = {});

    void SetRate(std::uint64_t bytesPerSecond, Clock::time_point now);
    std::uint64_t rate() const { return rate_; }

    // Takes up to wanted bytes' worth; may grant fewer, or none.
    std::uint64_t Take(std::uint64_t wanted, Clock::time_point now);
    // How long from now until a Take of this size (or of a full bucket, if that is smaller) is
    // granted in full; zero when it already would be.
    Clock::duration Delay(std::uint64_t wanted, Clock::time_point now);

private:
    void Refill(Clock::time_point now);

    std::uint64_t rate_ = 0;
    std::uint64_t capacity_ = 0;
    double tokens_ = 0;
    Clock::time_point last_{};
};

} // namespace corvid::gnutella
