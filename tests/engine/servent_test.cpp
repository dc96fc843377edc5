// The servent's protocol brain on an in-memory network: handshakes, leaf guidance, refusals,
// query routing and the ways a hostile peer gets itself dropped. No sockets, no real time.
#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <set>

#include "engine/core/servent.h"

namespace corvid::gnutella {
namespace {

constexpr char kSha1[] = "AAAABBBBCCCCDDDDEEEEFFFFGGGGHHHH";

struct Recorder : ServentObserver {
    std::vector<QueryHit> hits;
    std::vector<Push> pushes;
    int tables = 0;
    std::vector<std::pair<PeerInfo, std::string>> drops;
    void OnSearchHit(const Guid&, const QueryHit& hit) override { hits.push_back(hit); }
    void OnPeerDropped(const PeerInfo& peer, std::string_view reason) override {
        drops.emplace_back(peer, std::string(reason));
    }
    void OnPushRequest(const Push& push) override { pushes.push_back(push); }
    void OnQrpTableComplete(PeerId) override { ++tables; }
};

// Stations are servents or raw ends the test speaks for; links join (station, peer id) pairs and
// carry bytes in order. Nothing is delivered until Run.
class SimNet {
public:
    struct Station : ServentTransport {
        SimNet* net = nullptr;
        std::size_t index = 0;
        Endpoint address;
        InMemoryFileIndex files;
        std::unique_ptr<Servent> servent;
        Recorder recorder;
        Bytes inbox; // raw stations only
        bool hung_up = false;
        std::vector<Endpoint> dials;

        void Send(PeerId peer, Bytes bytes) override {
            net->Transfer(index, peer, std::move(bytes));
        }
        void Close(PeerId peer) override { net->Hangup(index, peer); }
        void Dial(const Endpoint& host) override {
            dials.push_back(host);
            net->pending_dials_.push_back({index, host});
        }
        void ConnectBack(const Endpoint& host) override { connect_backs.push_back(host); }
        std::vector<Endpoint> connect_backs;
    };

    Station& AddServent(NodeMode mode, std::vector<std::string> files = {},
                        std::function<void(ServentConfig&)> adjust = {}) {
        auto& s = AddStation();
        ServentConfig config;
        config.network.node_mode = mode;
        config.listen = s.address;
        config.allow_private_addresses = true;
        if (adjust)
            adjust(config);
        for (auto& name : files)
            s.files.Add(name, 1000, name == "alpha song.mp3" ? kSha1 : "");
        s.servent = std::make_unique<Servent>(
            config, s.files, s, [this] { return now; }, 1000 + s.index);
        s.servent->SetObserver(&s.recorder);
        return s;
    }

    Station& AddRaw() { return AddStation(); }
    // A raw end that is going to abuse a servent calls from an address of its own in 127/8, so
    // the rest its address earns does not fall on the good stations sharing 127.0.0.1.
    Station& AddHostile() {
        auto& s = AddStation();
        s.address.ip = 0x7F000100u + static_cast<std::uint32_t>(s.index);
        return s;
    }

    // Joins two stations as if `from` had dialled `to`; returns the peer id of the raw end.
    PeerId Link(Station& from, Station& to) {
        PeerId a = next_id_++, b = next_id_++;
        links_[{from.index, a}] = {to.index, b};
        links_[{to.index, b}] = {from.index, a};
        if (to.servent)
            to.servent->Accepted(b, from.address);
        if (from.servent)
            from.servent->Connected(a, to.address);
        return from.servent ? b : a;
    }

    void RawSend(Station& raw, PeerId peer, ByteView bytes) {
        Transfer(raw.index, peer, Bytes(bytes.begin(), bytes.end()));
    }
    void RawSend(Station& raw, PeerId peer, std::string_view text) {
        RawSend(raw, peer, AsBytes(text));
    }

    void Run() {
        for (int guard = 0; guard < 100000; ++guard) {
            if (!pending_dials_.empty()) {
                auto [from, host] = pending_dials_.front();
                pending_dials_.pop_front();
                Station* target = nullptr;
                for (auto& s : stations_)
                    if (s->address == host && s->servent)
                        target = s.get();
                if (target)
                    Link(*stations_[from], *target);
                else
                    stations_[from]->servent->DialFailed(host);
                continue;
            }
            if (events_.empty())
                return;
            auto event = std::move(events_.front());
            events_.pop_front();
            auto& s = *stations_[event.station];
            if (s.servent) {
                if (event.hangup)
                    s.servent->Lost(event.peer);
                else
                    s.servent->Received(event.peer, event.bytes);
            } else if (event.hangup) {
                s.hung_up = true;
            } else {
                PutBytes(s.inbox, event.bytes);
            }
        }
        FAIL() << "the network never went quiet";
    }

    Clock::time_point now{std::chrono::hours(1)};

private:
    struct Event {
        std::size_t station;
        PeerId peer;
        Bytes bytes;
        bool hangup = false;
    };

    Station& AddStation() {
        auto s = std::make_unique<Station>();
        s->net = this;
        s->index = stations_.size();
        s->address = {0x7F000001, static_cast<std::uint16_t>(7000 + stations_.size())};
        stations_.push_back(std::move(s));
        return *stations_.back();
    }

    void Transfer(std::size_t from, PeerId peer, Bytes bytes) {
        auto it = links_.find({from, peer});
        if (it != links_.end())
            events_.push_back({it->second.first, it->second.second, std::move(bytes)});
    }

    void Hangup(std::size_t from, PeerId peer) {
        auto it = links_.find({from, peer});
        if (it == links_.end())
            return;
        auto other = it->second;
        events_.push_back({other.first, other.second, {}, true});
        links_.erase(it);
        links_.erase(other);
    }

    std::vector<std::unique_ptr<Station>> stations_;
    std::map<std::pair<std::size_t, PeerId>, std::pair<std::size_t, PeerId>> links_;
    std::deque<Event> events_;
    std::deque<std::pair<std::size_t, Endpoint>> pending_dials_;
    PeerId next_id_ = 1;
};

std::vector<PeerInfo> OpenPeers(Servent& s, PeerKind kind) {
    std::vector<PeerInfo> out;
    for (auto& p : s.Peers())
        if (p.kind == kind)
            out.push_back(p);
    return out;
}

// What a raw end received: the header blocks, then the messages that followed them.
struct RawView {
    std::vector<std::string> blocks;
    std::vector<Message> messages;
};

RawView Read(const SimNet::Station& raw, int header_blocks) {
    RawView view;
    std::string_view text = AsText(raw.inbox);
    std::size_t pos = 0;
    for (int i = 0; i < header_blocks; ++i) {
        auto end = text.find("\r\n\r\n", pos);
        if (end == std::string_view::npos)
            return view;
        view.blocks.emplace_back(text.substr(pos, end + 4 - pos));
        pos = end + 4;
    }
    DescriptorFramer framer;
    framer.Feed(ByteView(raw.inbox).subspan(pos),
                [&](Message&& m) { view.messages.push_back(std::move(m)); });
    return view;
}

std::vector<Message> OfType(const RawView& view, PayloadType type) {
    std::vector<Message> out;
    for (const auto& m : view.messages)
        if (m.type() == type)
            out.push_back(m);
    return out;
}

Bytes Frame(const Guid& guid, PayloadType type, std::uint8_t ttl, std::uint8_t hops,
            ByteView payload) {
    Header h;
    h.guid = guid;
    h.type = static_cast<std::uint8_t>(type);
    h.ttl = ttl;
    h.hops = hops;
    return SerializeMessage(h, payload);
}

Bytes QueryPayload(std::string text) {
    Query q;
    q.text = std::move(text);
    return SerializeQuery(q);
}

// A raw ultrapeer joined to `servent` through a completed handshake, speaking plain bytes.
PeerId RawUltrapeer(SimNet& net, SimNet::Station& raw, SimNet::Station& servent,
                    std::string extra_headers = "") {
    PeerId id = net.Link(raw, servent);
    net.RawSend(raw, id,
                "GNUTELLA CONNECT/0.6\r\nUser-Agent: Raw/1.0\r\nX-Ultrapeer: True\r\n"
                "X-Query-Routing: 0.1\r\n" +
                    extra_headers + "\r\n");
    net.Run();
    net.RawSend(raw, id, "GNUTELLA/0.6 200 OK\r\n\r\n");
    net.Run();
    return id;
}

TEST(Handshake, LeafJoinsUltrapeerWithDeflateBothWaysAndSendsItsTable) {
    SimNet net;
    auto& up = net.AddServent(NodeMode::UltraPeer);
    auto& leaf = net.AddServent(NodeMode::LeafPeer, {"alpha song.mp3"});
    net.Link(leaf, up);
    net.Run();

    auto leaves = OpenPeers(*up.servent, PeerKind::Leaf);
    ASSERT_EQ(leaves.size(), 1u);
    EXPECT_TRUE(leaves[0].compressed_in);
    EXPECT_TRUE(leaves[0].compressed_out);
    EXPECT_TRUE(leaves[0].qrp_table_complete);
    EXPECT_EQ(leaves[0].user_agent, "Corvid/0.1");
    EXPECT_EQ(up.recorder.tables, 1);
    auto ups = OpenPeers(*leaf.servent, PeerKind::Ultrapeer);
    ASSERT_EQ(ups.size(), 1u);
    EXPECT_TRUE(ups[0].compressed_in && ups[0].compressed_out);

    // A change just after the table waits its turn rather than following at once.
    leaf.files.Add("beta.txt", 10, "");
    leaf.servent->Tick();
    net.Run();
    EXPECT_EQ(up.recorder.tables, 1);
    net.now += std::chrono::seconds(61);
    leaf.servent->Tick();
    net.Run();
    EXPECT_EQ(up.recorder.tables, 2);

    // Either side may end it; the other forgets the link too.
    leaf.servent->Disconnect(ups[0].id);
    net.Run();
    EXPECT_TRUE(leaf.servent->Peers().empty());
    EXPECT_TRUE(up.servent->Peers().empty());
}

TEST(Handshake, LeafGuidanceTurnsAnIdleAutomaticUltrapeerIntoALeaf) {
    SimNet net;
    auto full = [](ServentConfig& c) { c.network.ultrapeer_max_count = 1; };
    auto& hub = net.AddServent(NodeMode::UltraPeer, {}, full);
    auto& other = net.AddServent(NodeMode::UltraPeer);
    net.Link(other, hub);
    net.Run();
    ASSERT_EQ(OpenPeers(*hub.servent, PeerKind::Ultrapeer).size(), 1u);

    auto& idle = net.AddServent(NodeMode::Automatic);
    net.Link(idle, hub);
    net.Run();
    EXPECT_FALSE(idle.servent->IsUltrapeer());
    EXPECT_EQ(OpenPeers(*hub.servent, PeerKind::Leaf).size(), 1u);
    EXPECT_EQ(OpenPeers(*idle.servent, PeerKind::Ultrapeer).size(), 1u);
}

TEST(Handshake, GuidanceIsDeclinedByAnUltrapeerWithLeavesOrAFixedMode) {
    SimNet net;
    auto full = [](ServentConfig& c) { c.network.ultrapeer_max_count = 1; };
    auto& hub = net.AddServent(NodeMode::UltraPeer, {}, full);
    auto& other = net.AddServent(NodeMode::UltraPeer);
    net.Link(other, hub);

    auto& busy = net.AddServent(NodeMode::Automatic);
    auto& its_leaf = net.AddServent(NodeMode::LeafPeer);
    net.Link(its_leaf, busy);
    net.Run();
    net.Link(busy, hub);
    auto& fixed = net.AddServent(NodeMode::UltraPeer);
    net.Link(fixed, hub);
    net.Run();

    EXPECT_TRUE(busy.servent->IsUltrapeer());
    EXPECT_TRUE(fixed.servent->IsUltrapeer());
    EXPECT_EQ(OpenPeers(*hub.servent, PeerKind::Leaf).size(), 0u);
    EXPECT_EQ(hub.servent->Peers().size(), 1u); // only the first ultrapeer stayed
}

TEST(Handshake, RefusalWithTryListFillsTheCacheAndRestsTheHost) {
    SimNet net;
    auto& leaf = net.AddServent(NodeMode::LeafPeer);
    auto& raw = net.AddRaw();
    PeerId id = net.Link(leaf, raw);
    net.Run();
    EXPECT_TRUE(AsText(raw.inbox).starts_with("GNUTELLA CONNECT/0.6\r\n"));
    EXPECT_NE(AsText(raw.inbox).find("X-Ultrapeer: False"), std::string_view::npos);
    net.RawSend(raw, id,
                "GNUTELLA/0.6 503 Full\r\nX-Try-Ultrapeers: 1.2.3.4:6346 2006-01-01T00:00Z, "
                "5.6.7.8:7000\r\nX-Try: 9.9.9.9\r\n\r\n");
    net.Run();
    EXPECT_TRUE(raw.hung_up);
    EXPECT_TRUE(leaf.servent->Peers().empty());
    EXPECT_EQ(leaf.servent->hosts().size(), 4u); // three offered plus the refusing host, resting

    leaf.dials.clear();
    leaf.servent->Tick();
    net.Run();
    EXPECT_EQ(leaf.dials.size(), 3u);
    for (const auto& host : leaf.dials)
        EXPECT_NE(host, raw.address);
}

// Each servent's links, by the listening address of the servent at the other end.
std::multiset<Endpoint> LinkedServents(Servent& s) {
    std::multiset<Endpoint> out;
    for (const auto& p : s.Peers())
        out.insert(p.listen);
    return out;
}

TEST(Handshake, AServentNamedManyTimesAndCallingBackKeepsOneLink) {
    SimNet net;
    auto& self = net.AddServent(NodeMode::UltraPeer);
    auto& first = net.AddServent(NodeMode::UltraPeer);
    auto& second = net.AddServent(NodeMode::UltraPeer);
    // Named twice at start, kept in the host cache, asked for again by the user, and dialling us
    // back from their own caches: still one link per pair.
    for (auto* up : {&first, &second}) {
        self.servent->ConnectTo(up->address);
        self.servent->ConnectTo(up->address);
        self.servent->hosts().Add(up->address);
        up->servent->hosts().Add(self.address);
    }
    for (int round = 0; round < 3; ++round) {
        net.Run();
        for (auto* s : {&self, &first, &second})
            s->servent->Tick();
        self.servent->ConnectTo(first.address);
        net.Run();
    }
    EXPECT_EQ(LinkedServents(*self.servent),
              (std::multiset<Endpoint>{first.address, second.address}));
    for (auto* up : {&first, &second}) {
        auto linked = LinkedServents(*up->servent);
        EXPECT_EQ(linked.count(self.address), 1u);
        for (const auto& address : linked)
            EXPECT_EQ(linked.count(address), 1u) << address.ToString();
    }
}

TEST(Handshake, TwoServentsDiallingEachOtherAtOnceKeepTheSameOneLink) {
    SimNet net;
    auto& a = net.AddServent(NodeMode::UltraPeer);
    auto& b = net.AddServent(NodeMode::UltraPeer);
    a.servent->ConnectTo(b.address);
    b.servent->ConnectTo(a.address);
    net.Run();
    auto a_peers = a.servent->Peers();
    auto b_peers = b.servent->Peers();
    ASSERT_EQ(a_peers.size(), 1u);
    ASSERT_EQ(b_peers.size(), 1u);
    EXPECT_EQ(a_peers.front().kind, PeerKind::Ultrapeer);
    EXPECT_EQ(b_peers.front().kind, PeerKind::Ultrapeer);
    EXPECT_NE(a_peers.front().outgoing, b_peers.front().outgoing);
}

TEST(Handshake, UltrapeersRefuseWhenFullAndLeavesRefuseEveryone) {
    SimNet net;
    auto& leaf = net.AddServent(NodeMode::LeafPeer);
    auto& raw = net.AddRaw();
    PeerId id = net.Link(raw, leaf);
    net.RawSend(raw, id, "GNUTELLA CONNECT/0.6\r\nX-Ultrapeer: True\r\n\r\n");
    net.Run();
    EXPECT_TRUE(AsText(raw.inbox).starts_with("GNUTELLA/0.6 503"));
    EXPECT_TRUE(raw.hung_up);

    auto& up = net.AddServent(NodeMode::UltraPeer, {}, [](ServentConfig& c) {
        c.network.leaf_peer_max_count = 0;
        c.network.ultrapeer_max_count = 0;
    });
    auto& up_neighbour = net.AddRaw();
    PeerId n = net.Link(up_neighbour, up);
    net.RawSend(up_neighbour, n,
                "GNUTELLA CONNECT/0.6\r\nX-Ultrapeer: False\r\nX-Query-Routing: 0.1\r\n\r\n");
    net.Run();
    EXPECT_TRUE(AsText(up_neighbour.inbox).starts_with("GNUTELLA/0.6 503"));
}

class UltrapeerRouting : public ::testing::Test {
protected:
    void SetUp() override {
        up = &net.AddServent(NodeMode::UltraPeer, {"alpha song.mp3"});
        a = &net.AddRaw();
        b = &net.AddRaw();
        a_id = RawUltrapeer(net, *a, *up);
        b_id = RawUltrapeer(net, *b, *up, "X-Max-TTL: 3\r\n");
        a->inbox.clear();
        b->inbox.clear();
    }

    SimNet net;
    SimNet::Station* up = nullptr;
    SimNet::Station* a = nullptr;
    SimNet::Station* b = nullptr;
    PeerId a_id = 0, b_id = 0;
    std::mt19937_64 rng{9};
};

TEST_F(UltrapeerRouting, QueriesAreForwardedOnceWithTtlAndHopsAdjusted) {
    Guid guid = Guid::Random(rng);
    auto query = Frame(guid, PayloadType::Query, 7, 1, QueryPayload("beta"));
    net.RawSend(*a, a_id, query);
    net.RawSend(*a, a_id, query); // the duplicate is dropped
    net.Run();
    auto forwarded = OfType(Read(*b, 0), PayloadType::Query);
    ASSERT_EQ(forwarded.size(), 1u);
    EXPECT_EQ(forwarded[0].header.guid, guid);
    EXPECT_EQ(forwarded[0].header.ttl, 3); // the peer's X-Max-TTL
    EXPECT_EQ(forwarded[0].header.hops, 2);
    EXPECT_EQ(up->servent->stats().duplicates_dropped, 1u);
    EXPECT_TRUE(OfType(Read(*a, 0), PayloadType::Query).empty());

    // TTL 1 arrives and stops here.
    net.RawSend(*a, a_id, Frame(Guid::Random(rng), PayloadType::Query, 1, 0, QueryPayload("beta")));
    net.Run();
    EXPECT_EQ(OfType(Read(*b, 0), PayloadType::Query).size(), 1u);
}

TEST_F(UltrapeerRouting, HitsGoBackTheirQuerysWayAndPushesFollowTheServent) {
    Guid guid = Guid::Random(rng);
    net.RawSend(*a, a_id, Frame(guid, PayloadType::Query, 3, 0, QueryPayload("alpha")));
    net.Run();
    // The ultrapeer's own file answers first.
    auto own = OfType(Read(*a, 0), PayloadType::QueryHit);
    ASSERT_EQ(own.size(), 1u);
    auto own_hit = ParseQueryHit(own[0].payload);
    ASSERT_TRUE(own_hit);
    EXPECT_EQ(own_hit->results[0].sha1, kSha1);
    EXPECT_EQ(own_hit->servent, up->servent->servent_guid());

    // b answers; the hit reaches a with TTL-1 and hops+1.
    QueryHit hit;
    hit.port = 6346;
    hit.ip = 0x01020304;
    hit.results.push_back({5, 100, "alpha two.ogg", "", "", {}});
    hit.flags.firewalled = true;
    hit.servent = Guid::Random(rng);
    net.RawSend(*b, b_id, Frame(guid, PayloadType::QueryHit, 5, 0, SerializeQueryHit(hit)));
    // A hit for a query nobody sent is dropped.
    net.RawSend(*b, b_id,
                Frame(Guid::Random(rng), PayloadType::QueryHit, 5, 0, SerializeQueryHit(hit)));
    net.Run();
    auto hits = OfType(Read(*a, 0), PayloadType::QueryHit);
    ASSERT_EQ(hits.size(), 2u);
    EXPECT_EQ(hits[1].header.ttl, 4);
    EXPECT_EQ(hits[1].header.hops, 1);
    EXPECT_EQ(up->servent->stats().hits_dropped_unroutable, 1u);

    // a asks the firewalled servent to push; the push goes to b, who delivered its hit.
    Push push{hit.servent, 5, 0x0A000001, 6346};
    net.RawSend(*a, a_id, Frame(Guid::Random(rng), PayloadType::Push, 4, 0, SerializePush(push)));
    // A push for this ultrapeer itself is reported, not forwarded.
    Push mine{up->servent->servent_guid(), 1, 0x0A000001, 6346};
    net.RawSend(*a, a_id, Frame(Guid::Random(rng), PayloadType::Push, 4, 0, SerializePush(mine)));
    net.Run();
    auto pushes = OfType(Read(*b, 0), PayloadType::Push);
    ASSERT_EQ(pushes.size(), 1u);
    EXPECT_EQ(ParsePush(pushes[0].payload)->file_index, 5u);
    ASSERT_EQ(up->recorder.pushes.size(), 1u);
    EXPECT_EQ(up->recorder.pushes[0].file_index, 1u);
}

TEST_F(UltrapeerRouting, UnknownAndVendorMessagesAreSkippedNotForwarded) {
    net.RawSend(*a, a_id,
                Frame(Guid::Random(rng), static_cast<PayloadType>(0x41), 5, 0, AsBytes("xyz")));
    net.RawSend(
        *a, a_id,
        Frame(Guid::Random(rng), PayloadType::VendorMessage, 1, 0, AsBytes("ABCD\1\0\1\0")));
    net.RawSend(*a, a_id,
                Frame(Guid::Random(rng), PayloadType::Query, 3, 0, QueryPayload("still works")));
    net.Run();
    auto seen = Read(*b, 0).messages;
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].type(), PayloadType::Query);
    EXPECT_EQ(up->servent->Peers().size(), 2u);
}

TEST_F(UltrapeerRouting, PingsAreAnsweredFromThePongCache) {
    Pong pong{6346, 0x01020304, 1, 2, {}};
    // b's pong answers the ultrapeer's own ping (sent when the link opened) and is cached.
    auto pings = OfType(Read(*b, 0), PayloadType::Ping);
    net.RawSend(*b, b_id, Frame(Guid::Random(rng), PayloadType::Ping, 1, 0, {}));
    net.Run();
    ASSERT_TRUE(OfType(Read(*b, 0), PayloadType::Pong).size() == 1u);
    up->servent->Tick(); // its periodic ping
    net.Run();
    pings = OfType(Read(*b, 0), PayloadType::Ping);
    ASSERT_FALSE(pings.empty());
    net.RawSend(*b, b_id,
                Frame(pings.back().header.guid, PayloadType::Pong, 1, 0, SerializePong(pong)));
    net.Run();
    net.RawSend(*a, a_id, Frame(Guid::Random(rng), PayloadType::Ping, 2, 0, {}));
    net.Run();
    auto pongs = OfType(Read(*a, 0), PayloadType::Pong);
    ASSERT_EQ(pongs.size(), 2u); // its own, then the cached one
    EXPECT_EQ(ParsePong(pongs[1].payload)->endpoint().ToString(), "1.2.3.4:6346");
    EXPECT_TRUE(ParsePong(pongs[0].payload)->ggep->Find("UP"));
}

TEST_F(UltrapeerRouting, OffendersAreDroppedAndTheOthersKeepBeingServed) {
    // A payload over 64 KiB: Bye 400, then the link closes.
    auto& huge_sender = net.AddHostile();
    PeerId huge_id = RawUltrapeer(net, huge_sender, *up);
    Header huge;
    huge.type = 0x80;
    Bytes bytes = SerializeMessage(huge, {});
    bytes[19] = 0x70, bytes[20] = 0x11, bytes[21] = 0x01;
    net.RawSend(huge_sender, huge_id, bytes);
    net.Run();
    EXPECT_TRUE(huge_sender.hung_up);
    auto byes = OfType(Read(huge_sender, 1), PayloadType::Bye);
    ASSERT_EQ(byes.size(), 1u);
    EXPECT_EQ(ParseBye(byes[0].payload)->code, 400);

    // A flood of pings.
    auto& pinger = net.AddHostile();
    PeerId pinger_id = RawUltrapeer(net, pinger, *up);
    for (int i = 0; i < 50; ++i)
        net.RawSend(pinger, pinger_id, Frame(Guid::Random(rng), PayloadType::Ping, 1, 0, {}));
    net.Run();
    EXPECT_TRUE(pinger.hung_up);
    EXPECT_EQ(up->servent->stats().peers_dropped_for_abuse, 2u);
    EXPECT_FALSE(a->hung_up);
    EXPECT_FALSE(b->hung_up);

    // Pings at a polite pace are fine.
    auto& c = net.AddRaw();
    PeerId c_id = RawUltrapeer(net, c, *up);
    for (int i = 0; i < 50; ++i) {
        net.now += std::chrono::seconds(2);
        net.RawSend(c, c_id, Frame(Guid::Random(rng), PayloadType::Ping, 1, 0, {}));
        net.Run();
    }
    EXPECT_FALSE(c.hung_up);
}

TEST_F(UltrapeerRouting, ALeafFloodingQueriesIsThrottledNotRelayed) {
    auto& leaf = net.AddRaw();
    PeerId id = net.Link(leaf, *up);
    net.RawSend(leaf, id,
                "GNUTELLA CONNECT/0.6\r\nX-Ultrapeer: False\r\nX-Query-Routing: 0.1\r\n\r\n");
    net.Run();
    net.RawSend(leaf, id, "GNUTELLA/0.6 200 OK\r\n\r\n");
    net.Run();
    for (int i = 0; i < 100; ++i)
        net.RawSend(leaf, id,
                    Frame(Guid::Random(rng), PayloadType::Query, 3, 0,
                          QueryPayload("flood " + std::to_string(i))));
    net.Run();
    EXPECT_EQ(OfType(Read(*b, 0), PayloadType::Query).size(), 20u);
    EXPECT_EQ(up->servent->stats().queries_dropped_for_rate, 80u);
    EXPECT_FALSE(leaf.hung_up);

    net.now += std::chrono::seconds(5);
    net.RawSend(leaf, id,
                Frame(Guid::Random(rng), PayloadType::Query, 3, 0, QueryPayload("later")));
    net.Run();
    EXPECT_EQ(OfType(Read(*b, 0), PayloadType::Query).size(), 21u);
}

TEST(HostileLinks, BrokenDeflateStreamDropsTheLink) {
    SimNet net;
    auto& up = net.AddServent(NodeMode::UltraPeer);
    auto& raw = net.AddRaw();
    PeerId id = net.Link(raw, up);
    net.RawSend(raw, id, "GNUTELLA CONNECT/0.6\r\nX-Ultrapeer: True\r\n\r\n");
    net.Run();
    net.RawSend(raw, id, "GNUTELLA/0.6 200 OK\r\nContent-Encoding: deflate\r\n\r\n");
    net.RawSend(raw, id, Bytes{0x78, 0x9C, 0xFF, 0xFF, 0xFF, 0x00, 0x11});
    net.Run();
    EXPECT_TRUE(raw.hung_up);
    EXPECT_TRUE(up.servent->Peers().empty());
}

TEST(HostileLinks, SilentHandshakesTimeOut) {
    SimNet net;
    auto& up = net.AddServent(NodeMode::UltraPeer);
    auto& raw = net.AddRaw();
    PeerId id = net.Link(raw, up);
    net.RawSend(raw, id, "GNUTELLA CONNECT/0.6\r\n");
    net.Run();
    up.servent->Tick();
    EXPECT_EQ(up.servent->Peers().size(), 1u);
    net.now += std::chrono::seconds(16);
    up.servent->Tick();
    net.Run();
    EXPECT_TRUE(raw.hung_up);
}

TEST(Search, QueryReachesOnlyLeavesWhoseTablesMatch) {
    SimNet net;
    auto& up1 = net.AddServent(NodeMode::UltraPeer);
    auto& up2 = net.AddServent(NodeMode::UltraPeer);
    auto& asker = net.AddServent(NodeMode::LeafPeer);
    auto& near = net.AddServent(NodeMode::LeafPeer, {"alpha song.mp3"});
    auto& far = net.AddServent(NodeMode::LeafPeer, {"Alpha-Tune.ogg"});
    auto& other = net.AddServent(NodeMode::LeafPeer, {"beta.txt"});
    net.Link(up2, up1);
    net.Link(asker, up1);
    net.Link(near, up1);
    net.Link(far, up2);
    net.Link(other, up2);
    net.Run();

    asker.servent->StartSearch("alpha");
    net.Run();
    std::set<std::string> names;
    for (const auto& hit : asker.recorder.hits)
        for (const auto& r : hit.results)
            names.insert(r.name + "@" + hit.endpoint().ToString());
    EXPECT_EQ(names, (std::set<std::string>{"alpha song.mp3@127.0.0.1:7003",
                                            "Alpha-Tune.ogg@127.0.0.1:7004"}));
    auto other_peers = other.servent->Peers();
    ASSERT_EQ(other_peers.size(), 1u);
    EXPECT_EQ(other_peers[0].queries_received, 0u);

    // By SHA1 only the file with that hash answers.
    asker.recorder.hits.clear();
    asker.servent->StartSearch("", {kSha1});
    net.Run();
    ASSERT_EQ(asker.recorder.hits.size(), 1u);
    EXPECT_EQ(asker.recorder.hits[0].results[0].name, "alpha song.mp3");
}

} // namespace
} // namespace corvid::gnutella

namespace corvid::gnutella {
namespace {

// A raw leaf joined to an ultrapeer servent; it reads vendor messages when asked to say so.
PeerId RawLeaf(SimNet& net, SimNet::Station& raw, SimNet::Station& servent) {
    PeerId id = net.Link(raw, servent);
    net.RawSend(raw, id,
                "GNUTELLA CONNECT/0.6\r\nUser-Agent: Raw/1.0\r\nX-Ultrapeer: False\r\n"
                "X-Query-Routing: 0.1\r\nVendor-Message: 0.1\r\n\r\n");
    net.Run();
    net.RawSend(raw, id, "GNUTELLA/0.6 200 OK\r\n\r\n");
    net.Run();
    return id;
}

Bytes HitPayload(std::size_t results) {
    QueryHit hit;
    hit.port = 6346;
    hit.ip = 0x0A000001;
    hit.vendor = "RAW ";
    for (std::size_t i = 0; i < results; ++i)
        hit.results.push_back(
            {static_cast<std::uint32_t>(i), 1000, "alpha " + std::to_string(i), "", "", {}});
    hit.servent.bytes[0] = 0x77;
    return SerializeQueryHit(hit);
}

// An ultrapeer with one leaf and six raw ultrapeer neighbours of degree 10 on a fake clock.
class DynamicQuerying : public ::testing::Test {
protected:
    DynamicQuerying() {
        up = &net.AddServent(NodeMode::UltraPeer, {}, [](ServentConfig& c) {
            c.leaf_query_target = 50;
            c.probe_links = 3;
        });
        for (int i = 0; i < 6; ++i) {
            auto& raw = net.AddRaw();
            ups.push_back({&raw, RawUltrapeer(net, raw, *up, "X-Degree: 10\r\n")});
        }
        leaf = &net.AddRaw();
        leaf_id = RawLeaf(net, *leaf, *up);
        headers = AsText(ups[0].first->inbox);
        for (auto& [raw, id] : ups)
            raw->inbox.clear();
        leaf->inbox.clear();
        guid.bytes[0] = 0x42;
    }

    // The queries each neighbour has been sent so far.
    std::vector<std::vector<Message>> Queried() {
        std::vector<std::vector<Message>> out;
        for (auto& [raw, id] : ups)
            out.push_back(OfType(Read(*raw, 0), PayloadType::Query));
        return out;
    }

    void Answer(std::size_t neighbour, std::size_t results) {
        auto [raw, id] = ups[neighbour];
        net.RawSend(*raw, id, Frame(guid, PayloadType::QueryHit, 3, 0, HitPayload(results)));
        net.Run();
    }

    void Later(std::chrono::milliseconds step) {
        net.now += step;
        up->servent->Tick();
        net.Run();
    }

    SimNet net;
    SimNet::Station* up = nullptr;
    std::vector<std::pair<SimNet::Station*, PeerId>> ups;
    SimNet::Station* leaf = nullptr;
    PeerId leaf_id = 0;
    std::string headers;
    Guid guid;
};

TEST_F(DynamicQuerying, ProbesThenWidensByTheHitCountsAndStopsAtItsTarget) {
    // Real leaves want these before they take us as their ultrapeer.
    EXPECT_NE(headers.find("X-Degree: 32"), std::string::npos) << headers;
    EXPECT_NE(headers.find("X-Dynamic-Querying: 0.1"), std::string::npos);

    net.RawSend(*leaf, leaf_id, Frame(guid, PayloadType::Query, 3, 0, QueryPayload("alpha")));
    net.Run();
    auto sent = Queried();
    std::vector<std::size_t> probed;
    for (std::size_t i = 0; i < sent.size(); ++i) {
        if (sent[i].empty())
            continue;
        probed.push_back(i);
        ASSERT_EQ(sent[i].size(), 1u);
        EXPECT_EQ(sent[i][0].header.ttl, 1);
        EXPECT_EQ(sent[i][0].header.hops, 1);
    }
    ASSERT_EQ(probed.size(), 3u) << "the probe goes over three links at TTL 1";

    // Ten results from each probed host: common enough that two more hosts will do, which a
    // link of degree 10 reaches at TTL 2.
    for (auto i : probed)
        Answer(i, 10);
    EXPECT_EQ(OfType(Read(*leaf, 0), PayloadType::QueryHit).size(), 3u);
    Later(std::chrono::milliseconds(1000));
    EXPECT_EQ(up->servent->stats().dynamic_steps, 0u) << "the probe has its time";
    Later(std::chrono::milliseconds(1500));
    sent = Queried();
    std::vector<std::size_t> widened;
    for (std::size_t i = 0; i < sent.size(); ++i)
        if (!sent[i].empty() && std::find(probed.begin(), probed.end(), i) == probed.end())
            widened.push_back(i);
    ASSERT_EQ(widened.size(), 1u) << "one link at a time";
    EXPECT_EQ(sent[widened[0]][0].header.ttl, 2);

    // Twenty-five more: 55 reach the target of 50, and nothing more goes out however long.
    Answer(widened[0], 25);
    for (int i = 0; i < 10; ++i)
        Later(std::chrono::seconds(5));
    std::size_t reached = 0;
    for (const auto& queries : Queried())
        reached += !queries.empty();
    EXPECT_EQ(reached, 4u);
    EXPECT_EQ(up->servent->stats().dynamic_steps, 1u);
}

TEST_F(DynamicQuerying, WithoutResultsItGoesFarAndTheLeafCanStopIt) {
    // The leaf says it answers query status requests.
    net.RawSend(*leaf, leaf_id,
                SerializeMessage(
                    MakeVendorMessage(guid, VendorSelector::MessagesSupported, 0,
                                      MessagesSupportedData({{"BEAR", 11, 1}, {"BEAR", 12, 1}}))));
    net.RawSend(*leaf, leaf_id, Frame(guid, PayloadType::Query, 3, 0, QueryPayload("rare")));
    net.Run();
    leaf->inbox.clear();
    Later(std::chrono::milliseconds(2500));
    std::size_t deepest = 0;
    for (const auto& queries : Queried())
        for (const auto& q : queries)
            deepest = std::max<std::size_t>(deepest, q.header.ttl);
    EXPECT_EQ(deepest, 3u) << "nothing found yet: as far as allowed";

    // Asked how it goes, the leaf says stop: the query ends where it is.
    auto requests = OfType(Read(*leaf, 0), PayloadType::VendorMessage);
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].header.guid, guid);
    auto request = ParseCommonVendorMessage(requests[0].payload);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->selector, VendorSelector::QueryStatusRequest);
    Bytes stop;
    PutU16Le(stop, kQueryStatusStop);
    net.RawSend(
        *leaf, leaf_id,
        SerializeMessage(MakeVendorMessage(guid, VendorSelector::QueryStatusResponse, 1, stop)));
    net.Run();
    for (int i = 0; i < 10; ++i)
        Later(std::chrono::seconds(10));
    EXPECT_EQ(up->servent->stats().dynamic_steps, 1u);
}

TEST(LeafVendorMessages, TheLeafListsWhatItReadsAndReportsItsResults) {
    SimNet net;
    auto& leaf = net.AddServent(NodeMode::LeafPeer);
    auto& raw = net.AddRaw();
    // Leaves dial; this ultrapeer says it reads vendor messages.
    PeerId id = net.Link(leaf, raw);
    net.Run();
    net.RawSend(raw, id,
                "GNUTELLA/0.6 200 OK\r\nUser-Agent: Raw/1.0\r\nX-Ultrapeer: True\r\n"
                "X-Query-Routing: 0.1\r\nVendor-Message: 0.1\r\n\r\n");
    net.Run();
    ASSERT_EQ(OpenPeers(*leaf.servent, PeerKind::Ultrapeer).size(), 1u);
    // A link that says Vendor-Message hears which ones we read.
    auto supported = OfType(Read(raw, 2), PayloadType::VendorMessage);
    ASSERT_FALSE(supported.empty());
    auto listed = ParseCommonVendorMessage(supported[0].payload);
    ASSERT_TRUE(listed);
    EXPECT_EQ(listed->selector, VendorSelector::MessagesSupported);
    auto kinds = ParseMessagesSupported(listed->data);
    ASSERT_TRUE(kinds);
    EXPECT_EQ(*kinds, OwnSupportedMessages());
    raw.inbox.clear();

    Guid search = leaf.servent->StartSearch("alpha");
    net.RawSend(raw, id, Frame(search, PayloadType::QueryHit, 3, 0, HitPayload(5)));
    auto ask = [&] {
        raw.inbox.clear();
        net.RawSend(
            raw, id,
            SerializeMessage(MakeVendorMessage(search, VendorSelector::QueryStatusRequest, 1, {})));
        net.Run();
        auto answers = OfType(Read(raw, 0), PayloadType::VendorMessage);
        EXPECT_EQ(answers.size(), 1u);
        if (answers.empty())
            return -1;
        auto answer = ParseCommonVendorMessage(answers[0].payload);
        EXPECT_EQ(answer->selector, VendorSelector::QueryStatusResponse);
        EXPECT_EQ(answers[0].header.guid, search);
        return answer->data[0] | (answer->data[1] << 8);
    };
    EXPECT_EQ(ask(), 5);
    leaf.servent->StopSearch(search);
    EXPECT_EQ(ask(), 0xFFFF);
}

TEST(UltrapeerVendorMessages, HopsFlowAndConnectBackAreHonoured) {
    SimNet net;
    auto& up = net.AddServent(NodeMode::UltraPeer);
    auto& asker = net.AddRaw();
    PeerId asker_id = RawUltrapeer(net, asker, up);
    auto& leaf = net.AddRaw();
    PeerId leaf_id = RawLeaf(net, leaf, up);
    // The leaf's table has every word; then it asks for no queries at all.
    QueryRouteTable table;
    table.Add("alpha");
    for (auto& payload : BuildQrpUpdate(table))
        net.RawSend(leaf, leaf_id, Frame(Guid{}, PayloadType::RouteTable, 1, 0, payload));
    net.RawSend(leaf, leaf_id,
                SerializeMessage(MakeVendorMessage(Guid{}, VendorSelector::HopsFlow, 1, Bytes{0})));
    net.Run();
    leaf.inbox.clear();
    Guid q;
    q.bytes[1] = 1;
    net.RawSend(asker, asker_id, Frame(q, PayloadType::Query, 2, 0, QueryPayload("alpha")));
    net.Run();
    EXPECT_TRUE(OfType(Read(leaf, 0), PayloadType::Query).empty());

    // Connect-back goes to the asking link's own address, once.
    Bytes port;
    PutU16Le(port, 5555);
    for (int i = 0; i < 3; ++i)
        net.RawSend(
            leaf, leaf_id,
            SerializeMessage(MakeVendorMessage(Guid{}, VendorSelector::TcpConnectBack, 1, port)));
    net.Run();
    ASSERT_EQ(up.connect_backs.size(), 1u);
    EXPECT_EQ(up.connect_backs[0], (Endpoint{leaf.address.ip, 5555}));
}

} // namespace
} // namespace corvid::gnutella

namespace corvid::gnutella {
namespace {

TEST(LastHopQueryRouting, UltrapeersExchangeMergedTablesAndTtlOneQueriesHonourThem) {
    SimNet net;
    auto& up = net.AddServent(NodeMode::UltraPeer, {"gamma ray.mp3"});
    auto& leaf = net.AddServent(NodeMode::LeafPeer, {"alpha song.mp3"});
    net.Link(leaf, up);
    net.Run();
    auto& neighbour = net.AddRaw();
    PeerId neighbour_id =
        RawUltrapeer(net, neighbour, up, "X-Ultrapeer-Query-Routing: 0.1\r\nX-Max-TTL: 4\r\n");
    auto& asker = net.AddRaw();
    PeerId asker_id = RawUltrapeer(net, asker, up);
    up.servent->Tick();
    net.Run();

    // The table we are sent holds our own file and our leaf's.
    QrpReceiver ours;
    QrpReceiver::Result last = QrpReceiver::Result::Ok;
    for (const auto& m : OfType(Read(neighbour, 1), PayloadType::RouteTable))
        last = ours.Apply(m.payload);
    ASSERT_EQ(last, QrpReceiver::Result::Complete);
    EXPECT_TRUE(ours.table()->MatchesQuery("alpha", {}));
    EXPECT_TRUE(ours.table()->MatchesQuery("gamma", {}));
    EXPECT_FALSE(ours.table()->MatchesQuery("delta", {}));
    // An ultrapeer that did not ask gets no table.
    EXPECT_TRUE(OfType(Read(asker, 1), PayloadType::RouteTable).empty());

    // The neighbour's table has "beta" only: a query reaching it at TTL 1 goes only for beta.
    QueryRouteTable theirs;
    theirs.Add("beta");
    for (const auto& payload : BuildQrpUpdate(theirs))
        net.RawSend(neighbour, neighbour_id, Frame(Guid{}, PayloadType::RouteTable, 1, 0, payload));
    net.Run();
    neighbour.inbox.clear();
    Guid first, second, third;
    first.bytes[0] = 1;
    second.bytes[0] = 2;
    third.bytes[0] = 3;
    net.RawSend(asker, asker_id, Frame(first, PayloadType::Query, 2, 0, QueryPayload("alpha")));
    net.RawSend(asker, asker_id, Frame(second, PayloadType::Query, 2, 0, QueryPayload("beta")));
    net.RawSend(asker, asker_id, Frame(third, PayloadType::Query, 3, 0, QueryPayload("alpha")));
    net.Run();
    std::set<Guid> reached;
    for (const auto& q : OfType(Read(neighbour, 0), PayloadType::Query))
        reached.insert(q.header.guid);
    // Beta at TTL 1 and alpha at TTL 2 (the table speaks for the last hop only).
    EXPECT_EQ(reached, (std::set<Guid>{second, third}));

    // Tables of different sizes merge into ours slot for slot.
    QueryRouteTable small(1024), large(1u << 18), merged;
    small.Add("alpha");
    large.Add("beta");
    merged.MergeFrom(small);
    merged.MergeFrom(large);
    EXPECT_TRUE(merged.Contains("alpha"));
    EXPECT_TRUE(merged.Contains("beta"));
    EXPECT_FALSE(merged.MatchesQuery("gamma", {}));
}

} // namespace
} // namespace corvid::gnutella

namespace corvid::gnutella {
namespace {

// A leaf sharing more files while it is linked: its ultrapeer, a leaf searching through it and a
// raw ultrapeer neighbour that takes merged tables, on the test clock ticked once a second.
class TableUpdates : public ::testing::Test {
protected:
    TableUpdates() {
        up = &net.AddServent(NodeMode::UltraPeer);
        sharer = &net.AddServent(NodeMode::LeafPeer, {"alpha song.mp3"});
        asker = &net.AddServent(NodeMode::LeafPeer);
        net.Link(*sharer, *up);
        net.Link(*asker, *up);
        net.Run();
        neighbour = &net.AddRaw();
        RawUltrapeer(net, *neighbour, *up, "X-Ultrapeer-Query-Routing: 0.1\r\n");
        Tick();
        tables_before = up->recorder.tables;
        merged_before = MergedTables();
    }

    void Tick() {
        net.now += std::chrono::seconds(1);
        for (auto* s : {up, sharer, asker})
            s->servent->Tick();
        net.Run();
    }

    // Tables the sharer has sent its ultrapeer since the test began.
    int SharerTables() const { return up->recorder.tables - tables_before; }

    // Whole tables the neighbour has been sent, each begun by a reset, and the last of them.
    int MergedTables(QrpReceiver* last = nullptr) const {
        int count = 0;
        for (const auto& m : OfType(Read(*neighbour, 1), PayloadType::RouteTable)) {
            if (!m.payload.empty() && m.payload[0] == 0x00) {
                ++count;
                if (last)
                    *last = QrpReceiver();
            }
            if (last)
                last->Apply(m.payload);
        }
        return count;
    }

    std::set<std::string> Search(const std::string& words) {
        asker->recorder.hits.clear();
        asker->servent->StartSearch(words);
        net.Run();
        std::set<std::string> names;
        for (const auto& hit : asker->recorder.hits)
            for (const auto& r : hit.results)
                names.insert(r.name);
        return names;
    }

    SimNet net;
    SimNet::Station* up = nullptr;
    SimNet::Station* sharer = nullptr;
    SimNet::Station* asker = nullptr;
    SimNet::Station* neighbour = nullptr;
    int tables_before = 0;
    int merged_before = 0;
};

TEST_F(TableUpdates, ANewlySharedFileIsFoundThroughTheUltrapeerWithinSeconds) {
    EXPECT_TRUE(Search("zephyr").empty());
    sharer->files.Add("zephyr tune.ogg", 5000, "");
    const auto changed = net.now;
    while (SharerTables() == 0 && net.now - changed < std::chrono::seconds(120))
        Tick();
    EXPECT_LE(net.now - changed, std::chrono::seconds(8)) << "not a minute later";
    EXPECT_EQ(Search("zephyr"), std::set<std::string>{"zephyr tune.ogg"});

    // The ultrapeer's neighbours learn it as soon: their last hop reaches the leaf's file too.
    while (MergedTables() == merged_before && net.now - changed < std::chrono::seconds(120))
        Tick();
    EXPECT_LE(net.now - changed, std::chrono::seconds(16));
    QrpReceiver merged;
    MergedTables(&merged);
    ASSERT_TRUE(merged.table().has_value());
    EXPECT_TRUE(merged.table()->MatchesQuery("zephyr", {}));
    EXPECT_TRUE(merged.table()->MatchesQuery("alpha", {}));
}

TEST_F(TableUpdates, ABurstOfChangesSendsOneTableAndAStreamOfThemOneAMinute) {
    // A folder walked and hashed over four seconds.
    for (int i = 0; i < 40; ++i) {
        sharer->files.Add("walked " + std::to_string(i) + ".txt", 100, "");
        if (i % 10 == 9)
            Tick();
    }
    for (int i = 0; i < 30; ++i)
        Tick();
    EXPECT_EQ(SharerTables(), 1);
    EXPECT_EQ(MergedTables() - merged_before, 1);
    EXPECT_EQ(Search("walked 39"), std::set<std::string>{"walked 39.txt"});

    // A library that never rests (a large one being hashed) still sends its table each minute.
    for (int i = 0; i < 150; ++i) {
        sharer->files.Add("hashed " + std::to_string(i) + ".txt", 100, "");
        Tick();
    }
    EXPECT_EQ(SharerTables(), 1 + 2);
    for (int i = 0; i < 120; ++i)
        Tick();
    EXPECT_EQ(SharerTables(), 1 + 3) << "and once more when it rests";
    EXPECT_EQ(Search("hashed 149"), std::set<std::string>{"hashed 149.txt"});
}

} // namespace
} // namespace corvid::gnutella

namespace corvid::gnutella {
namespace {

// One ultrapeer under test with a polite neighbour that hears what gets through, and raw peers
// that misbehave one way each. Every abuser must go, with the reason the observer sees; every
// well-behaved pattern next to it must stay.
class DropPolicies : public ::testing::Test {
protected:
    void SetUp() override {
        up = &net.AddServent(NodeMode::UltraPeer, {"alpha song.mp3"});
        listener = &net.AddRaw();
        listener_id = RawUltrapeer(net, *listener, *up);
        listener->inbox.clear();
    }

    PeerId Leaf(SimNet::Station& raw) {
        PeerId id = net.Link(raw, *up);
        net.RawSend(raw, id,
                    "GNUTELLA CONNECT/0.6\r\nX-Ultrapeer: False\r\nX-Query-Routing: 0.1\r\n\r\n");
        net.Run();
        net.RawSend(raw, id, "GNUTELLA/0.6 200 OK\r\n\r\n");
        net.Run();
        return id;
    }

    // The reason the observer heard for the peer at this raw end's address, empty if it stayed.
    std::string ReasonFor(const SimNet::Station& raw) const {
        for (const auto& [peer, reason] : up->recorder.drops)
            if (peer.remote == raw.address)
                return reason;
        return {};
    }

    Bytes PushTo(const Guid& servent) {
        return Frame(Guid::Random(rng), PayloadType::Push, 3, 0,
                     SerializePush({servent, 1, 0x0A000001, 6346}));
    }

    Bytes BrokenGgepQuery(const std::string& text) {
        Bytes payload = QueryPayload(text);
        payload.insert(payload.end(), {kGgepMagic, 0x00, 0x42});
        return Frame(Guid::Random(rng), PayloadType::Query, 3, 0, payload);
    }

    SimNet net;
    SimNet::Station* up = nullptr;
    SimNet::Station* listener = nullptr;
    PeerId listener_id = 0;
    std::mt19937_64 rng{17};
};

TEST_F(DropPolicies, EveryClosedLinkReachesTheObserverWithItsReason) {
    auto& polite = net.AddRaw();
    PeerId polite_id = RawUltrapeer(net, polite, *up);
    net.RawSend(polite, polite_id,
                Frame(Guid::Random(rng), PayloadType::Bye, 1, 0, SerializeBye({200, "Done"})));
    auto& broken = net.AddRaw();
    RawUltrapeer(net, broken, *up);
    net.Run();
    for (const auto& p : up->servent->Peers())
        if (p.remote == broken.address)
            up->servent->Lost(p.id);
    auto& quiet = net.AddRaw();
    net.Link(quiet, *up);
    net.now += std::chrono::seconds(16);
    up->servent->Tick();
    net.Run();

    EXPECT_EQ(ReasonFor(polite), "Bye 200 Done");
    EXPECT_EQ(ReasonFor(broken), "Connection lost");
    EXPECT_EQ(ReasonFor(quiet), "Handshake timeout");
    for (const auto& [peer, reason] : up->recorder.drops) {
        if (peer.remote == quiet.address) {
            EXPECT_EQ(peer.kind, PeerKind::Handshaking);
        }
    }
    EXPECT_EQ(up->servent->Peers().size(), 1u);
}

TEST_F(DropPolicies, APushStormGoesWhileADownloadsBurstAndARelayStay) {
    Guid firewalled = Guid::Random(rng);
    auto& storm = net.AddHostile();
    PeerId storm_id = RawUltrapeer(net, storm, *up);
    for (int i = 0; i < 1000 && !storm.hung_up; ++i) {
        net.RawSend(storm, storm_id, PushTo(firewalled));
        net.Run();
    }
    EXPECT_TRUE(storm.hung_up);
    EXPECT_EQ(ReasonFor(storm), "Push flood");

    // A download from 150 firewalled sources at once, then an ultrapeer relaying ten a second
    // for a minute.
    auto& relay = net.AddRaw();
    PeerId relay_id = RawUltrapeer(net, relay, *up);
    for (int i = 0; i < 150; ++i)
        net.RawSend(relay, relay_id, PushTo(Guid::Random(rng)));
    net.Run();
    for (int second = 0; second < 60; ++second) {
        net.now += std::chrono::seconds(1);
        for (int i = 0; i < 10; ++i)
            net.RawSend(relay, relay_id, PushTo(firewalled));
        net.Run();
    }
    EXPECT_FALSE(relay.hung_up);
    EXPECT_EQ(ReasonFor(relay), "");
}

TEST_F(DropPolicies, BrokenGgepIsToleratedAndStrippedNowAndThenButNotFromALinkThatKeepsSendingIt) {
    // A neighbour relaying one bad query every two seconds: the queries still travel.
    auto& relay = net.AddRaw();
    PeerId relay_id = RawUltrapeer(net, relay, *up);
    for (int i = 0; i < 60; ++i) {
        net.now += std::chrono::seconds(2);
        net.RawSend(relay, relay_id, BrokenGgepQuery("relayed " + std::to_string(i)));
        net.Run();
    }
    EXPECT_FALSE(relay.hung_up);
    auto relayed = OfType(Read(*listener, 0), PayloadType::Query);
    ASSERT_EQ(relayed.size(), 60u);
    // Without the broken block: the next ultrapeer must not blame us for it.
    EXPECT_EQ(ParseQuery(relayed[0].payload)->text, "relayed 0");
    EXPECT_FALSE(ParseQuery(relayed[0].payload)->broken_ggep);

    auto& breaker = net.AddHostile();
    PeerId breaker_id = RawUltrapeer(net, breaker, *up);
    for (int i = 0; i < 100 && !breaker.hung_up; ++i) {
        net.RawSend(breaker, breaker_id, BrokenGgepQuery("broken " + std::to_string(i)));
        net.Run();
    }
    EXPECT_TRUE(breaker.hung_up);
    EXPECT_EQ(ReasonFor(breaker), "Broken GGEP");

    // Broken pongs count the same.
    auto& ponger = net.AddHostile();
    PeerId ponger_id = RawUltrapeer(net, ponger, *up);
    Bytes pong = SerializePong({6346, 0x01020304, 1, 2, {}});
    pong.insert(pong.end(), {kGgepMagic, 0x00});
    for (int i = 0; i < 100 && !ponger.hung_up; ++i) {
        net.RawSend(ponger, ponger_id, Frame(Guid::Random(rng), PayloadType::Pong, 1, 0, pong));
        net.Run();
    }
    EXPECT_EQ(ReasonFor(ponger), "Broken GGEP");
}

TEST_F(DropPolicies, ALeafThatKeepsFloodingGoesAndOneThatRequeriesStays) {
    auto& flooder = net.AddHostile();
    PeerId flooder_id = Leaf(flooder);
    for (int i = 0; i < 1000 && !flooder.hung_up; ++i) {
        net.RawSend(flooder, flooder_id,
                    Frame(Guid::Random(rng), PayloadType::Query, 3, 0,
                          QueryPayload("flood " + std::to_string(i))));
        net.Run();
    }
    EXPECT_TRUE(flooder.hung_up);
    EXPECT_EQ(ReasonFor(flooder), "Query flood");
    EXPECT_EQ(up->servent->stats().queries_dropped_for_rate, 101u);

    // Re-querying 60 open searches at start-up, then two a second for two minutes.
    auto& requery = net.AddRaw();
    PeerId requery_id = Leaf(requery);
    int sent = 0;
    for (int i = 0; i < 60; ++i)
        net.RawSend(requery, requery_id,
                    Frame(Guid::Random(rng), PayloadType::Query, 3, 0,
                          QueryPayload("open " + std::to_string(sent++))));
    net.Run();
    for (int i = 0; i < 240; ++i) {
        net.now += std::chrono::milliseconds(500);
        net.RawSend(requery, requery_id,
                    Frame(Guid::Random(rng), PayloadType::Query, 3, 0,
                          QueryPayload("open " + std::to_string(sent++))));
        net.Run();
    }
    EXPECT_FALSE(requery.hung_up);
}

TEST_F(DropPolicies, PingsEveryMillisecondGoWithinTheBurst) {
    auto& pinger = net.AddHostile();
    PeerId pinger_id = RawUltrapeer(net, pinger, *up);
    int sent = 0;
    for (; sent < 1000 && !pinger.hung_up; ++sent) {
        net.now += std::chrono::milliseconds(1);
        net.RawSend(pinger, pinger_id, Frame(Guid::Random(rng), PayloadType::Ping, 1, 0, {}));
        net.Run();
    }
    EXPECT_TRUE(pinger.hung_up);
    EXPECT_LE(sent, 12);
    EXPECT_EQ(ReasonFor(pinger), "Ping flood");
}

TEST_F(DropPolicies, ATableOverTheLimitDropsTheLeafOneAtTheLimitIsKept) {
    auto& greedy = net.AddHostile();
    PeerId greedy_id = Leaf(greedy);
    net.RawSend(greedy, greedy_id,
                Frame(Guid::Random(rng), PayloadType::RouteTable, 1, 0,
                      Bytes{0x00, 0x00, 0x00, 0x00, 0x80, 7})); // 2^31 slots
    net.Run();
    EXPECT_TRUE(greedy.hung_up);
    EXPECT_EQ(ReasonFor(greedy), "Query routing table too big");

    auto& big = net.AddRaw();
    PeerId big_id = Leaf(big);
    QueryRouteTable table(kQrpMaxTableSize);
    table.Add("gamma");
    for (auto& payload : BuildQrpUpdate(table))
        net.RawSend(big, big_id, Frame(Guid::Random(rng), PayloadType::RouteTable, 1, 0, payload));
    net.Run();
    EXPECT_FALSE(big.hung_up);
    EXPECT_EQ(up->recorder.tables, 1);
}

TEST_F(DropPolicies, MaximumSizeMessagesOfSmallKindsAreSkippedThenTheLinkGoes) {
    auto& sender = net.AddHostile();
    PeerId sender_id = RawUltrapeer(net, sender, *up);
    Bytes huge_query = QueryPayload("alpha");
    huge_query.resize(kMaxPayload, 'x');
    for (int i = 0; i < 3; ++i)
        net.RawSend(sender, sender_id,
                    Frame(Guid::Random(rng), PayloadType::Query, 3, 0, huge_query));
    net.Run();
    EXPECT_FALSE(sender.hung_up);
    EXPECT_TRUE(OfType(Read(*listener, 0), PayloadType::Query).empty());
    net.RawSend(sender, sender_id,
                Frame(Guid::Random(rng), PayloadType::Ping, 1, 0, Bytes(kMaxPayload, 0)));
    net.Run();
    EXPECT_TRUE(sender.hung_up);
    EXPECT_EQ(ReasonFor(sender), "Oversized messages");

    // A hit of the full size is routed back like any other.
    Guid guid = Guid::Random(rng);
    net.RawSend(*listener, listener_id,
                Frame(guid, PayloadType::Query, 3, 0, QueryPayload("zeta")));
    net.Run();
    auto& answerer = net.AddRaw();
    PeerId answerer_id = RawUltrapeer(net, answerer, *up);
    QueryHit hit;
    hit.servent = Guid::Random(rng);
    hit.results.push_back({1, 10, std::string(kMaxPayload - 200, 'z'), "", "", {}});
    Bytes payload = SerializeQueryHit(hit);
    ASSERT_LE(payload.size(), kMaxPayload);
    listener->inbox.clear();
    net.RawSend(answerer, answerer_id, Frame(guid, PayloadType::QueryHit, 3, 0, payload));
    net.Run();
    EXPECT_EQ(OfType(Read(*listener, 0), PayloadType::QueryHit).size(), 1u);
    EXPECT_FALSE(answerer.hung_up);
}

TEST_F(DropPolicies, AHandshakeDribbledByteByByteStillTimesOut) {
    auto& slow = net.AddRaw();
    PeerId slow_id = net.Link(slow, *up);
    std::string text = "GNUTELLA CONNECT/0.6\r\nUser-Agent: ";
    net.RawSend(slow, slow_id, text);
    for (int i = 0; i < 40 && !slow.hung_up; ++i) {
        net.now += std::chrono::seconds(1);
        net.RawSend(slow, slow_id, "a");
        up->servent->Tick();
        net.Run();
    }
    EXPECT_TRUE(slow.hung_up);
    EXPECT_EQ(ReasonFor(slow), "Handshake timeout");
}

// The user lowers and raises the link counts while the ultrapeer runs.
TEST(LinkCounts, LoweredCountsCloseTheNewestLinksAndRaisedOnesAreDialledFor) {
    SimNet net;
    auto& up = net.AddServent(NodeMode::UltraPeer, {},
                              [](ServentConfig& c) { c.network.ultrapeer_min_count = 0; });
    std::vector<std::pair<SimNet::Station*, PeerId>> leaves, ultrapeers;
    for (int i = 0; i < 3; ++i) {
        auto& raw = net.AddRaw();
        leaves.push_back({&raw, RawLeaf(net, raw, up)});
    }
    for (int i = 0; i < 2; ++i) {
        auto& raw = net.AddRaw();
        ultrapeers.push_back({&raw, RawUltrapeer(net, raw, up)});
    }
    ASSERT_EQ(OpenPeers(*up.servent, PeerKind::Leaf).size(), 3u);
    ASSERT_EQ(OpenPeers(*up.servent, PeerKind::Ultrapeer).size(), 2u);
    for (auto& [raw, id] : leaves)
        raw->inbox.clear();
    for (auto& [raw, id] : ultrapeers)
        raw->inbox.clear();

    NetworkSettings fewer;
    fewer.ultrapeer_max_count = 1;
    fewer.ultrapeer_min_count = 0;
    fewer.leaf_peer_max_count = 1;
    up.servent->SetLinkCounts(fewer);
    net.Run();
    auto said_bye = [](const SimNet::Station& raw) {
        auto byes = OfType(Read(raw, 0), PayloadType::Bye);
        return raw.hung_up && byes.size() == 1 && ParseBye(byes[0].payload)->code == 200 &&
               ParseBye(byes[0].payload)->reason == "Fewer links wanted";
    };
    EXPECT_FALSE(leaves[0].first->hung_up);
    EXPECT_TRUE(said_bye(*leaves[1].first));
    EXPECT_TRUE(said_bye(*leaves[2].first));
    EXPECT_FALSE(ultrapeers[0].first->hung_up);
    EXPECT_TRUE(said_bye(*ultrapeers[1].first));
    EXPECT_EQ(up.servent->Peers().size(), 2u);

    // Full at the new count: another ultrapeer is refused.
    auto& late = net.AddRaw();
    PeerId late_id = net.Link(late, up);
    net.RawSend(late, late_id, "GNUTELLA CONNECT/0.6\r\nX-Ultrapeer: True\r\n\r\n");
    net.Run();
    EXPECT_TRUE(AsText(late.inbox).starts_with("GNUTELLA/0.6 503"));

    // Raised again: the upkeep dials for the missing links and says its new degree.
    auto& first = net.AddServent(NodeMode::UltraPeer);
    auto& second = net.AddServent(NodeMode::UltraPeer);
    up.servent->hosts().Add(first.address);
    up.servent->hosts().Add(second.address);
    NetworkSettings more;
    more.ultrapeer_max_count = 3;
    more.ultrapeer_min_count = 3;
    more.leaf_peer_max_count = 1;
    up.servent->SetLinkCounts(more);
    up.servent->Tick();
    net.Run();
    EXPECT_EQ(LinkedServents(*up.servent).count(first.address), 1u);
    EXPECT_EQ(LinkedServents(*up.servent).count(second.address), 1u);
    EXPECT_EQ(OpenPeers(*up.servent, PeerKind::Ultrapeer).size(), 3u);
    EXPECT_EQ(OpenPeers(*up.servent, PeerKind::Leaf).size(), 1u);
    auto& asker = net.AddRaw();
    PeerId asker_id = net.Link(asker, up);
    net.RawSend(asker, asker_id, "GNUTELLA CONNECT/0.6\r\nX-Ultrapeer: True\r\n\r\n");
    net.Run();
    EXPECT_NE(AsText(asker.inbox).find("X-Degree: 3"), std::string_view::npos);
}

// The last reason `servent` gave for closing a link from this raw end's address, empty if none.
std::string LastReason(const SimNet::Station& servent, const SimNet::Station& raw) {
    std::string reason;
    for (const auto& [peer, why] : servent.recorder.drops)
        if (peer.remote == raw.address)
            reason = why;
    return reason;
}

// Addresses dropped for abuse rest: their handshakes get a plain 503 and we do not dial them,
// for a rest that doubles with each repeat.
class AbuseRest : public ::testing::Test {
protected:
    void Start(std::function<void(ServentConfig&)> adjust = {}) {
        up = &net.AddServent(NodeMode::UltraPeer, {}, std::move(adjust));
    }

    // A new link from the raw end: its handshake, and the status line it was answered with.
    std::string Greet(SimNet::Station& raw, bool leaf = false, bool query_routing = true) {
        raw.inbox.clear();
        raw.hung_up = false;
        last_id = net.Link(raw, *up);
        net.RawSend(raw, last_id,
                    std::string("GNUTELLA CONNECT/0.6\r\nX-Ultrapeer: ") +
                        (leaf ? "False" : "True") + "\r\n" +
                        (query_routing ? "X-Query-Routing: 0.1\r\n" : "") + "\r\n");
        net.Run();
        std::string_view text = AsText(raw.inbox);
        return std::string(text.substr(0, text.find("\r\n")));
    }

    // Joins as an ultrapeer and pings until dropped; true when that was for the flood.
    bool Abuse(SimNet::Station& raw) {
        if (Greet(raw) != "GNUTELLA/0.6 200 OK")
            return false;
        net.RawSend(raw, last_id, "GNUTELLA/0.6 200 OK\r\n\r\n");
        for (int i = 0; i < 50 && !raw.hung_up; ++i) {
            net.RawSend(raw, last_id, Frame(Guid::Random(rng), PayloadType::Ping, 1, 0, {}));
            net.Run();
        }
        return raw.hung_up && LastReason(*up, raw) == "Ping flood";
    }

    SimNet net;
    SimNet::Station* up = nullptr;
    PeerId last_id = 0;
    std::mt19937_64 rng{23};
};

constexpr char kResting[] = "GNUTELLA/0.6 503 Resting after abuse";
constexpr char kWelcome[] = "GNUTELLA/0.6 200 OK";

TEST_F(AbuseRest, AnAbusersAddressRestsLongerWithEachRepeatWhileItsLoopbackNeighboursAreServed) {
    Start();
    auto& abuser = net.AddHostile();
    auto& neighbour = net.AddRaw();
    ASSERT_TRUE(Abuse(abuser));
    EXPECT_EQ(Greet(abuser), kResting);
    EXPECT_TRUE(abuser.hung_up);
    EXPECT_EQ(LastReason(*up, abuser), "Resting after abuse");
    EXPECT_EQ(Greet(neighbour), kWelcome);
    // A refusal is not another offence.
    EXPECT_EQ(up->servent->stats().peers_dropped_for_abuse, 1u);
    EXPECT_EQ(up->servent->stats().handshakes_refused_resting, 1u);

    // A minute, doubling with each repeat up to half an hour.
    for (int rest : {60, 120, 240, 480, 960, 1800, 1800}) {
        SCOPED_TRACE("rest of " + std::to_string(rest) + " s");
        auto offended = net.now;
        net.now = offended + std::chrono::seconds(rest - 1);
        EXPECT_EQ(Greet(abuser), kResting);
        net.now = offended + std::chrono::seconds(rest + 1);
        ASSERT_TRUE(Abuse(abuser));
    }
    EXPECT_EQ(up->servent->stats().peers_dropped_for_abuse, 8u);

    // Good behaviour for long enough and the address starts afresh.
    net.now += std::chrono::hours(3);
    ASSERT_TRUE(Abuse(abuser));
    net.now += std::chrono::seconds(61);
    EXPECT_EQ(Greet(abuser), kWelcome);
}

TEST_F(AbuseRest, ByesTimeoutsRefusalsAndLostLinksLeaveTheAddressFree) {
    Start();
    auto& polite = net.AddHostile();
    ASSERT_EQ(Greet(polite), kWelcome);
    net.RawSend(polite, last_id, "GNUTELLA/0.6 200 OK\r\n\r\n");
    net.RawSend(polite, last_id,
                Frame(Guid::Random(rng), PayloadType::Bye, 1, 0, SerializeBye({200, "Done"})));
    net.Run();
    EXPECT_EQ(Greet(polite), kWelcome);

    auto& quiet = net.AddHostile();
    net.Link(quiet, *up);
    net.now += std::chrono::seconds(16);
    up->servent->Tick();
    net.Run();
    EXPECT_EQ(LastReason(*up, quiet), "Handshake timeout");
    EXPECT_EQ(Greet(quiet), kWelcome);

    auto& unready = net.AddHostile();
    EXPECT_EQ(Greet(unready, true, false), "GNUTELLA/0.6 503 Query routing required");
    EXPECT_EQ(Greet(unready, true), kWelcome);

    auto& broken = net.AddHostile();
    ASSERT_EQ(Greet(broken), kWelcome);
    up->servent->Lost(up->servent->Peers().back().id);
    net.Run();
    EXPECT_EQ(Greet(broken), kWelcome);
    EXPECT_EQ(up->servent->stats().handshakes_refused_resting, 0u);
}

TEST_F(AbuseRest, ARestingAddressIsNotDialledUntilItsRestIsOver) {
    Start();
    auto& abuser = net.AddHostile();
    ASSERT_TRUE(Abuse(abuser));
    up->dials.clear();
    up->servent->hosts().Add(abuser.address);
    up->servent->ConnectTo(abuser.address);
    up->servent->Tick();
    net.Run();
    EXPECT_TRUE(up->dials.empty());

    net.now += std::chrono::seconds(61);
    up->servent->Tick();
    net.Run();
    EXPECT_EQ(up->dials, std::vector<Endpoint>{abuser.address});
}

TEST_F(AbuseRest, TheTableHoldsAFixedNumberOfAddressesAndTheOldestOffenceMakesRoom) {
    Start([](ServentConfig& c) { c.abuse_rest.capacity = 3; });
    std::vector<SimNet::Station*> abusers;
    for (int i = 0; i < 4; ++i) {
        abusers.push_back(&net.AddHostile());
        ASSERT_TRUE(Abuse(*abusers.back()));
        net.now += std::chrono::seconds(1);
    }
    EXPECT_EQ(Greet(*abusers[0]), kWelcome);
    for (int i = 1; i < 4; ++i)
        EXPECT_EQ(Greet(*abusers[i]), kResting) << i;
}

// Queries from ultrapeer neighbours: a budget a busy relay stays under, the excess discarded,
// and the link dropped only when it stays far above.
class UltrapeerQueryBudget : public ::testing::Test {
protected:
    void SetUp() override {
        up = &net.AddServent(NodeMode::UltraPeer, {"alpha song.mp3"});
        listener = &net.AddRaw();
        listener_id = RawUltrapeer(net, *listener, *up);
    }

    // `count` new queries from the raw end, delivered; returns how many the listener got.
    std::size_t Send(SimNet::Station& raw, PeerId id, int count) {
        listener->inbox.clear();
        sent += static_cast<std::uint64_t>(count);
        for (int i = 0; i < count; ++i)
            net.RawSend(
                raw, id,
                Frame(Guid::Random(rng), PayloadType::Query, 3, 0, QueryPayload("relayed tune")));
        net.Run();
        return OfType(Read(*listener, 0), PayloadType::Query).size();
    }

    SimNet net;
    SimNet::Station* up = nullptr;
    SimNet::Station* listener = nullptr;
    PeerId listener_id = 0;
    std::mt19937_64 rng{29};
    std::uint64_t sent = 0;
};

TEST_F(UltrapeerQueryBudget, ABusyRelayKeepsItsLinkAndEveryQuery) {
    auto& relay = net.AddRaw();
    PeerId relay_id = RawUltrapeer(net, relay, *up);
    // A thousand at once as its leaves re-query, then 400 a second for a minute.
    std::size_t relayed = Send(relay, relay_id, 1000);
    for (int step = 0; step < 600; ++step) {
        net.now += std::chrono::milliseconds(100);
        relayed += Send(relay, relay_id, 40);
    }
    EXPECT_FALSE(relay.hung_up);
    EXPECT_EQ(up->servent->stats().queries_dropped_for_rate, 0u);
    EXPECT_EQ(relayed, sent);

    // Half again over the budget for twenty seconds: the excess goes, the link stays.
    for (int step = 0; step < 200; ++step) {
        net.now += std::chrono::milliseconds(100);
        Send(relay, relay_id, 80);
    }
    EXPECT_FALSE(relay.hung_up);
    EXPECT_GT(up->servent->stats().queries_dropped_for_rate, 0u);
    EXPECT_EQ(LastReason(*up, relay), "");
}

TEST_F(UltrapeerQueryBudget, WhatSeveralBusyRelaysGiveUsToPassOnStaysWithinTheNextOnesBudget) {
    auto& next = net.AddServent(NodeMode::UltraPeer);
    net.Link(next, *up);
    // A leaf whose table matches every one of them.
    auto& leaf = net.AddServent(NodeMode::LeafPeer, {"relayed tune.mp3"});
    net.Link(leaf, *up);
    net.Run();
    ASSERT_EQ(OpenPeers(*next.servent, PeerKind::Ultrapeer).size(), 1u);
    ASSERT_EQ(OpenPeers(*leaf.servent, PeerKind::Ultrapeer).size(), 1u);
    std::vector<std::pair<SimNet::Station*, PeerId>> relays;
    for (int i = 0; i < 3; ++i) {
        auto& relay = net.AddRaw();
        relays.push_back({&relay, RawUltrapeer(net, relay, *up)});
    }
    // Each within its own budget, together nearly three times one.
    for (int step = 0; step < 200; ++step) {
        net.now += std::chrono::milliseconds(100);
        for (auto& [relay, id] : relays)
            Send(*relay, id, 45);
    }
    for (auto& [relay, id] : relays)
        EXPECT_FALSE(relay->hung_up);
    EXPECT_EQ(OpenPeers(*next.servent, PeerKind::Ultrapeer).size(), 1u);
    EXPECT_EQ(next.servent->stats().queries_dropped_for_rate, 0u);
    EXPECT_EQ(next.servent->stats().peers_dropped_for_abuse, 0u);
    EXPECT_EQ(OpenPeers(*leaf.servent, PeerKind::Ultrapeer).size(), 1u);
    EXPECT_EQ(leaf.servent->stats().queries_dropped_for_rate, 0u);
    EXPECT_GT(leaf.servent->Peers().front().queries_received, 10000u);
    EXPECT_GT(up->servent->stats().queries_held_back, 0u);
    EXPECT_EQ(up->servent->stats().queries_dropped_for_rate, 0u);
}

TEST_F(UltrapeerQueryBudget, AFloodingNeighbourLosesTheExcessThenItsLink) {
    auto& flooder = net.AddHostile();
    PeerId flooder_id = RawUltrapeer(net, flooder, *up);
    // Five thousand a second.
    std::size_t relayed = 0;
    int steps = 0;
    for (; steps < 1000 && !flooder.hung_up; ++steps) {
        net.now += std::chrono::milliseconds(10);
        relayed += Send(flooder, flooder_id, 50);
    }
    EXPECT_TRUE(flooder.hung_up);
    EXPECT_EQ(LastReason(*up, flooder), "Query flood");
    EXPECT_LT(steps, 300); // within three seconds
    EXPECT_LT(relayed, sent / 2);
    EXPECT_GT(up->servent->stats().queries_dropped_for_rate, 5000u);
    EXPECT_EQ(up->servent->stats().peers_dropped_for_abuse, 1u);
}

} // namespace
} // namespace corvid::gnutella
