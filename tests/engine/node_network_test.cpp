// Whole corvid-node processes on loopback, as users' nodes meet on the network.
#include "../library/temp_folder.h"
#include "library/sha1.h"
#include "node_processes.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

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

} // namespace
} // namespace corvid::testing
