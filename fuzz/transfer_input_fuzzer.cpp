// What peers hand the download page: response headers with alternate sources, and file names that
// become local paths. Neither may ever yield a URL or a name that leaves its bounds.

#include "transfer/engine_events.h"
#include "transfer/safe_file_name.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

bool UrlIsClean(const std::string& url) {
    constexpr std::string_view kPrefix = "http://";
    if (url.compare(0, kPrefix.size(), kPrefix) != 0)
        return false;
    return std::all_of(url.begin(), url.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               std::string_view(".-:/?").find(c) != std::string_view::npos;
    });
}

bool NameIsSafe(const std::string& name) {
    if (name.empty() || name.size() > corvid::transfer::kMaxFileNameLength)
        return false;
    if (name.back() == '.' || name.back() == ' ' || name.front() == ' ')
        return false;
    return std::none_of(name.begin(), name.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F ||
               std::string_view("<>:\"/\\|?*").find(c) != std::string_view::npos;
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    const auto urls = corvid::transfer::AltSourceUrls(input, "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X");
    if (urls.size() > corvid::transfer::kMaxAltSourcesPerHeader)
        std::abort();
    for (const auto& url : urls)
        if (!UrlIsClean(url))
            std::abort();

    const auto name = corvid::transfer::SafeFileName(input);
    if (!NameIsSafe(name) || corvid::transfer::SafeFileName(name) != name)
        std::abort();
    const auto path = corvid::transfer::UniquePath(
        "C:\\dl", name, [&](const std::string& p) { return p == "C:\\dl\\" + name; });
    if (path.compare(0, 6, "C:\\dl\\") != 0 || !NameIsSafe(path.substr(6)))
        std::abort();
    return 0;
}
