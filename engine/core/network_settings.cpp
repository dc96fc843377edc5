#include "engine/core/network_settings.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "engine/core/wire.h"

namespace corvid::gnutella {

namespace {
std::optional<long long> ReadNumber(std::string_view text) {
    text = TrimSpaces(text);
    long long v = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec != std::errc() || end == text.data())
        return std::nullopt;
    return v;
}
} // namespace

void ForEachNetworkIniValue(
    std::string_view text,
    const std::function<void(std::string_view key, std::string_view value)>& visit) {
    bool in_section = false;
    while (!text.empty()) {
        auto nl = text.find('\n');
        auto line = TrimSpaces(text.substr(0, nl));
        text = nl == std::string_view::npos ? std::string_view{} : text.substr(nl + 1);
        if (line.empty() || line.front() == ';')
            continue;
        if (line.front() == '[') {
            auto close = line.find(']');
            in_section = close != std::string_view::npos &&
                         EqualsIgnoreCase(TrimSpaces(line.substr(1, close - 1)), "NetWork");
            continue;
        }
        auto eq = line.find('=');
        if (!in_section || eq == std::string_view::npos)
            continue;
        visit(TrimSpaces(line.substr(0, eq)), TrimSpaces(line.substr(eq + 1)));
    }
}

NetworkSettings ParseNetworkIni(std::string_view text) {
    NetworkSettings s;
    ForEachNetworkIniValue(text, [&s](std::string_view key, std::string_view text_value) {
        auto value = ReadNumber(text_value);
        if (!value)
            return;
        auto count = [&](int low, int high) {
            return static_cast<int>(std::clamp<long long>(*value, low, high));
        };
        if (EqualsIgnoreCase(key, "Port")) {
            if (*value > 0 && *value < 65536)
                s.port = static_cast<std::uint16_t>(*value);
        } else if (EqualsIgnoreCase(key, "NodeMode")) {
            if (*value >= 0 && *value <= 3)
                s.node_mode = static_cast<NodeMode>(*value);
        } else if (EqualsIgnoreCase(key, "PeerMaxCount")) {
            s.peer_max_count = count(1, 32);
        } else if (EqualsIgnoreCase(key, "UltraPeerMaxCount")) {
            s.ultrapeer_max_count = count(1, 64);
        } else if (EqualsIgnoreCase(key, "UltraPeerMinCount")) {
            s.ultrapeer_min_count = count(0, 64);
        } else if (EqualsIgnoreCase(key, "LeafPeerMaxCount")) {
            s.leaf_peer_max_count = count(0, 1000);
        }
    });
    s.ultrapeer_min_count = std::min(s.ultrapeer_min_count, s.ultrapeer_max_count);
    return s;
}

} // namespace corvid::gnutella
