#include "engine/core/host_cache.h"

#include <algorithm>

namespace corvid::gnutella {

void HostCache::Add(const Endpoint& host) {
    if (!host.IsValid() || (!allow_private_ && !host.IsRoutable()))
        return;
    auto it =
        std::find_if(hosts_.begin(), hosts_.end(), [&](const Entry& e) { return e.host == host; });
    Entry entry{host, {}};
    if (it != hosts_.end()) {
        entry = *it;
        hosts_.erase(it);
    }
    hosts_.push_front(entry);
    if (hosts_.size() > capacity_)
        hosts_.pop_back();
}

std::optional<Endpoint> HostCache::NextToDial(Clock::time_point now) {
    for (auto it = hosts_.begin(); it != hosts_.end(); ++it) {
        if (it->resting_until <= now) {
            Endpoint host = it->host;
            hosts_.erase(it);
            return host;
        }
    }
    return std::nullopt;
}

bool HostCache::HasDialable(Clock::time_point now) const {
    return std::any_of(hosts_.begin(), hosts_.end(),
                       [&](const Entry& e) { return e.resting_until <= now; });
}

void HostCache::Rest(const Endpoint& host, Clock::time_point until) {
    if (!host.IsValid() || (!allow_private_ && !host.IsRoutable()))
        return;
    std::erase_if(hosts_, [&](const Entry& e) { return e.host == host; });
    hosts_.push_back({host, until});
    if (hosts_.size() > capacity_)
        hosts_.pop_front();
}

std::vector<Endpoint> HostCache::Sample(std::size_t count) const {
    std::vector<Endpoint> out;
    for (const auto& e : hosts_) {
        if (out.size() >= count)
            break;
        out.push_back(e.host);
    }
    return out;
}

std::string HostCache::Serialize() const {
    std::string out;
    for (const auto& e : hosts_)
        out += e.host.ToString() + "\n";
    return out;
}

void HostCache::Load(std::string_view text) {
    std::vector<Endpoint> loaded;
    while (!text.empty()) {
        auto nl = text.find('\n');
        auto line = TrimSpaces(text.substr(0, nl));
        text = nl == std::string_view::npos ? std::string_view{} : text.substr(nl + 1);
        if (auto ep = ParseEndpoint(line))
            loaded.push_back(*ep);
    }
    // Add puts each host first, so add in reverse to keep the file's order.
    for (auto it = loaded.rbegin(); it != loaded.rend(); ++it)
        Add(*it);
}

} // namespace corvid::gnutella
