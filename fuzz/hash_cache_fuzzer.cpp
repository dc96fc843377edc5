// The hash cache file is read back at every start; whatever is in it, what survives the reading
// must write out and read back unchanged.

#include "library/hash_cache.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    corvid::library::HashCache cache;
    cache.Parse(text);
    const std::string written = cache.Serialize();
    corvid::library::HashCache again;
    again.Parse(written);
    if (again.size() != cache.size() || again.Serialize() != written) {
        std::abort();
    }
    return 0;
}
