#include "library/sha1.h"

#include <bit>
#include <cstring>
#include <utility>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <immintrin.h>
#define CORVID_SHA_X86 1
#endif

namespace corvid::library {
namespace {

constexpr std::array<std::uint32_t, 5> kInitialState = {0x67452301u, 0xEFCDAB89u, 0x98BADCFEu,
                                                        0x10325476u, 0xC3D2E1F0u};

std::uint32_t LoadBigEndian(const std::uint8_t* p) {
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
           std::uint32_t{p[3]};
}

void CompressPortable(std::uint32_t* state, const std::uint8_t* blocks, std::size_t count) {
    for (; count > 0; --count, blocks += 64) {
        std::uint32_t w[80];
        for (int i = 0; i < 16; ++i) {
            w[i] = LoadBigEndian(blocks + 4 * i);
        }
        for (int i = 16; i < 80; ++i) {
            w[i] = std::rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
        }
        std::uint32_t a = state[0], b = state[1], c = state[2], d = state[3], e = state[4];
        auto step = [&](std::uint32_t f, std::uint32_t k, std::uint32_t word) {
            const std::uint32_t t = std::rotl(a, 5) + f + e + k + word;
            e = d;
            d = c;
            c = std::rotl(b, 30);
            b = a;
            a = t;
        };
        for (int i = 0; i < 20; ++i) {
            step((b & c) | (~b & d), 0x5A827999u, w[i]);
        }
        for (int i = 20; i < 40; ++i) {
            step(b ^ c ^ d, 0x6ED9EBA1u, w[i]);
        }
        for (int i = 40; i < 60; ++i) {
            step((b & c) | (b & d) | (c & d), 0x8F1BBCDCu, w[i]);
        }
        for (int i = 60; i < 80; ++i) {
            step(b ^ c ^ d, 0xCA62C1D6u, w[i]);
        }
        state[0] += a;
        state[1] += b;
        state[2] += c;
        state[3] += d;
        state[4] += e;
    }
}

#ifdef CORVID_SHA_X86

#define CORVID_SHA_TARGET __attribute__((target("sha,sse4.1,ssse3")))

// One block is twenty groups of four rounds. Group g uses the round function g / 5 and the message
// words of group g, which after the first four groups come from the three groups before it.
struct ShaNiBlock {
    __m128i abcd;
    __m128i previousAbcd;
    __m128i words[4];

    template <int Group> CORVID_SHA_TARGET void Rounds(__m128i& e) {
        __m128i& w = words[Group % 4];
        if constexpr (Group >= 4) {
            w = _mm_sha1msg2_epu32(_mm_xor_si128(_mm_sha1msg1_epu32(w, words[(Group + 1) % 4]),
                                                 words[(Group + 2) % 4]),
                                   words[(Group + 3) % 4]);
        }
        if constexpr (Group == 0) {
            e = _mm_add_epi32(e, w);
        } else {
            e = _mm_sha1nexte_epu32(previousAbcd, w);
        }
        previousAbcd = abcd;
        abcd = _mm_sha1rnds4_epu32(abcd, e, Group / 5);
    }

    template <int... Groups>
    CORVID_SHA_TARGET void AllRounds(__m128i& e, std::integer_sequence<int, Groups...>) {
        (Rounds<Groups>(e), ...);
    }
};

CORVID_SHA_TARGET void CompressShaNi(std::uint32_t* state, const std::uint8_t* blocks,
                                     std::size_t count) {
    const __m128i byteSwap = _mm_set_epi64x(0x0001020304050607LL, 0x08090a0b0c0d0e0fLL);
    __m128i abcd =
        _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state)), 0x1B);
    __m128i e = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);
    for (; count > 0; --count, blocks += 64) {
        ShaNiBlock block;
        block.abcd = abcd;
        block.previousAbcd = abcd;
        for (int i = 0; i < 4; ++i) {
            block.words[i] = _mm_shuffle_epi8(
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks + 16 * i)), byteSwap);
        }
        const __m128i savedE = e;
        block.AllRounds(e, std::make_integer_sequence<int, 20>{});
        e = _mm_sha1nexte_epu32(block.previousAbcd, savedE);
        abcd = _mm_add_epi32(block.abcd, abcd);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(state), _mm_shuffle_epi32(abcd, 0x1B));
    state[4] = static_cast<std::uint32_t>(_mm_extract_epi32(e, 3));
}

bool DetectShaInstructions() {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) {
        return false;
    }
    const bool ssse3 = (ecx & (1u << 9)) != 0;
    const bool sse41 = (ecx & (1u << 19)) != 0;
    if (!ssse3 || !sse41 || __get_cpuid_max(0, nullptr) < 7) {
        return false;
    }
    __cpuid_count(7, 0, eax, ebx, ecx, edx);
    return (ebx & (1u << 29)) != 0;
}

#endif

using CompressFunction = void (*)(std::uint32_t*, const std::uint8_t*, std::size_t);

CompressFunction ChooseCompress() {
#ifdef CORVID_SHA_X86
    if (DetectShaInstructions()) {
        return CompressShaNi;
    }
#endif
    return CompressPortable;
}

CompressFunction BestCompress() {
    static const CompressFunction chosen = ChooseCompress();
    return chosen;
}

constexpr char kBase32Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";

int Base32Value(char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a';
    }
    if (c >= '2' && c <= '7') {
        return c - '2' + 26;
    }
    return -1;
}

} // namespace

Sha1::Sha1() : Sha1(BestCompress()) {}

Sha1::Sha1(Compress rounds) : compress_(rounds) {
    Reset();
}

Sha1 Sha1::Portable() {
    return Sha1(CompressPortable);
}

void Sha1::Reset() {
    state_ = kInitialState;
    pendingSize_ = 0;
    totalBytes_ = 0;
}

void Sha1::Update(std::string_view text) {
    Update(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

void Sha1::Update(std::span<const std::uint8_t> bytes) {
    totalBytes_ += bytes.size();
    const std::uint8_t* p = bytes.data();
    std::size_t left = bytes.size();
    if (pendingSize_ > 0) {
        const std::size_t take = std::min(left, pending_.size() - pendingSize_);
        std::memcpy(pending_.data() + pendingSize_, p, take);
        pendingSize_ += take;
        p += take;
        left -= take;
        if (pendingSize_ < pending_.size()) {
            return;
        }
        compress_(state_.data(), pending_.data(), 1);
        pendingSize_ = 0;
    }
    const std::size_t wholeBlocks = left / 64;
    if (wholeBlocks > 0) {
        compress_(state_.data(), p, wholeBlocks);
        p += wholeBlocks * 64;
        left -= wholeBlocks * 64;
    }
    std::memcpy(pending_.data(), p, left);
    pendingSize_ = left;
}

Sha1Digest Sha1::Finish() {
    const std::uint64_t bitLength = totalBytes_ * 8;
    std::array<std::uint8_t, 72> tail{};
    tail[0] = 0x80;
    const std::size_t padding = (pendingSize_ < 56 ? 56 : 120) - pendingSize_;
    for (int i = 0; i < 8; ++i) {
        tail[padding + i] = static_cast<std::uint8_t>(bitLength >> (56 - 8 * i));
    }
    Update(std::span(tail.data(), padding + 8));
    Sha1Digest digest{};
    for (int i = 0; i < 5; ++i) {
        digest[4 * i] = static_cast<std::uint8_t>(state_[i] >> 24);
        digest[4 * i + 1] = static_cast<std::uint8_t>(state_[i] >> 16);
        digest[4 * i + 2] = static_cast<std::uint8_t>(state_[i] >> 8);
        digest[4 * i + 3] = static_cast<std::uint8_t>(state_[i]);
    }
    Reset();
    return digest;
}

bool Sha1::UsesShaInstructions() {
#ifdef CORVID_SHA_X86
    return BestCompress() == CompressShaNi;
#else
    return false;
#endif
}

Sha1Digest Sha1Of(std::string_view bytes) {
    Sha1 sha;
    sha.Update(bytes);
    return sha.Finish();
}

std::string ToHex(const Sha1Digest& digest) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::uint8_t byte : digest) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::string ToBase32(const Sha1Digest& digest) {
    std::string text;
    text.reserve(32);
    std::uint32_t buffer = 0;
    int bits = 0;
    for (std::uint8_t byte : digest) {
        buffer = (buffer << 8) | byte;
        bits += 8;
        while (bits >= 5) {
            bits -= 5;
            text += kBase32Alphabet[(buffer >> bits) & 31];
        }
    }
    return text;
}

bool FromBase32(std::string_view text, Sha1Digest& digest) {
    if (text.size() != 32) {
        return false;
    }
    std::uint32_t buffer = 0;
    int bits = 0;
    std::size_t out = 0;
    for (char c : text) {
        const int value = Base32Value(c);
        if (value < 0) {
            return false;
        }
        buffer = (buffer << 5) | static_cast<std::uint32_t>(value);
        bits += 5;
        if (bits >= 8) {
            bits -= 8;
            digest[out++] = static_cast<std::uint8_t>(buffer >> bits);
        }
    }
    return true;
}

std::string NormalizeSha1Text(std::string_view text) {
    Sha1Digest digest;
    return FromBase32(text, digest) ? ToBase32(digest) : std::string();
}

} // namespace corvid::library
