#include "transfer/magnet_download.h"

#include <algorithm>
#include <cctype>
#include <limits>

namespace corvid::transfer {

std::optional<std::pair<std::string, std::int32_t>> HttpHostAndPort(std::string_view url) {
    constexpr std::string_view kScheme = "http://";
    if (url.size() <= kScheme.size() ||
        !std::equal(kScheme.begin(), kScheme.end(), url.begin(), [](char a, char b) {
            return a == std::tolower(static_cast<unsigned char>(b));
        }))
        return std::nullopt;
    auto authority = url.substr(kScheme.size());
    authority = authority.substr(0, authority.find_first_of("/?#"));
    if (authority.empty() || authority.find('@') != std::string_view::npos)
        return std::nullopt;
    std::int32_t port = 80;
    const auto colon = authority.rfind(':');
    if (colon != std::string_view::npos) {
        const auto digits = authority.substr(colon + 1);
        if (digits.empty() || digits.size() > 5 ||
            !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
            return std::nullopt;
        port = std::stoi(std::string(digits));
        authority = authority.substr(0, colon);
    }
    if (authority.empty() || port < 1 || port > 65535)
        return std::nullopt;
    return std::make_pair(std::string(authority), port);
}

ResultGroup MagnetGroup(const MagnetLink& link) {
    ResultGroup group;
    group.sha1 = link.sha1;
    const auto name = MagnetFileName(link);
    const std::int32_t size =
        link.length &&
                *link.length <= static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max())
            ? static_cast<std::int32_t>(*link.length)
            : 0;
    for (const auto& url : link.sources) {
        const auto address = HttpHostAndPort(url);
        if (!address)
            continue;
        const bool known = std::any_of(
            group.sources.begin(), group.sources.end(), [&](const ResultSource& source) {
                return source.host == address->first && source.port == address->second;
            });
        if (known)
            continue;
        ResultSource source;
        source.name = name;
        source.size = size;
        source.host = address->first;
        source.port = address->second;
        source.type = "Magnet";
        group.sources.push_back(std::move(source));
    }
    return group;
}

ResultSource MagnetSource(const MagnetLink& link, ResultSource hit) {
    if (!link.displayName.empty())
        hit.name = MagnetFileName(link);
    return hit;
}

} // namespace corvid::transfer
