// The servent's small stores: GUID routes that expire, the host cache file, the network
// settings file, and the stand-in file index with its share-list reader.
#include <gtest/gtest.h>

#include "engine/core/host_cache.h"
#include "engine/core/network_settings.h"
#include "engine/core/route_table.h"
#include "engine/core/shared_file_index.h"

namespace corvid::gnutella {
namespace {

using namespace std::chrono_literals;

TEST(RouteTable, DuplicatesAreRefusedAndRoutesExpireAfterOneToTwoLifetimes) {
    RouteTable routes(5min, 1000);
    std::mt19937_64 rng(3);
    Guid g = Guid::Random(rng);
    Clock::time_point t{1h};
    EXPECT_TRUE(routes.Insert(g, 7, t));
    EXPECT_FALSE(routes.Insert(g, 8, t + 1min));
    EXPECT_EQ(routes.Find(g, t + 6min), 7u); // moved to the older generation, still known
    EXPECT_FALSE(routes.Find(g, t + 11min));
    EXPECT_TRUE(routes.Insert(g, 9, t + 11min));

    routes.ForgetPeer(9);
    EXPECT_FALSE(routes.Find(g, t + 11min));
}

TEST(RouteTable, AFloodOfGuidsCannotGrowItWithoutBound) {
    RouteTable routes(5min, 100);
    std::mt19937_64 rng(4);
    Clock::time_point t{1h};
    for (int i = 0; i < 10000; ++i)
        routes.Insert(Guid::Random(rng), 1, t);
    EXPECT_LE(routes.size(), 200u);
}

TEST(HostCache, KeepsFreshestFirstSurvivesItsFileAndRestsRefusers) {
    HostCache cache(3);
    cache.Add(*ParseEndpoint("1.1.1.1:1"));
    cache.Add(*ParseEndpoint("2.2.2.2:2"));
    cache.Add(*ParseEndpoint("10.0.0.1:3")); // private: not kept
    cache.Add(*ParseEndpoint("3.3.3.3:3"));
    cache.Add(*ParseEndpoint("4.4.4.4:4")); // pushes out the oldest
    EXPECT_EQ(cache.Serialize(), "4.4.4.4:4\n3.3.3.3:3\n2.2.2.2:2\n");

    HostCache loaded(10);
    loaded.Load(cache.Serialize() + "garbage line\n999.1.1.1:5\n");
    EXPECT_EQ(loaded.Serialize(), cache.Serialize());

    Clock::time_point t{1h};
    loaded.Rest(*ParseEndpoint("4.4.4.4:4"), t + 10min);
    EXPECT_EQ(loaded.NextToDial(t)->ToString(), "3.3.3.3:3");
    EXPECT_EQ(loaded.NextToDial(t)->ToString(), "2.2.2.2:2");
    EXPECT_FALSE(loaded.NextToDial(t));
    EXPECT_EQ(loaded.NextToDial(t + 10min)->ToString(), "4.4.4.4:4");
}

TEST(NetworkSettings, ReadsTheNetWorkSectionWithDefaultsAndClamps) {
    auto defaults = ParseNetworkIni("");
    EXPECT_EQ(defaults.port, 6346);
    EXPECT_EQ(defaults.node_mode, NodeMode::Automatic);
    EXPECT_EQ(defaults.peer_max_count, 3);
    EXPECT_EQ(defaults.ultrapeer_max_count, 32);
    EXPECT_EQ(defaults.ultrapeer_min_count, 32);
    EXPECT_EQ(defaults.leaf_peer_max_count, 100);

    auto s = ParseNetworkIni(
        "[Other]\r\nPort=1\r\n[NetWork]\r\nPort = 7000\r\nNodeMode=2\r\nPeerMaxCount=5\r\n"
        "UltraPeerMaxCount=4\r\nUltraPeerMinCount=9\r\nLeafPeerMaxCount=-3\r\n");
    EXPECT_EQ(s.port, 7000);
    EXPECT_EQ(s.node_mode, NodeMode::LeafPeer);
    EXPECT_EQ(s.peer_max_count, 5);
    EXPECT_EQ(s.ultrapeer_max_count, 4);
    EXPECT_EQ(s.ultrapeer_min_count, 4); // never above the maximum
    EXPECT_EQ(s.leaf_peer_max_count, 0);

    auto junk = ParseNetworkIni("[network]\nPort=99999\nNodeMode=7\nPeerMaxCount=lots\n");
    EXPECT_EQ(junk.port, 6346);
    EXPECT_EQ(junk.node_mode, NodeMode::Automatic);
    EXPECT_EQ(junk.peer_max_count, 3);
}

TEST(SharedFileIndex, MatchesEveryKeywordOrTheSha1) {
    InMemoryFileIndex index;
    const std::string text = "1000\taaaabbbbccccddddeeeeffffgggghhhh\tAlpha Song.mp3\r\n"
                             "2000\t-\tbeta alpha.txt\n"
                             "oops\t-\tbad size.txt\n"
                             "3000\t-\n"
                             "4000\tnot-a-hash\tgamma.doc\n";
    EXPECT_EQ(LoadShareList(text, index), 3u);
    auto all = index.All();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].sha1, "AAAABBBBCCCCDDDDEEEEFFFFGGGGHHHH");
    EXPECT_EQ(all[2].sha1, "");

    EXPECT_EQ(index.Match({"alpha"}, {}, 10).size(), 2u);
    EXPECT_EQ(index.Match({"alpha", "song"}, {}, 10).size(), 1u);
    EXPECT_EQ(index.Match({"alpha"}, {}, 1).size(), 1u);
    auto by_hash = index.Match({}, {"aaaabbbbccccddddeeeeffffgggghhhh"}, 10);
    ASSERT_EQ(by_hash.size(), 1u);
    EXPECT_EQ(by_hash[0].name, "Alpha Song.mp3");
    EXPECT_TRUE(index.Match({}, {}, 10).empty());

    auto revision = index.Revision();
    index.Add("delta", 1, "");
    EXPECT_GT(index.Revision(), revision);
}

} // namespace
} // namespace corvid::gnutella
