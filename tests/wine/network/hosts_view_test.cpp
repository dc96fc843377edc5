#include "network/win/hosts_panel.h"
#include "network/win/netviews_ids.h"
#include "tests/wine/network/fake_engine.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"

#include <commctrl.h>
#include <gtest/gtest.h>
#include <prsht.h>

#include <optional>
#include <string>

namespace corvid::testing {
namespace {

constexpr int kTimeColumn = 7;
constexpr int kUpdateTimeColumn = 6;

std::string Host(const std::string& id, const std::string& node, long handshake = 0,
                 long update = 0, const std::string& agent = "Corvid/0.1") {
    return "<Host>" + (id.empty() ? "" : "<ID>" + id + "</ID>") + "<Node>" + node +
           "</Node><UserAgent>" + agent + "</UserAgent><HandshakeTime>" +
           std::to_string(handshake) +
           "</HandshakeTime><Type>Ultrapeer</Type><In>120/4</In><Out>80/3</Out><UpdateTime>" +
           std::to_string(update) + "</UpdateTime><Ver>0.6</Ver></Host>";
}

class HostsViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        site.engine = engine.get();
        network::HostsViewPorts ports;
        ports.tickCount = [this] { return now; };
        ports.askAddress = [this](HWND) { return typedAddress; };
        ports.showProperties = [this](HWND, const std::string& fields) {
            shownProperties = fields;
        };
        panel = network::MakeHostsPanel(site, ports);
        ASSERT_TRUE(site.Adopt(*panel));
        list = network::HostsListOf(panel->Window());
        ASSERT_NE(list, nullptr);
    }

    void Tick(const std::string& hosts) {
        engine->hostsInfo = "<HostInfo>" + hosts + "</HostInfo>";
        ::SendMessageA(panel->Window(), WM_TIMER, 1, 0);
    }
    int Rows() const { return ListView_GetItemCount(list); }
    int Selected() const { return ListView_GetNextItem(list, -1, LVNI_SELECTED); }
    void Select(int row) {
        ListView_SetItemState(list, row, LVIS_SELECTED | LVIS_FOCUSED,
                              LVIS_SELECTED | LVIS_FOCUSED);
    }
    void Command(int id) { ::SendMessageA(panel->Window(), WM_COMMAND, id, 0); }

    win::ComPtr<FakeEngine> engine = FakeEngine::Make();
    FakePanelSite site{"Hosts"};
    std::unique_ptr<shell::Panel> panel;
    HWND list = nullptr;
    std::uint32_t now = 100000;
    std::optional<std::string> typedAddress;
    std::string shownProperties;
};

TEST_F(HostsViewTest, ShowsTheTenColumnsByTitle) {
    HWND header = ListView_GetHeader(list);
    ASSERT_EQ(Header_GetItemCount(header), 10);
    const char* titles[] = {"Host", "Node ID",     "Version", "Type",  "In",
                            "Out",  "Update Time", "Time",    "Agent", "Status"};
    for (int i = 0; i < 10; ++i) {
        std::string title;
        EXPECT_TRUE(corvid::testing::ListViewColumnTitle(list, i, title));
        EXPECT_EQ(title, titles[i]);
    }
    const DWORD styles = ListView_GetExtendedListViewStyle(list);
    EXPECT_TRUE(styles & LVS_EX_FULLROWSELECT);
    EXPECT_TRUE(styles & LVS_EX_HEADERDRAGDROP);
}

TEST_F(HostsViewTest, ANodeThatWentAwayDisappearsAtTheNextTick) {
    Tick(Host("1", "127.0.0.1:6350") + Host("2", "127.0.0.1:6351") + Host("", "127.0.0.1:6352"));
    ASSERT_EQ(Rows(), 2);
    EXPECT_EQ(ListViewText(list, 1, 0), "127.0.0.1:6351");
    EXPECT_EQ(ListViewText(list, 1, 1), "2");
    EXPECT_EQ(ListViewText(list, 1, 8), "Corvid/0.1");
    EXPECT_EQ(ListViewText(list, 1, 9), "");

    Tick(Host("2", "127.0.0.1:6351"));
    ASSERT_EQ(Rows(), 1);
    EXPECT_EQ(ListViewText(list, 0, 0), "127.0.0.1:6351");
}

TEST_F(HostsViewTest, TheSelectedNodeStaysSelectedWhenItsRowMoves) {
    Tick(Host("1", "127.0.0.1:6350") + Host("2", "127.0.0.1:6351"));
    Select(1);
    Tick(Host("3", "127.0.0.1:6352") + Host("1", "127.0.0.1:6350") + Host("2", "127.0.0.1:6351"));
    EXPECT_EQ(Selected(), 2);
    EXPECT_EQ(ListViewText(list, Selected(), 0), "127.0.0.1:6351");

    // Gone: nothing is selected.
    Tick(Host("3", "127.0.0.1:6352"));
    EXPECT_EQ(Selected(), -1);
}

TEST_F(HostsViewTest, OfTwoRowsWithTheSameHostTheFirstGetsTheSelection) {
    Tick(Host("1", "127.0.0.1:6350") + Host("2", "127.0.0.1:6351") + Host("3", "127.0.0.1:6351"));
    Select(2);
    Tick(Host("1", "127.0.0.1:6350") + Host("2", "127.0.0.1:6351") + Host("3", "127.0.0.1:6351"));
    EXPECT_EQ(Selected(), 1);
}

TEST_F(HostsViewTest, TimesAreSecondsOfTheSharedTickCounter) {
    now = 100000;
    Tick(Host("1", "127.0.0.1:6350", 95000, 99000) +
         "<Host><ID>2</ID><Node>127.0.0.1:6351</Node></Host>");
    EXPECT_EQ(ListViewText(list, 0, kTimeColumn), "5 s");
    EXPECT_EQ(ListViewText(list, 0, kUpdateTimeColumn), "1 s");
    // Missing times count as 0: the seconds since the counter started.
    EXPECT_EQ(ListViewText(list, 1, kTimeColumn), "100 s");
    EXPECT_EQ(ListViewText(list, 1, kUpdateTimeColumn), "100 s");
}

TEST_F(HostsViewTest, WithoutAnEngineTheListKeepsItsRows) {
    Tick(Host("1", "127.0.0.1:6350"));
    site.engine = nullptr;
    Tick("");
    EXPECT_EQ(Rows(), 1);
    typedAddress = "127.0.0.1:6360";
    Command(ID_HOSTS_ADD_NODE);
    EXPECT_TRUE(engine->connected.empty());
}

TEST_F(HostsViewTest, PopupCommandsReachTheEngineAndTheMainView) {
    Tick(Host("17", "127.0.0.1:6350") + Host("18", "127.0.0.1:6351"));
    Select(1);
    Command(ID_HOSTS_DISCONNECT);
    ASSERT_EQ(engine->disconnected.size(), 1u);
    EXPECT_EQ(engine->disconnected[0], "18");

    Command(ID_HOSTS_BROWSE);
    ASSERT_EQ(site.mainMessages.size(), 1u);
    EXPECT_EQ(site.mainMessages[0].first, shell::kMsgBrowseHost);
    EXPECT_EQ(site.mainMessages[0].second, "http://127.0.0.1:6351");

    typedAddress = std::nullopt;
    Command(ID_HOSTS_ADD_NODE);
    EXPECT_TRUE(engine->connected.empty());
    typedAddress = "127.0.0.1:6360";
    Command(ID_HOSTS_ADD_NODE);
    ASSERT_EQ(engine->connected.size(), 1u);
    EXPECT_EQ(engine->connected[0], "127.0.0.1:6360");

    Command(ID_HOSTS_PROPERTIES);
    EXPECT_NE(shownProperties.find("Host: 127.0.0.1:6351"), std::string::npos);
    EXPECT_NE(shownProperties.find("Node ID: 18"), std::string::npos);
}

TEST_F(HostsViewTest, CommandsWithoutASelectionDoNothing) {
    Tick(Host("17", "garbage") + Host("18", "127.0.0.1:6351"));
    Command(ID_HOSTS_DISCONNECT);
    Command(ID_HOSTS_BROWSE);
    Command(ID_HOSTS_PROPERTIES);
    EXPECT_TRUE(engine->disconnected.empty());
    EXPECT_TRUE(shownProperties.empty());
    // A host cell that is no address opens no browse tab.
    Select(0);
    Command(ID_HOSTS_BROWSE);
    EXPECT_TRUE(site.mainMessages.empty());
}

// The sheet is modal: a timer of the test's thread, run by the sheet's own message loop, notes
// its caption and cancels it.
std::string g_sheetCaption;
void CALLBACK CancelSheet(HWND, UINT, UINT_PTR timer, DWORD) {
    if (HWND sheet = ::FindWindowA(nullptr, "Corvid Options")) {
        g_sheetCaption = WindowText(sheet);
        PropSheet_PressButton(sheet, PSBTN_CANCEL);
        ::KillTimer(nullptr, timer);
    }
}

TEST_F(HostsViewTest, TheOptionsCommandOpensTheOptionsSheet) {
    EXPECT_FALSE(panel->OnPanelCommand("p2p_browse_host"));
    const UINT_PTR timer = ::SetTimer(nullptr, 0, 100, CancelSheet);
    EXPECT_TRUE(panel->OnPanelCommand("p2p_options"));
    ::KillTimer(nullptr, timer);
    EXPECT_EQ(g_sheetCaption, "Corvid Options");
}

TEST(HostsPopup, HoldsAddNodeDisconnectAndBrowseHost) {
    HMENU menu = ::LoadMenuA(::GetModuleHandleA(nullptr), MAKEINTRESOURCEA(IDR_HOSTS_POPUP));
    ASSERT_NE(menu, nullptr);
    HMENU popup = ::GetSubMenu(menu, 0);
    ASSERT_EQ(::GetMenuItemCount(popup), 4);
    EXPECT_EQ(::GetMenuItemID(popup, 0), static_cast<UINT>(ID_HOSTS_ADD_NODE));
    EXPECT_EQ(::GetMenuItemID(popup, 1), static_cast<UINT>(ID_HOSTS_DISCONNECT));
    EXPECT_EQ(::GetMenuItemID(popup, 2), 0u);
    EXPECT_EQ(::GetMenuItemID(popup, 3), static_cast<UINT>(ID_HOSTS_BROWSE));
    char text[64] = {};
    ::GetMenuStringA(popup, 3, text, sizeof text, MF_BYPOSITION);
    EXPECT_STREQ(text, "&Browse Host");
    ::DestroyMenu(menu);
}

TEST_F(HostsViewTest, Screenshot) {
    now = 3600000;
    Tick(Host("1", "127.0.0.1:6350", now - 312000, now - 400, "Corvid/0.1") +
         Host("2", "127.0.0.1:6351", now - 298000, now - 1200, "Corvid/0.1") +
         Host("3", "127.0.0.1:6352", now - 65000, now - 800, "Corvid/0.1") +
         Host("4", "127.0.0.1:6353", now - 4000, now - 3000, "Corvid/0.1"));
    Select(1);
    ::SetForegroundWindow(site.MainWindow());
    ::SetFocus(list);
    PumpPending();
    SaveScreenshot("hosts_view");
}

} // namespace
} // namespace corvid::testing
