// The hosts view over the real engine, joined to a loopback network of native nodes.

#include "network/win/hosts_panel.h"
#include "network/win/netviews_ids.h"
#include "tests/wine/network/loopback_support.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace corvid::testing {
namespace {

constexpr int kNodeIdColumn = 1;
constexpr int kTimeColumn = 7;

TEST(HostsViewOnALoopbackNetwork, ListsTheEnginesNodesAndDropsOne) {
    const LoopbackNetwork network = LoadLoopbackNetwork();
    ASSERT_TRUE(network.loaded) << "CORVID_TEST_LOOPBACK names no started network";
    win::ComApartment apartment;
    win::ComPtr<IGnutellaEngine> engine = StartLoopbackEngine(network);
    ASSERT_TRUE(engine);

    FakePanelSite site{"Hosts"};
    site.engine = engine.get();
    auto panel = network::MakeHostsPanel(site);
    ASSERT_TRUE(site.Adopt(*panel));
    HWND list = network::HostsListOf(panel->Window());
    auto tick = [&] { ::SendMessageA(panel->Window(), WM_TIMER, 1, 0); };
    auto hosts = [&] {
        std::vector<std::string> shown;
        for (int row = 0; row < ListView_GetItemCount(list); ++row) {
            shown.push_back(ListViewText(list, row, 0));
        }
        return shown;
    };

    ASSERT_TRUE(PumpUntil(
        [&] {
            tick();
            return hosts().size() == network.ultrapeers.size();
        },
        30000))
        << ListView_GetItemCount(list) << " rows, " << network.ultrapeers.size() << " ultrapeers";
    for (const std::string& host : hosts()) {
        EXPECT_NE(std::find(network.ultrapeers.begin(), network.ultrapeers.end(), host),
                  network.ultrapeers.end())
            << host;
    }
    const std::string time = ListViewText(list, 0, kTimeColumn);
    ASSERT_GE(time.size(), 3u);
    EXPECT_EQ(time.substr(time.size() - 2), " s");
    EXPECT_LT(std::stoi(time), 60);

    ListView_SetItemState(list, 0, LVIS_SELECTED | LVIS_FOCUSED, LVIS_SELECTED | LVIS_FOCUSED);
    ::SetFocus(list);
    PumpPending();
    SaveScreenshot("hosts_view_loopback");

    const std::string dropped = ListViewText(list, 0, kNodeIdColumn);
    ::SendMessageA(panel->Window(), WM_COMMAND, ID_HOSTS_DISCONNECT, 0);
    EXPECT_TRUE(PumpUntil(
        [&] {
            tick();
            for (int row = 0; row < ListView_GetItemCount(list); ++row) {
                if (ListViewText(list, row, kNodeIdColumn) == dropped) {
                    return false;
                }
            }
            return true;
        },
        10000));

    site.engine = nullptr;
    panel.reset();
    engine->Disconnect();
}

} // namespace
} // namespace corvid::testing
