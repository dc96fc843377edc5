// The descriptor stream as a peer could send it: framing at arbitrary read boundaries, then every
// payload reader, and a query hit written back must read again.
#include <cstdlib>

#include "engine/core/descriptor.h"
#include "engine/core/qrp.h"

using namespace corvid::gnutella;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1)
        return 0;
    // The first byte picks how the stream is cut into reads.
    std::size_t step = 1 + data[0] % 64;
    ByteView rest(data + 1, size - 1);
    DescriptorFramer framer;
    QrpReceiver qrp;
    auto on_message = [&](Message&& m) {
        if (m.payload.size() != m.header.payload_length || m.payload.size() > kMaxPayload)
            std::abort();
        switch (m.type()) {
        case PayloadType::Pong:
            ParsePong(m.payload);
            break;
        case PayloadType::Bye:
            ParseBye(m.payload);
            break;
        case PayloadType::Push:
            ParsePush(m.payload);
            break;
        case PayloadType::Query:
            if (auto q = ParseQuery(m.payload)) {
                auto again = ParseQuery(SerializeQuery(*q));
                if (!again || again->text != q->text || again->sha1s != q->sha1s)
                    std::abort();
            }
            break;
        case PayloadType::QueryHit:
            if (auto hit = ParseQueryHit(m.payload)) {
                auto again = ParseQueryHit(SerializeQueryHit(*hit));
                if (!again || again->results.size() != hit->results.size() ||
                    again->servent != hit->servent)
                    std::abort();
            }
            break;
        case PayloadType::RouteTable:
            qrp.Apply(m.payload);
            break;
        case PayloadType::VendorMessage:
        case PayloadType::VendorMessageStable:
            ParseVendorMessage(m.payload);
            break;
        default:
            break;
        }
    };
    while (!rest.empty()) {
        auto piece = rest.first(std::min(step, rest.size()));
        rest = rest.subspan(piece.size());
        if (framer.Feed(piece, on_message) != DescriptorFramer::Status::Ok)
            break;
        if (framer.buffered() > kMaxPayload + kHeaderSize)
            std::abort();
    }
    return 0;
}
