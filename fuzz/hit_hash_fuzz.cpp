// Query hits and the hash forms inside them (URN text, GGEP "H", "LF", "ALT", "PUSH"): whatever
// the bytes, what is read must be well-formed and bounded.
#include <cstdlib>

#include "engine/core/descriptor.h"

using namespace corvid::gnutella;

namespace {

void CheckHash(const FileHash& hash) {
    if (!IsSha1Base32(hash.sha1) || (!hash.tiger.empty() && hash.tiger.size() != 39))
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteView in(data, size);
    if (auto hash = ParseGgepHash(in))
        CheckHash(*hash);
    if (auto hash = ParseUrnText(AsText(in)))
        CheckHash(*hash);
    for (const auto& e : ParsePackedEndpoints(in, 8))
        if (!e.IsValid())
            std::abort();
    auto hit = ParseQueryHit(in);
    if (!hit)
        return 0;
    if (hit->push_proxies.size() > 16)
        std::abort();
    for (const auto& r : hit->results) {
        if (!r.sha1.empty())
            CheckHash({r.sha1, r.tiger});
        else if (!r.tiger.empty())
            std::abort();
        if (r.alternates.size() > 32)
            std::abort();
    }
    // Our own writing of what was read must read back to the same files.
    auto again = ParseQueryHit(SerializeQueryHit(*hit));
    if (!again || again->results.size() != std::min<std::size_t>(hit->results.size(), 255))
        std::abort();
    for (std::size_t i = 0; i < again->results.size(); ++i)
        if (again->results[i].size != hit->results[i].size ||
            again->results[i].sha1 != hit->results[i].sha1)
            std::abort();
    return 0;
}
