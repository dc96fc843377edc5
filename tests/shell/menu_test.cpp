#include "shell/menu.h"

#include "markup/language_table.h"
#include "tests/markup/fake_host_files.h"

#include <gtest/gtest.h>

namespace corvid::shell {
namespace {

TEST(MenuText, HandsOverEachMenuOfTheDocumentTabIndented) {
    LanguageTable builtin;
    EXPECT_EQ(MenuText("sys_file", builtin),
              "<menu id=\"sys_file\" insertbefore=\"sys_hide\">\n"
              "\t<item id=\"p2p_connect\" label=\"&Connect\"/>\n"
              "\t<item id=\"p2p_disconnect\" label=\"&Disconnect\"/>\n"
              "\t<item/>\n"
              "\t<item id=\"p2p_browse_host\" label=\"&Browse Host...\"/>\n"
              "\t<item/>\n"
              "</menu>\n");
    EXPECT_EQ(MenuText("sys_toolbars", builtin),
              "<menu id=\"sys_toolbars\" insertafter=\"sys_lock_toolbars\">\n"
              "\t<item id=\"p2p_toolbar_customise\" label=\"Customise...\"/>\n"
              "</menu>\n");
    EXPECT_EQ(MenuText("sys_tools", builtin),
              "<menu id=\"sys_tools\" insertafter=\"sys_browser_options\">\n"
              "\t<item id=\"p2p_options\" label=\"&Corvid Options...\"/>\n"
              "</menu>\n");
    EXPECT_EQ(MenuText("web_window", builtin),
              "<menu id=\"web_window\" label=\"&Window\" insertafter=\"sys_tools\">\n"
              "\t<item id=\"p2p_search_window_list\" dynamic=\"1\"/>\n"
              "</menu>\n");

    const std::string view = MenuText("sys_view", builtin);
    EXPECT_EQ(view.find("<menu id=\"sys_view\" insertafter=\"sys_tabpanel\">\n"
                        "\t<menu id=\"sys_toolbars\" insertafter=\"sys_lock_toolbars\">\n"
                        "\t\t<item id=\"p2p_toolbar_customise\" label=\"Customise...\"/>\n"
                        "\t</menu>\n"
                        "\t<item/>\n"
                        "\t<item id=\"p2p_search\" label=\"&Search\"/>\n"),
              0u)
        << view;

    const std::string whole = MenuText("IDR_XML_MENU", builtin);
    EXPECT_EQ(whole.rfind("<menu id=\"IDR_XML_MENU\">\n\t<menu id=\"sys_file\"", 0), 0u);
    for (const char* part : {"sys_file", "wb_edit", "sys_view", "sys_tools", "web_window"}) {
        EXPECT_NE(whole.find(MenuText(part, builtin).substr(0, 20)), std::string::npos) << part;
    }
    EXPECT_EQ(MenuText("sys_hide", builtin), "");
    EXPECT_EQ(MenuText("", builtin), "");
}

TEST(MenuText, TranslatesLabelsThroughTheLanguageTable) {
    test::FakeHostFiles files;
    files.files["C:\\Tarvo\\language\\xx\\Corvid.srml"] =
        "<lang><define><item id=\"IDS_CONNECT\" value=\"36101\"/>"
        "<item id=\"IDS_EDIT\" value=\"36117\"/></define>"
        "<string><item id=\"IDS_CONNECT\" value=\"&Verbinden\"/>"
        "<item id=\"IDS_EDIT\" value=\"&Bearbeiten\"/></string></lang>";
    LanguageTable language;
    ASSERT_TRUE(language.Load("xx"));
    EXPECT_NE(MenuText("sys_file", language).find("label=\"&Verbinden\""), std::string::npos);
    EXPECT_NE(MenuText("sys_file", language).find("label=\"&Disconnect\""), std::string::npos);
    EXPECT_NE(MenuText("wb_edit", language).find("label=\"&Bearbeiten\""), std::string::npos);
}

TEST(SearchWindowList, OneItemPerWindowByPlaceOrTheNoneItem) {
    LanguageTable builtin;
    EXPECT_EQ(SearchWindowListText({}, builtin),
              "<menu id=\"p2p_search_window_list\">\n"
              "\t<item id=\"p2p_search_window_list_none\" label=\"(No search window)\"/>\n"
              "</menu>\n");
    const std::string longTitle(80, 'x');
    std::vector<std::string> titles = {"free music (12)", longTitle};
    EXPECT_EQ(SearchWindowListText(titles, builtin),
              "<menu id=\"p2p_search_window_list\">\n"
              "\t<item id=\"p2p_search_window_list_1\" label=\"free music (12)\"/>\n"
              "\t<item id=\"p2p_search_window_list_2\" label=\"" +
                  std::string(50, 'x') +
                  "\"/>\n"
                  "</menu>\n");
}

TEST(SearchWindowList, ReadsThePlaceBackFromAChosenName) {
    EXPECT_EQ(SearchWindowPlace("p2p_search_window_list_3"), 3);
    EXPECT_FALSE(SearchWindowPlace("p2p_search_window_list_none"));
    EXPECT_FALSE(SearchWindowPlace("p2p_search_window_list_"));
    EXPECT_FALSE(SearchWindowPlace("p2p_search_window_list_0"));
    EXPECT_FALSE(SearchWindowPlace("p2p_search_window_list_-1"));
    EXPECT_FALSE(SearchWindowPlace("p2p_search_window_list_2x"));
    EXPECT_FALSE(SearchWindowPlace("p2p_search_window_list_99999999999"));
    EXPECT_FALSE(SearchWindowPlace("p2p_search"));
}

} // namespace
} // namespace corvid::shell
