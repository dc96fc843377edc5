// Upload requests come from any peer that connects: parse the head, then take every decision the
// server would take on it, against an empty index.

#include "engine/sharing/upload_protocol.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvid::gnutella;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    static const corvid::library::FileIndex index;
    static AltLocations alternates;

    const HeadParse parse = ParseRequestHead(bytes);
    if (parse.status == HeadStatus::Complete) {
        if (parse.consumed == 0 || parse.consumed > bytes.size()) {
            std::abort();
        }
        const UploadReply reply = DecideUpload(parse.request, index, alternates, "127.0.0.1", {});
        if (reply.file.has_value() || !reply.head.ends_with("\r\n\r\n")) {
            std::abort(); // nothing is shared, so nothing may be served
        }
        for (std::uint64_t fileSize : {0ull, 1ull, 10000ull}) {
            const RangeChoice range = ChooseRange(parse.request.Header("Range"), fileSize);
            if (range.status == RangeStatus::Part &&
                (range.range.first > range.range.last || range.range.last >= fileSize)) {
                std::abort();
            }
        }
    }
    const UploadTarget target = ParseUploadTarget(bytes);
    if (target.kind == UploadTarget::Kind::IndexAndName &&
        target.name.find_first_of(std::string_view("/\\\0", 3)) != std::string::npos) {
        std::abort();
    }
    NormalizeEndpoint(bytes);
    return 0;
}
