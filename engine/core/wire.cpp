#include "engine/core/wire.h"

#include <charconv>

namespace corvid::gnutella {

Guid Guid::Random(std::mt19937_64& rng) {
    Guid g;
    for (std::size_t i = 0; i < 16; i += 8) {
        std::uint64_t r = rng();
        for (std::size_t j = 0; j < 8; ++j)
            g.bytes[i + j] = static_cast<std::uint8_t>(r >> (8 * j));
    }
    g.bytes[8] = 0xFF;
    g.bytes[15] = 0x00;
    return g;
}

std::string Guid::ToHex() const {
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    for (auto b : bytes) {
        out.push_back(digits[b >> 4]);
        out.push_back(digits[b & 15]);
    }
    return out;
}

std::size_t GuidHash::operator()(const Guid& g) const noexcept {
    std::uint64_t h = 1469598103934665603ull;
    for (auto b : g.bytes)
        h = (h ^ b) * 1099511628211ull;
    return static_cast<std::size_t>(h);
}

std::string FormatIp(std::uint32_t ip) {
    return std::to_string(ip >> 24) + "." + std::to_string((ip >> 16) & 255) + "." +
           std::to_string((ip >> 8) & 255) + "." + std::to_string(ip & 255);
}

std::string Endpoint::ToString() const {
    return FormatIp(ip) + ":" + std::to_string(port);
}

bool Endpoint::IsRoutable() const {
    if (!IsValid())
        return false;
    const std::uint8_t a = ip >> 24, b = (ip >> 16) & 255;
    if (a == 0 || a == 10 || a == 127 || a >= 224)
        return false;
    if (a == 172 && b >= 16 && b <= 31)
        return false;
    if (a == 192 && b == 168)
        return false;
    if (a == 169 && b == 254)
        return false;
    return true;
}

std::optional<Endpoint> ParseEndpoint(std::string_view text, std::uint16_t default_port) {
    text = TrimSpaces(text);
    Endpoint ep;
    std::uint32_t ip = 0;
    const char* p = text.data();
    const char* end = text.data() + text.size();
    for (int part = 0; part < 4; ++part) {
        unsigned value = 0;
        auto [next, ec] = std::from_chars(p, end, value);
        if (ec != std::errc() || next == p || value > 255 || next - p > 3)
            return std::nullopt;
        ip = (ip << 8) | value;
        p = next;
        if (part < 3) {
            if (p == end || *p != '.')
                return std::nullopt;
            ++p;
        }
    }
    ep.ip = ip;
    ep.port = default_port;
    if (p != end) {
        if (*p != ':')
            return std::nullopt;
        ++p;
        unsigned port = 0;
        auto [next, ec] = std::from_chars(p, end, port);
        if (ec != std::errc() || next != end || port == 0 || port > 65535)
            return std::nullopt;
        ep.port = static_cast<std::uint16_t>(port);
    }
    return ep;
}

std::uint8_t ByteReader::U8() {
    auto v = Take(1);
    return v.empty() ? 0 : v[0];
}

std::uint16_t ByteReader::U16Le() {
    auto v = Take(2);
    return v.size() < 2 ? 0 : static_cast<std::uint16_t>(v[0] | (v[1] << 8));
}

std::uint16_t ByteReader::U16Be() {
    auto v = Take(2);
    return v.size() < 2 ? 0 : static_cast<std::uint16_t>((v[0] << 8) | v[1]);
}

std::uint32_t ByteReader::U32Le() {
    auto v = Take(4);
    if (v.size() < 4)
        return 0;
    return std::uint32_t{v[0]} | (std::uint32_t{v[1]} << 8) | (std::uint32_t{v[2]} << 16) |
           (std::uint32_t{v[3]} << 24);
}

std::uint32_t ByteReader::U32Be() {
    auto v = Take(4);
    if (v.size() < 4)
        return 0;
    return (std::uint32_t{v[0]} << 24) | (std::uint32_t{v[1]} << 16) | (std::uint32_t{v[2]} << 8) |
           std::uint32_t{v[3]};
}

ByteView ByteReader::Take(std::size_t n) {
    if (!ok_ || data_.size() - pos_ < n) {
        ok_ = false;
        return {};
    }
    auto v = data_.subspan(pos_, n);
    pos_ += n;
    return v;
}

ByteView ByteReader::TakeUntilNul() {
    if (!ok_)
        return {};
    for (std::size_t i = pos_; i < data_.size(); ++i) {
        if (data_[i] == 0) {
            auto v = data_.subspan(pos_, i - pos_);
            pos_ = i + 1;
            return v;
        }
    }
    ok_ = false;
    return {};
}

std::string ToLowerAscii(std::string_view text) {
    std::string out(text);
    for (auto& c : out)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return out;
}

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'A' && x <= 'Z')
            x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z')
            y = static_cast<char>(y - 'A' + 'a');
        if (x != y)
            return false;
    }
    return true;
}

bool StartsWithIgnoreCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && EqualsIgnoreCase(text.substr(0, prefix.size()), prefix);
}

std::string_view TrimSpaces(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
        text.remove_suffix(1);
    return text;
}

namespace {
constexpr char kBase32Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";

int Base32Value(char c) {
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a';
    if (c >= '2' && c <= '7')
        return c - '2' + 26;
    return -1;
}
} // namespace

std::string Base32Encode(ByteView data) {
    std::string out;
    std::uint32_t buffer = 0;
    int bits = 0;
    for (auto b : data) {
        buffer = (buffer << 8) | b;
        bits += 8;
        while (bits >= 5) {
            out.push_back(kBase32Alphabet[(buffer >> (bits - 5)) & 31]);
            bits -= 5;
        }
    }
    if (bits > 0)
        out.push_back(kBase32Alphabet[(buffer << (5 - bits)) & 31]);
    return out;
}

std::optional<Bytes> Base32Decode(std::string_view text) {
    Bytes out;
    std::uint32_t buffer = 0;
    int bits = 0;
    for (char c : text) {
        int v = Base32Value(c);
        if (v < 0)
            return std::nullopt;
        buffer = (buffer << 5) | static_cast<std::uint32_t>(v);
        bits += 5;
        if (bits >= 8) {
            out.push_back(static_cast<std::uint8_t>(buffer >> (bits - 8)));
            bits -= 8;
        }
    }
    return out;
}

bool IsSha1Base32(std::string_view text) {
    if (text.size() != 32)
        return false;
    for (char c : text)
        if (Base32Value(c) < 0)
            return false;
    return true;
}

} // namespace corvid::gnutella
