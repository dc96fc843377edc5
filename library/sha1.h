#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace corvid::library {

using Sha1Digest = std::array<std::uint8_t, 20>;

// Incremental SHA1. Uses the processor's SHA instructions when it has them.
class Sha1 {
public:
    Sha1();
    // The plain C++ rounds even where the processor has SHA instructions (to check one by the
    // other).
    static Sha1 Portable();

    void Reset();
    void Update(std::span<const std::uint8_t> bytes);
    void Update(std::string_view text);
    Sha1Digest Finish();

    // Whether this machine takes the SHA-instruction path (for the benchmark's report).
    static bool UsesShaInstructions();

private:
    using Compress = void (*)(std::uint32_t*, const std::uint8_t*, std::size_t);
    explicit Sha1(Compress compress);

    Compress compress_;
    std::array<std::uint32_t, 5> state_{};
    std::array<std::uint8_t, 64> pending_{};
    std::size_t pendingSize_ = 0;
    std::uint64_t totalBytes_ = 0;
};

Sha1Digest Sha1Of(std::string_view bytes);

std::string ToHex(const Sha1Digest& digest);

// Base32 as Gnutella writes SHA1 URNs: RFC 4648 alphabet, upper case, no padding (32 characters).
std::string ToBase32(const Sha1Digest& digest);

// Accepts exactly 32 base32 characters in either case; false for anything else.
bool FromBase32(std::string_view text, Sha1Digest& digest);

// A SHA1 text as it travels: checked, and brought to upper case. Empty when it is not one.
std::string NormalizeSha1Text(std::string_view text);

} // namespace corvid::library
