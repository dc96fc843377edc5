#include "engine/core/ggep.h"

#include "engine/core/zstream.h"

namespace corvid::gnutella {

namespace {
constexpr std::uint8_t kLast = 0x80;
constexpr std::uint8_t kCobs = 0x40;
constexpr std::uint8_t kDeflate = 0x20;
constexpr std::uint8_t kReserved = 0x10;
constexpr std::size_t kMaxEncodedLength = (1u << 18) - 1; // three 6-bit groups
} // namespace

const GgepExtension* GgepBlock::Find(std::string_view id) const {
    for (const auto& e : extensions)
        if (e.id == id)
            return &e;
    return nullptr;
}

Bytes CobsEncode(ByteView in) {
    Bytes out;
    out.reserve(in.size() + in.size() / 254 + 2);
    std::size_t code_pos = out.size();
    out.push_back(0);
    std::uint8_t code = 1;
    for (auto b : in) {
        if (b == 0) {
            out[code_pos] = code;
            code_pos = out.size();
            out.push_back(0);
            code = 1;
        } else {
            out.push_back(b);
            if (++code == 0xFF) {
                out[code_pos] = code;
                code_pos = out.size();
                out.push_back(0);
                code = 1;
            }
        }
    }
    out[code_pos] = code;
    return out;
}

std::optional<Bytes> CobsDecode(ByteView in) {
    Bytes out;
    std::size_t i = 0;
    while (i < in.size()) {
        std::uint8_t code = in[i];
        if (code == 0 || i + code > in.size())
            return std::nullopt;
        out.insert(out.end(), in.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                   in.begin() + static_cast<std::ptrdiff_t>(i) + code);
        i += code;
        if (code != 0xFF && i < in.size())
            out.push_back(0);
    }
    return out;
}

std::optional<GgepBlock> ParseGgep(ByteView in, std::size_t* consumed) {
    ByteReader r(in);
    if (r.U8() != kGgepMagic || !r.ok())
        return std::nullopt;
    GgepBlock block;
    for (;;) {
        std::uint8_t flags = r.U8();
        if (!r.ok() || (flags & kReserved))
            return std::nullopt;
        std::size_t id_length = flags & 0x0F;
        if (id_length == 0)
            return std::nullopt;
        auto id = r.Take(id_length);
        std::size_t length = 0;
        for (int group = 0;; ++group) {
            std::uint8_t b = r.U8();
            if (!r.ok() || group == 3)
                return std::nullopt;
            length = (length << 6) | (b & 0x3F);
            if (b & 0x40)
                break;
            if (!(b & 0x80))
                return std::nullopt;
        }
        auto raw = r.Take(length);
        if (!r.ok())
            return std::nullopt;
        for (auto c : id)
            if (c == 0)
                return std::nullopt;
        GgepExtension ext;
        ext.id.assign(AsText(id));
        ext.cobs = flags & kCobs;
        ext.deflate = flags & kDeflate;
        Bytes data(raw.begin(), raw.end());
        if (ext.cobs) {
            auto decoded = CobsDecode(data);
            if (!decoded)
                return std::nullopt;
            data = std::move(*decoded);
        }
        if (ext.deflate) {
            auto inflated = ZlibDecompress(data, kGgepMaxInflated);
            if (!inflated)
                return std::nullopt;
            data = std::move(*inflated);
        }
        ext.data = std::move(data);
        block.extensions.push_back(std::move(ext));
        if (flags & kLast)
            break;
    }
    if (consumed)
        *consumed = r.position();
    return block;
}

std::optional<Bytes> EncodeGgep(const GgepBlock& block) {
    if (block.extensions.empty())
        return std::nullopt;
    Bytes out{kGgepMagic};
    for (std::size_t i = 0; i < block.extensions.size(); ++i) {
        const auto& ext = block.extensions[i];
        if (ext.id.empty() || ext.id.size() > 15 || ext.id.find('\0') != std::string::npos)
            return std::nullopt;
        Bytes data = ext.data;
        if (ext.deflate)
            data = ZlibCompress(data);
        if (ext.cobs)
            data = CobsEncode(data);
        if (data.size() > kMaxEncodedLength)
            return std::nullopt;
        std::uint8_t flags = static_cast<std::uint8_t>(ext.id.size());
        if (i + 1 == block.extensions.size())
            flags |= kLast;
        if (ext.cobs)
            flags |= kCobs;
        if (ext.deflate)
            flags |= kDeflate;
        out.push_back(flags);
        PutText(out, ext.id);
        std::size_t n = data.size();
        if (n >= (1u << 12)) {
            out.push_back(static_cast<std::uint8_t>(0x80 | ((n >> 12) & 0x3F)));
            out.push_back(static_cast<std::uint8_t>(0x80 | ((n >> 6) & 0x3F)));
        } else if (n >= (1u << 6)) {
            out.push_back(static_cast<std::uint8_t>(0x80 | ((n >> 6) & 0x3F)));
        }
        out.push_back(static_cast<std::uint8_t>(0x40 | (n & 0x3F)));
        PutBytes(out, data);
    }
    return out;
}

} // namespace corvid::gnutella
