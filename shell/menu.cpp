#include "shell/menu.h"

#include "markup/language_table.h"
#include "markup/xml.h"
#include "shell/commands.h"

#include <charconv>
#include <cstring>
#include <sstream>

namespace corvid::shell {

namespace {

// Labels of the menus the plug-in adds to the host's bar.
struct MenuLabel {
    const char* id;
    std::uint32_t labelId;
};
constexpr MenuLabel kMenuLabels[] = {{"wb_edit", 36117}, {"web_window", 36118}};

std::uint32_t LabelIdOf(const char* elementName, const char* id) {
    if (std::strcmp(elementName, "item") == 0) {
        const CommandInfo* command = FindCommand(std::string_view(id));
        return command ? command->labelId : 0;
    }
    for (const MenuLabel& label : kMenuLabels) {
        if (std::strcmp(label.id, id) == 0) {
            return label.labelId;
        }
    }
    return 0;
}

const char* AttributeText(XmlBranch node, const char* name) {
    XmlAttribute* attribute = node.Attribute(name);
    return attribute && attribute->value ? attribute->value : nullptr;
}

// Depth-first: the first `menu` element at or below `node` whose id is `menuId`.
XmlBranch FindMenu(XmlBranch node, std::string_view menuId) {
    if (node.Kind() == kXmlElement && std::strcmp(node.Name(), "menu") == 0) {
        const char* id = AttributeText(node, "id");
        if (id && menuId == id) {
            return node;
        }
    }
    for (std::uint32_t i = 0; i < node.ChildCount(); ++i) {
        XmlBranch found = FindMenu(node.Child(i), menuId);
        if (!found.IsNull()) {
            return found;
        }
    }
    return {};
}

// Replaces the labels of the menus and items that have one with their translation.
void TranslateLabels(XmlBranch node, const LanguageTable& language) {
    if (node.Kind() == kXmlElement) {
        XmlAttribute* label = node.Attribute("label");
        const char* id = AttributeText(node, "id");
        if (label && id) {
            std::string text;
            if (std::uint32_t labelId = LabelIdOf(node.Name(), id);
                labelId != 0 && language.LoadText(labelId, text)) {
                node.SetAttributeValue(label, text.c_str());
            }
        }
    }
    for (std::uint32_t i = 0; i < node.ChildCount(); ++i) {
        TranslateLabels(node.Child(i), language);
    }
}

std::string Written(XmlBranch node) {
    std::ostringstream out;
    node.Write(out, '\t', true);
    return out.str();
}

} // namespace

std::string MenuText(std::string_view menuId, const LanguageTable& language) {
    XmlDocument document;
    document.ParseCopy(MenuDocument(), kXmlStandardReader);
    XmlBranch menu = FindMenu(document.Root(), menuId);
    if (menu.IsNull()) {
        return {};
    }
    TranslateLabels(menu, language);
    return Written(menu);
}

std::string SearchWindowListText(std::span<const std::string> titles,
                                 const LanguageTable& language) {
    XmlDocument document;
    document.Create();
    XmlBranch menu = document.Root().AppendChild(kXmlElement);
    menu.SetName("menu");
    menu.SetAttributeValue(menu.AttributeOrAdd("id"), kSearchWindowList);
    auto addItem = [&](const std::string& id, const std::string& label) {
        XmlBranch item = menu.AppendChild(kXmlElement);
        item.SetName("item");
        item.SetAttributeValue(item.AttributeOrAdd("id"), id.c_str());
        item.SetAttributeValue(item.AttributeOrAdd("label"), label.c_str());
    };
    if (titles.empty()) {
        std::string none;
        language.LoadText(36119, none);
        addItem(std::string(kSearchWindowList) + "_none", none);
    }
    int place = 0;
    for (const std::string& title : titles) {
        addItem(std::string(kSearchWindowList) + "_" + std::to_string(++place),
                title.substr(0, kSearchWindowTitleLimit));
    }
    return Written(menu);
}

std::optional<int> SearchWindowPlace(std::string_view name) {
    const std::string_view prefix = "p2p_search_window_list_";
    if (name.substr(0, prefix.size()) != prefix || name.size() == prefix.size()) {
        return std::nullopt;
    }
    name.remove_prefix(prefix.size());
    int place = 0;
    auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), place);
    if (error != std::errc() || end != name.data() + name.size() || place < 1) {
        return std::nullopt;
    }
    return place;
}

} // namespace corvid::shell
