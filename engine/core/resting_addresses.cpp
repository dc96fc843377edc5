#include "engine/core/resting_addresses.h"

#include <algorithm>

namespace corvid::gnutella {

void RestingAddresses::Erase(std::map<std::uint32_t, Entry>::iterator it) {
    by_last_.erase({it->second.last, it->first});
    entries_.erase(it);
}

void RestingAddresses::Forget(Clock::time_point now) {
    while (!by_last_.empty() && now - by_last_.begin()->first >= policy_.memory)
        Erase(entries_.find(by_last_.begin()->second));
}

Clock::time_point RestingAddresses::Offend(std::uint32_t ip, Clock::time_point now) {
    Forget(now);
    auto it = entries_.find(ip);
    if (it == entries_.end()) {
        if (policy_.capacity == 0)
            return now;
        if (entries_.size() >= policy_.capacity)
            Erase(entries_.find(by_last_.begin()->second));
        it = entries_.emplace(ip, Entry{}).first;
    } else {
        by_last_.erase({it->second.last, ip});
    }
    Entry& entry = it->second;
    ++entry.offences;
    entry.last = now;
    // Doubling stops at the cap long before the shift could overflow.
    auto rest = policy_.first_rest;
    for (int i = 1; i < entry.offences && rest < policy_.longest_rest; ++i)
        rest *= 2;
    entry.until = now + std::min(rest, policy_.longest_rest);
    by_last_.insert({now, ip});
    return entry.until;
}

std::optional<Clock::time_point> RestingAddresses::RestingUntil(std::uint32_t ip,
                                                                Clock::time_point now) {
    Forget(now);
    auto it = entries_.find(ip);
    if (it == entries_.end() || it->second.until <= now)
        return std::nullopt;
    return it->second.until;
}

} // namespace corvid::gnutella
