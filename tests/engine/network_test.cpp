// Real sockets on loopback: two ultrapeers and four leaves in one io_context. Every wait is for a
// condition; the deadline only turns a bug into a failure instead of a hang.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
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
             std::uint64_t seed, std::function<void(NodeOptions&)> adjust = {}) {
        for (auto& name : files)
            index.Add(name, 1000 + name.size(), name == "alpha song.mp3" ? kSha1 : "");
        NodeOptions options;
        options.servent.network.node_mode = mode;
        options.servent.network.peer_max_count = 1;
        options.servent.network.ultrapeer_min_count = 1;
        options.servent.allow_private_addresses = true;
        if (adjust)
            adjust(options);
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

constexpr std::uint32_t kLoopback2 = 0x7F000002; // 127.0.0.2
constexpr std::uint32_t kLoopback3 = 0x7F000003;
constexpr std::uint32_t kLoopback4 = 0x7F000004;

// A raw caller from a loopback address of its own: says `greeting`, then keeps what it is
// answered and notes when the node hangs up.
struct Caller {
    Caller(asio::io_context& io, std::uint32_t ip, std::uint16_t port, std::string greeting = "")
        : socket(io) {
        socket.open(asio::ip::tcp::v4());
        socket.bind({asio::ip::address_v4(ip), 0});
        socket.connect({asio::ip::address_v4::loopback(), port});
        if (!greeting.empty())
            asio::write(socket, asio::buffer(greeting));
        Read();
    }
    void Read() {
        socket.async_read_some(asio::buffer(buffer),
                               [this](const asio::error_code& ec, std::size_t n) {
                                   if (ec) {
                                       hung_up = true;
                                       return;
                                   }
                                   answer.append(buffer.data(), n);
                                   Read();
                               });
    }

    asio::ip::tcp::socket socket;
    std::array<char, 512> buffer{};
    std::string answer;
    bool hung_up = false;
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

    // A megabyte of handshake headers: the ultrapeer hangs up long before reading it all. The
    // abuser calls from an address of its own, which rests afterwards.
    asio::ip::tcp::socket client(io);
    client.open(asio::ip::tcp::v4());
    client.bind({asio::ip::address_v4(kLoopback2), 0});
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

    // Back at once: told that its address rests. Another servent on 127.0.0.1 is welcome.
    Caller again(io, kLoopback2, up.node->port(),
                 "GNUTELLA CONNECT/0.6\r\nX-Ultrapeer: True\r\n\r\n");
    ASSERT_TRUE(RunUntil(io, [&] { return again.hung_up; }));
    EXPECT_TRUE(again.answer.starts_with("GNUTELLA/0.6 503 Resting after abuse\r\n"));
    TestNode second(io, NodeMode::LeafPeer, {"beta.txt"}, 3);
    second.node->servent().ConnectTo(up.node->endpoint());
    ASSERT_TRUE(RunUntil(io, [&] { return up.Count(PeerKind::Leaf, true) == 2; }));
    EXPECT_EQ(up.node->servent().stats().handshakes_refused_resting, 1u);
}

TEST(LoopbackNetwork, UnfinishedConnectionsAreCappedPerAddressAndInAll) {
    asio::io_context io;
    TestNode up(io, NodeMode::UltraPeer, {}, 1, [](NodeOptions& o) { o.max_unfinished = 12; });
    std::vector<asio::ip::tcp::socket> handed_over;
    up.node->SetForeignConnectionHandler(
        [&](asio::ip::tcp::socket socket, Bytes) { handed_over.push_back(std::move(socket)); });
    const auto port = up.node->port();
    auto unfinished = [&](int n) {
        return [&, n] { return up.node->unfinished_connections() == n; };
    };

    // Eight from one address: four that never say a word, four stopping inside their handshake.
    std::vector<std::unique_ptr<Caller>> waiting;
    for (int i = 0; i < 8; ++i)
        waiting.push_back(std::make_unique<Caller>(
            io, kLoopback2, port, i < 4 ? "" : "GNUTELLA CONNECT/0.6\r\nUser-Agent: "));
    ASSERT_TRUE(RunUntil(io, unfinished(8)));
    // The ninth is closed at once.
    Caller ninth(io, kLoopback2, port, "GNUTELLA CONNECT/0.6\r\n\r\n");
    ASSERT_TRUE(RunUntil(io, [&] { return ninth.hung_up; }));
    EXPECT_TRUE(ninth.answer.empty());
    EXPECT_EQ(up.node->refused_unfinished(), 1u);

    // Other addresses still get in, up to the cap on all of them.
    for (int i = 0; i < 4; ++i)
        waiting.push_back(std::make_unique<Caller>(io, kLoopback3, port));
    ASSERT_TRUE(RunUntil(io, unfinished(12)));
    Caller over(io, kLoopback4, port);
    ASSERT_TRUE(RunUntil(io, [&] { return over.hung_up; }));
    EXPECT_EQ(up.node->refused_unfinished(), 2u);
    for (const auto& caller : waiting)
        EXPECT_FALSE(caller->hung_up);

    // Places come back as callers leave or finish: an upload request from the crowded address
    // goes to the hook, and a leaf's handshake, once through, holds no place.
    for (int i = 0; i < 4; ++i)
        waiting[i]->socket.close();
    ASSERT_TRUE(RunUntil(io, unfinished(8)));
    Caller download(io, kLoopback2, port, "GET /uri-res/N2R?urn:sha1:X HTTP/1.1\r\n\r\n");
    ASSERT_TRUE(RunUntil(io, [&] { return handed_over.size() == 1; }));
    EXPECT_FALSE(download.hung_up);
    TestNode leaf(io, NodeMode::LeafPeer, {"alpha song.mp3"}, 2);
    leaf.node->servent().ConnectTo(up.node->endpoint());
    ASSERT_TRUE(RunUntil(io, [&] { return up.Count(PeerKind::Leaf) == 1; }));
    ASSERT_TRUE(RunUntil(io, unfinished(8)));
    EXPECT_EQ(up.node->refused_unfinished(), 2u);
}

} // namespace
} // namespace corvid::gnutella
