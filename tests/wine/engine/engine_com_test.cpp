// The engine as the plug-in sees it: registered in process or as a local server, created by CLSID
// with CLSCTX_ALL, OleRun and QueryInterface, and joined to a loopback network of native
// corvid-node processes that the ctest fixture runs. Events and result texts must arrive on this
// (the creating) thread, and the plug-in's own reader must make sense of them.

#include "platform/win/text.h"
#include "platform/win/user_folders.h"
#include "search/result_store.h"
#include "search/search_result_reader.h"
#include "tests/wine/engine/engine_test_support.h"
#include "tests/wine/support/wine_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

namespace corvid::testing {
namespace {

using win::Bstr;
using win::ComPtr;

constexpr DWORD kNetworkWaitMs = 30000;

std::string HostsText(IGnutellaEngine* engine) {
    Bstr text;
    return SUCCEEDED(engine->GetHostsInfo(text.put())) ? Narrow(text.get()) : std::string();
}

long NodeCount(IGnutellaEngine* engine) {
    long count = -1;
    engine->GetNodeCount(&count);
    return count;
}

// The files of one of the fixture's leaves, as its folder holds them.
std::set<std::string> LeafFiles(const LoopbackNetwork& network, size_t leaf) {
    std::set<std::string> names;
    WIN32_FIND_DATAA found = {};
    const std::string folder = network.folder + "/library/leaf" + std::to_string(leaf + 1) + "/*";
    HANDLE search = ::FindFirstFileA(folder.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return names;
    }
    do {
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
            names.insert(found.cFileName);
        }
    } while (::FindNextFileA(search, &found));
    ::FindClose(search);
    return names;
}

class EngineAsThePlugInMakesIt : public ::testing::TestWithParam<Server> {
protected:
    void SetUp() override {
        network_ = LoadNetwork();
        ASSERT_TRUE(network_.loaded) << "the loopback network fixture did not run";
        ASSERT_TRUE(SUCCEEDED(apartment_.result()));
        ASSERT_TRUE(RegisterOnly(GetParam()));
        // A leaf of the two ultrapeers and of nothing else: as an ultrapeer it would take in the
        // fixture's leaves too. The hosts come from the file, which a local server reads as well
        // as a DLL does.
        std::string hosts;
        for (const auto& address : network_.ultrapeers) {
            hosts += (hosts.empty() ? "" : ",") + address;
        }
        WriteNetWorkIni("[NetWork]\r\nNodeMode=2\r\nBehindFirewall=0\r\nPeerMaxCount=2\r\n"
                        "Hosts=" +
                        hosts + "\r\n");
        ASSERT_EQ(
            CreateLikeThePlugIn(CLSID_GnutellaEngine, IID_IGnutellaEngine, engine_.put_void()),
            S_OK);
        sink_ = EventSink::Make(DIID__IGnutellaEngineEvents);
        cookie_ = Advise(engine_.get(), DIID__IGnutellaEngineEvents, sink_->Identity());
        ASSERT_NE(cookie_, 0u);
    }
    void TearDown() override {
        if (engine_) {
            Unadvise(engine_.get(), DIID__IGnutellaEngineEvents, cookie_);
            engine_->Disconnect();
            engine_.reset();
        }
        std::error_code ignored;
        std::filesystem::remove(win::NetWorkIniPath(), ignored);
        UnregisterBoth();
    }

    std::string StatusTexts() const {
        std::string said;
        for (const auto& event : sink_->events) {
            for (const auto& text : event.texts) {
                said += win::ToAnsi(text.c_str(), static_cast<int>(text.size())) + "; ";
            }
        }
        return said;
    }

    void ConnectToBothUltrapeers() {
        ASSERT_EQ(engine_->Connect(), S_OK);
        ASSERT_TRUE(PumpUntil([&] { return sink_->Count(1) > 0; }, kNetworkWaitMs))
            << "no connection-established event; the engine said: " << StatusTexts();
        ASSERT_TRUE(PumpUntil([&] { return NodeCount(engine_.get()) == 2; }, kNetworkWaitMs));
    }

    LoopbackNetwork network_;
    win::ComApartment apartment_;
    ComPtr<IGnutellaEngine> engine_;
    ComPtr<EventSink> sink_;
    DWORD cookie_ = 0;
};

TEST_P(EngineAsThePlugInMakesIt, ConnectsAndReportsOnTheCreatingThread) {
    if (GetParam() == Server::LocalServer) {
        EXPECT_EQ(::GetModuleHandleW(L"CorvidEngine.dll"), nullptr) << "the engine is in here";
    }
    ConnectToBothUltrapeers();
    for (const auto& event : sink_->events) {
        EXPECT_EQ(event.thread, ::GetCurrentThreadId()) << "event " << event.id;
    }
    EXPECT_GT(sink_->Count(3), 0u) << "a status text says where the engine listens";
    EXPECT_EQ(engine_->Connect(), S_FALSE) << "a second connect keeps the links";

    const std::string hosts = HostsText(engine_.get());
    auto nodes = Elements(hosts, "Node");
    std::sort(nodes.begin(), nodes.end());
    auto expected = network_.ultrapeers;
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(nodes, expected) << hosts;
    const DWORD now = ::GetTickCount();
    for (const auto& time : Elements(hosts, "HandshakeTime")) {
        const DWORD since = now - static_cast<DWORD>(std::stol(time));
        EXPECT_LT(since, kNetworkWaitMs + 5000) << hosts;
    }
    for (const auto& time : Elements(hosts, "UpdateTime")) {
        EXPECT_LT(now - static_cast<DWORD>(std::stol(time)), kNetworkWaitMs + 5000u) << hosts;
    }
    for (const auto& traffic : Elements(hosts, "In")) {
        EXPECT_TRUE(traffic.ends_with(" B") || traffic.ends_with(" KB")) << traffic;
    }
    EXPECT_EQ(Elements(hosts, "Type"), std::vector<std::string>(2, "Ultrapeer"));

    Bstr info;
    ASSERT_EQ(engine_->GetNetworkInfo(info.put()), S_OK);
    EXPECT_EQ(Elements(Narrow(info.get()), "Ultrapeers"), std::vector<std::string>{"2"});

    // Disconnect says the connection is lost before it returns, and nothing comes after it.
    const size_t lostBefore = sink_->Count(2);
    ASSERT_EQ(engine_->Disconnect(), S_OK);
    EXPECT_EQ(sink_->Count(2), lostBefore + 1);
    const size_t heard = sink_->events.size();
    PumpPending();
    PumpUntil([] { return false; }, 300);
    EXPECT_EQ(sink_->events.size(), heard);
    EXPECT_EQ(NodeCount(engine_.get()), 0);
    EXPECT_EQ(engine_->Disconnect(), S_FALSE);
}

TEST_P(EngineAsThePlugInMakesIt, SearchResultsReadByThePlugInsReaderGroupTheSources) {
    ConnectToBothUltrapeers();
    ComPtr<IGnutellaSearch> search;
    const size_t noticesBefore = sink_->Count(4);
    ASSERT_EQ(engine_->CreateSearch(Bstr(L"free software").get(), Bstr(L"All").get(), 0, 0, 0, 1,
                                    search.put()),
              S_OK);
    EXPECT_EQ(sink_->Count(4), noticesBefore + 1) << "the search object is announced";
    auto results = EventSink::Make(DIID__IGnutellaSearchEvents);
    ASSERT_NE(Advise(search.get(), DIID__IGnutellaSearchEvents, results->Identity()), 0u);
    ASSERT_EQ(search->Start(), S_OK);

    // The song is shared by four leaves: the reader makes one group of it, keyed by its SHA1
    // (a group keeps one source per address), while the texts carry all four offers.
    ResultStore store;
    std::set<std::string> offeringHosts;
    size_t read = 0;
    auto song = [&]() -> const ResultGroup* {
        for (; read < results->events.size(); ++read) {
            for (const auto& text : results->events[read].texts) {
                const std::string ansi = win::ToAnsi(text.c_str(), static_cast<int>(text.size()));
                ReadSearchResult(store, ansi);
                ReadResultFiles(ansi, [&](ParsedResult& result) {
                    if (result.source.name == "free software song.mp3") {
                        offeringHosts.insert(result.source.host + ":" +
                                             std::to_string(result.source.port));
                    }
                });
            }
        }
        for (const ResultGroup* group : store.Groups()) {
            if (group->sources.front().name == "free software song.mp3") {
                return group;
            }
        }
        return nullptr;
    };
    ASSERT_TRUE(PumpUntil([&] { return song() && offeringHosts.size() == 4; }, kNetworkWaitMs));
    EXPECT_EQ(song()->sha1.size(), 32u);
    EXPECT_EQ(song()->sources.front().type, "Audio");
    size_t songGroups = 0;
    for (const ResultGroup* group : store.Groups()) {
        songGroups += group->sources.front().name == "free software song.mp3" ? 1 : 0;
    }
    EXPECT_EQ(songGroups, 1u);
    for (const auto& event : results->events) {
        EXPECT_EQ(event.thread, ::GetCurrentThreadId());
        EXPECT_EQ(event.id, 1);
    }

    // The search windows find their search again by its identifier.
    long id = 0;
    ASSERT_EQ(search->get_Id(&id), S_OK);
    ComPtr<IGnutellaSearch> again;
    ASSERT_EQ(engine_->GetSearch(id, again.put()), S_OK);
    ComPtr<IUnknown> first;
    ComPtr<IUnknown> second;
    search.As(IID_IUnknown, first);
    again.As(IID_IUnknown, second);
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(engine_->GetSearch(id + 1000, again.put()), E_INVALIDARG);

    // Stopped, it says nothing more; restarted, it answers again under the same id.
    ASSERT_EQ(search->Stop(), S_OK);
    const size_t stoppedAt = results->events.size();
    ASSERT_EQ(search->Restart(), S_OK);
    ASSERT_TRUE(PumpUntil([&] { return results->events.size() > stoppedAt; }, kNetworkWaitMs));

    // A download that needs more sources searches by SHA1.
    const std::string key = song()->sha1;
    ComPtr<IGnutellaSearch> bySha1;
    ASSERT_EQ(engine_->CreateSearch(Bstr(win::ToWide("urn:sha1:" + key).c_str()).get(),
                                    Bstr(L"All").get(), 0, 0, 0, 1, bySha1.put()),
              S_OK);
    auto sha1Results = EventSink::Make(DIID__IGnutellaSearchEvents);
    ASSERT_NE(Advise(bySha1.get(), DIID__IGnutellaSearchEvents, sha1Results->Identity()), 0u);
    ASSERT_EQ(bySha1->Start(), S_OK);
    ResultStore sha1Store;
    std::set<std::string> sha1Hosts;
    ASSERT_TRUE(PumpUntil(
        [&] {
            for (const auto& event : sha1Results->events) {
                for (const auto& text : event.texts) {
                    const std::string ansi =
                        win::ToAnsi(text.c_str(), static_cast<int>(text.size()));
                    ReadSearchResult(sha1Store, ansi);
                    ReadResultFiles(ansi, [&](ParsedResult& result) {
                        sha1Hosts.insert(result.source.host + ":" +
                                         std::to_string(result.source.port));
                    });
                }
            }
            sha1Results->events.clear();
            return sha1Store.Find(key) && sha1Hosts.size() == 4;
        },
        kNetworkWaitMs));
    EXPECT_EQ(sha1Store.Groups().size(), 1u);
}

TEST_P(EngineAsThePlugInMakesIt, BrowsingALeafListsExactlyItsFiles) {
    ConnectToBothUltrapeers();
    ComPtr<IGnutellaSearch> browse;
    ASSERT_EQ(
        engine_->BrowseHost(Bstr(win::ToWide(network_.leaves[0]).c_str()).get(), browse.put()),
        S_OK);
    auto results = EventSink::Make(DIID__IGnutellaSearchEvents);
    ASSERT_NE(Advise(browse.get(), DIID__IGnutellaSearchEvents, results->Identity()), 0u);
    ASSERT_EQ(browse->Start(), S_OK);

    const std::set<std::string> expected = LeafFiles(network_, 0);
    ASSERT_FALSE(expected.empty());
    ResultStore store;
    std::set<std::string> listed;
    ASSERT_TRUE(PumpUntil(
        [&] {
            for (const auto& event : results->events) {
                for (const auto& text : event.texts) {
                    const std::string ansi =
                        win::ToAnsi(text.c_str(), static_cast<int>(text.size()));
                    EXPECT_EQ(Elements(ansi, "type"), std::vector<std::string>{"BrowseHost"});
                    ReadSearchResult(store, ansi);
                }
            }
            results->events.clear();
            listed.clear();
            for (const ResultGroup* group : store.Groups()) {
                listed.insert(group->sources.front().name);
            }
            return listed.size() >= expected.size();
        },
        kNetworkWaitMs));
    EXPECT_EQ(listed, expected);
}

TEST_P(EngineAsThePlugInMakesIt, DropsAndAddsNodesByTheHostsViewsOperations) {
    ConnectToBothUltrapeers();
    const std::string hosts = HostsText(engine_.get());
    const auto ids = Elements(hosts, "ID");
    const auto nodes = Elements(hosts, "Node");
    ASSERT_EQ(ids.size(), 2u);
    ASSERT_EQ(engine_->DisconnectNode(Bstr(win::ToWide(ids[1]).c_str()).get()), S_OK);
    ASSERT_TRUE(PumpUntil([&] { return NodeCount(engine_.get()) == 1; }, kNetworkWaitMs));
    EXPECT_EQ(Elements(HostsText(engine_.get()), "ID"), std::vector<std::string>{ids[0]});

    ASSERT_EQ(engine_->ConnectNode(Bstr(win::ToWide(nodes[1]).c_str()).get()), S_OK);
    ASSERT_TRUE(PumpUntil([&] { return NodeCount(engine_.get()) == 2; }, kNetworkWaitMs));
    auto now = Elements(HostsText(engine_.get()), "Node");
    std::sort(now.begin(), now.end());
    auto before = nodes;
    std::sort(before.begin(), before.end());
    EXPECT_EQ(now, before);
}

TEST_P(EngineAsThePlugInMakesIt, TheNetworkPagesNewCountsApplyToTheRunningEngine) {
    EXPECT_EQ(engine_->ReloadSettings(), S_OK) << "an engine offline reads the file at connect";
    ConnectToBothUltrapeers();
    std::string hosts;
    for (const auto& address : network_.ultrapeers) {
        hosts += (hosts.empty() ? "" : ",") + address;
    }
    WriteNetWorkIni(
        "[NetWork]\r\nNodeMode=2\r\nBehindFirewall=0\r\nPeerMaxCount=1\r\nHosts=" + hosts + "\r\n");
    EXPECT_EQ(engine_->ReloadSettings(), S_OK);
    ASSERT_TRUE(PumpUntil([&] { return NodeCount(engine_.get()) == 1; }, kNetworkWaitMs));

    // A leaf does not become an ultrapeer in the middle of its links.
    WriteNetWorkIni(
        "[NetWork]\r\nNodeMode=1\r\nBehindFirewall=0\r\nPeerMaxCount=1\r\nHosts=" + hosts + "\r\n");
    EXPECT_EQ(engine_->ReloadSettings(), S_FALSE);
    EXPECT_EQ(NodeCount(engine_.get()), 1);
}

TEST_P(EngineAsThePlugInMakesIt, RefusesBadInputAndChangesNothing) {
    ConnectToBothUltrapeers();
    for (const wchar_t* address :
         {L"", L"nonsense", L"127.0.0.1", L"127.0.0.1:0", L"300.1.1.1:6346", L"127.0.0.1:99999"}) {
        EXPECT_EQ(engine_->ConnectNode(Bstr(address).get()), E_INVALIDARG) << address;
    }
    EXPECT_EQ(engine_->ConnectNode(nullptr), E_INVALIDARG);
    for (const wchar_t* id : {L"", L"abc", L"999999", L"-1", L"12345678901"}) {
        EXPECT_EQ(engine_->DisconnectNode(Bstr(id).get()), E_INVALIDARG) << id;
    }
    // Across processes the marshaler refuses a null out-pointer before the engine sees it.
    const HRESULT nullOut =
        GetParam() == Server::InProcess ? E_POINTER : HRESULT_FROM_WIN32(RPC_X_NULL_REF_POINTER);
    ComPtr<IGnutellaSearch> search;
    if (GetParam() == Server::InProcess) {
        // Across processes Wine's stub hands the engine an out-pointer of its own and then drops
        // the object it gets back, which would keep the local server running for ever.
        EXPECT_EQ(engine_->CreateSearch(Bstr(L"x").get(), Bstr(L"All").get(), 0, 0, 0, 1, nullptr),
                  E_POINTER);
    }
    const std::wstring huge(1 << 20, L'a');
    EXPECT_EQ(engine_->CreateSearch(Bstr(huge.c_str()).get(), Bstr(L"All").get(), 0, 0, 0, 1,
                                    search.put()),
              E_INVALIDARG);
    EXPECT_FALSE(search);
    EXPECT_EQ(
        engine_->CreateSearch(Bstr(L"urn:sha1:NOTBASE32").get(), nullptr, 0, 0, 0, 1, search.put()),
        E_INVALIDARG);
    EXPECT_EQ(engine_->CreateSearch(Bstr(L"   ").get(), nullptr, 0, 0, 0, 1, search.put()),
              E_INVALIDARG);
    EXPECT_EQ(engine_->BrowseHost(Bstr(L"not a host").get(), search.put()), E_INVALIDARG);
    EXPECT_EQ(engine_->GetNodeCount(nullptr), nullOut);
    EXPECT_EQ(engine_->GetHostsInfo(nullptr), nullOut);
    ComPtr<IUploadManager> uploads;
    ASSERT_EQ(engine_->GetUploads(uploads.put()), S_OK);
    EXPECT_EQ(uploads->StopUpload(777), E_INVALIDARG);
    EXPECT_EQ(uploads->GetUploadCount(nullptr), nullOut);
    EXPECT_EQ(NodeCount(engine_.get()), 2) << "nothing else changed";
}

TEST_P(EngineAsThePlugInMakesIt, ReleasingWithEventsQueuedIsClean) {
    ASSERT_EQ(engine_->Connect(), S_OK);
    ComPtr<IGnutellaSearch> search;
    ASSERT_EQ(engine_->CreateSearch(Bstr(L"free software").get(), Bstr(L"All").get(), 0, 0, 0, 1,
                                    search.put()),
              S_OK);
    auto results = EventSink::Make(DIID__IGnutellaSearchEvents);
    Advise(search.get(), DIID__IGnutellaSearchEvents, results->Identity());
    // The status texts of the connect wait in the queue; the engine goes before they are read.
    Unadvise(engine_.get(), DIID__IGnutellaEngineEvents, cookie_);
    engine_.reset();
    if (GetParam() == Server::LocalServer) {
        // Out of process, an event the server had already sent when the Unadvise reached it may
        // still land here: calls in the two directions travel apart. Such stragglers end within
        // a quiet moment; anything after that would be the engine still talking.
        for (int round = 0; round < 10; ++round) {
            const size_t before = sink_->events.size();
            PumpUntil([] { return false; }, 200);
            if (sink_->events.size() == before) {
                break;
            }
        }
    }
    const size_t heard = sink_->events.size();
    PumpUntil([] { return false; }, 300);
    EXPECT_EQ(sink_->events.size(), heard);
    // The search outlives its engine as an object that has nothing to say.
    EXPECT_EQ(search->Start(), HRESULT_FROM_WIN32(ERROR_NOT_CONNECTED));
    search.reset();
    PumpPending();
}

INSTANTIATE_TEST_SUITE_P(Servers, EngineAsThePlugInMakesIt,
                         ::testing::Values(Server::InProcess, Server::LocalServer),
                         [](const ::testing::TestParamInfo<Server>& info) {
                             return info.param == Server::InProcess ? "InProcess" : "LocalServer";
                         });

} // namespace
} // namespace corvid::testing
