#include "engine/core/descriptor.h"

#include <algorithm>

namespace corvid::gnutella {

namespace {
constexpr std::uint8_t kExtensionSeparator = 0x1C;
constexpr std::string_view kSha1Prefix = "urn:sha1:";
constexpr std::uint8_t kPushBit = 0x01;
constexpr std::uint8_t kBusyBit = 0x04;
constexpr std::uint8_t kUploadedBit = 0x08;
constexpr std::uint8_t kSpeedBit = 0x10;
constexpr std::uint8_t kGgepBit = 0x20;

std::string ToUpperAscii(std::string_view text) {
    std::string out(text);
    for (auto& c : out)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    return out;
}

constexpr std::string_view kBitprintPrefix = "urn:bitprint:";
constexpr std::size_t kSha1Bytes = 20;
constexpr std::size_t kTigerBytes = 24;
constexpr std::size_t kTigerBase32 = 39;
constexpr std::uint8_t kGgepHashSha1 = 0x01;
constexpr std::uint8_t kGgepHashBitprint = 0x02;
constexpr std::size_t kMaxAlternates = 32;
constexpr std::size_t kMaxPushProxies = 16;

bool IsBase32(std::string_view text) {
    for (char c : text) {
        bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        if (!letter && !(c >= '2' && c <= '7'))
            return false;
    }
    return true;
}

// Some servents put a features byte before the packed proxies; its length gives it away.
std::vector<Endpoint> ParsePushProxies(ByteView data) {
    if (data.size() % 6 == 1)
        data = data.subspan(1);
    return ParsePackedEndpoints(data, kMaxPushProxies);
}

// What one extension area says about its file.
struct Extensions {
    std::vector<FileHash> hashes;
    std::optional<GgepBlock> ggep;
    std::optional<std::uint64_t> large_size;
    std::vector<Endpoint> alternates;
    bool broken_ggep = false;
};

void ReadGgepItems(const GgepBlock& block, Extensions& out) {
    if (auto* h = block.Find("H"))
        if (auto hash = ParseGgepHash(h->data))
            out.hashes.push_back(std::move(*hash));
    // A size that fits 32 bits has no business here; reading one would let a hit contradict itself.
    if (auto* lf = block.Find("LF"); lf && !lf->data.empty() && lf->data.size() <= 8) {
        std::uint64_t v = 0;
        for (std::size_t k = lf->data.size(); k-- > 0;)
            v = (v << 8) | lf->data[k];
        if (v > 0xFFFFFFFFu)
            out.large_size = v;
    }
    if (auto* alt = block.Find("ALT"))
        out.alternates = ParsePackedEndpoints(alt->data, kMaxAlternates);
}

// Reads an extension area: items separated by 0x1C, where a GGEP block may also end an item
// without a separator.
Extensions ReadExtensions(ByteView area) {
    Extensions out;
    std::size_t i = 0;
    while (i < area.size()) {
        if (area[i] == kGgepMagic) {
            std::size_t used = 0;
            if (auto block = ParseGgep(area.subspan(i), &used)) {
                ReadGgepItems(*block, out);
                out.ggep = std::move(block);
                i += used;
                continue;
            }
            out.broken_ggep = true;
        }
        std::size_t end = i;
        while (end < area.size() && area[end] != kExtensionSeparator)
            ++end;
        if (auto hash = ParseUrnText(AsText(area.subspan(i, end - i))))
            out.hashes.push_back(std::move(*hash));
        i = end + 1;
    }
    return out;
}
} // namespace

std::optional<Header> ParseHeader(ByteView in) {
    if (in.size() < kHeaderSize)
        return std::nullopt;
    ByteReader r(in);
    Header h;
    auto guid = r.Take(16);
    std::copy(guid.begin(), guid.end(), h.guid.bytes.begin());
    h.type = r.U8();
    h.ttl = r.U8();
    h.hops = r.U8();
    h.payload_length = r.U32Le();
    return h;
}

Bytes SerializeMessage(const Header& header, ByteView payload) {
    Bytes out;
    out.reserve(kHeaderSize + payload.size());
    PutBytes(out, header.guid.bytes);
    out.push_back(header.type);
    out.push_back(header.ttl);
    out.push_back(header.hops);
    PutU32Le(out, static_cast<std::uint32_t>(payload.size()));
    PutBytes(out, payload);
    return out;
}

Bytes SerializeMessage(const Message& message) {
    return SerializeMessage(message.header, message.payload);
}

Message MakeMessage(const Guid& guid, PayloadType type, std::uint8_t ttl, ByteView payload) {
    Message m;
    m.header.guid = guid;
    m.header.type = static_cast<std::uint8_t>(type);
    m.header.ttl = ttl;
    m.header.payload_length = static_cast<std::uint32_t>(payload.size());
    m.payload.assign(payload.begin(), payload.end());
    return m;
}

DescriptorFramer::Status DescriptorFramer::Feed(ByteView in,
                                                const std::function<void(Message&&)>& on_message) {
    while (!in.empty()) {
        if (!pending_) {
            std::size_t want = kHeaderSize - buffer_.size();
            std::size_t take = std::min(want, in.size());
            buffer_.insert(buffer_.end(), in.begin(),
                           in.begin() + static_cast<std::ptrdiff_t>(take));
            in = in.subspan(take);
            if (buffer_.size() < kHeaderSize)
                break;
            pending_ = ParseHeader(buffer_);
            buffer_.clear();
            if (pending_->payload_length > kMaxPayload)
                return Status::PayloadTooLarge;
            buffer_.reserve(pending_->payload_length);
        }
        std::size_t want = pending_->payload_length - buffer_.size();
        std::size_t take = std::min(want, in.size());
        buffer_.insert(buffer_.end(), in.begin(), in.begin() + static_cast<std::ptrdiff_t>(take));
        in = in.subspan(take);
        if (buffer_.size() == pending_->payload_length) {
            Message m;
            m.header = *pending_;
            m.payload = std::move(buffer_);
            buffer_ = {};
            pending_.reset();
            on_message(std::move(m));
        }
    }
    return Status::Ok;
}

std::optional<Pong> ParsePong(ByteView payload) {
    ByteReader r(payload);
    Pong p;
    p.port = r.U16Le();
    p.ip = r.U32Be();
    p.files = r.U32Le();
    p.kilobytes = r.U32Le();
    if (!r.ok())
        return std::nullopt;
    if (r.remaining() > 0 && r.rest()[0] == kGgepMagic) {
        p.ggep = ParseGgep(r.rest());
        p.broken_ggep = !p.ggep;
    }
    return p;
}

Bytes SerializePong(const Pong& pong) {
    Bytes out;
    PutU16Le(out, pong.port);
    PutU32Be(out, pong.ip);
    PutU32Le(out, pong.files);
    PutU32Le(out, pong.kilobytes);
    if (pong.ggep)
        if (auto block = EncodeGgep(*pong.ggep))
            PutBytes(out, *block);
    return out;
}

std::optional<Bye> ParseBye(ByteView payload) {
    ByteReader r(payload);
    Bye b;
    b.code = r.U16Le();
    if (!r.ok())
        return std::nullopt;
    auto rest = r.rest();
    auto nul = std::find(rest.begin(), rest.end(), std::uint8_t{0});
    b.reason.assign(rest.begin(), nul);
    return b;
}

Bytes SerializeBye(const Bye& bye) {
    Bytes out;
    PutU16Le(out, bye.code);
    PutText(out, bye.reason);
    out.push_back(0);
    return out;
}

std::optional<Push> ParsePush(ByteView payload) {
    ByteReader r(payload);
    Push p;
    auto guid = r.Take(16);
    p.file_index = r.U32Le();
    p.ip = r.U32Be();
    p.port = r.U16Le();
    if (!r.ok())
        return std::nullopt;
    std::copy(guid.begin(), guid.end(), p.servent.bytes.begin());
    return p;
}

Bytes SerializePush(const Push& push) {
    Bytes out;
    PutBytes(out, push.servent.bytes);
    PutU32Le(out, push.file_index);
    PutU32Be(out, push.ip);
    PutU16Le(out, push.port);
    return out;
}

std::optional<Query> ParseQuery(ByteView payload) {
    ByteReader r(payload);
    Query q;
    q.flags = r.U16Be();
    auto text = r.TakeUntilNul();
    if (!r.ok())
        return std::nullopt;
    q.text.assign(AsText(text));
    auto extensions = ReadExtensions(r.rest());
    for (auto& hash : extensions.hashes)
        if (std::find(q.sha1s.begin(), q.sha1s.end(), hash.sha1) == q.sha1s.end())
            q.sha1s.push_back(std::move(hash.sha1));
    q.ggep = std::move(extensions.ggep);
    q.broken_ggep = extensions.broken_ggep;
    return q;
}

Bytes SerializeQuery(const Query& query) {
    Bytes out;
    PutU16Be(out, query.flags);
    PutText(out, query.text);
    out.push_back(0);
    bool first = true;
    for (const auto& sha1 : query.sha1s) {
        if (!first)
            out.push_back(kExtensionSeparator);
        PutText(out, kSha1Prefix);
        PutText(out, sha1);
        first = false;
    }
    if (query.ggep) {
        if (auto block = EncodeGgep(*query.ggep)) {
            if (!first)
                out.push_back(kExtensionSeparator);
            PutBytes(out, *block);
        }
    }
    return out;
}

HitFlags ReadOpenDataByEnablers(std::uint8_t a, std::uint8_t b) {
    HitFlags f;
    f.firewalled = (b & kPushBit) && (a & kPushBit);
    f.busy = (a & kBusyBit) && (b & kBusyBit);
    f.has_uploaded = (a & kUploadedBit) && (b & kUploadedBit);
    f.speed_measured = (a & kSpeedBit) && (b & kSpeedBit);
    f.ggep = (a & kGgepBit) || (b & kGgepBit);
    return f;
}

HitFlags ReadOpenDataByConjunction(std::uint8_t a, std::uint8_t b) {
    std::uint8_t both = a & b;
    HitFlags f;
    f.firewalled = both & kPushBit;
    f.busy = both & kBusyBit;
    f.has_uploaded = both & kUploadedBit;
    f.speed_measured = both & kSpeedBit;
    f.ggep = both & kGgepBit;
    return f;
}

std::pair<std::uint8_t, std::uint8_t> WriteOpenData(const HitFlags& flags) {
    std::uint8_t a = kBusyBit | kUploadedBit | kSpeedBit;
    std::uint8_t b = kPushBit;
    if (flags.firewalled)
        a |= kPushBit;
    if (flags.busy)
        b |= kBusyBit;
    if (flags.has_uploaded)
        b |= kUploadedBit;
    if (flags.speed_measured)
        b |= kSpeedBit;
    if (flags.ggep) {
        a |= kGgepBit;
        b |= kGgepBit;
    }
    return {a, b};
}

std::optional<Guid> QueryHitServent(ByteView payload) {
    if (payload.size() < 11 + 16)
        return std::nullopt;
    Guid g;
    std::copy(payload.end() - 16, payload.end(), g.bytes.begin());
    return g;
}

std::optional<QueryHit> ParseQueryHit(ByteView payload) {
    if (payload.size() < 11 + 16)
        return std::nullopt;
    QueryHit hit;
    std::copy(payload.end() - 16, payload.end(), hit.servent.bytes.begin());
    ByteReader r(payload.first(payload.size() - 16));
    std::uint8_t count = r.U8();
    hit.port = r.U16Le();
    hit.ip = r.U32Be();
    hit.speed = r.U32Le();
    for (std::uint8_t i = 0; i < count && r.ok(); ++i) {
        HitResult result;
        result.index = r.U32Le();
        result.size = r.U32Le();
        result.name.assign(AsText(r.TakeUntilNul()));
        auto extensions = r.TakeUntilNul();
        if (!r.ok())
            return std::nullopt;
        auto read = ReadExtensions(extensions);
        if (read.large_size)
            result.size = *read.large_size;
        // A text URN and a GGEP "H" may both be there; the first SHA1 wins, and a Tiger root is
        // taken only from a form that names the same SHA1.
        for (auto& hash : read.hashes) {
            if (result.sha1.empty())
                result.sha1 = hash.sha1;
            if (result.tiger.empty() && hash.sha1 == result.sha1)
                result.tiger = std::move(hash.tiger);
        }
        result.alternates = std::move(read.alternates);
        hit.results.push_back(std::move(result));
    }
    if (!r.ok())
        return std::nullopt;
    // The trailer is optional; one that does not add up is ignored rather than fatal.
    ByteView trailer = r.rest();
    if (trailer.size() >= 7) {
        ByteReader t(trailer);
        auto vendor = t.Take(4);
        std::uint8_t open_size = t.U8();
        if (open_size >= 2 && open_size <= t.remaining()) {
            std::uint8_t a = t.U8();
            std::uint8_t b = t.U8();
            std::size_t xml_length = 0;
            if (open_size >= 4)
                xml_length = t.U16Le();
            t.Skip(open_size >= 4 ? open_size - 4 : open_size - 2);
            hit.vendor.assign(AsText(vendor));
            hit.flags = ReadOpenDataByEnablers(a, b);
            ByteView priv = t.rest();
            if (xml_length <= priv.size())
                priv = priv.first(priv.size() - xml_length);
            if (hit.flags.ggep) {
                auto at = std::find(priv.begin(), priv.end(), kGgepMagic);
                if (at != priv.end())
                    hit.ggep = ParseGgep(priv.subspan(static_cast<std::size_t>(at - priv.begin())));
                if (hit.ggep)
                    if (auto* push = hit.ggep->Find("PUSH"))
                        hit.push_proxies = ParsePushProxies(push->data);
            }
        }
    }
    return hit;
}

Bytes SerializeQueryHit(const QueryHit& hit) {
    Bytes out;
    PutU8(out, static_cast<std::uint8_t>(std::min<std::size_t>(hit.results.size(), 255)));
    PutU16Le(out, hit.port);
    PutU32Be(out, hit.ip);
    PutU32Le(out, hit.speed);
    std::size_t written = 0;
    for (const auto& result : hit.results) {
        if (written++ == 255)
            break;
        PutU32Le(out, result.index);
        PutU32Le(out,
                 static_cast<std::uint32_t>(std::min<std::uint64_t>(result.size, 0xFFFFFFFFu)));
        PutText(out, result.name);
        out.push_back(0);
        bool any = false;
        if (!result.sha1.empty()) {
            PutText(out, kSha1Prefix);
            PutText(out, result.sha1);
            any = true;
        }
        if (result.size > 0xFFFFFFFFu) {
            GgepBlock block;
            GgepExtension lf{"LF", {}, false, true};
            for (std::uint64_t v = result.size; v != 0; v >>= 8)
                lf.data.push_back(static_cast<std::uint8_t>(v));
            block.extensions.push_back(std::move(lf));
            if (auto encoded = EncodeGgep(block)) {
                if (any)
                    out.push_back(kExtensionSeparator);
                PutBytes(out, *encoded);
            }
        }
        out.push_back(0);
    }
    PutText(out, (hit.vendor + "    ").substr(0, 4));
    Bytes ggep;
    if (hit.ggep)
        if (auto encoded = EncodeGgep(*hit.ggep))
            ggep = std::move(*encoded);
    HitFlags flags = hit.flags;
    flags.ggep = !ggep.empty();
    auto [a, b] = WriteOpenData(flags);
    out.push_back(4);
    out.push_back(a);
    out.push_back(b);
    PutU16Le(out, 0); // no XML block
    PutBytes(out, ggep);
    PutBytes(out, hit.servent.bytes);
    return out;
}

std::optional<FileHash> ParseUrnText(std::string_view text) {
    FileHash hash;
    if (StartsWithIgnoreCase(text, kSha1Prefix)) {
        auto value = text.substr(kSha1Prefix.size());
        if (!IsSha1Base32(value))
            return std::nullopt;
        hash.sha1 = ToUpperAscii(value);
        return hash;
    }
    if (StartsWithIgnoreCase(text, kBitprintPrefix)) {
        auto value = text.substr(kBitprintPrefix.size());
        if (value.size() != 32 + 1 + kTigerBase32 || value[32] != '.' ||
            !IsSha1Base32(value.substr(0, 32)) || !IsBase32(value.substr(33)))
            return std::nullopt;
        hash.sha1 = ToUpperAscii(value.substr(0, 32));
        hash.tiger = ToUpperAscii(value.substr(33));
        return hash;
    }
    return std::nullopt;
}

std::optional<FileHash> ParseGgepHash(ByteView data) {
    if (data.empty())
        return std::nullopt;
    FileHash hash;
    if (data[0] == kGgepHashSha1 && data.size() >= 1 + kSha1Bytes) {
        hash.sha1 = Base32Encode(data.subspan(1, kSha1Bytes));
        return hash;
    }
    if (data[0] == kGgepHashBitprint && data.size() >= 1 + kSha1Bytes + kTigerBytes) {
        hash.sha1 = Base32Encode(data.subspan(1, kSha1Bytes));
        hash.tiger = Base32Encode(data.subspan(1 + kSha1Bytes, kTigerBytes));
        return hash;
    }
    return std::nullopt;
}

std::vector<Endpoint> ParsePackedEndpoints(ByteView data, std::size_t max) {
    std::vector<Endpoint> out;
    for (std::size_t at = 0; at + 6 <= data.size() && out.size() < max; at += 6) {
        ByteReader r(data.subspan(at, 6));
        Endpoint e;
        e.ip = r.U32Be();
        e.port = r.U16Le();
        if (e.IsValid() && std::find(out.begin(), out.end(), e) == out.end())
            out.push_back(e);
    }
    return out;
}

Bytes PackEndpoints(const std::vector<Endpoint>& endpoints) {
    Bytes out;
    for (const auto& e : endpoints) {
        PutU32Be(out, e.ip);
        PutU16Le(out, e.port);
    }
    return out;
}

std::optional<VendorMessage> ParseVendorMessage(ByteView payload) {
    ByteReader r(payload);
    VendorMessage v;
    v.vendor.assign(AsText(r.Take(4)));
    v.selector = r.U16Le();
    v.version = r.U16Le();
    if (!r.ok())
        return std::nullopt;
    return v;
}

} // namespace corvid::gnutella
