// The servent's settings as "Config\NetWork.ini" keeps them (section NetWork).
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace corvid::gnutella {

enum class NodeMode { Automatic = 0, UltraPeer = 1, LeafPeer = 2, Serverlet = 3 };

struct NetworkSettings {
    std::uint16_t port = 6346;
    NodeMode node_mode = NodeMode::Automatic;
    int peer_max_count = 3;        // ultrapeers a leaf keeps
    int ultrapeer_max_count = 32;  // ultrapeer links an ultrapeer keeps at most (X-Degree)
    int ultrapeer_min_count = 32;  // ultrapeer links an ultrapeer dials for
    int leaf_peer_max_count = 100; // leaves an ultrapeer serves
};

// Calls visit with each key and value (blanks trimmed) of the NetWork section of an INI text, in
// order; comment lines (";") and lines without "=" are skipped, section names ignore case.
void ForEachNetworkIniValue(
    std::string_view text,
    const std::function<void(std::string_view key, std::string_view value)>& visit);

// Reads the NetWork section of an INI text. Missing or unreadable values keep their defaults;
// counts are clamped to sane ranges so a hand-edited file cannot starve or flood the servent.
NetworkSettings ParseNetworkIni(std::string_view text);

} // namespace corvid::gnutella
