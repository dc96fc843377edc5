// Gnutella descriptors: the 23-byte header, the payloads we read and write, and stream framing.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/core/ggep.h"
#include "engine/core/wire.h"

namespace corvid::gnutella {

inline constexpr std::size_t kHeaderSize = 23;
inline constexpr std::size_t kMaxPayload = 65536;
inline constexpr std::uint8_t kMaxTtlPlusHops = 7;

enum class PayloadType : std::uint8_t {
    Ping = 0x00,
    Pong = 0x01,
    Bye = 0x02,
    RouteTable = 0x30,
    VendorMessage = 0x31,
    VendorMessageStable = 0x32,
    Push = 0x40,
    Query = 0x80,
    QueryHit = 0x81,
};

struct Header {
    Guid guid;
    std::uint8_t type = 0;
    std::uint8_t ttl = 0;
    std::uint8_t hops = 0;
    std::uint32_t payload_length = 0;
};

struct Message {
    Header header;
    Bytes payload;

    PayloadType type() const { return static_cast<PayloadType>(header.type); }
};

std::optional<Header> ParseHeader(ByteView in);
Bytes SerializeMessage(const Header& header, ByteView payload);
Bytes SerializeMessage(const Message& message);
Message MakeMessage(const Guid& guid, PayloadType type, std::uint8_t ttl, ByteView payload);

// Splits a byte stream into whole messages whatever the read boundaries. Holds at most one
// partial message, so a connection never costs more than the header plus the largest payload.
class DescriptorFramer {
public:
    enum class Status { Ok, PayloadTooLarge };

    // Calls on_message for each complete message; stops at the first oversized header.
    Status Feed(ByteView in, const std::function<void(Message&&)>& on_message);
    std::size_t buffered() const { return buffer_.size(); }

private:
    Bytes buffer_;
    std::optional<Header> pending_;
};

struct Pong {
    std::uint16_t port = 0;
    std::uint32_t ip = 0; // host order
    std::uint32_t files = 0;
    std::uint32_t kilobytes = 0;
    std::optional<GgepBlock> ggep;
    bool broken_ggep = false; // a GGEP magic byte began something that did not parse

    Endpoint endpoint() const { return {ip, port}; }
};
std::optional<Pong> ParsePong(ByteView payload);
Bytes SerializePong(const Pong& pong);

struct Bye {
    std::uint16_t code = 200;
    std::string reason;
};
std::optional<Bye> ParseBye(ByteView payload);
Bytes SerializeBye(const Bye& bye);

struct Push {
    Guid servent;
    std::uint32_t file_index = 0;
    std::uint32_t ip = 0; // host order
    std::uint16_t port = 0;
};
std::optional<Push> ParsePush(ByteView payload);
Bytes SerializePush(const Push& push);

inline constexpr std::uint16_t kQueryFlagsPresent = 0x8000;
inline constexpr std::uint16_t kQueryFirewalled = 0x4000;
inline constexpr std::uint16_t kQueryWantsXml = 0x2000;
inline constexpr std::uint16_t kQueryLeafGuided = 0x1000;
inline constexpr std::uint16_t kQueryGgepH = 0x0800;
inline constexpr std::uint16_t kQueryOutOfBand = 0x0400;

struct Query {
    std::uint16_t flags = kQueryFlagsPresent;
    std::string text;
    std::vector<std::string> sha1s; // base32, upper case, from "urn:sha1:" extensions
    std::optional<GgepBlock> ggep;
    bool broken_ggep = false; // a GGEP magic byte began something that did not parse
};
std::optional<Query> ParseQuery(ByteView payload);
Bytes SerializeQuery(const Query& query);

struct HitResult {
    std::uint32_t index = 0;
    std::uint64_t size = 0; // the GGEP "LF" size when the 32-bit field cannot hold it
    std::string name;
    std::string sha1;  // base32 upper case, empty when the result named none
    std::string tiger; // Tiger tree root, 39 base32 characters, when the host sent one
    std::vector<Endpoint> alternates; // other hosts with the file (GGEP "ALT")
};

// The open-data flags of a hit trailer, as one host means them.
struct HitFlags {
    bool firewalled = false;
    bool busy = false;
    bool has_uploaded = false;
    bool speed_measured = false;
    bool ggep = false;
};

struct QueryHit {
    std::uint16_t port = 0;
    std::uint32_t ip = 0; // host order
    std::uint32_t speed = 0;
    std::vector<HitResult> results;
    std::string vendor; // four characters; empty when there was no trailer
    HitFlags flags;
    std::optional<GgepBlock> ggep;
    std::vector<Endpoint> push_proxies; // hosts that relay a Push to this one (GGEP "PUSH")
    Guid servent;

    Endpoint endpoint() const { return {ip, port}; }
};
std::optional<QueryHit> ParseQueryHit(ByteView payload);
// The servent GUID alone, without parsing results: what push routing needs.
std::optional<Guid> QueryHitServent(ByteView payload);
Bytes SerializeQueryHit(const QueryHit& hit);

// The two ways readers decode the open-data bytes: "B enables, A holds the push value; the
// rest the other way round" and "a flag is set when both bytes have it".
HitFlags ReadOpenDataByEnablers(std::uint8_t a, std::uint8_t b);
HitFlags ReadOpenDataByConjunction(std::uint8_t a, std::uint8_t b);
std::pair<std::uint8_t, std::uint8_t> WriteOpenData(const HitFlags& flags);

struct VendorMessage {
    std::string vendor;
    std::uint16_t selector = 0;
    std::uint16_t version = 0;
};
std::optional<VendorMessage> ParseVendorMessage(ByteView payload);

// The file hash forms deployed servents put in a hit's or query's extension area, read one item
// at a time: "urn:sha1:" and "urn:bitprint:" text, and the GGEP "H" extension (type 1: SHA1,
// type 2: SHA1 then the Tiger tree root).
struct FileHash {
    std::string sha1;  // base32 upper case
    std::string tiger; // base32 upper case, empty when the form carries none
};
std::optional<FileHash> ParseUrnText(std::string_view text);
std::optional<FileHash> ParseGgepHash(ByteView data);
// Packed IPv4 endpoints, six bytes each (address in network order, port little-endian), as the
// GGEP "ALT", "PUSH" and "IPP" extensions carry them. Unusable entries are skipped.
std::vector<Endpoint> ParsePackedEndpoints(ByteView data, std::size_t max);
Bytes PackEndpoints(const std::vector<Endpoint>& endpoints);

} // namespace corvid::gnutella
