// GGEP blocks: the 0xC3 magic, then extensions with COBS-encoded and/or deflated data.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/core/wire.h"

namespace corvid::gnutella {

inline constexpr std::uint8_t kGgepMagic = 0xC3;
// No extension we read carries more than this once inflated; larger data is refused.
inline constexpr std::size_t kGgepMaxInflated = 65536;

struct GgepExtension {
    std::string id;
    Bytes data;
    // Encoding choices when writing: deflate the data; COBS-encode it so it holds no NUL byte.
    bool deflate = false;
    bool cobs = false;
};

struct GgepBlock {
    std::vector<GgepExtension> extensions;

    const GgepExtension* Find(std::string_view id) const;
};

// Reads one block starting at the magic byte; on success *consumed is the block's length.
std::optional<GgepBlock> ParseGgep(ByteView in, std::size_t* consumed = nullptr);
// Nothing when an extension cannot be written (id length 0 or over 15, data over 256 KiB).
std::optional<Bytes> EncodeGgep(const GgepBlock& block);

Bytes CobsEncode(ByteView in);
std::optional<Bytes> CobsDecode(ByteView in);

} // namespace corvid::gnutella
