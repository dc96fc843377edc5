#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvid::download {

using Sha1Digest = std::array<std::uint8_t, 20>;

// Incremental SHA1: feed any number of pieces, then finish once.
class Sha1 {
public:
    Sha1();
    void update(const void* data, std::size_t size);
    Sha1Digest finish();

private:
    void compress(const std::uint8_t* block);

    std::array<std::uint32_t, 5> state_;
    std::array<std::uint8_t, 64> pending_{};
    std::size_t pendingSize_ = 0;
    std::uint64_t totalBytes_ = 0;
};

// RFC 4648 base32, upper case, no padding: a SHA1 becomes the 32 characters peers put after
// "urn:sha1:".
std::string Base32Encode(const Sha1Digest& digest);
// Accepts upper or lower case; anything but exactly 32 base32 characters is refused.
std::optional<Sha1Digest> Base32DecodeSha1(std::string_view text);

} // namespace corvid::download
