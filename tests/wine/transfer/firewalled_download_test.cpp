// A file only a firewalled host has, fetched the way a user fetches it: the real engine component
// (CorvidEngine.dll) finds it, the plug-in's reader groups the answer, the download page hands
// the group to the real Download.dll, and the file arrives through the engine's relay, which
// pushes to the host. The fixture runs the host and its ultrapeer as native corvid-node processes.

#include <windows.h>

#include "platform/win/handles.h"
#include "platform/win/text.h"
#include "platform/win/user_folders.h"
#include "search/result_store.h"
#include "search/search_result_reader.h"
#include "tests/wine/engine/engine_test_support.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"
#include "tests/wine/transfer/transfer_test_support.h"
#include "transfer/win/download_panel.h"

#include "engine_h.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace corvid::transfer::testing {
namespace {

using corvid::testing::EventSink;
using corvid::testing::FakePanelSite;
using corvid::testing::PumpUntil;
using corvid::win::Bstr;
using corvid::win::ComPtr;

constexpr DWORD kWaitMs = 60000;

std::string FixtureFolder() {
    return FixtureFolderFrom("CORVID_PUSH_FIXTURE");
}

std::string FixtureValue(const std::string& key) {
    char value[512] = {};
    ::GetPrivateProfileStringA("push", key.c_str(), "", value, sizeof value,
                               (FixtureFolder() + "\\push.ini").c_str());
    return value;
}

TEST(FirewalledDownload, TheEnginesRelayBringsAFileOnlyAFirewalledHostHas) {
    const std::string ultrapeer = FixtureValue("ultrapeer");
    const std::string name = FixtureValue("name");
    const std::string sha1 = FixtureValue("sha1");
    ASSERT_FALSE(ultrapeer.empty()) << "CORVID_PUSH_FIXTURE names no fixture";

    // A leaf of the fixture's ultrapeer and of nothing else, reachable itself.
    const auto ini = corvid::win::NetWorkIniPath();
    ASSERT_FALSE(ini.empty());
    std::filesystem::create_directories(std::filesystem::path(ini).parent_path());
    std::ofstream(std::filesystem::path(ini), std::ios::trunc)
        << "[NetWork]\r\nNodeMode=2\r\nBehindFirewall=0\r\nPort=0\r\nHosts=" << ultrapeer << "\r\n";

    corvid::win::Module module(::LoadLibraryA("CorvidEngine.dll"));
    ASSERT_TRUE(module);
    {
        auto engine =
            CreateFromDll<IGnutellaEngine>(module.get(), CLSID_GnutellaEngine, IID_IGnutellaEngine);
        ASSERT_TRUE(engine);
        ASSERT_EQ(engine->Connect(), S_OK);
        ASSERT_TRUE(PumpUntil(
            [&] {
                long count = 0;
                return SUCCEEDED(engine->GetNodeCount(&count)) && count == 1;
            },
            kWaitMs));

        // The search window's part: the engine's answers, read by the plug-in's reader.
        ComPtr<IGnutellaSearch> search;
        ASSERT_EQ(engine->CreateSearch(Bstr(L"hidden harbour").get(), Bstr(L"All").get(), 0, 0, 0,
                                       1, search.put()),
                  S_OK);
        auto results = EventSink::Make(DIID__IGnutellaSearchEvents);
        const DWORD cookie =
            corvid::testing::Advise(search.get(), DIID__IGnutellaSearchEvents, results->Identity());
        ASSERT_NE(cookie, 0u);
        ASSERT_EQ(search->Start(), S_OK);
        ResultStore store;
        size_t read = 0;
        ASSERT_TRUE(PumpUntil(
            [&] {
                for (; read < results->events.size(); ++read)
                    for (const auto& text : results->events[read].texts)
                        ReadSearchResult(store, corvid::win::ToAnsi(text.c_str(),
                                                                    static_cast<int>(text.size())));
                return !store.Groups().empty();
            },
            kWaitMs));
        const ResultGroup group = *store.Groups().front();
        search->Stop();
        corvid::testing::Unadvise(search.get(), DIID__IGnutellaSearchEvents, cookie);
        ASSERT_EQ(group.sha1, sha1);
        ASSERT_EQ(group.sources.size(), 1u);
        EXPECT_EQ(group.sources.front().name, name);
        EXPECT_EQ(group.sources.front().push, 1);

        // The download page's part: the group handed over, Download.dll fetching what it is given.
        FakePanelSite site("Corvid downloads from a firewalled host");
        site.engine = engine.get();
        auto files = FakeFileManager::Make();
        site.fileManager = files.get();
        RecordingPrompts prompts;
        win::DownloadPanelOptions options;
        options.downloadFolder = FreshFolder("download");
        options.tempFolder = FreshFolder("temp");
        options.listFile = FreshFolder("list") + "\\Downloads.xml";
        options.prompts = &prompts;
        {
            win::DownloadPanel panel(site, options);
            ASSERT_TRUE(site.Adopt(panel));
            site.downloads = panel.Page();
            ASSERT_TRUE(panel.Page()->StartDownload(group, false));
            // Download.dll is given the engine's relay, not the host's own address.
            {
                const auto items = panel.Page()->Items();
                ASSERT_EQ(items.size(), 1u);
                std::lock_guard guard(items.front()->lock);
                ASSERT_EQ(items.front()->sources.size(), 1u);
                const std::string url = items.front()->sources.front()->url;
                EXPECT_EQ(url.rfind("http://127.0.0.1:", 0), 0u) << url;
                EXPECT_NE(url.find("/push/"), std::string::npos) << url;
            }
            ASSERT_TRUE(PumpUntil(
                [&] {
                    const int rows = RowCount(panel.List());
                    return rows == 1 && Cell(panel.List(), 0, "Status").rfind("Completed", 0) == 0;
                },
                kWaitMs))
                << Cell(panel.List(), 0, "Status");
            // Completed, the file goes to the library, which tells where it lies.
            ASSERT_TRUE(PumpUntil([&] { return !files->shared.empty(); }));
            corvid::testing::SaveScreenshot("download-page-firewalled-host");
            EXPECT_EQ(ReadWholeFile(files->shared.front()),
                      ReadWholeFile(FixtureFolder() + "\\share\\" + name));
        }
        engine->Disconnect();
    }
    std::error_code ignored;
    std::filesystem::remove(ini, ignored);
}

} // namespace
} // namespace corvid::transfer::testing
