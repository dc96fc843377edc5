#include "engine/sharing/token_bucket.h"

#include <algorithm>
#include <cmath>

namespace corvid::gnutella {
namespace {

// A fifth of a second's worth, so the limit holds over short spans too, and never less than
// a small network packet.
std::uint64_t CapacityFor(std::uint64_t rate) {
    return std::max<std::uint64_t>(rate / 5, 512);
}

} // namespace

TokenBucket::TokenBucket(std::uint64_t bytesPerSecond, Clock::time_point now) {
    SetRate(bytesPerSecond, now);
}

void TokenBucket::SetRate(std::uint64_t bytesPerSecond, Clock::time_point now) {
    rate_ = bytesPerSecond;
    capacity_ = CapacityFor(rate_);
    tokens_ = 0;
    last_ = now;
}

void TokenBucket::Refill(Clock::time_point now) {
    if (now <= last_) {
        return;
    }
    const double seconds = std::chrono::duration<double>(now - last_).count();
    tokens_ =
        std::min(static_cast<double>(capacity_), tokens_ + seconds * static_cast<double>(rate_));
    last_ = now;
}

std::uint64_t TokenBucket::Take(std::uint64_t wanted, Clock::time_point now) {
    if (rate_ == 0) {
        return wanted;
    }
    Refill(now);
    const auto granted = std::min(wanted, static_cast<std::uint64_t>(std::floor(tokens_)));
    tokens_ -= static_cast<double>(granted);
    return granted;
}

TokenBucket::Clock::duration TokenBucket::Delay(std::uint64_t wanted, Clock::time_point now) {
    if (rate_ == 0) {
        return Clock::duration::zero();
    }
    Refill(now);
    const double needed = static_cast<double>(std::min(wanted, capacity_)) - tokens_;
    if (needed <= 0) {
        return Clock::duration::zero();
    }
    const auto seconds = std::chrono::duration<double>(needed / static_cast<double>(rate_));
    return std::chrono::ceil<Clock::duration>(seconds);
}

} // namespace corvid::gnutella
