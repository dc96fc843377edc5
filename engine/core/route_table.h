// GUID routing tables that forget: two generations swapped every lifetime, so an entry lives
// between one and two lifetimes and memory stays bounded by the entries of two periods.
#pragma once

#include <chrono>
#include <optional>
#include <unordered_map>

#include "engine/core/wire.h"

namespace corvid::gnutella {

using Clock = std::chrono::steady_clock;
using PeerId = std::uint64_t;
inline constexpr PeerId kLocalPeer = 0; // routes that end at this servent

class RouteTable {
public:
    RouteTable(Clock::duration lifetime, std::size_t max_entries_per_generation)
        : lifetime_(lifetime), max_entries_(max_entries_per_generation) {}

    // False when the key was already routed (a duplicate); the first route stays.
    bool Insert(const Guid& key, PeerId peer, Clock::time_point now);
    // Replaces any earlier route (servent GUIDs move as hits arrive on other links).
    void Update(const Guid& key, PeerId peer, Clock::time_point now);
    std::optional<PeerId> Find(const Guid& key, Clock::time_point now);
    // Forgets a peer's routes so replies for it are dropped instead of sent to a stranger.
    void ForgetPeer(PeerId peer);
    std::size_t size() const { return current_.size() + previous_.size(); }

private:
    void Age(Clock::time_point now);

    Clock::duration lifetime_;
    std::size_t max_entries_;
    std::optional<Clock::time_point> generation_start_;
    std::unordered_map<Guid, PeerId, GuidHash> current_;
    std::unordered_map<Guid, PeerId, GuidHash> previous_;
};

} // namespace corvid::gnutella
