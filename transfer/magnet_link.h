#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid::transfer {

// Links longer than this are refused outright: nobody types or pastes a bigger one on purpose.
inline constexpr std::size_t kMaxMagnetLinkLength = 64 * 1024;
// Sources past this many are dropped; the rest of the link still counts.
inline constexpr std::size_t kMaxMagnetSources = 64;

// What a "magnet:?" link names: one file by its SHA1, with the hints that came along.
struct MagnetLink {
    std::string sha1;        // 32 base32 characters, upper case
    std::string displayName; // dn, decoded but untouched: pass it through MagnetFileName
    std::optional<std::uint64_t> length; // xl
    std::vector<std::string> sources;    // xs and as that are http:// URLs, decoded, in order
    std::string keywords;                // kt, decoded
};

// Reads a link such as "magnet:?xt=urn:sha1:BASE32&dn=name&xl=123&xs=http://...". The SHA1 may
// also come as 40 hex digits or inside a urn:bitprint. Nothing, with *error set to a sentence
// a user can act on, when the link is not one this program can fetch. Never throws.
std::optional<MagnetLink> ParseMagnetLink(std::string_view text, std::string* error);

// The name to save the file under: the display name, or the SHA1 when there is none, made safe
// to create in a download folder.
std::string MagnetFileName(const MagnetLink& link);

} // namespace corvid::transfer
