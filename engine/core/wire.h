// Little helpers shared by every Gnutella codec: GUIDs, IPv4 endpoints and a bounds-checked reader.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace corvid::gnutella {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

struct Guid {
    std::array<std::uint8_t, 16> bytes{};

    friend bool operator==(const Guid&, const Guid&) = default;
    friend auto operator<=>(const Guid&, const Guid&) = default;

    // A fresh GUID marked as coming from a modern servent (byte 8 = 0xFF, byte 15 = 0x00).
    static Guid Random(std::mt19937_64& rng);
    std::string ToHex() const;
};

struct GuidHash {
    std::size_t operator()(const Guid& g) const noexcept;
};

// An IPv4 address in host order plus a port; what the wire carries as "ip:port".
struct Endpoint {
    std::uint32_t ip = 0;
    std::uint16_t port = 0;

    friend bool operator==(const Endpoint&, const Endpoint&) = default;
    friend auto operator<=>(const Endpoint&, const Endpoint&) = default;

    std::string ToString() const;
    bool IsRoutable() const; // not 0, not private, loopback, link-local or multicast
    bool IsValid() const { return ip != 0 && port != 0; }
};

struct EndpointHash {
    std::size_t operator()(const Endpoint& e) const noexcept {
        return std::hash<std::uint64_t>()((std::uint64_t{e.ip} << 16) | e.port);
    }
};

std::string FormatIp(std::uint32_t ip);

// "a.b.c.d" or "a.b.c.d:port"; the port defaults to default_port when absent.
std::optional<Endpoint> ParseEndpoint(std::string_view text, std::uint16_t default_port = 6346);

// A reader that never reads past its input: every failed read leaves it in a failed state.
class ByteReader {
public:
    explicit ByteReader(ByteView data) : data_(data) {}

    bool ok() const { return ok_; }
    std::size_t remaining() const { return ok_ ? data_.size() - pos_ : 0; }
    std::size_t position() const { return pos_; }
    ByteView rest() const { return ok_ ? data_.subspan(pos_) : ByteView{}; }

    std::uint8_t U8();
    std::uint16_t U16Le();
    std::uint16_t U16Be();
    std::uint32_t U32Le();
    std::uint32_t U32Be();
    ByteView Take(std::size_t n);
    // Bytes up to (not including) the next NUL, which is consumed; fails when there is none.
    ByteView TakeUntilNul();
    void Skip(std::size_t n) { Take(n); }

private:
    ByteView data_;
    std::size_t pos_ = 0;
    bool ok_ = true;
};

inline void PutU8(Bytes& out, std::uint8_t v) {
    out.push_back(v);
}
inline void PutU16Le(Bytes& out, std::uint16_t v) {
    out.push_back(static_cast<std::uint8_t>(v));
    out.push_back(static_cast<std::uint8_t>(v >> 8));
}
inline void PutU16Be(Bytes& out, std::uint16_t v) {
    out.push_back(static_cast<std::uint8_t>(v >> 8));
    out.push_back(static_cast<std::uint8_t>(v));
}
inline void PutU32Le(Bytes& out, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}
inline void PutU32Be(Bytes& out, std::uint32_t v) {
    for (int i = 3; i >= 0; --i)
        out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}
// Grow, then copy: GCC's optimiser misreads vector::insert of a range here as out of bounds.
inline void PutBytes(Bytes& out, ByteView v) {
    if (v.empty())
        return;
    std::size_t at = out.size();
    out.resize(at + v.size());
    std::memcpy(out.data() + at, v.data(), v.size());
}
inline void PutText(Bytes& out, std::string_view v) {
    PutBytes(out, {reinterpret_cast<const std::uint8_t*>(v.data()), v.size()});
}

inline std::string_view AsText(ByteView v) {
    return {reinterpret_cast<const char*>(v.data()), v.size()};
}
inline ByteView AsBytes(std::string_view v) {
    return {reinterpret_cast<const std::uint8_t*>(v.data()), v.size()};
}

std::string ToLowerAscii(std::string_view text);
bool EqualsIgnoreCase(std::string_view a, std::string_view b);
bool StartsWithIgnoreCase(std::string_view text, std::string_view prefix);
std::string_view TrimSpaces(std::string_view text);

// Base32 (RFC 4648 alphabet, no padding) as SHA1 URNs use it.
std::string Base32Encode(ByteView data);
std::optional<Bytes> Base32Decode(std::string_view text);
// True for the 32 characters of a SHA1 in base32, either case.
bool IsSha1Base32(std::string_view text);

} // namespace corvid::gnutella
