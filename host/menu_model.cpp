#include "host/menu_model.h"

#include "markup/xml.h"

#include <algorithm>
#include <cstring>

namespace corvid::host {

namespace {

MenuEntry Item(const char* id, const char* label) {
    MenuEntry entry;
    entry.id = id;
    entry.label = label;
    return entry;
}

MenuEntry Menu(const char* id, const char* label, std::vector<MenuEntry> children) {
    MenuEntry entry = Item(id, label);
    entry.isMenu = true;
    entry.children = std::move(children);
    return entry;
}

MenuEntry Separator() {
    MenuEntry entry;
    entry.separator = true;
    return entry;
}

std::string AttributeText(XmlBranch node, const char* name) {
    XmlAttribute* attribute = node.Attribute(name);
    return attribute && attribute->value ? attribute->value : "";
}

bool IsElement(XmlBranch node, const char* name) {
    return node.Kind() == kXmlElement && std::strcmp(node.Name(), name) == 0;
}

// The place in `siblings` that insertbefore/insertafter of `element` name, or the end.
std::size_t PlaceOf(const std::vector<MenuEntry>& siblings, XmlBranch element) {
    const std::string before = AttributeText(element, "insertbefore");
    const std::string after = AttributeText(element, "insertafter");
    const std::string& anchor = before.empty() ? after : before;
    if (anchor.empty()) {
        return siblings.size();
    }
    auto found = std::find_if(siblings.begin(), siblings.end(),
                              [&](const MenuEntry& entry) { return entry.id == anchor; });
    if (found == siblings.end()) {
        return siblings.size();
    }
    const auto index = static_cast<std::size_t>(found - siblings.begin());
    return before.empty() ? index + 1 : index;
}

MenuEntry EntryOf(XmlBranch item) {
    MenuEntry entry;
    entry.fromPlugIn = true;
    if (item.AttributeCount() == 0) {
        entry.separator = true;
        return entry;
    }
    entry.id = AttributeText(item, "id");
    entry.label = AttributeText(item, "label");
    entry.dynamic = AttributeText(item, "dynamic") == "1";
    return entry;
}

void MergeInto(MenuEntry& target, XmlBranch element);

// A `menu` element at the level of `parent`: merged into the menu of that id below it, or added
// to it as a new menu.
void MergeMenu(MenuEntry& parent, XmlBranch element) {
    const std::string id = AttributeText(element, "id");
    auto existing =
        std::find_if(parent.children.begin(), parent.children.end(),
                     [&](const MenuEntry& entry) { return entry.isMenu && entry.id == id; });
    if (existing != parent.children.end()) {
        MergeInto(*existing, element);
        return;
    }
    MenuEntry added;
    added.id = id;
    added.label = AttributeText(element, "label");
    added.isMenu = true;
    added.fromPlugIn = true;
    const std::size_t place = PlaceOf(parent.children, element);
    // The new menu is filled as if it had been there: its own items have no anchor in it.
    for (std::uint32_t i = 0; i < element.ChildCount(); ++i) {
        XmlBranch child = element.Child(i);
        if (IsElement(child, "item")) {
            added.children.push_back(EntryOf(child));
        } else if (IsElement(child, "menu")) {
            MergeMenu(added, child);
        }
    }
    parent.children.insert(parent.children.begin() + static_cast<std::ptrdiff_t>(place),
                           std::move(added));
}

// The items of `element` go into `target` together, at the place the element names.
void MergeInto(MenuEntry& target, XmlBranch element) {
    std::size_t place = PlaceOf(target.children, element);
    for (std::uint32_t i = 0; i < element.ChildCount(); ++i) {
        XmlBranch child = element.Child(i);
        if (IsElement(child, "item")) {
            target.children.insert(target.children.begin() + static_cast<std::ptrdiff_t>(place),
                                   EntryOf(child));
            ++place;
        } else if (IsElement(child, "menu")) {
            const std::size_t before = target.children.size();
            MergeMenu(target, child);
            if (target.children.size() > before) {
                ++place;
            }
        }
    }
}

XmlBranch RootMenu(const XmlDocument& document) {
    XmlBranch root = document.Root();
    for (std::uint32_t i = 0; i < root.ChildCount(); ++i) {
        if (IsElement(root.Child(i), "menu")) {
            return root.Child(i);
        }
    }
    return {};
}

} // namespace

MenuEntry HostMenuBar() {
    MenuEntry bar;
    bar.isMenu = true;
    bar.children = {
        Menu("sys_file", "&File",
             {Item("sys_hide", "&Hide Window"), Separator(), Item("sys_exit", "E&xit")}),
        Menu("sys_view", "&View",
             {Menu("sys_toolbars", "&Toolbars", {Item("sys_lock_toolbars", "&Lock the Toolbars")}),
              Item("sys_tabpanel", "Tab &Panel")}),
        Menu("sys_tools", "&Tools", {Item("sys_browser_options", "&Browser Options...")}),
        Menu("sys_help", "&Help", {Item("sys_about", "&About Tarvo Explorer")}),
    };
    return bar;
}

bool MergePlugInMenus(MenuEntry& bar, std::string_view xml) {
    XmlDocument document;
    document.ParseCopy(xml, kXmlStandardReader);
    XmlBranch root = RootMenu(document);
    if (root.IsNull()) {
        return false;
    }
    // The root stands for the whole bar: its `menu` children name the bar's menus.
    for (std::uint32_t i = 0; i < root.ChildCount(); ++i) {
        if (IsElement(root.Child(i), "menu")) {
            MergeMenu(bar, root.Child(i));
        }
    }
    return true;
}

std::vector<MenuEntry> ReadMenuItems(std::string_view xml) {
    XmlDocument document;
    document.ParseCopy(xml, kXmlStandardReader);
    std::vector<MenuEntry> items;
    XmlBranch menu = RootMenu(document);
    for (std::uint32_t i = 0; i < menu.ChildCount(); ++i) {
        if (IsElement(menu.Child(i), "item")) {
            items.push_back(EntryOf(menu.Child(i)));
        }
    }
    return items;
}

MenuEntry* FindMenu(MenuEntry& menu, std::string_view id) {
    if (menu.isMenu && menu.id == id) {
        return &menu;
    }
    for (MenuEntry& child : menu.children) {
        if (MenuEntry* found = FindMenu(child, id)) {
            return found;
        }
    }
    return nullptr;
}

} // namespace corvid::host
