#include "download/core/sha1.h"

#include <algorithm>
#include <cstring>

namespace corvid::download {
namespace {

constexpr std::uint32_t Rotl(std::uint32_t value, int bits) {
    return (value << bits) | (value >> (32 - bits));
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

Sha1::Sha1() : state_{0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u, 0xC3D2E1F0u} {}

void Sha1::compress(const std::uint8_t* block) {
    std::uint32_t w[80];
    for (int i = 0; i < 16; ++i) {
        w[i] = (std::uint32_t{block[4 * i]} << 24) | (std::uint32_t{block[4 * i + 1]} << 16) |
               (std::uint32_t{block[4 * i + 2]} << 8) | std::uint32_t{block[4 * i + 3]};
    }
    for (int i = 16; i < 80; ++i) {
        w[i] = Rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
    }
    std::uint32_t a = state_[0], b = state_[1], c = state_[2], d = state_[3], e = state_[4];
    auto round = [&](std::uint32_t f, std::uint32_t k, std::uint32_t word) {
        const std::uint32_t t = Rotl(a, 5) + f + e + k + word;
        e = d;
        d = c;
        c = Rotl(b, 30);
        b = a;
        a = t;
    };
    for (int i = 0; i < 20; ++i) {
        round((b & c) | (~b & d), 0x5A827999u, w[i]);
    }
    for (int i = 20; i < 40; ++i) {
        round(b ^ c ^ d, 0x6ED9EBA1u, w[i]);
    }
    for (int i = 40; i < 60; ++i) {
        round((b & c) | (b & d) | (c & d), 0x8F1BBCDCu, w[i]);
    }
    for (int i = 60; i < 80; ++i) {
        round(b ^ c ^ d, 0xCA62C1D6u, w[i]);
    }
    state_[0] += a;
    state_[1] += b;
    state_[2] += c;
    state_[3] += d;
    state_[4] += e;
}

void Sha1::update(const void* data, std::size_t size) {
    auto bytes = static_cast<const std::uint8_t*>(data);
    totalBytes_ += size;
    if (pendingSize_ > 0) {
        const std::size_t take = std::min(size, pending_.size() - pendingSize_);
        std::memcpy(pending_.data() + pendingSize_, bytes, take);
        pendingSize_ += take;
        bytes += take;
        size -= take;
        if (pendingSize_ < pending_.size()) {
            return;
        }
        compress(pending_.data());
        pendingSize_ = 0;
    }
    for (; size >= 64; size -= 64, bytes += 64) {
        compress(bytes);
    }
    std::memcpy(pending_.data(), bytes, size);
    pendingSize_ = size;
}

Sha1Digest Sha1::finish() {
    const std::uint64_t bitLength = totalBytes_ * 8;
    const std::uint8_t marker = 0x80;
    update(&marker, 1);
    const std::uint8_t zero = 0;
    while (pendingSize_ != 56) {
        update(&zero, 1);
    }
    std::uint8_t lengthBytes[8];
    for (int i = 0; i < 8; ++i) {
        lengthBytes[i] = static_cast<std::uint8_t>(bitLength >> (56 - 8 * i));
    }
    update(lengthBytes, 8);
    Sha1Digest digest;
    for (int i = 0; i < 5; ++i) {
        for (int j = 0; j < 4; ++j) {
            digest[4 * i + j] = static_cast<std::uint8_t>(state_[i] >> (24 - 8 * j));
        }
    }
    return digest;
}

std::string Base32Encode(const Sha1Digest& digest) {
    std::string text;
    text.reserve(32);
    std::uint32_t buffer = 0;
    int bits = 0;
    for (std::uint8_t byte : digest) {
        buffer = (buffer << 8) | byte;
        bits += 8;
        while (bits >= 5) {
            bits -= 5;
            text.push_back(kBase32Alphabet[(buffer >> bits) & 31]);
        }
    }
    return text; // 160 bits are exactly 32 characters: nothing is left over
}

std::optional<Sha1Digest> Base32DecodeSha1(std::string_view text) {
    if (text.size() != 32) {
        return std::nullopt;
    }
    Sha1Digest digest{};
    std::uint32_t buffer = 0;
    int bits = 0;
    std::size_t out = 0;
    for (char c : text) {
        const int value = Base32Value(c);
        if (value < 0) {
            return std::nullopt;
        }
        buffer = (buffer << 5) | static_cast<std::uint32_t>(value);
        bits += 5;
        if (bits >= 8) {
            bits -= 8;
            digest[out++] = static_cast<std::uint8_t>(buffer >> bits);
        }
    }
    return digest;
}

} // namespace corvid::download
