// zlib streams ("deflate" on Gnutella links is zlib-wrapped), owned once each.
#pragma once

#include <functional>
#include <memory>

#include "engine/core/wire.h"

namespace corvid::gnutella {

// Compresses one direction of a link; every Compress call ends on a sync flush so the peer can
// decode all of it at once.
class Deflater {
public:
    Deflater();
    ~Deflater();
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    bool Compress(ByteView in, Bytes& out);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Inflates one direction of a link. Output is handed on in small pieces so a peer's tiny
// compressed input can never make us hold a large expansion at once.
class Inflater {
public:
    Inflater();
    ~Inflater();
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    // False when the stream is broken or sink refused a piece; the stream is then unusable.
    bool Decompress(ByteView in, const std::function<bool(ByteView)>& sink);
    bool finished() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

// One-shot helpers for GGEP and QRP blocks.
Bytes ZlibCompress(ByteView in);
// Nothing when the data is not one complete zlib stream or inflates past max_output bytes.
std::optional<Bytes> ZlibDecompress(ByteView in, std::size_t max_output);

} // namespace corvid::gnutella
