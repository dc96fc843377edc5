#pragma once

// The host's menu bar as a tree, and the merge of a plug-in's menu contribution (XML text) into
// it: a `menu` element names a host menu by id and puts its items beside the item its
// insertbefore/insertafter names (at the end when it names none or one that is not there); a
// menu the host does not have is added to the bar beside the menu named the same way. An `item`
// without attributes is a separator; one marked dynamic="1" stands for a list the plug-in hands
// over when the menu opens.

#include <string>
#include <string_view>
#include <vector>

namespace corvid::host {

struct MenuEntry {
    std::string id;
    std::string label;
    bool isMenu = false;
    bool separator = false;
    bool fromPlugIn = false;
    bool dynamic = false;
    std::vector<MenuEntry> children;
};

// The host's own menus: sys_file, sys_view (with sys_toolbars and sys_tabpanel), sys_tools,
// sys_help.
MenuEntry HostMenuBar();

// Merges the contribution; false (the bar unchanged) when the text holds no `menu` element.
bool MergePlugInMenus(MenuEntry& bar, std::string_view xml);

// The items of a menu fragment such as the list of search windows; empty for anything else.
std::vector<MenuEntry> ReadMenuItems(std::string_view xml);

// The menu (at any depth) with this id, or null.
MenuEntry* FindMenu(MenuEntry& menu, std::string_view id);

} // namespace corvid::host
