// Two engines on loopback, each on its own network thread: one shares a folder as an ultrapeer,
// the other joins it, searches, browses, lists and drops it, as the COM face will ask it to.
#include "engine/service/engine_service.h"

#include "tests/library/temp_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <set>

namespace corvid::engine {
namespace {

using gnutella::Endpoint;

struct Recorder : EngineListener {
    void OnNodeCount(int count) override {
        std::lock_guard<std::mutex> guard(lock);
        counts.push_back(count);
        changed.notify_all();
    }
    void OnStatus(const std::string& text, int code) override {
        std::lock_guard<std::mutex> guard(lock);
        statuses.emplace_back(code, text);
        changed.notify_all();
    }
    void OnSearchResult(std::uint32_t search, const std::string& text) override {
        std::lock_guard<std::mutex> guard(lock);
        results.emplace_back(search, text);
        changed.notify_all();
    }

    template <typename Condition>
    bool WaitFor(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
        std::unique_lock<std::mutex> guard(lock);
        return changed.wait_for(guard, limit, condition);
    }
    std::vector<std::string> ResultsOf(std::uint32_t search) {
        std::lock_guard<std::mutex> guard(lock);
        std::vector<std::string> texts;
        for (const auto& [id, text] : results)
            if (id == search)
                texts.push_back(text);
        return texts;
    }

    std::mutex lock;
    std::condition_variable changed;
    std::vector<int> counts;
    std::vector<std::pair<int, std::string>> statuses;
    std::vector<std::pair<std::uint32_t, std::string>> results;
};

EngineOptions LoopbackOptions(gnutella::NodeMode mode) {
    EngineOptions options;
    options.network.node_mode = mode;
    options.network.port = 0;
    // Nobody dials of its own accord: the tests decide every link.
    options.network.ultrapeer_min_count = 0;
    options.behind_firewall = false;
    options.allow_private_addresses = true;
    options.tick = [] { return 500000u; };
    return options;
}

// Everything between <tag> and </tag> at its first occurrence.
std::string Element(const std::string& text, const std::string& tag) {
    auto open = text.find("<" + tag + ">");
    auto close = text.find("</" + tag + ">");
    if (open == std::string::npos || close == std::string::npos)
        return {};
    open += tag.size() + 2;
    return text.substr(open, close - open);
}

class TwoEngines : public ::testing::Test {
protected:
    void SetUp() override {
        folder_.Write("alpha song.mp3", testing::RandomBytes(3000, 1));
        folder_.Write("beta notes.txt", testing::RandomBytes(1000, 2));
        sharedFiles_.SetSharedFolders({folder_.path()});
        EXPECT_TRUE(sharedFiles_.WaitForWalk());
        while (sharedFiles_.HashNext()) {
        }
        ASSERT_FALSE(sharer_.Start(LoopbackOptions(gnutella::NodeMode::UltraPeer)));
        sharerAddress_ = Endpoint{0x7F000001, sharer_.port()};
    }

    testing::TempFolder folder_;
    library::FileIndex sharedFiles_;
    library::FileIndex ownFiles_;
    Recorder sharerEvents_;
    Recorder events_;
    EngineService sharer_{sharedFiles_, sharerEvents_};
    EngineService engine_{ownFiles_, events_};
    Endpoint sharerAddress_;
};

TEST_F(TwoEngines, JoinsSearchesBrowsesAndListsTheHost) {
    auto options = LoopbackOptions(gnutella::NodeMode::LeafPeer);
    options.bootstrap = {sharerAddress_};
    ASSERT_FALSE(engine_.Start(options));
    ASSERT_TRUE(events_.WaitFor([&] { return !events_.counts.empty(); }));
    EXPECT_EQ(events_.counts.front(), 1);
    EXPECT_EQ(engine_.NodeCount(), 1);

    const std::string hosts = engine_.HostsText();
    EXPECT_EQ(Element(hosts, "Node"), sharerAddress_.ToString()) << hosts;
    EXPECT_EQ(Element(hosts, "HandshakeTime"), "500000");
    EXPECT_EQ(Element(hosts, "Type"), "Ultrapeer");
    EXPECT_NE(Element(hosts, "In").find(" B"), std::string::npos) << hosts;
    EXPECT_NE(engine_.InfoText().find("<Ultrapeers>1</Ultrapeers>"), std::string::npos);

    ASSERT_TRUE(engine_.StartSearch(7, "alpha", "All", {}));
    ASSERT_TRUE(events_.WaitFor([&] {
        for (const auto& [id, text] : events_.results)
            if (id == 7)
                return true;
        return false;
    }));
    const std::string hit = events_.ResultsOf(7).front();
    EXPECT_EQ(Element(hit, "keyword"), "alpha");
    EXPECT_EQ(Element(hit, "type"), "All");
    EXPECT_EQ(Element(hit, "name"), "alpha song.mp3");
    EXPECT_EQ(Element(hit, "sha1").size(), 32u);

    ASSERT_TRUE(engine_.Browse(8, sharerAddress_));
    ASSERT_TRUE(events_.WaitFor([&] {
        for (const auto& [id, text] : events_.results)
            if (id == 8)
                return true;
        return false;
    }));
    const std::string listing = events_.ResultsOf(8).front();
    EXPECT_EQ(Element(listing, "type"), "BrowseHost");
    EXPECT_NE(listing.find("alpha song.mp3"), std::string::npos);
    EXPECT_NE(listing.find("beta notes.txt"), std::string::npos);
}

TEST_F(TwoEngines, ConnectsAndDropsOneNodeByItsId) {
    ASSERT_FALSE(engine_.Start(LoopbackOptions(gnutella::NodeMode::LeafPeer)));
    EXPECT_EQ(engine_.NodeCount(), 0);
    EXPECT_FALSE(engine_.DisconnectNode(12345));

    ASSERT_TRUE(engine_.ConnectNode(sharerAddress_));
    ASSERT_TRUE(events_.WaitFor([&] { return !events_.counts.empty(); }));
    const std::string id = Element(engine_.HostsText(), "ID");
    ASSERT_FALSE(id.empty());
    ASSERT_TRUE(engine_.DisconnectNode(std::stoul(id)));
    ASSERT_TRUE(events_.WaitFor([&] { return events_.counts.back() == 0; }));
    EXPECT_EQ(engine_.NodeCount(), 0);
    EXPECT_EQ(engine_.HostsText(), "<HostInfo></HostInfo>");

    // The console hears of the link when it opens and when it closes, and why.
    const std::string node = sharerAddress_.ToString();
    ASSERT_TRUE(events_.WaitFor([&] {
        return !events_.statuses.empty() && events_.statuses.back().first == kStatusLinkClosed;
    }));
    std::lock_guard<std::mutex> guard(events_.lock);
    std::vector<std::pair<int, std::string>> links;
    for (const auto& status : events_.statuses)
        if (status.first == kStatusLinkOpened || status.first == kStatusLinkClosed)
            links.push_back(status);
    ASSERT_EQ(links.size(), 2u);
    EXPECT_EQ(links[0].second.rfind("Connected to " + node + " (Ultrapeer, ", 0), 0u)
        << links[0].second;
    EXPECT_EQ(links[1].second, "Link to " + node + " closed: Closed by user");
}

TEST_F(TwoEngines, StopEndsEveryAnswerAndEveryOperation) {
    auto options = LoopbackOptions(gnutella::NodeMode::LeafPeer);
    options.bootstrap = {sharerAddress_};
    ASSERT_FALSE(engine_.Start(options));
    ASSERT_TRUE(events_.WaitFor([&] { return !events_.counts.empty(); }));
    // The leaf's side opens a step before the ultrapeer's: wait for both.
    ASSERT_TRUE(sharerEvents_.WaitFor([&] { return !sharerEvents_.counts.empty(); }));
    engine_.StartSearch(1, "alpha", "Audio", {});
    engine_.Stop();
    std::size_t heard = 0;
    {
        std::lock_guard<std::mutex> guard(events_.lock);
        heard = events_.counts.size() + events_.results.size() + events_.statuses.size();
    }
    EXPECT_FALSE(engine_.running());
    EXPECT_EQ(engine_.NodeCount(), 0);
    EXPECT_FALSE(engine_.ConnectNode(sharerAddress_));
    EXPECT_FALSE(engine_.StartSearch(2, "alpha", "All", {}));
    EXPECT_FALSE(engine_.DisconnectNode(1));
    // The sharer notices the leaf is gone; nothing more reaches the stopped engine's listener.
    ASSERT_TRUE(sharerEvents_.WaitFor([&] { return sharerEvents_.counts.back() == 0; }));
    std::lock_guard<std::mutex> guard(events_.lock);
    EXPECT_EQ(events_.counts.size() + events_.results.size() + events_.statuses.size(), heard);
}

TEST_F(TwoEngines, TakenPortsFallBackToAFreeOne) {
    auto options = LoopbackOptions(gnutella::NodeMode::LeafPeer);
    options.network.port = sharer_.port();
    options.upload_port = sharer_.port();
    ASSERT_FALSE(engine_.Start(options));
    EXPECT_NE(engine_.port(), sharer_.port());
    std::lock_guard<std::mutex> guard(events_.lock);
    ASSERT_EQ(events_.statuses.size(), 2u);
    EXPECT_EQ(events_.statuses[0].first, kStatusPortTaken);
    EXPECT_EQ(events_.statuses[1].first, kStatusUploadPortTaken);
}

TEST_F(TwoEngines, TwoUltrapeersNamedTwiceAndCallingBackGiveTwoNodes) {
    Recorder otherEvents;
    library::FileIndex otherFiles;
    EngineService other{otherFiles, otherEvents};
    auto upOptions = LoopbackOptions(gnutella::NodeMode::UltraPeer);
    ASSERT_FALSE(other.Start(upOptions));
    const Endpoint otherAddress{0x7F000001, other.port()};

    auto options = LoopbackOptions(gnutella::NodeMode::UltraPeer);
    options.bootstrap = {sharerAddress_, otherAddress, sharerAddress_, otherAddress};
    ASSERT_FALSE(engine_.Start(options));
    ASSERT_TRUE(
        events_.WaitFor([&] { return !events_.counts.empty() && events_.counts.back() == 2; }));
    // The ultrapeers now know where the engine listens and may dial it themselves.
    ASSERT_TRUE(sharer_.ConnectNode({0x7F000001, engine_.port()}));
    ASSERT_TRUE(other.ConnectNode({0x7F000001, engine_.port()}));
    ASSERT_TRUE(engine_.ConnectNode(sharerAddress_));
    // A second link to either would show as a third node within a few loopback handshakes.
    EXPECT_FALSE(events_.WaitFor(
        [&] {
            return std::any_of(events_.counts.begin(), events_.counts.end(),
                               [](int count) { return count > 2; });
        },
        std::chrono::seconds(3)));
    ASSERT_TRUE(
        events_.WaitFor([&] { return !events_.counts.empty() && events_.counts.back() == 2; }));
    const std::string hosts = engine_.HostsText();
    std::multiset<std::string> nodes;
    for (auto at = hosts.find("<Node>"); at != std::string::npos; at = hosts.find("<Node>", at + 1))
        nodes.insert(Element(hosts.substr(at), "Node"));
    EXPECT_EQ(nodes,
              (std::multiset<std::string>{sharerAddress_.ToString(), otherAddress.ToString()}))
        << hosts;
    EXPECT_EQ(engine_.NodeCount(), 2);
}

TEST_F(TwoEngines, NewLinkCountsApplyWhileRunningAndAPortWaitsForTheNextStart) {
    EXPECT_FALSE(engine_.ApplySettings(LoopbackOptions(gnutella::NodeMode::UltraPeer)));

    Recorder otherEvents;
    library::FileIndex otherFiles;
    EngineService other{otherFiles, otherEvents};
    ASSERT_FALSE(other.Start(LoopbackOptions(gnutella::NodeMode::UltraPeer)));
    auto options = LoopbackOptions(gnutella::NodeMode::UltraPeer);
    options.bootstrap = {sharerAddress_, {0x7F000001, other.port()}};
    ASSERT_FALSE(engine_.Start(options));
    ASSERT_TRUE(
        events_.WaitFor([&] { return !events_.counts.empty() && events_.counts.back() == 2; }));

    options.network.ultrapeer_max_count = 1;
    EXPECT_TRUE(engine_.ApplySettings(options));
    ASSERT_TRUE(events_.WaitFor([&] { return events_.counts.back() == 1; }));
    EXPECT_EQ(engine_.NodeCount(), 1);

    // The port the node listens on stays until it starts again; the counts still apply.
    options.network.port = 1;
    options.network.ultrapeer_max_count = 0;
    EXPECT_FALSE(engine_.ApplySettings(options));
    ASSERT_TRUE(events_.WaitFor([&] { return events_.counts.back() == 0; }));
    EXPECT_NE(engine_.port(), 1);
}

TEST(EngineText, UserAddressesNeedAHostAndAPort) {
    EXPECT_EQ(ParseUserAddress("127.0.0.1:6346"), (Endpoint{0x7F000001, 6346}));
    EXPECT_EQ(ParseUserAddress(" http://10.0.0.2:7000/ "), (Endpoint{0x0A000002, 7000}));
    EXPECT_FALSE(ParseUserAddress("127.0.0.1"));
    EXPECT_FALSE(ParseUserAddress("127.0.0.1:0"));
    EXPECT_FALSE(ParseUserAddress("127.0.0.1:70000"));
    EXPECT_FALSE(ParseUserAddress("example.org:6346"));
    EXPECT_FALSE(ParseUserAddress(""));
    EXPECT_FALSE(ParseUserAddress(std::string(1 << 20, '1')));
}

TEST(EngineText, TrafficIsWrittenForPeople) {
    EXPECT_EQ(FormatTraffic(0), "0 B");
    EXPECT_EQ(FormatTraffic(1023), "1023 B");
    EXPECT_EQ(FormatTraffic(12595), "12.3 KB");
    EXPECT_EQ(FormatTraffic(4u << 20), "4.0 MB");
    EXPECT_EQ(FormatTraffic(std::uint64_t{3} << 40), "3.0 TB");
    EXPECT_EQ(FormatTraffic(std::uint64_t{5000} << 40), "5000.0 TB");
}

TEST(EngineText, NetWorkIniGivesTheServentsKeysTheFirewallAndTheHosts) {
    auto ini = ParseEngineIni(
        "[NetWork]\r\nPort=7001\r\nNodeMode=2\r\nBehindFirewall=0\r\n"
        "PeerMaxCount=5\r\nUploadPort=7003\r\nHosts=127.0.0.1:7002, junk ,10.1.2.3:99\r\n"
        "[Other]\r\nBehindFirewall=1\r\n");
    EXPECT_EQ(ini.network.port, 7001);
    EXPECT_EQ(ini.network.node_mode, gnutella::NodeMode::LeafPeer);
    EXPECT_EQ(ini.network.peer_max_count, 5);
    EXPECT_FALSE(ini.behind_firewall);
    EXPECT_EQ(ini.upload_port, 7003);
    ASSERT_EQ(ini.hosts.size(), 2u);
    EXPECT_EQ(ini.hosts[1], (Endpoint{0x0A010203, 99}));

    auto defaults = ParseEngineIni("BehindFirewall=0\nHosts=1.2.3.4:5\n");
    EXPECT_TRUE(defaults.behind_firewall);
    EXPECT_TRUE(defaults.hosts.empty());
    EXPECT_EQ(defaults.network.port, 6346);
    EXPECT_EQ(defaults.upload_port, 0);
}

} // namespace
} // namespace corvid::engine
