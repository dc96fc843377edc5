// A result window over the real engine component, created as the plug-in creates it, searching a
// loopback network of native corvid-node peers that the ctest fixture runs.

#include "search/win/search_window.h"

#include "platform/win/text.h"
#include "search/result_cells.h"
#include "tests/wine/engine/engine_test_support.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

namespace corvid::testing {
namespace {

constexpr DWORD kNetworkWaitMs = 30000;
// Each of the network's shared files is offered by four leaves.
constexpr std::size_t kCopies = 4;

TEST(SearchWindowWithTheEngine, ASearchFillsItsWindowFromTheLoopbackNetwork) {
    const LoopbackNetwork network = LoadNetwork();
    ASSERT_TRUE(network.loaded) << "the loopback network fixture did not run";
    win::ComApartment apartment;
    ASSERT_TRUE(RegisterOnly(Server::InProcess));
    WriteNetWorkIni("[NetWork]\r\nNodeMode=1\r\nBehindFirewall=0\r\nUltraPeerMinCount=0\r\n");
    std::string bootstrap;
    for (const std::string& address : network.ultrapeers) {
        bootstrap += (bootstrap.empty() ? "" : ",") + address;
    }
    ::SetEnvironmentVariableA("CORVID_ENGINE_BOOTSTRAP", bootstrap.c_str());

    win::ComPtr<IGnutellaEngine> engine;
    ASSERT_EQ(CreateLikeThePlugIn(CLSID_GnutellaEngine, IID_IGnutellaEngine, engine.put_void()),
              S_OK);
    ASSERT_EQ(engine->Connect(), S_OK);
    ASSERT_TRUE(PumpUntil(
        [&] {
            long count = 0;
            return SUCCEEDED(engine->GetNodeCount(&count)) && count > 0;
        },
        kNetworkWaitMs));

    FakePanelSite site("Corvid search window over the engine");
    site.engine = engine.get();
    win::ComPtr<IGnutellaSearch> search;
    win::Bstr keywords(L"free software song");
    win::Bstr type(L"All");
    ASSERT_EQ(engine->CreateSearch(keywords.get(), type.get(), 0, 0, 0, 1, search.put()), S_OK);
    shell::Panel* tab = site.OpenTab(
        search::MakeSearchWindow(site, search.get(), "free software song", "All"), true);
    ASSERT_TRUE(tab);
    ASSERT_EQ(search->Start(), S_OK);

    auto* window = static_cast<search::ResultWindow*>(tab);
    HWND list = window->List();
    // The refresh timer's tick, sent rather than waited for, until every leaf has answered.
    const bool filled = PumpUntil(
        [&] {
            ::SendMessageA(window->Window(), WM_TIMER, search::ResultWindow::kRefreshTimer, 0);
            const ResultRow first = window->Model().Rows().Row(0);
            return first.group && first.group->sources.size() >= kCopies;
        },
        kNetworkWaitMs);
    ASSERT_TRUE(filled) << "rows: " << ListView_GetItemCount(list);
    EXPECT_EQ(ListViewText(list, 0, 0), "free software song.mp3");
    EXPECT_EQ(ListViewText(list, 0, 1), "3,145,728");
    EXPECT_EQ(ListViewText(list, 0, 2), "multiple(4)");
    EXPECT_EQ(ListViewText(list, 0, 6), "Audio");
    EXPECT_EQ(window->Title(), "free software song (1)");

    ListView_SetItemState(list, 0, LVIS_SELECTED | LVIS_FOCUSED, LVIS_SELECTED | LVIS_FOCUSED);
    ::SendMessageA(list, WM_KEYDOWN, VK_RIGHT, 0);
    ASSERT_EQ(ListView_GetItemCount(list), 5);
    std::set<std::string> hosts;
    for (int row = 1; row <= 4; ++row) {
        hosts.insert(ListViewText(list, row, 2));
        EXPECT_EQ(ListViewText(list, row, 0), "free software song.mp3");
    }
    EXPECT_EQ(hosts.size(), 4u);
    PumpPending();
    SaveScreenshot("search_window_engine");

    site.tabs.clear();
    engine->Disconnect();
}

} // namespace
} // namespace corvid::testing
