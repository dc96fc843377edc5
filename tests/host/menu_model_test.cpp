#include "host/menu_model.h"

#include "markup/language_table.h"
#include "shell/menu.h"

#include <gtest/gtest.h>

namespace corvid::host {
namespace {

// "id" for items, "[id]" for menus, "-" for separators, "*" after a plug-in's own entry.
std::vector<std::string> Ids(const MenuEntry& menu) {
    std::vector<std::string> ids;
    for (const MenuEntry& entry : menu.children) {
        std::string id = entry.separator ? "-" : entry.isMenu ? "[" + entry.id + "]" : entry.id;
        ids.push_back(id + (entry.fromPlugIn ? "*" : ""));
    }
    return ids;
}

TEST(MenuMerge, PutsThePlugInsItemsWhereItsDocumentSays) {
    LanguageTable builtin;
    MenuEntry bar = HostMenuBar();
    ASSERT_TRUE(MergePlugInMenus(bar, shell::MenuText("IDR_XML_MENU", builtin)));

    EXPECT_EQ(Ids(bar), (std::vector<std::string>{"[sys_file]", "[wb_edit]*", "[sys_view]",
                                                  "[sys_tools]", "[web_window]*", "[sys_help]"}));
    EXPECT_EQ(Ids(*FindMenu(bar, "sys_file")),
              (std::vector<std::string>{"p2p_connect*", "p2p_disconnect*", "-*", "p2p_browse_host*",
                                        "-*", "sys_hide", "-", "sys_exit"}));
    EXPECT_EQ(
        Ids(*FindMenu(bar, "wb_edit")),
        (std::vector<std::string>{"p2p_cut*", "p2p_copy*", "p2p_paste*", "-*", "p2p_selectall*"}));
    EXPECT_EQ(FindMenu(bar, "wb_edit")->label, "&Edit");
    EXPECT_EQ(Ids(*FindMenu(bar, "sys_toolbars")),
              (std::vector<std::string>{"sys_lock_toolbars", "p2p_toolbar_customise*"}));
    EXPECT_EQ(Ids(*FindMenu(bar, "sys_view")),
              (std::vector<std::string>{"[sys_toolbars]", "sys_tabpanel", "-*", "p2p_search*",
                                        "p2p_download*", "p2p_upload*", "p2p_library*",
                                        "p2p_theater*", "p2p_console*", "p2p_hosts*"}));
    EXPECT_EQ(Ids(*FindMenu(bar, "sys_tools")),
              (std::vector<std::string>{"sys_browser_options", "p2p_options*"}));
    const MenuEntry& window = *FindMenu(bar, "web_window");
    ASSERT_EQ(window.children.size(), 1u);
    EXPECT_TRUE(window.children[0].dynamic);
    EXPECT_EQ(window.children[0].id, "p2p_search_window_list");
}

TEST(MenuMerge, UnknownAnchorsAppendAndJunkChangesNothing) {
    MenuEntry bar = HostMenuBar();
    EXPECT_FALSE(MergePlugInMenus(bar, ""));
    EXPECT_FALSE(MergePlugInMenus(bar, "<item id=\"x\"/>"));
    EXPECT_EQ(Ids(bar), Ids(HostMenuBar()));

    ASSERT_TRUE(MergePlugInMenus(bar, "<menu><menu id=\"sys_tools\" insertafter=\"nowhere\">"
                                      "<item id=\"a\" label=\"A\"/></menu>"
                                      "<menu id=\"extra\" label=\"E\" insertbefore=\"gone\"/>"
                                      "</menu>"));
    EXPECT_EQ(Ids(*FindMenu(bar, "sys_tools")),
              (std::vector<std::string>{"sys_browser_options", "a*"}));
    EXPECT_EQ(Ids(bar).back(), "[extra]*");
}

TEST(MenuMerge, ReadsAFragmentsItems) {
    LanguageTable builtin;
    std::vector<std::string> titles = {"one", "two"};
    const std::vector<MenuEntry> items =
        ReadMenuItems(shell::SearchWindowListText(titles, builtin));
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[1].id, "p2p_search_window_list_2");
    EXPECT_EQ(items[1].label, "two");
    EXPECT_TRUE(ReadMenuItems("<item/>").empty());
}

} // namespace
} // namespace corvid::host
