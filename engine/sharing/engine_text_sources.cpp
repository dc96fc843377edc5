#include "engine/sharing/engine_text_sources.h"

namespace corvid::gnutella {

namespace {

// The address people know a node by: where it listens when it told us, else where it came from.
std::string NodeOf(const PeerInfo& peer) {
    return (peer.listen.IsValid() ? peer.listen : peer.remote).ToString();
}

const char* KindText(PeerKind kind) {
    switch (kind) {
    case PeerKind::Ultrapeer:
        return "Ultrapeer";
    case PeerKind::Leaf:
        return "Leaf";
    default:
        return "Handshaking";
    }
}

// A peer's own words on one status line: clean, and not a paragraph.
std::string PeerWords(std::string_view text) {
    constexpr std::size_t kMostBytes = 100;
    return CleanText(text.substr(0, kMostBytes));
}

} // namespace

ResultHost ResultHostOf(const QueryHit& hit, std::string keyword, std::string type) {
    ResultHost host;
    host.keyword = std::move(keyword);
    host.type = std::move(type);
    host.nodeId = hit.servent.ToHex();
    host.ip = FormatIp(hit.ip);
    host.port = hit.port;
    host.speed = hit.speed;
    host.vendorCode = hit.vendor;
    host.firewalled = hit.flags.firewalled;
    return host;
}

std::vector<ResultFile> ResultFilesOf(const QueryHit& hit) {
    std::vector<ResultFile> files;
    files.reserve(hit.results.size());
    for (const auto& result : hit.results) {
        files.push_back({result.index, result.name, result.size, "", result.sha1});
    }
    return files;
}

HostRecord HostRecordOf(const PeerInfo& peer, std::uint32_t handshakeTick,
                        std::uint32_t updateTick) {
    HostRecord record;
    record.id = std::to_string(peer.id);
    record.node = NodeOf(peer);
    record.userAgent = peer.user_agent;
    record.handshakeTick = handshakeTick;
    record.type = KindText(peer.kind);
    record.in = std::to_string(peer.queries_received);
    record.out = std::to_string(peer.queries_sent);
    record.updateTick = updateTick;
    record.version = "0.6";
    return record;
}

std::string LinkOpenedText(const PeerInfo& peer) {
    std::string text = "Connected to " + NodeOf(peer) + " (" + KindText(peer.kind);
    if (!peer.user_agent.empty()) {
        text += ", " + PeerWords(peer.user_agent);
    }
    return text + ")";
}

std::string LinkClosedText(const PeerInfo& peer, std::string_view reason) {
    std::string text = "Link to " + NodeOf(peer) + " closed";
    if (!reason.empty()) {
        text += ": " + PeerWords(reason);
    }
    return text;
}

} // namespace corvid::gnutella
