#pragma once

// The plug-in's contribution to the host's menus, handed over as XML text: the built-in menu
// document, one `menu` element of it at a time, with its labels translated; and the list of open
// search windows for the "Window" menu.

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace corvid {
class LanguageTable;
}

namespace corvid::shell {

// The built-in menu document as it is stored in the module.
std::string_view MenuDocument();

// The `menu` element whose id is `menuId` (the root, "IDR_XML_MENU", or any nested one), written
// with tab indents and line breaks, its labels taken from the language table. Empty when the
// document has no such menu.
std::string MenuText(std::string_view menuId, const LanguageTable& language);

inline constexpr char kSearchWindowList[] = "p2p_search_window_list";
inline constexpr std::size_t kSearchWindowTitleLimit = 50;

// The "Window" menu's dynamic part: one item per open search window, "p2p_search_window_list_%d"
// by its place (from 1), labelled with its title cut to 50 characters; or the single item
// "p2p_search_window_list_none" when none is open.
std::string SearchWindowListText(std::span<const std::string> titles,
                                 const LanguageTable& language);

// The place named by "p2p_search_window_list_%d", if `name` is such a name.
std::optional<int> SearchWindowPlace(std::string_view name);

} // namespace corvid::shell
