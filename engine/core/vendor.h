// The vendor messages deployed servents exchange on every link: which ones each side reads
// ("Messages Supported"), how far queries may travel to a leaf ("hops flow"), a request to be
// connected back to (TCP connect-back), and the leaf's result count during a dynamic query
// (query status request and response). All travel as type 0x31 with TTL 1 and hops 0.
#pragma once

#include <optional>
#include <vector>

#include "engine/core/descriptor.h"

namespace corvid::gnutella {

// The vendor id these common messages are filed under on the wire.
inline constexpr std::string_view kCommonVendor = "BEAR";

enum class VendorSelector : std::uint16_t {
    MessagesSupported = 0,
    HopsFlow = 4,
    TcpConnectBack = 7,
    QueryStatusRequest = 11,
    QueryStatusResponse = 12,
};

// A leaf's answer meaning "stop: the user has closed this search".
inline constexpr std::uint16_t kQueryStatusStop = 0xFFFF;

struct VendorKind {
    std::string vendor;
    std::uint16_t selector = 0;
    std::uint16_t version = 0;

    friend bool operator==(const VendorKind&, const VendorKind&) = default;
    friend auto operator<=>(const VendorKind&, const VendorKind&) = default;
};

// The vendor messages this servent reads, as it lists them in its own "Messages Supported".
std::vector<VendorKind> OwnSupportedMessages();

Message MakeVendorMessage(const Guid& guid, VendorSelector selector, std::uint16_t version,
                          ByteView data);
// The data after the eight-byte vendor header, when the message is one of the common ones.
struct CommonVendorMessage {
    VendorSelector selector{};
    std::uint16_t version = 0;
    ByteView data;
};
std::optional<CommonVendorMessage> ParseCommonVendorMessage(ByteView payload);

// Count (2 bytes LE), then per entry vendor (4), selector (2 LE), version (2 LE).
Bytes MessagesSupportedData(const std::vector<VendorKind>& kinds);
std::optional<std::vector<VendorKind>> ParseMessagesSupported(ByteView data);

} // namespace corvid::gnutella
