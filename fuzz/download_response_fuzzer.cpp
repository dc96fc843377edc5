// The downloader's readers of hostile input: response heads and bodies fed in uneven pieces, the
// header values read from them, source URLs and range maps from disk.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "download/core/http_response.h"
#include "download/core/range_set.h"
#include "download/core/url.h"

using namespace corvid::download;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::size_t piece = 1 + data[0] % 64;
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);

    HttpResponseParser parser({2048, 16});
    std::uint64_t bodyBytes = 0;
    bool done = false;
    for (std::size_t at = 0; at < text.size() && !done; at += piece) {
        std::string_view input = text.substr(at, piece);
        while (!done) {
            const auto result = parser.feed(input);
            if (result.consumed > input.size()) {
                std::abort();
            }
            input.remove_prefix(result.consumed);
            if (result.step == HttpResponseParser::Step::Head) {
                for (const auto& [name, value] : parser.head().headers) {
                    ParseContentRange(value);
                    ParseRetryAfterSeconds(value);
                    ResolveLocation(HttpUrl{"a", 80, "/"}, value);
                }
            } else if (result.step == HttpResponseParser::Step::Body) {
                bodyBytes += result.body.size();
                // Chunks frame a body whatever Content-Length says.
                if (const auto length = parser.head().find("Content-Length");
                    length && !parser.chunked()) {
                    if (const auto limit = ParseDecimal(*length); limit && bodyBytes > *limit) {
                        std::abort(); // never more body than announced
                    }
                }
            } else if (result.step == HttpResponseParser::Step::NeedMore) {
                break;
            } else {
                done = true;
            }
        }
    }
    parser.finish();

    if (const auto url = ParseHttpUrl(text)) {
        ParseHttpUrl(url->text());
    }
    FindSha1Urn(text);
    if (const auto map = ParseRangeMap(text)) {
        if (!ParseRangeMap(FormatRangeMap(*map))) {
            std::abort(); // what was read must write back readable
        }
    }
    return 0;
}
