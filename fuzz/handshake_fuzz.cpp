// A hostile peer from its first byte: the handshake text, then whatever binary (compressed or
// not) it sends, fed to a servent in both roles. Memory stays bounded and nothing crashes.
#include <cstdlib>

#include "engine/core/handshake.h"
#include "engine/core/servent.h"

using namespace corvid::gnutella;

namespace {
class NullTransport : public ServentTransport {
public:
    void Send(PeerId, Bytes bytes) override { sent += bytes.size(); }
    void Close(PeerId) override { closed = true; }
    void Dial(const Endpoint&) override {}
    std::size_t sent = 0;
    bool closed = false;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    std::size_t step = 1 + data[0] % 128;
    bool outgoing = data[1] & 1;
    bool ultrapeer = data[1] & 2;
    ByteView rest(data + 2, size - 2);

    HeaderBlockReader reader;
    std::size_t used = 0;
    if (reader.Feed(rest, &used) == HeaderBlockReader::Status::Complete) {
        const auto& block = reader.block();
        if (block.headers.size() > kMaxHandshakeHeaders || used > kMaxHandshakeBlock)
            std::abort();
        if (auto tries = block.Get("X-Try-Ultrapeers"))
            ParseTryList(*tries);
    }

    InMemoryFileIndex index;
    index.Add("alpha beta.mp3", 1000, "AAAABBBBCCCCDDDDEEEEFFFFGGGGHHHH");
    NullTransport transport;
    ServentConfig config;
    config.network.node_mode = ultrapeer ? NodeMode::UltraPeer : NodeMode::LeafPeer;
    config.listen = {0x7F000001, 6346};
    Clock::time_point now{};
    Servent servent(
        config, index, transport, [&] { return now; }, 1);
    Endpoint remote{0x7F000002, 6347};
    if (outgoing)
        servent.Connected(1, remote);
    else
        servent.Accepted(1, remote);
    while (!rest.empty() && !transport.closed) {
        auto piece = rest.first(std::min(step, rest.size()));
        rest = rest.subspan(piece.size());
        servent.Received(1, piece);
    }
    return 0;
}
