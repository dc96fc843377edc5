#pragma once

// The plug-in's commands as the host knows them: a name for every command (menus and toolbar
// buttons are chosen by name), a number for every command (the tab strip, toolbar and WM_COMMAND
// speak numbers), and the enabled and checked states the host is told about.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvid::shell {

enum class CommandAction {
    kConnect,
    kDisconnect,
    kBrowseHost,
    kEdit, // cut, copy, paste, select all: handed to the focused panel
    kToolbarCustomise,
    kShowPanel,
    kOptions,
    kSearchWindowList,
};

struct CommandInfo {
    const char* name;       // "p2p_connect"
    int id;                 // the number behind toolbar buttons and WM_COMMAND
    std::uint32_t labelId;  // string-table id of its menu label ("&Connect")
    std::uint32_t buttonId; // string-table id of its toolbar label and tooltip, 0 for none
    CommandAction action;
};

// The routing table, in the order it is filled: every command the host may hand over.
std::span<const CommandInfo> Commands();
const CommandInfo* FindCommand(std::string_view name);
const CommandInfo* FindCommand(int id);

// The name of a panel command (34008-34014); nothing for any other number.
std::optional<std::string_view> PanelCommandName(int id);

// The menu-item flag values the host understands.
enum CommandState : int {
    kCommandEnabled = 0,
    kCommandGreyed = 3,
    kCommandChecked = 8,
};

// What the host is told after a connect, a disconnect, or a change of the current panel. The
// other panel commands are reported unchecked before the current one is checked, so that the
// host's menu never shows two current panels.
std::vector<std::pair<std::string, int>> CommandStates(int currentPanel, bool online);

// The toolbar's buttons when the user has never arranged them; 0 is a separator.
std::vector<int> BuiltinToolbarOrder();
// Every button the customise dialog offers, in the built-in order, separators left out.
std::vector<int> ToolbarButtonChoices();
// The choices that `current` does not hold yet, in the order of the choices.
std::vector<int> AvailableButtons(const std::vector<int>& current);

} // namespace corvid::shell
