#include "engine/core/vendor.h"

namespace corvid::gnutella {

namespace {
// More entries than any servent lists; a longer list is read no further.
constexpr std::size_t kMaxSupported = 256;

VendorKind Common(VendorSelector selector, std::uint16_t version) {
    return {std::string(kCommonVendor), static_cast<std::uint16_t>(selector), version};
}
} // namespace

std::vector<VendorKind> OwnSupportedMessages() {
    return {Common(VendorSelector::MessagesSupported, 0), Common(VendorSelector::HopsFlow, 1),
            Common(VendorSelector::TcpConnectBack, 1),
            Common(VendorSelector::QueryStatusRequest, 1),
            Common(VendorSelector::QueryStatusResponse, 1)};
}

Message MakeVendorMessage(const Guid& guid, VendorSelector selector, std::uint16_t version,
                          ByteView data) {
    Bytes payload;
    PutText(payload, kCommonVendor);
    PutU16Le(payload, static_cast<std::uint16_t>(selector));
    PutU16Le(payload, version);
    PutBytes(payload, data);
    return MakeMessage(guid, PayloadType::VendorMessage, 1, payload);
}

std::optional<CommonVendorMessage> ParseCommonVendorMessage(ByteView payload) {
    auto head = ParseVendorMessage(payload);
    if (!head || head->vendor != kCommonVendor)
        return std::nullopt;
    CommonVendorMessage out;
    out.selector = static_cast<VendorSelector>(head->selector);
    out.version = head->version;
    out.data = payload.subspan(8);
    return out;
}

Bytes MessagesSupportedData(const std::vector<VendorKind>& kinds) {
    Bytes out;
    PutU16Le(out, static_cast<std::uint16_t>(kinds.size()));
    for (const auto& kind : kinds) {
        PutText(out, (kind.vendor + "    ").substr(0, 4));
        PutU16Le(out, kind.selector);
        PutU16Le(out, kind.version);
    }
    return out;
}

std::optional<std::vector<VendorKind>> ParseMessagesSupported(ByteView data) {
    ByteReader r(data);
    std::size_t count = r.U16Le();
    if (!r.ok() || r.remaining() < count * 8)
        return std::nullopt;
    std::vector<VendorKind> out;
    for (std::size_t i = 0; i < count && i < kMaxSupported; ++i) {
        VendorKind kind;
        kind.vendor.assign(AsText(r.Take(4)));
        kind.selector = r.U16Le();
        kind.version = r.U16Le();
        out.push_back(std::move(kind));
    }
    return out;
}

} // namespace corvid::gnutella
