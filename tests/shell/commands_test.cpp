#include "shell/commands.h"

#include <gtest/gtest.h>

#include <set>

namespace corvid::shell {
namespace {

using States = std::vector<std::pair<std::string, int>>;

TEST(Commands, RouteSeventeenNamesInTableOrderWithDistinctNumbers) {
    const char* expected[] = {"p2p_connect",
                              "p2p_disconnect",
                              "p2p_browse_host",
                              "p2p_cut",
                              "p2p_copy",
                              "p2p_paste",
                              "p2p_selectall",
                              "p2p_toolbar_customise",
                              "p2p_search",
                              "p2p_download",
                              "p2p_upload",
                              "p2p_library",
                              "p2p_theater",
                              "p2p_console",
                              "p2p_hosts",
                              "p2p_options",
                              "p2p_search_window_list"};
    ASSERT_EQ(Commands().size(), std::size(expected));
    std::set<int> ids;
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_STREQ(Commands()[i].name, expected[i]);
        EXPECT_EQ(FindCommand(std::string_view(expected[i])), &Commands()[i]);
        EXPECT_EQ(FindCommand(Commands()[i].id), &Commands()[i]);
        ids.insert(Commands()[i].id);
    }
    EXPECT_EQ(ids.size(), Commands().size());
    EXPECT_EQ(FindCommand(std::string_view("p2p_unknown")), nullptr);
    EXPECT_EQ(FindCommand(std::string_view("P2P_CONNECT")), nullptr);
    EXPECT_EQ(FindCommand(0), nullptr);
}

TEST(Commands, PanelNumbersAreConsecutiveAndOthersHaveNoName) {
    const char* names[] = {"p2p_search",  "p2p_download", "p2p_upload", "p2p_library",
                           "p2p_theater", "p2p_console",  "p2p_hosts"};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(PanelCommandName(34008 + i), names[i]);
    }
    EXPECT_FALSE(PanelCommandName(34007));
    EXPECT_FALSE(PanelCommandName(34015));
    EXPECT_FALSE(PanelCommandName(34001)); // p2p_connect has a number but is not a panel
}

TEST(CommandStates, OfflineEnablesConnectAndOnlineSwapsThem) {
    EXPECT_EQ(CommandStates(0, false),
              (States{{"p2p_connect", kCommandEnabled}, {"p2p_disconnect", kCommandGreyed}}));
    EXPECT_EQ(CommandStates(0, true),
              (States{{"p2p_connect", kCommandGreyed}, {"p2p_disconnect", kCommandEnabled}}));
}

TEST(CommandStates, ChecksTheCurrentPanelLastAmongThePanelsAndNothingForOtherNumbers) {
    States states = CommandStates(34013, false);
    ASSERT_EQ(states.size(), 9u);
    EXPECT_EQ(states[6], (std::pair<std::string, int>{"p2p_console", kCommandChecked}));
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(states[i].second, kCommandEnabled) << states[i].first;
        EXPECT_NE(states[i].first, "p2p_console");
    }
    EXPECT_EQ(CommandStates(34015, true), CommandStates(0, true));
    EXPECT_EQ(CommandStates(34001, true), CommandStates(0, true));
}

TEST(ToolbarButtons, BuiltInOrderNamesOnlyCommandsAndSeparators) {
    for (int id : BuiltinToolbarOrder()) {
        EXPECT_TRUE(id == 0 || FindCommand(id)) << id;
    }
    for (int id : ToolbarButtonChoices()) {
        ASSERT_TRUE(FindCommand(id)) << id;
        EXPECT_NE(FindCommand(id)->buttonId, 0u) << id;
    }
}

TEST(ToolbarButtons, AvailableAreTheChoicesNotOnTheBar) {
    EXPECT_EQ(AvailableButtons({}), ToolbarButtonChoices());
    EXPECT_EQ(AvailableButtons(BuiltinToolbarOrder()), std::vector<int>{34003});
    EXPECT_EQ(AvailableButtons({34003, 0, 12345}).size(), ToolbarButtonChoices().size() - 1);
}

} // namespace
} // namespace corvid::shell
