#include "engine/core/zstream.h"

#include <zlib.h>

namespace corvid::gnutella {

struct Deflater::State {
    z_stream z{};
    bool ok = false;
    ~State() {
        if (ok)
            deflateEnd(&z);
    }
};

Deflater::Deflater() : state_(std::make_unique<State>()) {
    state_->ok = deflateInit(&state_->z, Z_DEFAULT_COMPRESSION) == Z_OK;
}

Deflater::~Deflater() = default;

bool Deflater::Compress(ByteView in, Bytes& out) {
    if (!state_->ok)
        return false;
    z_stream& z = state_->z;
    z.next_in = const_cast<Bytef*>(in.data());
    z.avail_in = static_cast<uInt>(in.size());
    std::uint8_t chunk[16384];
    do {
        z.next_out = chunk;
        z.avail_out = sizeof chunk;
        int rc = deflate(&z, Z_SYNC_FLUSH);
        if (rc != Z_OK && rc != Z_BUF_ERROR)
            return false;
        out.insert(out.end(), chunk, chunk + (sizeof chunk - z.avail_out));
    } while (z.avail_out == 0);
    return true;
}

struct Inflater::State {
    z_stream z{};
    bool initialized = false;
    bool ok = false; // false once the stream broke: nothing more is read from it
    bool finished = false;
    ~State() {
        if (initialized)
            inflateEnd(&z);
    }
};

Inflater::Inflater() : state_(std::make_unique<State>()) {
    state_->initialized = inflateInit(&state_->z) == Z_OK;
    state_->ok = state_->initialized;
}

Inflater::~Inflater() = default;

bool Inflater::finished() const {
    return state_->finished;
}

bool Inflater::Decompress(ByteView in, const std::function<bool(ByteView)>& sink) {
    if (!state_->ok)
        return false;
    z_stream& z = state_->z;
    z.next_in = const_cast<Bytef*>(in.data());
    z.avail_in = static_cast<uInt>(in.size());
    std::uint8_t chunk[8192];
    while (z.avail_in > 0 || z.avail_out == 0) {
        if (state_->finished)
            return z.avail_in == 0; // bytes after the end of the stream are a protocol error
        z.next_out = chunk;
        z.avail_out = sizeof chunk;
        int rc = inflate(&z, Z_SYNC_FLUSH);
        if (rc != Z_OK && rc != Z_STREAM_END && rc != Z_BUF_ERROR) {
            state_->ok = false;
            return false;
        }
        std::size_t produced = sizeof chunk - z.avail_out;
        if (produced > 0 && !sink(ByteView(chunk, produced))) {
            state_->ok = false;
            return false;
        }
        if (rc == Z_STREAM_END)
            state_->finished = true;
        if (rc == Z_BUF_ERROR && produced == 0)
            break;
    }
    return true;
}

Bytes ZlibCompress(ByteView in) {
    uLongf size = compressBound(static_cast<uLong>(in.size()));
    Bytes out(size);
    if (compress2(out.data(), &size, in.data(), static_cast<uLong>(in.size()),
                  Z_DEFAULT_COMPRESSION) != Z_OK)
        return {};
    out.resize(size);
    return out;
}

std::optional<Bytes> ZlibDecompress(ByteView in, std::size_t max_output) {
    Inflater inflater;
    Bytes out;
    bool ok = inflater.Decompress(in, [&](ByteView piece) {
        if (out.size() + piece.size() > max_output)
            return false;
        PutBytes(out, piece);
        return true;
    });
    if (!ok || !inflater.finished())
        return std::nullopt;
    return out;
}

} // namespace corvid::gnutella
