// Hosts worth dialling, freshest first, kept across runs as one "ip:port" a line.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "engine/core/route_table.h"
#include "engine/core/wire.h"

namespace corvid::gnutella {

class HostCache {
public:
    explicit HostCache(std::size_t capacity = 1000, bool allow_private = false)
        : capacity_(capacity), allow_private_(allow_private) {}

    void Add(const Endpoint& host);
    // Takes a host off the front, skipping those resting after a failure or a refusal.
    std::optional<Endpoint> NextToDial(Clock::time_point now);
    // A host that refused or failed goes to the back and is not dialled again before rest ends.
    void Rest(const Endpoint& host, Clock::time_point until);
    std::size_t size() const { return hosts_.size(); }
    bool HasDialable(Clock::time_point now) const;
    std::vector<Endpoint> Sample(std::size_t count) const;

    std::string Serialize() const;
    // Reads what Serialize wrote; lines that are not hosts are ignored.
    void Load(std::string_view text);

private:
    struct Entry {
        Endpoint host;
        Clock::time_point resting_until{};
    };
    std::size_t capacity_;
    bool allow_private_;
    std::deque<Entry> hosts_;
};

} // namespace corvid::gnutella
