// Addresses that abused us rest: their handshakes are refused and we do not dial them until the
// rest is over. Every repeat doubles the rest up to a cap, and an address that has behaved for
// long enough is forgotten and starts afresh. The table holds a fixed number of addresses; when
// it is full the one whose last offence is oldest makes room, so callers from ever new addresses
// cannot grow it.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "engine/core/route_table.h"

namespace corvid::gnutella {

struct RestPolicy {
    std::chrono::seconds first_rest{60};
    std::chrono::seconds longest_rest{30 * 60};
    // From the last offence until the address is forgotten; longer than the longest rest, so a
    // repeat right after a long rest still counts as one.
    std::chrono::seconds memory{2 * 60 * 60};
    std::size_t capacity = 4096;
};

class RestingAddresses {
public:
    explicit RestingAddresses(RestPolicy policy) : policy_(policy) {}

    // Records an offence from this address; returns when its rest ends.
    Clock::time_point Offend(std::uint32_t ip, Clock::time_point now);
    // When the address's rest ends, if it is resting now.
    std::optional<Clock::time_point> RestingUntil(std::uint32_t ip, Clock::time_point now);
    std::size_t size() const { return entries_.size(); }

private:
    struct Entry {
        int offences = 0;
        Clock::time_point last{};
        Clock::time_point until{};
    };
    void Forget(Clock::time_point now);
    void Erase(std::map<std::uint32_t, Entry>::iterator it);

    RestPolicy policy_;
    std::map<std::uint32_t, Entry> entries_;
    std::set<std::pair<Clock::time_point, std::uint32_t>> by_last_; // oldest offence first
};

} // namespace corvid::gnutella
