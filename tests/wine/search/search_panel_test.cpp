// The search view as the main view uses it: searches handed over or typed in open result windows
// as tabs, browse requests open browse-host tabs.

#include "search/win/search_panel.h"

#include "tests/search/result_text.h"
#include "tests/wine/search/search_fakes.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"

#include <gtest/gtest.h>

namespace corvid::testing {
namespace {

constexpr int kWordsId = 201;
constexpr int kTypeId = 202;
constexpr int kSearchId = 203;

class SearchPanelTest : public ::testing::Test {
protected:
    void SetUp() override {
        panel = search::MakeSearchPanel(site);
        ASSERT_TRUE(site.Adopt(*panel));
        EXPECT_EQ(panel->Title(), "Search");
    }

    FakePanelSite site;
    win::ComPtr<FakeEngine> engine = FakeEngine::Make();
    std::unique_ptr<shell::Panel> panel;
};

TEST_F(SearchPanelTest, ASearchHandedOverOpensItsWindowAsATab) {
    auto search = FakeSearch::Make();
    ASSERT_TRUE(panel->OpenSearch(search.get(), "night train", "Audio"));
    ASSERT_EQ(site.tabs.size(), 1u);
    EXPECT_TRUE(site.tabs[0]->IsSearchWindow());
    EXPECT_EQ(site.tabs[0]->SearchKeywords(), "night train");
    EXPECT_EQ(search->Listeners(), 1u);
    EXPECT_FALSE(panel->OpenSearch(nullptr, "x", "All"));
}

TEST_F(SearchPanelTest, TheFormStartsASearchOnceOnline) {
    HWND window = panel->Window();
    ::SetDlgItemTextA(window, kWordsId, "  free software song ");
    ::SendDlgItemMessageA(window, kTypeId, CB_SETCURSEL, 1, 0);
    ::SendMessageA(window, WM_COMMAND, MAKEWPARAM(kSearchId, BN_CLICKED), 0);
    EXPECT_EQ(site.ensureOnlineCalls, 1); // offline: nothing is searched
    EXPECT_TRUE(site.tabs.empty());

    site.engine = engine.get();
    ::SendMessageA(window, WM_COMMAND, MAKEWPARAM(kSearchId, BN_CLICKED), 0);
    EXPECT_EQ(engine->searched, std::vector<std::string>{"free software song/Audio"});
    ASSERT_EQ(site.tabs.size(), 1u);
    EXPECT_EQ(engine->lastSearch->starts, 1);
    EXPECT_EQ(site.tabs[0]->Title(), "free software song (0)");

    // Enter in the words box is the Search button.
    ::SendMessageA(::GetDlgItem(window, kWordsId), WM_KEYDOWN, VK_RETURN, 1);
    PumpPending();
    EXPECT_EQ(engine->searched.size(), 2u);
}

TEST_F(SearchPanelTest, BrowseRequestsOpenBrowseHostTabs) {
    site.engine = engine.get();
    EXPECT_FALSE(panel->OnPanelCommand("p2p_options"));
    EXPECT_TRUE(panel->OnPanelCommand("browse:http://10.0.0.9:6346"));
    EXPECT_EQ(engine->browsed, std::vector<std::string>{"10.0.0.9:6346"});
    ASSERT_EQ(site.tabs.size(), 1u);
    EXPECT_FALSE(site.tabs[0]->IsSearchWindow());
    EXPECT_TRUE(panel->OnPanelCommand("browse:http://no port"));
    EXPECT_EQ(site.tabs.size(), 1u);
}

TEST_F(SearchPanelTest, Screenshot) {
    ::SetDlgItemTextA(panel->Window(), kWordsId, "night train");
    PumpPending();
    SaveScreenshot("search_panel");
}

} // namespace
} // namespace corvid::testing
