// What bootstrapping reads from strangers: web cache answers (HTTP, possibly chunked), UDP
// pongs with packed hosts, and the user's cache list. Bounded, well-formed results only.
#include <cstdlib>

#include "engine/core/bootstrap.h"

using namespace corvid::gnutella;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteView in(data, size);
    std::string_view text = AsText(in);
    if (auto answer = ParseHttpAnswer(text); answer && answer->body.size() > size)
        std::abort();
    auto gwc = ParseGwcAnswer(text, 50);
    if (gwc.hosts.size() > 50 || gwc.caches.size() > 10)
        std::abort();
    for (const auto& host : gwc.hosts)
        if (!host.IsValid())
            std::abort();
    for (const auto& url : gwc.caches)
        if (!ParseCacheUrl(url))
            std::abort();
    for (const auto& cache : ParseCacheList(text))
        if (cache.kind == BootstrapCache::Kind::WebCache ? !ParseCacheUrl(cache.address)
                                                         : !ParseHostAndPort(cache.address))
            std::abort();
    if (auto pong = ParsePong(in)) {
        auto hosts = HostsOfUdpPong(*pong, 20);
        if (hosts.size() > 20)
            std::abort();
    }
    if (auto header = ParseHeader(in)) {
        Message message;
        message.header = *header;
        message.payload.assign(in.begin() + kHeaderSize, in.end());
        IsUdpHostCachePing(message);
    }
    return 0;
}
