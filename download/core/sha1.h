#pragma once

// The downloader checks files by the same SHA1 and base32 as the file index.

#include "library/sha1.h"

#include <optional>
#include <string_view>

namespace corvid::download {

using library::Sha1;
using library::Sha1Digest;

// Exactly 32 base32 characters in either case, or nothing.
inline std::optional<Sha1Digest> Base32DecodeSha1(std::string_view text) {
    Sha1Digest digest;
    if (!library::FromBase32(text, digest)) {
        return std::nullopt;
    }
    return digest;
}

} // namespace corvid::download
