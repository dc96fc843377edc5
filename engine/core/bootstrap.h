// Finding the network from nothing: the list of caches a user may edit, the GWebCache requests
// and answers (over HTTP) and the UDP host-cache ping and pong. Codecs only; Node does the I/O.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/descriptor.h"

namespace corvid::gnutella {

struct BootstrapCache {
    enum class Kind { WebCache, UdpHostCache } kind = Kind::WebCache;
    std::string address; // "http://host[:port]/path" or "host:port"

    friend bool operator==(const BootstrapCache&, const BootstrapCache&) = default;
    friend auto operator<=>(const BootstrapCache&, const BootstrapCache&) = default;
};

// One cache a line: "gwc <http URL>" or "uhc <host>:<port>"; '#' starts a comment. Lines that
// are neither are skipped, so a user's typing mistake costs one entry, not the list.
std::vector<BootstrapCache> ParseCacheList(std::string_view text);

struct CacheUrl {
    std::string host; // a name or a dotted address
    std::uint16_t port = 80;
    std::string path; // starting with '/', without a query
};
// Plain http only, no user info, no query or fragment of its own, nothing longer than 512 bytes.
std::optional<CacheUrl> ParseCacheUrl(std::string_view url);

// "host:port" with a name or a dotted address.
struct HostAndPort {
    std::string host;
    std::uint16_t port = 0;
};
std::optional<HostAndPort> ParseHostAndPort(std::string_view text);

inline constexpr std::string_view kGwcClient = "CRVD";
inline constexpr std::string_view kGwcVersion = "0.1";

// GWebCache v2 "get": hosts and other caches.
std::string GwcGetRequest(const CacheUrl& cache, std::string_view user_agent);
// GWebCache v2 "update": tells the cache our listening address (an ultrapeer that takes links).
std::string GwcUpdateRequest(const CacheUrl& cache, const Endpoint& self,
                             std::string_view user_agent);

struct GwcAnswer {
    std::vector<Endpoint> hosts;
    std::vector<std::string> caches; // http URLs the cache knows
    bool error = false;              // the cache said "ERROR" or "I|...|ERROR"
};
// The body of an answer: v2 lines "H|ip:port|age", "U|url|age", "I|..." and the bare "ip:port"
// lines of v1 caches. Bounded: at most max_hosts hosts and a handful of caches are kept.
GwcAnswer ParseGwcAnswer(std::string_view body, std::size_t max_hosts = 50);

// An HTTP answer read to the close: the status and the body (de-chunked when it came in chunks).
struct HttpAnswer {
    int status = 0;
    std::string body;
};
std::optional<HttpAnswer> ParseHttpAnswer(std::string_view bytes);

// A UDP host cache is asked with a Ping carrying GGEP "SCP"; it answers with a Pong carrying
// "IPP", packed addresses of hosts that take connections.
Message UdpHostCachePing(const Guid& guid);
bool IsUdpHostCachePing(const Message& message);
// The hosts a pong names: the answering host itself and its "IPP" list.
std::vector<Endpoint> HostsOfUdpPong(const Pong& pong, std::size_t max);
// Our answer to such a ping: our own pong, with up to ten hosts in "IPP".
Message UdpHostCachePong(const Guid& guid, Pong own, const std::vector<Endpoint>& hosts);

} // namespace corvid::gnutella
