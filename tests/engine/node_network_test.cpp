// Whole corvid-node processes on loopback, as users' nodes meet on the network.
#include "../library/temp_folder.h"
#include "library/sha1.h"
#include "loopback_web_cache.h"
#include "node_processes.h"

#include <gtest/gtest.h>

#include <asio.hpp>

#include <fstream>
#include <iterator>
#include <thread>

namespace corvid::testing {
namespace {

using namespace std::chrono_literals;

std::string ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(NodeNetwork, AFirewalledLeafsFileIsFetchedThroughPushAndGiv) {
    TempFolder shared;
    TempFolder downloads;
    const std::string film = RandomBytes(400 * 1024 + 11, 7);
    shared.Write("holiday film.avi", film);
    const std::string sha1 = library::ToBase32(library::Sha1Of(film));

    NodeProcess ultrapeer({"--listen", "127.0.0.1:0", "--ultrapeer"});
    ASSERT_TRUE(ultrapeer.started());
    const std::string up = ListeningAddress(ultrapeer);
    ASSERT_FALSE(up.empty()) << ultrapeer.log();

    NodeProcess firewalled({"--listen", "127.0.0.1:0", "--leaf", "--firewalled", "--share",
                            shared.path().string(), "--connect", up});
    ASSERT_FALSE(firewalled.LineStarting("connected ", 20s).empty()) << firewalled.log();

    NodeProcess searcher({"search", "--connect", up, "--timeout", "30", "--download",
                          downloads.path().string(), "holiday"});
    const std::string hit = searcher.LineStarting("hit\t", 30s);
    ASSERT_FALSE(hit.empty()) << searcher.log();
    EXPECT_TRUE(hit.ends_with("\t" + sha1 + "\tpush")) << hit;
    const std::string download = searcher.LineStarting("download", 10s);
    EXPECT_NE(download.find("/push/"), std::string::npos) << download;
    EXPECT_EQ(searcher.Wait(40s), 0) << searcher.log();
    EXPECT_FALSE(firewalled.LineStarting("push ", 5s).empty()) << firewalled.log();
    EXPECT_EQ(library::ToBase32(library::Sha1Of(ReadAll(downloads.path() / sha1))), sha1);
}

TEST(NodeNetwork, ALeafThatKnowsOnlyAWebCacheFindsTheUltrapeersByItself) {
    NodeProcess first({"--listen", "127.0.0.1:0", "--ultrapeer"});
    const std::string up1 = ListeningAddress(first);
    ASSERT_FALSE(up1.empty()) << first.log();
    NodeProcess second({"--listen", "127.0.0.1:0", "--ultrapeer", "--connect", up1});
    const std::string up2 = ListeningAddress(second);
    ASSERT_FALSE(second.LineStarting("connected ", 20s).empty()) << second.log();

    LoopbackWebCache cache(up1);
    TempFolder folder;
    const auto list = folder.path() / "caches.txt";
    std::ofstream(list) << "# a loopback cache only\ngwc http://127.0.0.1:" << cache.port()
                        << "/gwc.php\n";
    const auto hosts = folder.path() / "hosts.txt";
    {
        NodeProcess leaf({"--listen", "127.0.0.1:0", "--leaf", "--caches", list.string(),
                          "--host-cache", hosts.string()});
        // The cache names the first ultrapeer; its try-list names the second.
        const std::string one = leaf.LineStarting("connected ", 20s);
        const std::string two = leaf.LineStarting("connected ", 20s);
        ASSERT_FALSE(two.empty()) << leaf.log();
        EXPECT_NE((one + two).find(up1), std::string::npos) << one << two;
        EXPECT_NE((one + two).find(up2), std::string::npos) << one << two;
    }
    // Stopped, the leaf has kept both for its next start.
    const std::string kept = ReadAll(hosts);
    EXPECT_NE(kept.find(up1), std::string::npos) << kept;
    EXPECT_NE(kept.find(up2), std::string::npos) << kept;
}

} // namespace
} // namespace corvid::testing
