#include "engine/core/route_table.h"

#include <algorithm>

namespace corvid::gnutella {

void RouteTable::Age(Clock::time_point now) {
    if (!generation_start_)
        generation_start_ = now;
    if (now - *generation_start_ >= lifetime_ || current_.size() >= max_entries_) {
        previous_ = std::move(current_);
        current_ = {};
        if (now - *generation_start_ >= 2 * lifetime_)
            previous_.clear();
        generation_start_ = now;
    }
}

bool RouteTable::Insert(const Guid& key, PeerId peer, Clock::time_point now) {
    Age(now);
    if (current_.count(key) || previous_.count(key))
        return false;
    current_.emplace(key, peer);
    return true;
}

void RouteTable::Update(const Guid& key, PeerId peer, Clock::time_point now) {
    Age(now);
    previous_.erase(key);
    current_[key] = peer;
}

std::optional<PeerId> RouteTable::Find(const Guid& key, Clock::time_point now) {
    Age(now);
    if (auto it = current_.find(key); it != current_.end())
        return it->second;
    if (auto it = previous_.find(key); it != previous_.end())
        return it->second;
    return std::nullopt;
}

void RouteTable::ForgetPeer(PeerId peer) {
    for (auto* table : {&current_, &previous_})
        std::erase_if(*table, [peer](const auto& entry) { return entry.second == peer; });
}

} // namespace corvid::gnutella
