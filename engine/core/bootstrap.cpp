#include "engine/core/bootstrap.h"

#include <algorithm>
#include <charconv>

#include "platform/http_chunked.h"

namespace corvid::gnutella {

namespace {
constexpr std::size_t kMaxUrl = 512;
constexpr std::size_t kMaxCachesKept = 10;
constexpr std::size_t kMaxUdpAnswerHosts = 10;

// Splits text into lines ending in LF or CRLF, each trimmed of blanks.
template <typename F> void ForEachLine(std::string_view text, F&& line) {
    while (!text.empty()) {
        const std::size_t nl = text.find('\n');
        line(TrimSpaces(text.substr(0, nl)));
        text.remove_prefix(nl == std::string_view::npos ? text.size() : nl + 1);
    }
}

bool IsHostChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.';
}

std::optional<std::uint16_t> ParsePort(std::string_view text) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || value == 0 ||
        value > 65535)
        return std::nullopt;
    return static_cast<std::uint16_t>(value);
}

// Built by appending: GCC's restrict check misreads long chains of string additions.
std::string Request(const CacheUrl& cache, std::string_view query, std::string_view user_agent) {
    std::string out = "GET ";
    out.append(cache.path).append("?").append(query).append(" HTTP/1.0\r\nHost: ");
    out.append(cache.host);
    if (cache.port != 80)
        out.append(":").append(std::to_string(cache.port));
    out.append("\r\nUser-Agent: ").append(user_agent).append("\r\nConnection: close\r\n\r\n");
    return out;
}

std::string ClientQuery() {
    std::string out = "client=";
    out.append(kGwcClient).append("&version=").append(kGwcVersion).append("&net=gnutella");
    return out;
}
} // namespace

std::optional<HostAndPort> ParseHostAndPort(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || colon == 0 || colon > 253)
        return std::nullopt;
    HostAndPort out;
    out.host.assign(text.substr(0, colon));
    if (!std::all_of(out.host.begin(), out.host.end(), IsHostChar) || out.host.front() == '.' ||
        out.host.front() == '-')
        return std::nullopt;
    const auto port = ParsePort(text.substr(colon + 1));
    if (!port)
        return std::nullopt;
    out.port = *port;
    return out;
}

std::optional<CacheUrl> ParseCacheUrl(std::string_view url) {
    constexpr std::string_view scheme = "http://";
    if (url.size() > kMaxUrl || !StartsWithIgnoreCase(url, scheme))
        return std::nullopt;
    url.remove_prefix(scheme.size());
    const std::size_t slash = url.find('/');
    const std::string_view authority = url.substr(0, slash);
    CacheUrl out;
    out.path = slash == std::string_view::npos ? "/" : std::string(url.substr(slash));
    for (char c : out.path)
        if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7F || c == '?' || c == '#')
            return std::nullopt;
    if (authority.find(':') != std::string_view::npos) {
        auto host = ParseHostAndPort(authority);
        if (!host)
            return std::nullopt;
        out.host = std::move(host->host);
        out.port = host->port;
    } else {
        out.host.assign(authority);
        if (out.host.empty() || !std::all_of(out.host.begin(), out.host.end(), IsHostChar))
            return std::nullopt;
    }
    return out;
}

std::vector<BootstrapCache> ParseCacheList(std::string_view text) {
    std::vector<BootstrapCache> out;
    ForEachLine(text, [&](std::string_view line) {
        if (line.empty() || line.front() == '#')
            return;
        const std::size_t space = line.find_first_of(" \t");
        if (space == std::string_view::npos)
            return;
        const std::string_view kind = line.substr(0, space);
        const std::string_view address = TrimSpaces(line.substr(space + 1));
        BootstrapCache cache;
        if (EqualsIgnoreCase(kind, "gwc") && ParseCacheUrl(address)) {
            cache.kind = BootstrapCache::Kind::WebCache;
        } else if (EqualsIgnoreCase(kind, "uhc") && ParseHostAndPort(address)) {
            cache.kind = BootstrapCache::Kind::UdpHostCache;
        } else {
            return;
        }
        cache.address.assign(address);
        if (std::find(out.begin(), out.end(), cache) == out.end())
            out.push_back(std::move(cache));
    });
    return out;
}

std::string GwcGetRequest(const CacheUrl& cache, std::string_view user_agent) {
    std::string query = "get=1&";
    query.append(ClientQuery());
    return Request(cache, query, user_agent);
}

std::string GwcUpdateRequest(const CacheUrl& cache, const Endpoint& self,
                             std::string_view user_agent) {
    std::string query = "update=1&ip=";
    query.append(self.ToString()).append("&").append(ClientQuery());
    return Request(cache, query, user_agent);
}

GwcAnswer ParseGwcAnswer(std::string_view body, std::size_t max_hosts) {
    GwcAnswer out;
    ForEachLine(body, [&](std::string_view line) {
        if (line.empty())
            return;
        if (StartsWithIgnoreCase(line, "ERROR")) {
            out.error = true;
            return;
        }
        if (line.size() >= 2 && line[1] == '|') {
            const char kind = static_cast<char>(line[0] | 0x20);
            std::string_view rest = line.substr(2);
            const std::string_view field = rest.substr(0, rest.find('|'));
            if (kind == 'h') {
                if (auto host = ParseEndpoint(field, 0);
                    host && host->IsValid() && out.hosts.size() < max_hosts)
                    out.hosts.push_back(*host);
            } else if (kind == 'u') {
                if (ParseCacheUrl(field) && out.caches.size() < kMaxCachesKept)
                    out.caches.emplace_back(field);
            } else if (kind == 'i' && ToLowerAscii(rest).find("error") != std::string::npos) {
                out.error = true;
            }
            return;
        }
        // A v1 host file: one address a line.
        if (auto host = ParseEndpoint(line, 0);
            host && host->IsValid() && out.hosts.size() < max_hosts)
            out.hosts.push_back(*host);
    });
    return out;
}

std::optional<HttpAnswer> ParseHttpAnswer(std::string_view bytes) {
    std::size_t end = bytes.find("\r\n\r\n");
    std::size_t terminator = 4;
    if (const std::size_t bare = bytes.find("\n\n"); bare < end) {
        end = bare;
        terminator = 2;
    }
    if (end == std::string_view::npos || !StartsWithIgnoreCase(bytes, "HTTP/1.") ||
        bytes.size() < 12)
        return std::nullopt;
    HttpAnswer out;
    const auto [code_end, error] = std::from_chars(bytes.data() + 9, bytes.data() + 12, out.status);
    if (error != std::errc() || code_end != bytes.data() + 12)
        return std::nullopt;
    const std::string_view head = bytes.substr(0, end);
    std::string_view body = bytes.substr(end + terminator);
    bool chunked = false;
    ForEachLine(head, [&](std::string_view line) {
        const std::size_t colon = line.find(':');
        if (colon != std::string_view::npos &&
            EqualsIgnoreCase(TrimSpaces(line.substr(0, colon)), "Transfer-Encoding") &&
            EqualsIgnoreCase(TrimSpaces(line.substr(colon + 1)), "chunked"))
            chunked = true;
    });
    if (!chunked) {
        out.body.assign(body);
        return out;
    }
    ChunkedDecoder decoder;
    while (!body.empty()) {
        const auto step = decoder.Feed(body);
        body.remove_prefix(step.consumed);
        out.body.append(step.data);
        if (step.status == ChunkedDecoder::Status::Error)
            return std::nullopt;
        if (step.status != ChunkedDecoder::Status::Data)
            break;
    }
    // Chunks cut short by the close still give what came whole; the caller reads lines.
    return out;
}

Message UdpHostCachePing(const Guid& guid) {
    GgepBlock block;
    block.extensions.push_back({"SCP", {}, false, false});
    return MakeMessage(guid, PayloadType::Ping, 1, *EncodeGgep(block));
}

bool IsUdpHostCachePing(const Message& message) {
    if (message.type() != PayloadType::Ping || message.payload.empty() ||
        message.payload[0] != kGgepMagic)
        return false;
    auto block = ParseGgep(message.payload);
    return block && block->Find("SCP");
}

std::vector<Endpoint> HostsOfUdpPong(const Pong& pong, std::size_t max) {
    std::vector<Endpoint> out;
    if (pong.endpoint().IsValid())
        out.push_back(pong.endpoint());
    if (pong.ggep)
        if (auto* ipp = pong.ggep->Find("IPP"))
            for (const auto& host : ParsePackedEndpoints(ipp->data, max))
                if (out.size() < max && std::find(out.begin(), out.end(), host) == out.end())
                    out.push_back(host);
    return out;
}

Message UdpHostCachePong(const Guid& guid, Pong own, const std::vector<Endpoint>& hosts) {
    std::vector<Endpoint> some(
        hosts.begin(),
        hosts.begin() + static_cast<std::ptrdiff_t>(std::min(hosts.size(), kMaxUdpAnswerHosts)));
    if (!some.empty()) {
        if (!own.ggep)
            own.ggep.emplace();
        own.ggep->extensions.push_back({"IPP", PackEndpoints(some), false, false});
    }
    return MakeMessage(guid, PayloadType::Pong, 1, SerializePong(own));
}

} // namespace corvid::gnutella
