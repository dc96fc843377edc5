// GGEP blocks with lying lengths, bad COBS and broken deflate: parse, and what parses must
// survive being written and read again unchanged.
#include <cstdlib>

#include "engine/core/ggep.h"

using namespace corvid::gnutella;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteView in(data, size);
    std::size_t used = 0;
    auto block = ParseGgep(in, &used);
    if (!block)
        return 0;
    if (used > size)
        std::abort();
    auto encoded = EncodeGgep(*block);
    if (!encoded)
        return 0;
    auto again = ParseGgep(*encoded);
    if (!again || again->extensions.size() != block->extensions.size())
        std::abort();
    for (std::size_t i = 0; i < block->extensions.size(); ++i)
        if (again->extensions[i].id != block->extensions[i].id ||
            again->extensions[i].data != block->extensions[i].data)
            std::abort();
    if (auto decoded = CobsDecode(CobsEncode(in));
        !decoded || *decoded != Bytes(in.begin(), in.end()))
        std::abort();
    return 0;
}
