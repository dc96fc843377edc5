#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "download/core/sha1.h"

namespace corvid::download {

// A source address the downloader can fetch from: plain HTTP only.
struct HttpUrl {
    std::string host; // a name or a dotted IPv4 address, or an IPv6 address without brackets
    std::uint16_t port = 80;
    std::string target; // the path and query as sent in the request line, starting with '/'

    std::string hostHeader() const; // "host" or "host:port", brackets around IPv6
    std::string text() const;       // the whole URL again
};

// Refuses anything that is not a well-formed http URL with a sane host, port and target: no
// spaces or control bytes (they would end up in a request line), nothing longer than 2048 bytes.
std::optional<HttpUrl> ParseHttpUrl(std::string_view text);

// A redirect's Location: an absolute http URL, or an absolute path on the same server.
std::optional<HttpUrl> ResolveLocation(const HttpUrl& base, std::string_view location);

// The SHA1 named by "urn:sha1:" followed by 32 base32 characters anywhere in the text, if any.
std::optional<Sha1Digest> FindSha1Urn(std::string_view text);

} // namespace corvid::download
