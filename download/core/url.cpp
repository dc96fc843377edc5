#include "download/core/url.h"

#include <algorithm>
#include <cctype>

namespace corvid::download {
namespace {

constexpr std::size_t kMaxUrlLength = 2048;
constexpr std::size_t kMaxHostLength = 255;

bool IsHostChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' || c == '_';
}

bool IsTargetChar(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte > 0x20 && byte < 0x7F;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

std::optional<std::uint16_t> ParsePort(std::string_view text) {
    if (text.empty() || text.size() > 5) {
        return std::nullopt;
    }
    unsigned value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    if (value == 0 || value > 65535) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(value);
}

} // namespace

std::string HttpUrl::hostHeader() const {
    std::string text;
    if (host.find(':') != std::string::npos) {
        text.append(1, '[').append(host).append(1, ']');
    } else {
        text.append(host);
    }
    if (port != 80) {
        text.append(1, ':').append(std::to_string(port));
    }
    return text;
}

std::string HttpUrl::text() const {
    std::string text("http://");
    if (host.find(':') != std::string::npos) {
        text.append(1, '[').append(host).append(1, ']');
    } else {
        text.append(host);
    }
    text.append(1, ':').append(std::to_string(port)).append(target);
    return text;
}

std::optional<HttpUrl> ParseHttpUrl(std::string_view text) {
    constexpr std::string_view scheme = "http://";
    if (text.size() > kMaxUrlLength || text.size() <= scheme.size() ||
        !EqualsIgnoringCase(text.substr(0, scheme.size()), scheme)) {
        return std::nullopt;
    }
    text.remove_prefix(scheme.size());
    const std::size_t slash = text.find('/');
    std::string_view authority = text.substr(0, slash);
    std::string_view target = slash == std::string_view::npos ? "/" : text.substr(slash);
    if (!std::all_of(target.begin(), target.end(), IsTargetChar) ||
        authority.find('@') != std::string_view::npos) {
        return std::nullopt;
    }
    HttpUrl url;
    url.target = std::string(target);
    std::string_view host;
    std::string_view port;
    if (!authority.empty() && authority.front() == '[') {
        const std::size_t close = authority.find(']');
        if (close == std::string_view::npos) {
            return std::nullopt;
        }
        host = authority.substr(1, close - 1);
        std::string_view rest = authority.substr(close + 1);
        if (!rest.empty()) {
            if (rest.front() != ':') {
                return std::nullopt;
            }
            port = rest.substr(1);
            if (port.empty()) {
                return std::nullopt;
            }
        }
        const bool ipv6Chars = !host.empty() && std::all_of(host.begin(), host.end(), [](char c) {
            return std::isxdigit(static_cast<unsigned char>(c)) || c == ':' || c == '.';
        });
        if (!ipv6Chars) {
            return std::nullopt;
        }
    } else {
        const std::size_t colon = authority.find(':');
        host = authority.substr(0, colon);
        if (colon != std::string_view::npos) {
            port = authority.substr(colon + 1);
            if (port.empty()) {
                return std::nullopt;
            }
        }
        if (host.empty() || !std::all_of(host.begin(), host.end(), IsHostChar)) {
            return std::nullopt;
        }
    }
    if (host.size() > kMaxHostLength) {
        return std::nullopt;
    }
    if (!port.empty()) {
        const auto number = ParsePort(port);
        if (!number) {
            return std::nullopt;
        }
        url.port = *number;
    }
    url.host = std::string(host);
    return url;
}

std::optional<HttpUrl> ResolveLocation(const HttpUrl& base, std::string_view location) {
    if (!location.empty() && location.front() == '/' &&
        (location.size() < 2 || location[1] != '/')) {
        if (location.size() > kMaxUrlLength ||
            !std::all_of(location.begin(), location.end(), IsTargetChar)) {
            return std::nullopt;
        }
        HttpUrl url = base;
        url.target = std::string(location);
        return url;
    }
    return ParseHttpUrl(location);
}

std::optional<Sha1Digest> FindSha1Urn(std::string_view text) {
    constexpr std::string_view prefix = "urn:sha1:";
    for (std::size_t at = 0; at + prefix.size() + 32 <= text.size(); ++at) {
        if (EqualsIgnoringCase(text.substr(at, prefix.size()), prefix)) {
            if (auto digest = Base32DecodeSha1(text.substr(at + prefix.size(), 32))) {
                return digest;
            }
        }
    }
    return std::nullopt;
}

} // namespace corvid::download
