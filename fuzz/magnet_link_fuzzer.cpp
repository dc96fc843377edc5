// Magnet links come from web pages and from what users paste: whatever they hold, the parser
// must end within its input and never hand out a SHA1, a source or a file name out of shape.

#include "transfer/magnet_link.h"
#include "transfer/safe_file_name.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvid::transfer;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string error;
    const auto link = ParseMagnetLink(text, &error);
    if (!link) {
        if (error.empty())
            std::abort();
        return 0;
    }
    if (link->sha1.size() != 32 ||
        link->sha1.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ234567") != std::string::npos)
        std::abort();
    if (link->sources.size() > kMaxMagnetSources)
        std::abort();
    for (const auto& url : link->sources) {
        const bool clean = std::none_of(url.begin(), url.end(), [](char c) {
            return static_cast<unsigned char>(c) <= 0x20 || c == 0x7F;
        });
        if (url.size() <= 7 || !clean)
            std::abort();
    }
    const auto name = MagnetFileName(*link);
    if (name.empty() || name.size() > kMaxFileNameLength || name == "." || name == ".." ||
        name.find_first_of("/\\:") != std::string::npos)
        std::abort();
    return 0;
}
