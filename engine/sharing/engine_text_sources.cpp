#include "engine/sharing/engine_text_sources.h"

namespace corvid::gnutella {

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
    record.node = (peer.listen.IsValid() ? peer.listen : peer.remote).ToString();
    record.userAgent = peer.user_agent;
    record.handshakeTick = handshakeTick;
    switch (peer.kind) {
    case PeerKind::Ultrapeer:
        record.type = "Ultrapeer";
        break;
    case PeerKind::Leaf:
        record.type = "Leaf";
        break;
    default:
        record.type = "Handshaking";
        break;
    }
    record.in = std::to_string(peer.queries_received);
    record.out = std::to_string(peer.queries_sent);
    record.updateTick = updateTick;
    record.version = "0.6";
    return record;
}

} // namespace corvid::gnutella
