// A browse answer and a GIV line come from the other end of a connection: feed them in two
// pieces, split where the input says, and check the reader never claims more than it could hold.

#include "engine/sharing/browse_host.h"
#include "engine/sharing/push_giv.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvid::gnutella;
    if (size == 0) {
        return 0;
    }
    const std::size_t split = data[0] % size;
    const ByteView bytes(data + 1, size - 1);
    BrowseReader reader;
    if (reader.Feed(bytes.first(std::min(split, bytes.size())))) {
        reader.Feed(bytes.subspan(std::min(split, bytes.size())));
    }
    if (reader.state() == BrowseReader::State::Failed && reader.error().empty()) {
        std::abort();
    }

    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const GivParse giv = ParseGiv(text);
    if (giv.status == GivStatus::Complete && (giv.consumed == 0 || giv.consumed > size)) {
        std::abort();
    }
    return 0;
}
