// Real sockets on loopback: two ultrapeers and four leaves in one io_context. Every wait is for a
// condition; the deadline only turns a bug into a failure instead of a hang.
#include <gtest/gtest.h>

#include <set>

#include "engine/core/node.h"

namespace corvid::gnutella {
namespace {

constexpr char kSha1[] = "AAAABBBBCCCCDDDDEEEEFFFFGGGGHHHH";

struct HitLog : ServentObserver {
    std::vector<QueryHit> hits;
    void OnSearchHit(const Guid&, const QueryHit& hit) override { hits.push_back(hit); }
};

template <typename Condition> bool RunUntil(asio::io_context& io, Condition done) {
    auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done()) {
        if (std::chrono::steady_clock::now() > give_up)
            return false;
        io.run_one_for(std::chrono::milliseconds(100));
    }
    return true;
}

struct TestNode {
    TestNode(asio::io_context& io, NodeMode mode, std::vector<std::string> files,
             std::uint64_t seed) {
        for (auto& name : files)
            index.Add(name, 1000 + name.size(), name == "alpha song.mp3" ? kSha1 : "");
        NodeOptions options;
        options.servent.network.node_mode = mode;
        options.servent.network.peer_max_count = 1;
        options.servent.network.ultrapeer_min_count = 1;
        options.servent.allow_private_addresses = true;
        node = std::make_unique<Node>(io, options, index, seed);
        EXPECT_FALSE(node->Start());
        node->servent().SetObserver(&log);
    }

    int Count(PeerKind kind, bool with_table = false) {
        int n = 0;
        for (const auto& p : node->servent().Peers())
            if (p.kind == kind && (!with_table || p.qrp_table_complete))
                ++n;
        return n;
    }

    InMemoryFileIndex index;
    HitLog log;
    std::unique_ptr<Node> node;
};

TEST(LoopbackNetwork, LeafQueryFindsMatchingLeavesBehindBothUltrapeers) {
    asio::io_context io;
    TestNode up1(io, NodeMode::UltraPeer, {}, 1);
    TestNode up2(io, NodeMode::UltraPeer, {}, 2);
    TestNode asker(io, NodeMode::LeafPeer, {}, 3);
    TestNode near(io, NodeMode::LeafPeer, {"alpha song.mp3", "gamma.txt"}, 4);
    TestNode far(io, NodeMode::LeafPeer, {"Alpha-Tune.ogg"}, 5);
    TestNode other(io, NodeMode::LeafPeer, {"beta.txt", "alphabet soup.doc"}, 6);

    up2.node->servent().ConnectTo(up1.node->endpoint());
    asker.node->servent().ConnectTo(up1.node->endpoint());
    near.node->servent().ConnectTo(up1.node->endpoint());
    far.node->servent().ConnectTo(up2.node->endpoint());
    other.node->servent().ConnectTo(up2.node->endpoint());
    ASSERT_TRUE(RunUntil(io, [&] {
        return up1.Count(PeerKind::Ultrapeer) == 1 && up2.Count(PeerKind::Ultrapeer) == 1 &&
               up1.Count(PeerKind::Leaf, true) == 2 && up2.Count(PeerKind::Leaf, true) == 2 &&
               asker.Count(PeerKind::Ultrapeer) == 1;
    }));

    asker.node->servent().StartSearch("alpha");
    ASSERT_TRUE(RunUntil(io, [&] { return asker.log.hits.size() >= 2; }));

    std::set<std::string> found;
    for (const auto& hit : asker.log.hits)
        for (const auto& r : hit.results)
            found.insert(r.name + "@" + std::to_string(hit.port) + "#" + r.sha1);
    EXPECT_EQ(found, (std::set<std::string>{
                         "alpha song.mp3@" + std::to_string(near.node->port()) + "#" + kSha1,
                         "Alpha-Tune.ogg@" + std::to_string(far.node->port()) + "#"}));
    // The leaf whose table holds no "alpha" was never asked.
    for (const auto& p : up2.node->servent().Peers()) {
        if (p.kind == PeerKind::Leaf && p.listen.port == other.node->port()) {
            EXPECT_EQ(p.queries_sent, 0u);
        }
    }
    EXPECT_GE(up2.node->servent().stats().queries_blocked_by_qrp, 1u);
    for (const auto& p : other.node->servent().Peers())
        EXPECT_EQ(p.queries_received, 0u);
}

TEST(LoopbackNetwork, OtherProtocolsOnTheSamePortGoToTheHook) {
    asio::io_context io;
    TestNode up(io, NodeMode::UltraPeer, {}, 1);
    std::string handed_over;
    up.node->SetForeignConnectionHandler([&](asio::ip::tcp::socket, Bytes first) {
        handed_over.assign(first.begin(), first.end());
    });
    asio::ip::tcp::socket client(io);
    client.connect({asio::ip::address_v4::loopback(), up.node->port()});
    asio::write(client, asio::buffer(std::string("GET /uri-res/N2R?urn:sha1:X HTTP/1.1\r\n")));
    ASSERT_TRUE(RunUntil(io, [&] { return !handed_over.empty(); }));
    EXPECT_TRUE(handed_over.starts_with("GET "));
    EXPECT_TRUE(up.node->servent().Peers().empty());
}

TEST(LoopbackNetwork, AHostilePeerIsCutOffWhileOthersStayConnected) {
    asio::io_context io;
    TestNode up(io, NodeMode::UltraPeer, {}, 1);
    TestNode leaf(io, NodeMode::LeafPeer, {"alpha song.mp3"}, 2);
    leaf.node->servent().ConnectTo(up.node->endpoint());
    ASSERT_TRUE(RunUntil(io, [&] { return up.Count(PeerKind::Leaf, true) == 1; }));

    // A megabyte of handshake headers: the ultrapeer hangs up long before reading it all.
    asio::ip::tcp::socket client(io);
    client.connect({asio::ip::address_v4::loopback(), up.node->port()});
    std::string flood = "GNUTELLA CONNECT/0.6\r\n";
    while (flood.size() < 1'000'000)
        flood += "X-Filler: " + std::string(200, 'x') + "\r\n";
    asio::async_write(client, asio::buffer(flood), [](const asio::error_code&, std::size_t) {});
    // The socket buffers may swallow the whole megabyte; the hang-up is what tells.
    bool hung_up = false;
    std::array<char, 512> sink{};
    std::function<void(const asio::error_code&, std::size_t)> drain =
        [&](const asio::error_code& ec, std::size_t) {
            if (ec)
                hung_up = true;
            else
                client.async_read_some(asio::buffer(sink), drain);
        };
    client.async_read_some(asio::buffer(sink), drain);
    ASSERT_TRUE(RunUntil(io, [&] { return hung_up; }));
    EXPECT_EQ(up.Count(PeerKind::Leaf, true), 1);
    EXPECT_EQ(up.node->servent().stats().peers_dropped_for_abuse, 1u);
}

} // namespace
} // namespace corvid::gnutella
