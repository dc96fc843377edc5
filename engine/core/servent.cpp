#include "engine/core/servent.h"

#include <algorithm>

namespace corvid::gnutella {

namespace {
constexpr std::size_t kResultsPerHit = 100;
constexpr std::size_t kHitPayloadBudget = 32768;
constexpr std::size_t kPongsPerPing = 10;
constexpr std::size_t kTryHosts = 10;
constexpr std::size_t kOutboxFlushSize = 16384;
constexpr std::size_t kOwnSearchesKept = 100;
constexpr std::size_t kMaxDynamicQueries = 1000;
constexpr std::uint8_t kMaxDynamicTtl = 3;
// Oversized messages of a kind that is always small (a query, a ping) a link may send; each is
// skipped unread. No servent sends such things, so a link sending a few is the one abusing us,
// and every one costs a full 64 KiB read.
constexpr int kOversizedBurst = 3;
constexpr std::chrono::seconds kOversizedRefill{60};

// The largest payload a well-made message of each kind needs, with room to spare: a query is a
// few words, URNs and a GGEP block or an XML text; pings, pongs and pushes carry at most a small
// GGEP block. Hits, query routing patches and vendor messages may use the framer's full limit.
std::size_t PayloadLimit(PayloadType type) {
    switch (type) {
    case PayloadType::Ping:
    case PayloadType::Pong:
    case PayloadType::Push:
    case PayloadType::Bye:
        return 4096;
    case PayloadType::Query:
        return 8192;
    default:
        return kMaxPayload;
    }
}

// Ultrapeers a query reaches through one link of the given degree at this TTL: the neighbour,
// then (degree - 1) more at each further hop.
std::uint64_t Horizon(int ttl, int degree) {
    std::uint64_t total = 0;
    std::uint64_t level = 1;
    for (int hop = 0; hop < ttl; ++hop) {
        total += level;
        level *= static_cast<std::uint64_t>(std::max(1, degree - 1));
    }
    return total;
}
} // namespace

struct Servent::DynamicQuery {
    Message message; // as it came, before TTL and hops changed
    Query query;
    PeerId origin = kLocalPeer;
    std::size_t target = 0;
    Clock::time_point started{};
    Clock::time_point next_step{};
    std::set<PeerId> queried;
    std::uint64_t hosts_reached = 0;
    std::size_t routed_results = 0;
    std::optional<std::size_t> reported; // by the leaf that asked, when it answers status
    bool stopped = false;
};

// Lets a peer spend `burst` messages at once and earns one back every `refill`.
struct TokenBucket {
    double tokens = 0;
    Clock::time_point refilled{};

    bool Take(Clock::time_point now, int burst, Clock::duration refill) {
        double earned =
            std::chrono::duration<double>(now - refilled) / std::chrono::duration<double>(refill);
        tokens = std::min<double>(burst, tokens + earned);
        refilled = now;
        if (tokens < 1)
            return false;
        tokens -= 1;
        return true;
    }
};

struct Servent::Peer {
    enum class State { AwaitingConnect, AwaitingResponse, AwaitingFinal, Open };

    PeerId id = 0;
    Endpoint remote;
    Endpoint listen;
    bool outgoing = false;
    State state = State::AwaitingConnect;
    PeerKind kind = PeerKind::Handshaking;
    bool closing = false;
    Clock::time_point since{};
    std::string user_agent;
    HeaderBlockReader reader;
    // The kind the handshake settled on, applied once the last step is through.
    PeerKind agreed = PeerKind::Handshaking;
    bool guided_to_leaf = false; // we told an ultrapeer to become our leaf
    bool send_compressed = false;
    bool receive_compressed = false;
    bool supports_qrp = false;
    std::uint8_t max_ttl = 7;
    std::unique_ptr<Inflater> inflater;
    std::unique_ptr<Deflater> deflater;
    Bytes outbox; // messages waiting for the end of the current event
    DescriptorFramer framer;
    std::unique_ptr<QrpReceiver> qrp;
    std::uint64_t qrp_revision_sent = 0;
    std::optional<Clock::time_point> qrp_sent_at;
    TokenBucket pings;
    TokenBucket leaf_queries;
    TokenBucket leaf_flood; // queries over the leaf's rate
    TokenBucket ultrapeer_queries;
    TokenBucket ultrapeer_flood; // queries over the neighbour's budget
    TokenBucket queries_out;     // what we send, kept under the budget we are held to
    TokenBucket pushes;
    TokenBucket broken_ggep;
    TokenBucket oversized;
    std::string close_reason;
    std::uint64_t queries_received = 0;
    std::uint64_t queries_sent = 0;
    bool vendor_messages = false; // said "Vendor-Message" in its handshake
    std::set<VendorKind> supported;
    std::uint8_t hops_flow = 255; // queries with more hops than this are not sent to it
    int degree = 6;               // its X-Degree: how wide a query spreads behind it
    bool connected_back = false;
    bool last_hop_qrp = false; // an ultrapeer that exchanges tables for queries at TTL 1
    std::uint64_t merged_table_sent = 0;
    std::optional<Clock::time_point> merged_table_sent_at;

    // Whether a query may go to this ultrapeer at TTL 1: no table yet means it may.
    bool LastHopAllows(const Query& query) const {
        if (!last_hop_qrp || !qrp || !qrp->table())
            return true;
        return qrp->table()->MatchesQuery(query.text, query.sha1s);
    }

    bool Supports(VendorSelector selector) const {
        for (const auto& kind : supported)
            if (kind.vendor == kCommonVendor &&
                kind.selector == static_cast<std::uint16_t>(selector))
                return true;
        return false;
    }
};

Servent::Servent(ServentConfig config, const SharedFileIndex& index, ServentTransport& transport,
                 std::function<Clock::time_point()> clock, std::uint64_t seed)
    : config_(std::move(config)), index_(index), transport_(transport), clock_(std::move(clock)),
      rng_(seed), servent_guid_(Guid::Random(rng_)),
      ultrapeer_(config_.network.node_mode != NodeMode::LeafPeer),
      ping_routes_(config_.route_lifetime, config_.route_table_entries),
      query_routes_(config_.route_lifetime, config_.route_table_entries),
      push_routes_(config_.route_lifetime, config_.route_table_entries),
      hosts_(1000, config_.allow_private_addresses), resting_(config_.abuse_rest) {}

Servent::~Servent() = default;

Servent::Peer* Servent::Find(PeerId id) {
    auto it = peers_.find(id);
    if (it == peers_.end() || it->second->closing)
        return nullptr;
    return it->second.get();
}

Servent::Peer& Servent::NewPeer(PeerId id, const Endpoint& remote, bool outgoing) {
    auto peer = std::make_unique<Peer>();
    peer->id = id;
    peer->remote = remote;
    peer->outgoing = outgoing;
    peer->since = clock_();
    peer->pings = {static_cast<double>(config_.ping_burst), peer->since};
    peer->leaf_queries = {static_cast<double>(config_.leaf_query_burst), peer->since};
    peer->leaf_flood = {static_cast<double>(config_.leaf_flood_burst), peer->since};
    peer->ultrapeer_queries = {static_cast<double>(config_.ultrapeer_query_burst), peer->since};
    peer->ultrapeer_flood = {static_cast<double>(config_.ultrapeer_flood_burst), peer->since};
    peer->queries_out = {static_cast<double>(config_.ultrapeer_query_burst), peer->since};
    peer->pushes = {static_cast<double>(config_.push_burst), peer->since};
    peer->broken_ggep = {static_cast<double>(config_.broken_ggep_burst), peer->since};
    peer->oversized = {static_cast<double>(kOversizedBurst), peer->since};
    auto& ref = *peer;
    peers_.emplace(ref.id, std::move(peer));
    return ref;
}

void Servent::Accepted(PeerId id, const Endpoint& remote) {
    auto& peer = NewPeer(id, remote, false);
    peer.state = Peer::State::AwaitingConnect;
}

void Servent::Connected(PeerId id, const Endpoint& remote) {
    dialing_.erase(remote);
    auto& peer = NewPeer(id, remote, true);
    peer.state = Peer::State::AwaitingResponse;
    SendRaw(peer, FormatHeaderBlock("GNUTELLA CONNECT/0.6", CommonHeaders(peer)));
}

void Servent::DialFailed(const Endpoint& remote) {
    dialing_.erase(remote);
    hosts_.Rest(remote, clock_() + config_.refused_host_rest);
}

void Servent::Lost(PeerId id, std::string_view reason) {
    auto it = peers_.find(id);
    if (it == peers_.end() || it->second->closing)
        return;
    it->second->closing = true;
    it->second->close_reason = reason;
    doomed_.push_back(id);
    Settle();
}

void Servent::Received(PeerId id, ByteView bytes) {
    if (auto* peer = Find(id))
        Consume(*peer, bytes);
    Settle();
}

void Servent::Consume(Peer& peer, ByteView bytes) {
    if (peer.state == Peer::State::Open)
        ReceiveBinary(peer, bytes);
    else
        ReceiveHandshake(peer, bytes);
}

void Servent::ReceiveHandshake(Peer& peer, ByteView bytes) {
    std::size_t used = 0;
    auto status = peer.reader.Feed(bytes, &used);
    if (status == HeaderBlockReader::Status::NeedMore)
        return;
    if (status == HeaderBlockReader::Status::Error) {
        DropForAbuse(peer, 400, "Bad handshake");
        return;
    }
    HeaderBlock block = peer.reader.block();
    peer.reader = HeaderBlockReader();
    switch (peer.state) {
    case Peer::State::AwaitingConnect:
        OnConnectBlock(peer, block);
        break;
    case Peer::State::AwaitingResponse:
        OnResponseBlock(peer, block);
        break;
    case Peer::State::AwaitingFinal:
        OnFinalBlock(peer, block);
        break;
    case Peer::State::Open:
        break;
    }
    // Whatever followed the header block on the wire belongs to the next stage.
    if (!peer.closing && used < bytes.size())
        Consume(peer, bytes.subspan(used));
}

std::vector<std::pair<std::string, std::string>> Servent::CommonHeaders(const Peer& peer) const {
    std::vector<std::pair<std::string, std::string>> h;
    h.emplace_back("User-Agent", config_.user_agent);
    h.emplace_back("X-Ultrapeer", ultrapeer_ ? "True" : "False");
    h.emplace_back("X-Query-Routing", "0.1");
    h.emplace_back("X-Max-TTL", std::to_string(config_.max_ttl));
    h.emplace_back("X-Degree", std::to_string(config_.network.ultrapeer_max_count));
    h.emplace_back("Pong-Caching", "0.1");
    h.emplace_back("GGEP", "0.5");
    h.emplace_back("Bye-Packet", "0.1");
    h.emplace_back("Vendor-Message", "0.1");
    if (ultrapeer_) {
        h.emplace_back("X-Dynamic-Querying", "0.1");
        h.emplace_back("X-Ultrapeer-Query-Routing", "0.1");
    }
    if (config_.listen.IsValid())
        h.emplace_back("Listen-IP", config_.listen.ToString());
    std::string remote = peer.remote.ToString();
    h.emplace_back("Remote-IP", remote.substr(0, remote.find(':')));
    if (config_.compress_links)
        h.emplace_back("Accept-Encoding", "deflate");
    return h;
}

std::vector<Endpoint> Servent::TryHosts() const {
    std::vector<Endpoint> out;
    for (const auto& [id, peer] : peers_)
        if (peer->kind == PeerKind::Ultrapeer && peer->listen.IsValid() && out.size() < kTryHosts)
            out.push_back(peer->listen);
    for (const auto& host : hosts_.Sample(kTryHosts))
        if (out.size() < kTryHosts && std::find(out.begin(), out.end(), host) == out.end())
            out.push_back(host);
    return out;
}

void Servent::LearnAddress(const HeaderBlock& block) {
    if (config_.listen.ip != 0)
        return;
    if (auto remote_ip = block.Get("Remote-IP"))
        if (auto ep = ParseEndpoint(*remote_ip, config_.listen.port))
            config_.listen.ip = ep->ip;
}

void Servent::ReadCapabilities(Peer& peer, const HeaderBlock& block) {
    peer.supports_qrp = block.Has("X-Query-Routing");
    if (auto ttl = block.Get("X-Max-TTL"))
        peer.max_ttl = static_cast<std::uint8_t>(std::clamp(std::atoi(ttl->c_str()), 1, 7));
    peer.vendor_messages = block.Has("Vendor-Message");
    peer.last_hop_qrp = block.Has("X-Ultrapeer-Query-Routing");
    if (auto degree = block.Get("X-Degree"))
        peer.degree = std::clamp(std::atoi(degree->c_str()), 1, 200);
}

void Servent::OnConnectBlock(Peer& peer, const HeaderBlock& block) {
    if (!block.is_connect) {
        Drop(peer, 400, "Bad handshake");
        return;
    }
    if (Resting(peer.remote)) {
        // Told plainly, so an honest servent that misbehaved by mistake knows why.
        ++stats_.handshakes_refused_resting;
        SendRaw(peer, FormatHeaderBlock("GNUTELLA/0.6 503 Resting after abuse", {}));
        Drop(peer, 0, "Resting after abuse");
        return;
    }
    peer.user_agent = block.Get("User-Agent").value_or("");
    if (auto listen = block.Get("Listen-IP").value_or(block.Get("X-My-Address").value_or(""));
        !listen.empty())
        if (auto ep = ParseEndpoint(listen))
            peer.listen = *ep;
    LearnAddress(block);
    ReadCapabilities(peer, block);
    if (!KeepOneOfTwins(peer))
        return;
    bool remote_ultrapeer = block.IsTrue("X-Ultrapeer");
    int ultrapeers = CountPeers(PeerKind::Ultrapeer);
    int leaves = CountPeers(PeerKind::Leaf);
    bool up_room = ultrapeers < config_.network.ultrapeer_max_count;
    bool leaf_room = leaves < config_.network.leaf_peer_max_count;

    auto headers = CommonHeaders(peer);
    std::string reason;
    if (!ultrapeer_) {
        reason = "Shielded leaf";
    } else if (remote_ultrapeer) {
        if (up_room) {
            peer.agreed = PeerKind::Ultrapeer;
        } else if (leaf_room && peer.supports_qrp) {
            // Full of ultrapeers but with room for leaves: ask this one to be our leaf.
            peer.agreed = PeerKind::Leaf;
            peer.guided_to_leaf = true;
        } else {
            reason = "Ultrapeer slots full";
        }
    } else if (leaf_room && peer.supports_qrp) {
        peer.agreed = PeerKind::Leaf;
    } else {
        reason = leaf_room ? "Query routing required" : "Leaf slots full";
    }
    if (ultrapeer_)
        headers.emplace_back("X-Ultrapeer-Needed", peer.guided_to_leaf ? "false" : "true");
    if (auto tries = TryHosts(); !tries.empty())
        headers.emplace_back("X-Try-Ultrapeers", FormatTryList(tries));
    if (!reason.empty()) {
        SendRaw(peer, FormatHeaderBlock("GNUTELLA/0.6 503 " + reason, headers));
        Drop(peer, 0, reason);
        return;
    }
    if (config_.compress_links && block.HasToken("Accept-Encoding", "deflate")) {
        headers.emplace_back("Content-Encoding", "deflate");
        peer.send_compressed = true;
    }
    SendRaw(peer, FormatHeaderBlock("GNUTELLA/0.6 200 OK", headers));
    peer.state = Peer::State::AwaitingFinal;
}

void Servent::OnResponseBlock(Peer& peer, const HeaderBlock& block) {
    for (const char* name : {"X-Try-Ultrapeers", "X-Try"})
        if (auto list = block.Get(name))
            for (const auto& host : ParseTryList(*list))
                hosts_.Add(host);
    if (block.is_connect || block.code != 200) {
        // Refused: keep the try-list, let this host rest, never redial at once.
        hosts_.Rest(peer.remote, clock_() + config_.refused_host_rest);
        Drop(peer, 0, "Refused");
        return;
    }
    peer.user_agent = block.Get("User-Agent").value_or("");
    peer.listen = peer.remote;
    LearnAddress(block);
    ReadCapabilities(peer, block);
    if (!KeepOneOfTwins(peer))
        return;
    bool remote_ultrapeer = block.IsTrue("X-Ultrapeer");
    std::vector<std::pair<std::string, std::string>> headers;
    if (!remote_ultrapeer) {
        if (!ultrapeer_ || CountPeers(PeerKind::Leaf) >= config_.network.leaf_peer_max_count) {
            SendRaw(peer, FormatHeaderBlock("GNUTELLA/0.6 503 Not an ultrapeer", {}));
            Drop(peer, 0, "Not an ultrapeer");
            return;
        }
        peer.agreed = PeerKind::Leaf;
    } else {
        peer.agreed = PeerKind::Ultrapeer;
        bool guided = block.IsFalse("X-Ultrapeer-Needed");
        if (ultrapeer_ && guided && config_.network.node_mode == NodeMode::Automatic &&
            CountPeers(PeerKind::Leaf) == 0) {
            ultrapeer_ = false;
            headers.emplace_back("X-Ultrapeer", "False");
        } else if (ultrapeer_ &&
                   CountPeers(PeerKind::Ultrapeer) >= config_.network.ultrapeer_max_count) {
            SendRaw(peer, FormatHeaderBlock("GNUTELLA/0.6 503 Ultrapeer slots full", {}));
            Drop(peer, 0, "Ultrapeer slots full");
            return;
        } else if (!ultrapeer_ &&
                   CountPeers(PeerKind::Ultrapeer) >= config_.network.peer_max_count) {
            SendRaw(peer, FormatHeaderBlock("GNUTELLA/0.6 503 Enough ultrapeers", {}));
            Drop(peer, 0, "Enough ultrapeers");
            return;
        }
    }
    if (config_.compress_links && block.HasToken("Accept-Encoding", "deflate")) {
        headers.emplace_back("Content-Encoding", "deflate");
        peer.send_compressed = true;
    }
    peer.receive_compressed = block.HasToken("Content-Encoding", "deflate");
    SendRaw(peer, FormatHeaderBlock("GNUTELLA/0.6 200 OK", headers));
    Open(peer);
}

void Servent::OnFinalBlock(Peer& peer, const HeaderBlock& block) {
    if (block.is_connect || block.code != 200) {
        Drop(peer, 0, "Handshake refused");
        return;
    }
    if (peer.guided_to_leaf && !block.IsFalse("X-Ultrapeer")) {
        Drop(peer, 0, "Ultrapeer slots full");
        return;
    }
    peer.receive_compressed = block.HasToken("Content-Encoding", "deflate");
    Open(peer);
}

void Servent::Open(Peer& peer) {
    peer.state = Peer::State::Open;
    peer.kind = peer.agreed;
    transport_.HandshakeDone(peer.id);
    if (peer.send_compressed)
        peer.deflater = std::make_unique<Deflater>();
    if (peer.receive_compressed)
        peer.inflater = std::make_unique<Inflater>();
    bool last_hop = ultrapeer_ && peer.kind == PeerKind::Ultrapeer && peer.last_hop_qrp;
    // A last-hop neighbour's first table goes at the next tick, once our leaves' have come.
    if (peer.kind == PeerKind::Leaf || last_hop)
        peer.qrp = std::make_unique<QrpReceiver>();
    if (peer.listen.IsValid() && peer.kind == PeerKind::Ultrapeer)
        hosts_.Add(peer.listen);
    if (observer_)
        Notify([&] { observer_->OnPeerOpened(Describe(peer)); });
    if (!ultrapeer_ && peer.kind == PeerKind::Ultrapeer && peer.supports_qrp)
        SendQrp(peer);
    if (peer.vendor_messages)
        SendMessage(peer, MakeVendorMessage(Guid::Random(rng_), VendorSelector::MessagesSupported,
                                            0, MessagesSupportedData(OwnSupportedMessages())));
    // A first ping fills our host cache from the peer's pong cache.
    Bytes ping;
    auto guid = Guid::Random(rng_);
    ping_routes_.Insert(guid, kLocalPeer, clock_());
    SendMessage(peer, MakeMessage(guid, PayloadType::Ping, 2, ping));
}

void Servent::ReceiveBinary(Peer& peer, ByteView bytes) {
    auto feed = [&](ByteView piece) {
        if (peer.closing)
            return false;
        auto status = peer.framer.Feed(piece, [&](Message&& message) {
            if (!peer.closing)
                Dispatch(peer, std::move(message));
        });
        if (status == DescriptorFramer::Status::PayloadTooLarge) {
            DropForAbuse(peer, 400, "Too big");
            return false;
        }
        return !peer.closing;
    };
    if (!peer.inflater) {
        feed(bytes);
        return;
    }
    if (!peer.inflater->Decompress(bytes, feed) && !peer.closing) {
        DropForAbuse(peer, 400, "Broken deflate stream");
    }
}

void Servent::Dispatch(Peer& peer, Message&& message) {
    auto& h = message.header;
    if (h.hops >= kMaxTtlPlusHops && h.type != static_cast<std::uint8_t>(PayloadType::QueryHit))
        return;
    if (h.ttl + h.hops > kMaxTtlPlusHops)
        h.ttl = static_cast<std::uint8_t>(kMaxTtlPlusHops - std::min<int>(h.hops, kMaxTtlPlusHops));
    if (message.payload.size() > PayloadLimit(message.type())) {
        if (!peer.oversized.Take(clock_(), kOversizedBurst, kOversizedRefill)) {
            DropForAbuse(peer, 400, "Oversized messages");
        }
        return;
    }
    switch (message.type()) {
    case PayloadType::Ping:
        OnPing(peer, message);
        break;
    case PayloadType::Pong:
        OnPong(peer, message);
        break;
    case PayloadType::Bye: {
        auto bye = ParseBye(message.payload);
        Drop(peer, 0,
             bye ? "Bye " + std::to_string(bye->code) + " " + bye->reason.substr(0, 100) : "Bye");
        break;
    }
    case PayloadType::RouteTable:
        OnRouteTable(peer, message);
        break;
    case PayloadType::Push:
        OnPush(peer, message);
        break;
    case PayloadType::Query:
        OnQuery(peer, message);
        break;
    case PayloadType::QueryHit:
        OnQueryHit(peer, message);
        break;
    case PayloadType::VendorMessage:
    case PayloadType::VendorMessageStable:
        OnVendorMessage(peer, message);
        break;
    default:
        // Unknown types are skipped, never forwarded.
        break;
    }
}

void Servent::OnPing(Peer& peer, Message& message) {
    auto now = clock_();
    if (!peer.pings.Take(now, config_.ping_burst, config_.ping_refill)) {
        DropForAbuse(peer, 409, "Ping flood");
        return;
    }
    if (!ping_routes_.Insert(message.header.guid, peer.id, now)) {
        ++stats_.duplicates_dropped;
        return;
    }
    auto reply_ttl = static_cast<std::uint8_t>(std::min<int>(message.header.hops + 1, 7));
    SendMessage(peer, MakeMessage(message.header.guid, PayloadType::Pong, reply_ttl,
                                  SerializePong(OwnPong())));
    // Ultrapeers answer for the network from their pong cache instead of flooding the ping.
    if (ultrapeer_ && message.header.ttl > 1) {
        std::size_t sent = 0;
        for (const auto& pong : pong_cache_) {
            if (sent == kPongsPerPing)
                break;
            if (pong.endpoint() == peer.listen)
                continue;
            SendMessage(peer, MakeMessage(message.header.guid, PayloadType::Pong, reply_ttl,
                                          SerializePong(pong)));
            ++sent;
        }
    }
}

void Servent::OnPong(Peer& peer, Message& message) {
    auto pong = ParsePong(message.payload);
    if (!pong || (pong->broken_ggep && !TolerateBrokenGgep(peer)))
        return;
    auto route = ping_routes_.Find(message.header.guid, clock_());
    if (!route)
        return;
    if (*route != kLocalPeer) {
        if (auto* target = Find(*route); target && message.header.ttl > 1) {
            --message.header.ttl;
            ++message.header.hops;
            SendMessage(*target, message);
        }
        return;
    }
    auto host = pong->endpoint();
    bool usable = host.IsValid() && (config_.allow_private_addresses || host.IsRoutable());
    // A leaf only ever tells us about itself, and leaves take no incoming links: not worth a dial.
    if (!usable || host == config_.listen || peer.kind == PeerKind::Leaf)
        return;
    hosts_.Add(host);
    if (ultrapeer_) {
        std::erase_if(pong_cache_, [&](const Pong& p) { return p.endpoint() == host; });
        pong_cache_.push_front(*pong);
        if (pong_cache_.size() > config_.pong_cache_size)
            pong_cache_.pop_back();
    }
}

void Servent::OnRouteTable(Peer& peer, Message& message) {
    if (!peer.qrp)
        return; // last-hop tables between ultrapeers: not used here
    auto result = peer.qrp->Apply(message.payload);
    if (result == QrpReceiver::Result::TooLarge) {
        DropForAbuse(peer, 400, "Query routing table too big");
    } else if (result == QrpReceiver::Result::Error) {
        DropForAbuse(peer, 400, "Bad query routing table");
    } else if (result == QrpReceiver::Result::Complete && peer.kind == PeerKind::Leaf) {
        ++leaf_tables_changed_;
        if (observer_)
            Notify([&] { observer_->OnQrpTableComplete(peer.id); });
    }
}

void Servent::OnPush(Peer& peer, Message& message) {
    // Counted before anything is read: a storm of pushes nobody can route costs as much as one
    // of pushes we relay.
    if (!peer.pushes.Take(clock_(), config_.push_burst, config_.push_refill)) {
        DropForAbuse(peer, 409, "Push flood");
        return;
    }
    auto push = ParsePush(message.payload);
    if (!push)
        return;
    if (push->servent == servent_guid_) {
        if (observer_)
            Notify([&] { observer_->OnPushRequest(*push); });
        return;
    }
    auto route = push_routes_.Find(push->servent, clock_());
    if (!route || *route == peer.id || message.header.ttl <= 1)
        return;
    if (auto* target = Find(*route)) {
        --message.header.ttl;
        ++message.header.hops;
        SendMessage(*target, message);
    }
}

void Servent::OnQuery(Peer& peer, Message& message) {
    ++peer.queries_received;
    auto now = clock_();
    // A leaf searches for one user; more than that is a flood, dropped before it costs anyone.
    if (peer.kind == PeerKind::Leaf &&
        !peer.leaf_queries.Take(now, config_.leaf_query_burst, config_.leaf_query_refill)) {
        ++stats_.queries_dropped_for_rate;
        if (!peer.leaf_flood.Take(now, config_.leaf_flood_burst, config_.leaf_flood_refill)) {
            DropForAbuse(peer, 409, "Query flood");
        }
        return;
    }
    // A neighbour relays many servents' queries: a budget that a busy one stays under.
    if (peer.kind == PeerKind::Ultrapeer &&
        !peer.ultrapeer_queries.Take(now, config_.ultrapeer_query_burst,
                                     config_.ultrapeer_query_refill)) {
        ++stats_.queries_dropped_for_rate;
        if (!peer.ultrapeer_flood.Take(now, config_.ultrapeer_flood_burst,
                                       config_.ultrapeer_flood_refill))
            DropForAbuse(peer, 409, "Query flood");
        return;
    }
    if (!query_routes_.Insert(message.header.guid, peer.id, now)) {
        ++stats_.duplicates_dropped;
        return;
    }
    auto query = ParseQuery(message.payload);
    if (!query || (query->broken_ggep && !TolerateBrokenGgep(peer)))
        return;
    // Passed on as it was, the broken block would get us dropped by neighbours who count them.
    if (query->broken_ggep)
        message.payload = SerializeQuery(*query);
    ++stats_.queries_handled;
    AnswerQuery(peer, message, *query);
    if (!ultrapeer_)
        return;
    if (peer.kind == PeerKind::Leaf) {
        // Our leaf's query: its fellow leaves hear it now, the network step by step.
        RouteQuery(message, *query, peer.id, true);
        StartDynamicQuery(message, *query, peer.id, config_.leaf_query_target);
        return;
    }
    RouteQuery(message, *query, peer.id, false);
}

void Servent::AnswerQuery(Peer& peer, const Message& message, const Query& query) {
    auto keywords = SplitKeywords(query.text);
    if (query.text == "\\")
        keywords.clear();
    if (keywords.empty() && query.sha1s.empty())
        return;
    auto files = index_.Match(keywords, query.sha1s, config_.max_results_per_query);
    if (files.empty())
        return;
    QueryHit hit;
    hit.port = config_.listen.port;
    hit.ip = config_.listen.ip;
    hit.speed = config_.speed_kbps;
    hit.vendor = "CRVD";
    hit.flags.firewalled = config_.firewalled;
    hit.servent = servent_guid_;
    if (config_.advertise_browse_host) {
        hit.ggep.emplace();
        hit.ggep->extensions.push_back({"BH", {}, false, false});
    }
    auto reply_ttl = static_cast<std::uint8_t>(std::min<int>(message.header.hops + 2, 7));
    std::size_t budget = 0;
    auto flush = [&] {
        if (hit.results.empty())
            return;
        SendMessage(peer, MakeMessage(message.header.guid, PayloadType::QueryHit, reply_ttl,
                                      SerializeQueryHit(hit)));
        hit.results.clear();
        budget = 0;
    };
    for (auto& file : files) {
        std::size_t cost = 10 + file.name.size() + 9 + file.sha1.size();
        if (hit.results.size() == kResultsPerHit || budget + cost > kHitPayloadBudget)
            flush();
        budget += cost;
        hit.results.push_back(
            {file.index, file.size, std::move(file.name), std::move(file.sha1), "", {}});
    }
    flush();
}

void Servent::RouteQuery(const Message& message, const Query& query, PeerId from,
                         bool leaves_only) {
    Message out = message;
    int ttl = message.header.ttl - 1;
    out.header.hops = static_cast<std::uint8_t>(message.header.hops + 1);
    for (auto& [id, target] : peers_) {
        if (id == from || target->closing || target->state != Peer::State::Open)
            continue;
        if (target->kind == PeerKind::Ultrapeer) {
            if (leaves_only)
                continue;
            int capped = std::min<int>(ttl, target->max_ttl);
            if (capped <= 0)
                continue;
            if (capped == 1 && !target->LastHopAllows(query)) {
                ++stats_.queries_blocked_by_qrp;
                continue;
            }
            if (!MaySendQuery(*target))
                continue;
            out.header.ttl = static_cast<std::uint8_t>(capped);
        } else if (target->kind == PeerKind::Leaf) {
            // A leaf is reached only when its table says it may answer; it never forwards.
            const auto& table = target->qrp ? target->qrp->table() : std::nullopt;
            if (!table || !table->MatchesQuery(query.text, query.sha1s)) {
                ++stats_.queries_blocked_by_qrp;
                continue;
            }
            if (out.header.hops > target->hops_flow || !MaySendQuery(*target))
                continue;
            out.header.ttl = 1;
        } else {
            continue;
        }
        SendMessage(*target, out);
        ++target->queries_sent;
        ++stats_.queries_forwarded;
    }
}

void Servent::OnQueryHit(Peer& peer, Message& message) {
    auto servent = QueryHitServent(message.payload);
    if (!servent) {
        ++stats_.hits_dropped_unroutable;
        return;
    }
    auto now = clock_();
    auto route = query_routes_.Find(message.header.guid, now);
    if (!route) {
        ++stats_.hits_dropped_unroutable;
        return;
    }
    if (*servent != servent_guid_)
        push_routes_.Update(*servent, peer.id, now);
    if (auto dq = dynamic_.find(message.header.guid); dq != dynamic_.end())
        dq->second.routed_results += message.payload.empty() ? 0 : message.payload[0];
    if (*route == kLocalPeer) {
        if (auto own = searches_.find(message.header.guid);
            own != searches_.end() && !message.payload.empty())
            own->second.results += message.payload[0];
        if (auto hit = ParseQueryHit(message.payload); hit && observer_)
            Notify([&] { observer_->OnSearchHit(message.header.guid, *hit); });
        return;
    }
    auto* target = Find(*route);
    if (!target || message.header.ttl <= 1) {
        ++stats_.hits_dropped_unroutable;
        return;
    }
    --message.header.ttl;
    ++message.header.hops;
    SendMessage(*target, message);
    ++stats_.hits_routed;
}

Pong Servent::OwnPong() const {
    Pong pong;
    pong.port = config_.listen.port;
    pong.ip = config_.listen.ip;
    std::uint64_t kilobytes = 0;
    auto files = index_.All();
    for (const auto& f : files)
        kilobytes += f.size / 1024;
    pong.files = static_cast<std::uint32_t>(files.size());
    pong.kilobytes = static_cast<std::uint32_t>(std::min<std::uint64_t>(kilobytes, 0xFFFFFFFFu));
    if (ultrapeer_) {
        auto free_up =
            std::max(0, config_.network.ultrapeer_max_count - CountPeers(PeerKind::Ultrapeer));
        auto free_leaf =
            std::max(0, config_.network.leaf_peer_max_count - CountPeers(PeerKind::Leaf));
        pong.ggep.emplace();
        pong.ggep->extensions.push_back({"UP",
                                         {0x01, static_cast<std::uint8_t>(std::min(free_up, 255)),
                                          static_cast<std::uint8_t>(std::min(free_leaf, 255))},
                                         false,
                                         false});
    }
    return pong;
}

void Servent::SendMessage(Peer& peer, const Message& message) {
    if (peer.closing)
        return;
    if (peer.outbox.empty())
        dirty_.push_back(peer.id);
    PutBytes(peer.outbox, SerializeMessage(message));
    if (peer.outbox.size() >= kOutboxFlushSize)
        FlushPeer(peer);
}

// Everything one event produced for a peer goes out as one write, and on a compressed link as
// one deflate call ending in a sync flush.
void Servent::FlushPeer(Peer& peer) {
    if (peer.outbox.empty())
        return;
    Bytes bytes;
    if (peer.deflater) {
        if (!peer.deflater->Compress(peer.outbox, bytes)) {
            peer.outbox.clear();
            peer.deflater.reset();
            Drop(peer, 0, "Compression failed");
            return;
        }
        peer.outbox.clear();
    } else {
        bytes = std::move(peer.outbox);
        peer.outbox = {};
    }
    transport_.Send(peer.id, std::move(bytes));
}

void Servent::SendRaw(Peer& peer, std::string_view text) {
    FlushPeer(peer);
    transport_.Send(peer.id, Bytes(text.begin(), text.end()));
}

void Servent::SendQrp(Peer& peer) {
    // Read before the files: a change while the table is built is then sent again.
    peer.qrp_revision_sent = index_.Revision();
    QueryRouteTable table;
    for (const auto& file : index_.All()) {
        for (const auto& word : TableKeywords(file.name))
            table.Add(word);
        if (!file.sha1.empty())
            table.Add(ToLowerAscii("urn:sha1:" + file.sha1));
    }
    peer.qrp_sent_at = clock_();
    for (auto& payload : BuildQrpUpdate(table)) {
        Message m = MakeMessage(Guid::Random(rng_), PayloadType::RouteTable, 1, payload);
        SendMessage(peer, m);
    }
}

std::uint64_t Servent::MergedTableStamp() const {
    return index_.Revision() * 1000003u + leaf_tables_changed_;
}

void Servent::NoteTableChanges(Clock::time_point now) {
    if (auto own = index_.Revision(); own != own_table_seen_) {
        own_table_seen_ = own;
        own_table_changed_ = now;
    }
    if (auto merged = MergedTableStamp(); merged != merged_table_seen_) {
        merged_table_seen_ = merged;
        merged_table_changed_ = now;
    }
}

bool Servent::TableDue(std::uint64_t sent, std::optional<Clock::time_point> sent_at,
                       std::uint64_t current, Clock::time_point changed_at,
                       Clock::time_point now) const {
    if (sent == current)
        return false;
    if (!sent_at)
        return true;
    auto since_sent = now - *sent_at;
    if (since_sent < config_.qrp_min_interval)
        return false;
    return now - changed_at >= config_.qrp_settle || since_sent >= config_.qrp_resend_interval;
}

void Servent::SendMergedQrp(Peer& peer) {
    peer.merged_table_sent = MergedTableStamp();
    QueryRouteTable table;
    for (const auto& file : index_.All()) {
        for (const auto& word : TableKeywords(file.name))
            table.Add(word);
        if (!file.sha1.empty())
            table.Add(ToLowerAscii("urn:sha1:" + file.sha1));
    }
    for (const auto& [id, leaf] : peers_)
        if (!leaf->closing && leaf->kind == PeerKind::Leaf && leaf->qrp && leaf->qrp->table())
            table.MergeFrom(*leaf->qrp->table());
    peer.merged_table_sent_at = clock_();
    for (auto& payload : BuildQrpUpdate(table))
        SendMessage(peer, MakeMessage(Guid::Random(rng_), PayloadType::RouteTable, 1, payload));
}

// A message with a broken GGEP block is still used for what it says around it, unless the link
// has sent too many of them; then it goes.
bool Servent::TolerateBrokenGgep(Peer& peer) {
    if (peer.broken_ggep.Take(clock_(), config_.broken_ggep_burst, config_.broken_ggep_refill))
        return true;
    DropForAbuse(peer, 400, "Broken GGEP");
    return false;
}

void Servent::Drop(Peer& peer, std::uint16_t code, std::string_view reason) {
    if (peer.closing)
        return;
    peer.close_reason = reason;
    if (code != 0 && peer.state == Peer::State::Open)
        SendMessage(peer, MakeMessage(Guid::Random(rng_), PayloadType::Bye, 1,
                                      SerializeBye({code, std::string(reason)})));
    FlushPeer(peer);
    peer.closing = true;
    transport_.Close(peer.id);
    doomed_.push_back(peer.id);
}

bool Servent::MaySendQuery(Peer& target) {
    if (target.queries_out.Take(clock_(), config_.ultrapeer_query_burst,
                                config_.ultrapeer_query_refill))
        return true;
    ++stats_.queries_held_back;
    return false;
}

void Servent::DropForAbuse(Peer& peer, std::uint16_t code, std::string_view reason) {
    if (peer.closing)
        return;
    ++stats_.peers_dropped_for_abuse;
    if (peer.remote.ip != 0)
        resting_.Offend(peer.remote.ip, clock_());
    Drop(peer, code, reason);
}

bool Servent::Resting(const Endpoint& host) {
    return host.ip != 0 && resting_.RestingUntil(host.ip, clock_()).has_value();
}

void Servent::Settle() {
    // An observer that calls back into us must not pull peers out from under the caller.
    if (notifying_ > 0)
        return;
    for (PeerId id : dirty_)
        if (auto* peer = Find(id))
            FlushPeer(*peer);
    dirty_.clear();
    while (!doomed_.empty()) {
        PeerId id = doomed_.back();
        doomed_.pop_back();
        auto gone = peers_.find(id);
        if (gone == peers_.end())
            continue;
        if (gone->second->kind == PeerKind::Leaf)
            ++leaf_tables_changed_;
        if (observer_) {
            auto info = Describe(*gone->second);
            auto reason = std::move(gone->second->close_reason);
            Notify([&] { observer_->OnPeerDropped(info, reason); });
        }
        peers_.erase(gone);
        ping_routes_.ForgetPeer(id);
        query_routes_.ForgetPeer(id);
        push_routes_.ForgetPeer(id);
        if (observer_)
            Notify([&] { observer_->OnPeerClosed(id); });
    }
}

template <typename F> void Servent::Notify(F&& call) {
    ++notifying_;
    call();
    --notifying_;
}

int Servent::CountPeers(PeerKind kind) const {
    int n = 0;
    for (const auto& [id, peer] : peers_)
        if (!peer->closing && peer->kind == kind)
            ++n;
    return n;
}

void Servent::TrimLinks(PeerKind kind, int keep, std::string_view reason) {
    int excess = CountPeers(kind) - std::max(keep, 0);
    // Peer ids only grow, so walking back from the end meets the newest links first.
    for (auto it = peers_.rbegin(); it != peers_.rend() && excess > 0; ++it) {
        Peer& peer = *it->second;
        if (!peer.closing && peer.kind == kind) {
            Drop(peer, 200, reason);
            --excess;
        }
    }
}

void Servent::SetLinkCounts(const NetworkSettings& counts) {
    NetworkSettings& mine = config_.network;
    mine.peer_max_count = counts.peer_max_count;
    mine.ultrapeer_max_count = counts.ultrapeer_max_count;
    mine.ultrapeer_min_count = std::min(counts.ultrapeer_min_count, counts.ultrapeer_max_count);
    mine.leaf_peer_max_count = counts.leaf_peer_max_count;
    constexpr std::string_view kReason = "Fewer links wanted";
    if (ultrapeer_) {
        TrimLinks(PeerKind::Ultrapeer, mine.ultrapeer_max_count, kReason);
        TrimLinks(PeerKind::Leaf, mine.leaf_peer_max_count, kReason);
    } else {
        TrimLinks(PeerKind::Ultrapeer, mine.peer_max_count, kReason);
    }
    Settle();
}

int Servent::CountPendingUltrapeers() const {
    int n = static_cast<int>(dialing_.size());
    for (const auto& [id, peer] : peers_)
        if (!peer->closing && peer->outgoing && peer->state != Peer::State::Open)
            ++n;
    return n;
}

bool Servent::Linked(const Endpoint& host) const {
    if (host == config_.listen || dialing_.count(host))
        return true;
    for (const auto& [id, peer] : peers_)
        if (!peer->closing && ((peer->outgoing && peer->remote == host) || peer->listen == host))
            return true;
    return false;
}

Servent::Peer* Servent::Twin(const Peer& peer) {
    if (!peer.listen.IsValid())
        return nullptr;
    for (auto& [id, other] : peers_)
        if (other.get() != &peer && !other->closing &&
            (other->listen == peer.listen || (other->outgoing && other->remote == peer.listen)))
            return other.get();
    return nullptr;
}

// Two servents that dial each other at once each see both links; if each kept the one it dialled
// both would go. The link dialled by the lower listening address stays, which both ends can tell
// once they know their own address; until then the link already there stays.
bool Servent::KeepsTwin(const Peer& peer, const Peer& twin) const {
    if (peer.outgoing == twin.outgoing || !config_.listen.IsValid() ||
        config_.listen == peer.listen)
        return true;
    // A caller's claim to be a servent we already reach counts only from that servent's address.
    if (!peer.outgoing && peer.remote.ip != peer.listen.ip)
        return true;
    bool ours_stays = config_.listen < peer.listen;
    return twin.outgoing == ours_stays;
}

bool Servent::KeepOneOfTwins(Peer& peer) {
    Peer* twin = Twin(peer);
    if (!twin)
        return true;
    if (KeepsTwin(peer, *twin)) {
        SendRaw(peer, FormatHeaderBlock("GNUTELLA/0.6 503 Already connected", {}));
        Drop(peer, 0, "Already connected");
        return false;
    }
    Drop(*twin, 200, "Already connected");
    return true;
}

void Servent::Dial(const Endpoint& host) {
    // The same servent reached twice would carry every message twice.
    if (Linked(host) || Resting(host))
        return;
    dialing_.insert(host);
    transport_.Dial(host);
}

void Servent::ConnectTo(const Endpoint& host) {
    Dial(host);
    Settle();
}

void Servent::Disconnect(PeerId id) {
    if (auto* peer = Find(id))
        Drop(*peer, 200, "Closed by user");
    Settle();
}

void Servent::Tick() {
    auto now = clock_();
    NoteTableChanges(now);
    for (auto& [id, peer] : peers_) {
        if (peer->closing)
            continue;
        if (peer->state != Peer::State::Open && now - peer->since > config_.handshake_timeout) {
            Drop(*peer, 0, "Handshake timeout");
            continue;
        }
        if (peer->state == Peer::State::Open && !ultrapeer_ && peer->kind == PeerKind::Ultrapeer &&
            peer->supports_qrp &&
            TableDue(peer->qrp_revision_sent, peer->qrp_sent_at, own_table_seen_,
                     own_table_changed_, now))
            SendQrp(*peer);
        if (peer->state == Peer::State::Open && ultrapeer_ && peer->kind == PeerKind::Ultrapeer &&
            peer->last_hop_qrp &&
            TableDue(peer->merged_table_sent, peer->merged_table_sent_at, merged_table_seen_,
                     merged_table_changed_, now))
            SendMergedQrp(*peer);
    }
    AdvanceDynamicQueries(now);
    if (!last_ping_ || now - *last_ping_ >= config_.ping_interval) {
        last_ping_ = now;
        auto guid = Guid::Random(rng_);
        ping_routes_.Insert(guid, kLocalPeer, now);
        for (auto& [id, peer] : peers_)
            if (!peer->closing && peer->state == Peer::State::Open &&
                peer->kind == PeerKind::Ultrapeer)
                SendMessage(*peer, MakeMessage(guid, PayloadType::Ping, 2, {}));
    }
    int wanted = ultrapeer_ ? config_.network.ultrapeer_min_count : config_.network.peer_max_count;
    int have = CountPeers(PeerKind::Ultrapeer) + CountPendingUltrapeers();
    for (int dials = 0; have < wanted && dials < config_.dials_per_tick; ++dials) {
        auto host = hosts_.NextToDial(now);
        if (!host)
            break;
        if (auto until = resting_.RestingUntil(host->ip, now)) {
            hosts_.Rest(*host, *until);
            continue;
        }
        if (Linked(*host))
            continue;
        Dial(*host);
        ++have;
    }
    Settle();
}

bool Servent::WantsHosts() const {
    int wanted = ultrapeer_ ? config_.network.ultrapeer_min_count : config_.network.peer_max_count;
    return CountPeers(PeerKind::Ultrapeer) + CountPendingUltrapeers() < wanted &&
           !hosts_.HasDialable(clock_());
}

std::string Servent::HostCacheText() const {
    std::string text;
    for (const auto& [id, peer] : peers_)
        if (!peer->closing && peer->kind == PeerKind::Ultrapeer && peer->listen.IsValid())
            text += peer->listen.ToString() + "\n";
    return text + hosts_.Serialize();
}

void Servent::Shutdown() {
    for (auto& [id, peer] : peers_)
        Drop(*peer, 200, "Shutting down");
    Settle();
}

Guid Servent::StartSearch(std::string text, std::vector<std::string> sha1s) {
    Guid guid = Guid::Random(rng_);
    auto now = clock_();
    query_routes_.Insert(guid, kLocalPeer, now);
    searches_[guid] = {};
    search_order_.push_back(guid);
    if (search_order_.size() > kOwnSearchesKept) {
        searches_.erase(search_order_.front());
        search_order_.pop_front();
    }
    Query query;
    query.flags = kQueryFlagsPresent | kQueryGgepH;
    if (config_.firewalled)
        query.flags |= kQueryFirewalled;
    query.text = text.empty() && !sha1s.empty() ? "\\" : std::move(text);
    query.sha1s = std::move(sha1s);
    auto payload = SerializeQuery(query);
    auto ttl = ultrapeer_ ? kMaxDynamicTtl : config_.query_ttl;
    Message message = MakeMessage(guid, PayloadType::Query, ttl, payload);
    if (ultrapeer_) {
        // Our leaves hear it at once; the network as a dynamic query does.
        Message as_if_received = message;
        ++as_if_received.header.ttl;
        RouteQuery(as_if_received, query, kLocalPeer, true);
        StartDynamicQuery(message, query, kLocalPeer, config_.own_query_target);
        Settle();
        return guid;
    }
    for (auto& [id, peer] : peers_) {
        if (peer->closing || peer->state != Peer::State::Open)
            continue;
        if (peer->kind == PeerKind::Ultrapeer) {
            auto capped = static_cast<std::uint8_t>(std::min(config_.query_ttl, peer->max_ttl));
            SendMessage(*peer, MakeMessage(guid, PayloadType::Query, capped, payload));
        }
    }
    Settle();
    return guid;
}

void Servent::StopSearch(const Guid& search) {
    if (auto it = searches_.find(search); it != searches_.end())
        it->second.stopped = true;
    if (auto it = dynamic_.find(search); it != dynamic_.end())
        it->second.stopped = true;
}

void Servent::StartDynamicQuery(const Message& message, const Query& query, PeerId origin,
                                std::size_t target) {
    if (dynamic_.size() >= kMaxDynamicQueries || dynamic_.count(message.header.guid))
        return;
    ++stats_.dynamic_queries;
    DynamicQuery dq;
    dq.message = message;
    dq.query = query;
    dq.origin = origin;
    dq.target = target;
    dq.started = clock_();
    dq.next_step = dq.started;
    auto [it, added] = dynamic_.emplace(message.header.guid, std::move(dq));
    auto& started = it->second;
    // The probe: a few links at TTL 1, to learn how common the wanted files are.
    int probed = 0;
    for (auto& [id, peer] : peers_) {
        if (probed == config_.probe_links)
            break;
        if (peer->closing || peer->state != Peer::State::Open || id == origin ||
            peer->kind != PeerKind::Ultrapeer)
            continue;
        if (!peer->LastHopAllows(query)) {
            ++stats_.queries_blocked_by_qrp;
            continue;
        }
        if (!MaySendQuery(*peer))
            continue;
        Message out = started.message;
        out.header.ttl = 1;
        out.header.hops = static_cast<std::uint8_t>(message.header.hops + (origin != kLocalPeer));
        SendMessage(*peer, out);
        ++peer->queries_sent;
        ++stats_.queries_forwarded;
        started.queried.insert(id);
        started.hosts_reached += Horizon(1, peer->degree);
        ++probed;
    }
    started.next_step = started.started + config_.query_step_per_hop;
}

void Servent::AdvanceDynamicQueries(Clock::time_point now) {
    for (auto it = dynamic_.begin(); it != dynamic_.end();) {
        if (AdvanceDynamicQuery(it->second, now))
            ++it;
        else
            it = dynamic_.erase(it);
    }
}

// False once the query is done: enough results, stopped, out of links or too old.
bool Servent::AdvanceDynamicQuery(DynamicQuery& dq, Clock::time_point now) {
    if (dq.stopped || now - dq.started > config_.query_lifetime)
        return false;
    Peer* leaf = nullptr;
    if (dq.origin != kLocalPeer) {
        leaf = Find(dq.origin);
        if (!leaf)
            return false;
    }
    std::size_t results = dq.reported.value_or(dq.routed_results);
    if (dq.origin == kLocalPeer)
        if (auto own = searches_.find(dq.message.header.guid); own != searches_.end())
            results = own->second.results;
    if (results >= dq.target)
        return false;
    if (now < dq.next_step)
        return true;
    Peer* next = nullptr;
    for (auto& [id, peer] : peers_) {
        if (!peer->closing && peer->state == Peer::State::Open &&
            peer->kind == PeerKind::Ultrapeer && id != dq.origin && !dq.queried.count(id)) {
            next = peer.get();
            break;
        }
    }
    if (!next)
        return false;
    // Widen as far as the results so far say is needed: with none yet, as far as allowed.
    int cap = std::min<int>({kMaxDynamicTtl, next->max_ttl, config_.max_ttl});
    int ttl = cap;
    if (results > 0 && dq.hosts_reached > 0) {
        double per_host = static_cast<double>(results) / static_cast<double>(dq.hosts_reached);
        double hosts_needed = static_cast<double>(dq.target - results) / per_host;
        ttl = 1;
        while (ttl < cap && static_cast<double>(Horizon(ttl, next->degree)) < hosts_needed)
            ++ttl;
    }
    // At TTL 1 the neighbour answers only for itself and its leaves: its table says whether
    // that can help at all.
    if (ttl == 1 && !next->LastHopAllows(dq.query))
        ttl = std::min(2, cap);
    // Its budget spent for now: the step waits for the next tick.
    if (!MaySendQuery(*next))
        return true;
    Message out = dq.message;
    out.header.ttl = static_cast<std::uint8_t>(ttl);
    out.header.hops = static_cast<std::uint8_t>(dq.message.header.hops + (leaf != nullptr));
    SendMessage(*next, out);
    ++next->queries_sent;
    ++stats_.queries_forwarded;
    ++stats_.dynamic_steps;
    dq.queried.insert(next->id);
    dq.hosts_reached += Horizon(ttl, next->degree);
    dq.next_step = now + config_.query_step_per_hop * ttl;
    // Ask the leaf how many results it has kept, for the next step.
    if (leaf && leaf->Supports(VendorSelector::QueryStatusRequest))
        SendMessage(*leaf, MakeVendorMessage(dq.message.header.guid,
                                             VendorSelector::QueryStatusRequest, 1, {}));
    return true;
}

void Servent::OnVendorMessage(Peer& peer, Message& message) {
    auto vendor = ParseCommonVendorMessage(message.payload);
    if (!vendor)
        return; // another vendor's message: skipped
    switch (vendor->selector) {
    case VendorSelector::MessagesSupported:
        if (auto kinds = ParseMessagesSupported(vendor->data))
            peer.supported = std::set<VendorKind>(kinds->begin(), kinds->end());
        break;
    case VendorSelector::HopsFlow:
        if (!vendor->data.empty())
            peer.hops_flow = vendor->data[0];
        break;
    case VendorSelector::TcpConnectBack: {
        // Once per link, to the address the link comes from: never a third party.
        ByteReader r(vendor->data);
        std::uint16_t port = r.U16Le();
        if (r.ok() && port != 0 && !peer.connected_back) {
            peer.connected_back = true;
            transport_.ConnectBack({peer.remote.ip, port});
        }
        break;
    }
    case VendorSelector::QueryStatusRequest: {
        auto own = searches_.find(message.header.guid);
        if (ultrapeer_ || peer.kind != PeerKind::Ultrapeer || own == searches_.end())
            break;
        Bytes data;
        PutU16Le(data, own->second.stopped ? kQueryStatusStop
                                           : static_cast<std::uint16_t>(std::min<std::size_t>(
                                                 own->second.results, kQueryStatusStop - 1)));
        SendMessage(peer, MakeVendorMessage(message.header.guid,
                                            VendorSelector::QueryStatusResponse, 1, data));
        break;
    }
    case VendorSelector::QueryStatusResponse: {
        auto dq = dynamic_.find(message.header.guid);
        ByteReader r(vendor->data);
        std::uint16_t count = r.U16Le();
        if (dq == dynamic_.end() || dq->second.origin != peer.id || !r.ok())
            break;
        if (count == kQueryStatusStop)
            dq->second.stopped = true;
        else
            dq->second.reported = count;
        break;
    }
    }
}

bool Servent::SendPush(const Guid& servent, std::uint32_t file_index) {
    auto route = push_routes_.Find(servent, clock_());
    if (!route)
        return false;
    auto* peer = Find(*route);
    if (!peer)
        return false;
    Push push{servent, file_index, config_.listen.ip, config_.listen.port};
    SendMessage(*peer, MakeMessage(Guid::Random(rng_), PayloadType::Push, 7, SerializePush(push)));
    Settle();
    return true;
}

PeerInfo Servent::Describe(const Peer& peer) const {
    PeerInfo info;
    info.id = peer.id;
    info.remote = peer.remote;
    info.listen = peer.listen;
    info.outgoing = peer.outgoing;
    info.kind = peer.state == Peer::State::Open ? peer.kind : PeerKind::Handshaking;
    info.user_agent = peer.user_agent;
    info.qrp_table_complete = peer.qrp && peer.qrp->table().has_value();
    info.queries_received = peer.queries_received;
    info.queries_sent = peer.queries_sent;
    info.compressed_in = peer.inflater != nullptr;
    info.compressed_out = peer.deflater != nullptr;
    return info;
}

std::vector<PeerInfo> Servent::Peers() const {
    std::vector<PeerInfo> out;
    for (const auto& [id, peer] : peers_)
        if (!peer->closing)
            out.push_back(Describe(*peer));
    return out;
}

} // namespace corvid::gnutella
