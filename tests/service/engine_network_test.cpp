// The engine of the plug-in on a loopback network of corvid-node processes: a file of a firewalled
// leaf reaches the download core as the engine's relay URL and arrives whole; and where the engine
// looks for the network when it knows nobody.
#include "download/core/download_runner.h"
#include "engine/service/engine_service.h"
#include "engine/sharing/push_relay.h"
#include "library/sha1.h"
#include "search/search_result_reader.h"
#include "tests/engine/loopback_web_cache.h"
#include "tests/engine/node_processes.h"
#include "tests/library/temp_folder.h"
#include "transfer/engine_events.h"

#include <gtest/gtest.h>

#include <asio.hpp>

#include <condition_variable>
#include <fstream>
#include <future>
#include <iterator>
#include <mutex>
#include <thread>

namespace corvid::engine {
namespace {

using namespace std::chrono_literals;
using gnutella::BootstrapCache;
using gnutella::Endpoint;
using testing::ListeningAddress;
using testing::LoopbackWebCache;
using testing::NodeProcess;
using testing::TempFolder;

struct Recorder : EngineListener {
    void OnNodeCount(int count) override {
        std::lock_guard<std::mutex> guard(lock);
        nodes = count;
        changed.notify_all();
    }
    void OnStatus(const std::string&, int) override {}
    void OnSearchResult(std::uint32_t, const std::string& text) override {
        std::lock_guard<std::mutex> guard(lock);
        results.push_back(text);
        changed.notify_all();
    }

    template <typename Condition> bool WaitFor(Condition condition) {
        std::unique_lock<std::mutex> guard(lock);
        return changed.wait_for(guard, 30s, condition);
    }

    std::mutex lock;
    std::condition_variable changed;
    int nodes = 0;
    std::vector<std::string> results;
};

EngineOptions LoopbackLeaf() {
    EngineOptions options;
    options.network.node_mode = gnutella::NodeMode::LeafPeer;
    options.network.port = 0;
    options.behind_firewall = false;
    options.allow_private_addresses = true;
    return options;
}

std::string ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The plug-in's reading of one result text: the first file with its SHA1.
ParsedResult FirstFile(const std::string& text) {
    ParsedResult first;
    ReadResultFiles(text, [&](ParsedResult& result) {
        if (first.sha1.empty())
            first = result;
    });
    return first;
}

// What the download page hands the download core, fetched there; the file's bytes, or nothing.
std::string Fetch(const std::string& url, const std::filesystem::path& to) {
    download::DownloadRunner runner(to.string(), download::DownloadOptions{});
    runner.addSource(url);
    std::promise<bool> ended;
    bool succeeded = false;
    if (!runner.start([&](const download::DownloadEvent& event) {
            if (event.code == download::EventCode::Succeeded)
                succeeded = true;
            if (event.code == download::EventCode::Stopped)
                ended.set_value(succeeded);
        }))
        return {};
    auto result = ended.get_future();
    const bool ok = result.wait_for(60s) == std::future_status::ready && result.get();
    runner.finish(download::DownloadRunner::Finish::Close);
    return ok ? ReadAll(to) : std::string();
}

TEST(EngineNetwork, AFirewalledLeafsFileComesThroughTheRelayAndAReachableOneDirectly) {
    TempFolder hidden;
    TempFolder open;
    TempFolder downloads;
    const std::string film = testing::RandomBytes(350 * 1024 + 3, 11);
    const std::string photos = testing::RandomBytes(90 * 1024 + 5, 12);
    hidden.Write("harbour film.avi", film);
    open.Write("harbour photos.zip", photos);
    const std::string filmSha1 = library::ToBase32(library::Sha1Of(film));
    const std::string photosSha1 = library::ToBase32(library::Sha1Of(photos));

    NodeProcess ultrapeer({"--listen", "127.0.0.1:0", "--ultrapeer"});
    const std::string up = ListeningAddress(ultrapeer);
    ASSERT_FALSE(up.empty()) << ultrapeer.log();
    NodeProcess firewalled({"--listen", "127.0.0.1:0", "--leaf", "--firewalled", "--share",
                            hidden.path().string(), "--connect", up});
    ASSERT_FALSE(firewalled.LineStarting("connected ", 20s).empty()) << firewalled.log();
    NodeProcess reachable(
        {"--listen", "127.0.0.1:0", "--leaf", "--share", open.path().string(), "--connect", up});
    ASSERT_FALSE(reachable.LineStarting("connected ", 20s).empty()) << reachable.log();

    library::FileIndex none;
    Recorder events;
    EngineService engine(none, events);
    auto options = LoopbackLeaf();
    options.bootstrap = {*gnutella::ParseEndpoint(up)};
    ASSERT_FALSE(engine.Start(options));
    ASSERT_TRUE(events.WaitFor([&] { return events.nodes == 1; }));
    ASSERT_TRUE(engine.StartSearch(5, "harbour", "All", {}));
    ASSERT_TRUE(events.WaitFor([&] { return events.results.size() == 2; }));
    ParsedResult filmHit;
    ParsedResult photosHit;
    {
        std::lock_guard<std::mutex> guard(events.lock);
        for (const auto& text : events.results) {
            const ParsedResult hit = FirstFile(text);
            (hit.sha1 == filmSha1 ? filmHit : photosHit) = hit;
        }
    }
    engine.StopSearch(5);

    ASSERT_EQ(filmHit.sha1, filmSha1);
    EXPECT_EQ(filmHit.source.push, 1);
    const auto filmUrl = transfer::SourceUrlOf(filmHit.source, filmSha1);
    ASSERT_TRUE(filmUrl);
    EXPECT_TRUE(filmUrl->starts_with("http://127.0.0.1:")) << *filmUrl;
    EXPECT_NE(filmUrl->find("/push/"), std::string::npos) << *filmUrl;
    EXPECT_EQ(library::ToBase32(library::Sha1Of(Fetch(*filmUrl, downloads.path() / "film"))),
              filmSha1);
    EXPECT_FALSE(firewalled.LineStarting("push ", 5s).empty()) << firewalled.log();

    ASSERT_EQ(photosHit.sha1, photosSha1);
    EXPECT_EQ(photosHit.source.push, 0);
    EXPECT_TRUE(photosHit.source.sourceUrl.empty());
    const auto photosUrl = transfer::SourceUrlOf(photosHit.source, photosSha1);
    ASSERT_TRUE(photosUrl);
    EXPECT_EQ(*photosUrl, "http://" + photosHit.source.host + ":" +
                              std::to_string(photosHit.source.port) +
                              "/uri-res/N2R?urn:sha1:" + photosSha1);
    EXPECT_EQ(Fetch(*photosUrl, downloads.path() / "photos"), photos);
    engine.Stop();
}

TEST(EngineNetwork, OnlyHostsThatCannotBeDialledArePushedFor) {
    gnutella::QueryHit hit;
    hit.ip = 0x08080808; // 8.8.8.8
    hit.port = 6346;
    hit.servent.bytes[3] = 7;
    hit.results.push_back({4, 100, "a.txt", "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X", "", {}});
    hit.push_proxies = {{0x08080404, 6346}, {0, 0}};
    EXPECT_FALSE(gnutella::PushTargetOf(hit, hit.results[0], false));

    hit.flags.firewalled = true;
    const auto pushed = gnutella::PushTargetOf(hit, hit.results[0], true);
    ASSERT_TRUE(pushed);
    EXPECT_EQ(pushed->servent, hit.servent);
    EXPECT_EQ(pushed->index, 4u);
    EXPECT_EQ(pushed->proxies, (std::vector<Endpoint>{{0x08080404, 6346}}));
    EXPECT_EQ(pushed->target, "/uri-res/N2R?urn:sha1:QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X");

    // A private address can only be pushed to from outside its network.
    hit.flags.firewalled = false;
    hit.ip = 0xC0A80002; // 192.168.0.2
    EXPECT_TRUE(gnutella::PushTargetOf(hit, hit.results[0], false));
    EXPECT_FALSE(gnutella::PushTargetOf(hit, hit.results[0], true));

    // Without a servent to route to, or a SHA1 to ask for, there is nothing to push for.
    const auto servent = hit.servent;
    hit.servent = {};
    EXPECT_FALSE(gnutella::PushTargetOf(hit, hit.results[0], false));
    hit.servent = servent;
    hit.results[0].sha1.clear();
    EXPECT_FALSE(gnutella::PushTargetOf(hit, hit.results[0], false));
}

TEST(EngineNetwork, TheBootstrapVariableNamesTestNetworksOrNothing) {
    EngineOptions user;
    user.host_cache_file = "HostCache.txt";
    user.shipped_cache_list = "caches.txt";
    auto options = user;
    ApplyBootstrapVariable(options, std::nullopt);
    ApplyBootstrapVariable(options, " ");
    EXPECT_EQ(options.shipped_cache_list, "caches.txt");
    EXPECT_EQ(options.host_cache_file, "HostCache.txt");
    EXPECT_FALSE(options.allow_private_addresses);

    options = user;
    ApplyBootstrapVariable(options, "None");
    EXPECT_TRUE(options.shipped_cache_list.empty());
    EXPECT_TRUE(options.host_cache_file.empty());
    EXPECT_TRUE(options.bootstrap.empty());
    EXPECT_TRUE(options.caches.empty());

    options = user;
    ApplyBootstrapVariable(options, "127.0.0.1:6346, gwc http://127.0.0.1:8080/gwc.php,"
                                    "uhc 10.0.0.1:9000,nonsense,gwc ftp://x/");
    EXPECT_TRUE(options.shipped_cache_list.empty());
    EXPECT_EQ(options.host_cache_file, "HostCache.txt");
    EXPECT_EQ(options.bootstrap, (std::vector<Endpoint>{{0x7F000001, 6346}}));
    EXPECT_EQ(options.caches, (std::vector<BootstrapCache>{
                                  {BootstrapCache::Kind::WebCache, "http://127.0.0.1:8080/gwc.php"},
                                  {BootstrapCache::Kind::UdpHostCache, "10.0.0.1:9000"}}));
    EXPECT_TRUE(options.allow_private_addresses);

    // Caches on the public network leave private addresses out as before.
    options = user;
    ApplyBootstrapVariable(options, "gwc http://cache.example.org/gwc.php");
    EXPECT_EQ(options.caches.size(), 1u);
    EXPECT_FALSE(options.allow_private_addresses);
}

TEST(EngineNetwork, TheShippedListIsReadOnlyWhenTheHostCacheIsThin) {
    TempFolder folder;
    const auto list = folder.Write("caches.txt", "# shipped\ngwc http://gwc.example.org/\n"
                                                 "uhc uhc.example.org:9000\nnot a cache\n");
    std::string known;
    for (std::size_t i = 0; i < kFewKnownHosts; ++i)
        known += "8.8." + std::to_string(i) + ".1:6346\n";
    const auto full = folder.Write("full.txt", known);
    // As many lines, but private addresses the engine would not dial: still thin.
    std::string unusable;
    for (std::size_t i = 0; i < kFewKnownHosts; ++i)
        unusable += "192.168." + std::to_string(i) + ".1:6346\n";
    const auto thin = folder.Write("thin.txt", unusable);

    const BootstrapCache named{BootstrapCache::Kind::WebCache, "http://gwc.example.org/"};
    const std::vector<BootstrapCache> shipped{
        named, {BootstrapCache::Kind::UdpHostCache, "uhc.example.org:9000"}};
    EngineOptions options;
    options.shipped_cache_list = list.string();
    EXPECT_EQ(BootstrapCachesFor(options), shipped) << "no host cache at all";
    options.host_cache_file = thin.string();
    EXPECT_EQ(BootstrapCachesFor(options), shipped);
    options.host_cache_file = (folder.path() / "missing.txt").string();
    EXPECT_EQ(BootstrapCachesFor(options), shipped);
    options.host_cache_file = full.string();
    EXPECT_TRUE(BootstrapCachesFor(options).empty());

    // Named caches come first and stay, and a shipped one already named is not repeated.
    options.caches = {{BootstrapCache::Kind::UdpHostCache, "127.0.0.1:7000"}, named};
    EXPECT_EQ(BootstrapCachesFor(options), options.caches);
    options.host_cache_file.clear();
    EXPECT_EQ(BootstrapCachesFor(options),
              (std::vector<BootstrapCache>{options.caches[0], named, shipped[1]}));
    options.shipped_cache_list = (folder.path() / "absent.txt").string();
    EXPECT_EQ(BootstrapCachesFor(options), options.caches);
}

TEST(EngineNetwork, TheShippedCacheListFindsTheNetworkUnlessTheVariableSaysNone) {
    NodeProcess ultrapeer({"--listen", "127.0.0.1:0", "--ultrapeer"});
    const std::string up = ListeningAddress(ultrapeer);
    ASSERT_FALSE(up.empty()) << ultrapeer.log();
    LoopbackWebCache cache(up);
    TempFolder install;
    const auto list =
        install.Write("caches.txt", "# shipped beside the engine\ngwc http://127.0.0.1:" +
                                        std::to_string(cache.port()) + "/gwc.php\n");
    TempFolder profile;
    // A user's host cache with a few hosts nobody answers at: too few to go by alone.
    const auto hosts = profile.Write("HostCache.txt", "127.0.0.1:9\n127.0.0.1:11\n");

    library::FileIndex none;
    Recorder quietEvents;
    EngineService quiet(none, quietEvents);
    auto quietOptions = LoopbackLeaf();
    quietOptions.shipped_cache_list = list.string();
    quietOptions.host_cache_file = hosts.string();
    ApplyBootstrapVariable(quietOptions, "none");
    ASSERT_FALSE(quiet.Start(quietOptions));

    // Started after the quiet one, this engine reads the list, asks the cache and finds the
    // ultrapeer; by then the quiet one had every chance to do the same.
    Recorder userEvents;
    EngineService user(none, userEvents);
    auto userOptions = LoopbackLeaf();
    userOptions.shipped_cache_list = list.string();
    userOptions.host_cache_file = hosts.string();
    ASSERT_FALSE(user.Start(userOptions));
    ASSERT_TRUE(userEvents.WaitFor([&] { return userEvents.nodes == 1; }));
    EXPECT_NE(user.HostsText().find(up), std::string::npos);
    user.Stop();
    EXPECT_EQ(cache.asked(), 1);
    EXPECT_EQ(quiet.NodeCount(), 0);
    EXPECT_EQ(quiet.HostsText().find("<Host>"), std::string::npos);
    quiet.Stop();
    // The quiet engine kept no host cache; the user's engine kept the ultrapeer it found.
    EXPECT_NE(ReadAll(hosts).find(up), std::string::npos);
}

} // namespace
} // namespace corvid::engine
