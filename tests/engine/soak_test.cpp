// Our ultrapeer for ten seconds in a small hostile neighbourhood on loopback: every kind of abuser
// must be dropped with its own reason, and refused while its address rests, while the good
// servents around it keep finding files.
// Timings and throughput belong to the soak benchmark; this checks only what happens.
#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <thread>

#include "bench/soak/soak_harness.h"
#include "engine/core/node.h"

namespace corvid::soak {
namespace {

using namespace gnutella;

struct DropLog : ServentObserver {
    std::mutex mutex;
    std::map<Endpoint, std::string> reasons;

    void OnPeerDropped(const PeerInfo& peer, std::string_view reason) override {
        std::lock_guard lock(mutex);
        reasons[peer.remote] = std::string(reason);
    }
};

TEST(Soak, EveryAbuserIsDroppedForWhatItDidThenRestsAndGoodPeersStillGetTheirHits) {
    asio::io_context io;
    NodeOptions options;
    options.servent.network.node_mode = NodeMode::UltraPeer;
    options.servent.network.ultrapeer_max_count = 64;
    options.servent.network.ultrapeer_min_count = 0;
    options.servent.network.leaf_peer_max_count = 1000;
    options.servent.allow_private_addresses = true;
    // Short enough for a slowloris to be caught twice in the run.
    options.servent.handshake_timeout = std::chrono::seconds(3);
    options.sniff_timeout = std::chrono::seconds(3);
    options.udp = false;
    InMemoryFileIndex nothing;
    Node node(io, options, nothing, 77);
    DropLog drops;
    node.servent().SetObserver(&drops);
    ASSERT_FALSE(node.Start());
    std::thread ultrapeer([&] { io.run(); });

    SoakOptions soak;
    soak.target = node.endpoint();
    soak.sharing_leaves = 6;
    soak.searching_leaves = 4;
    soak.searching_ultrapeers = 2;
    soak.hostile = 2 * kHostileKinds;
    soak.duration = std::chrono::seconds(10);
    soak.warm_up = std::chrono::seconds(2);
    soak.search_interval = std::chrono::milliseconds(1000);
    soak.hostile_margin = std::chrono::seconds(6);
    SoakResult result = RunSoak(soak);

    asio::post(io, [&] {
        node.Stop();
        io.stop();
    });
    ultrapeer.join();

    EXPECT_EQ(result.good_connected, 12);
    EXPECT_EQ(result.good_links_lost, 0) << ::testing::PrintToString(result.good_loss_reasons);
    EXPECT_GT(result.searches, 0u);
    EXPECT_GT(result.searches_answered, 0u);
    EXPECT_GE(result.results, result.searches_answered);

    std::map<Hostile, int> dropped;
    std::map<Hostile, int> resting;
    std::map<int, bool> client_dropped;
    for (const auto& session : result.hostile) {
        SCOPED_TRACE(std::string(HostileName(session.kind)) + " from " + session.local.ToString());
        ASSERT_TRUE(session.local.IsValid());
        ASSERT_TRUE(session.closed.has_value()) << "still connected at the end";
        const std::string& reason = drops.reasons[session.local];
        if (reason == kRestingReason) {
            // Only after a drop for abuse, and a timeout is none.
            EXPECT_TRUE(client_dropped[session.client]);
            EXPECT_NE(session.kind, Hostile::Slowloris);
            EXPECT_FALSE(session.accepted);
            EXPECT_EQ(session.answer, kRestingAnswer);
            ++resting[session.kind];
            continue;
        }
        EXPECT_EQ(session.accepted, session.kind != Hostile::Slowloris);
        EXPECT_EQ(reason, ExpectedReason(session.kind));
        client_dropped[session.client] = true;
        ++dropped[session.kind];
    }
    for (int k = 0; k < kHostileKinds; ++k) {
        auto kind = static_cast<Hostile>(k);
        EXPECT_GE(dropped[kind], 2) << HostileName(kind);
        // Each client comes back a second after its drop and finds its address resting.
        if (kind != Hostile::Slowloris) {
            EXPECT_GE(resting[kind], 2) << HostileName(kind);
        }
    }
    EXPECT_EQ(node.refused_unfinished(), 0u);
}

} // namespace
} // namespace corvid::soak
