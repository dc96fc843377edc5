#include "shell/commands.h"

#include <algorithm>
#include <array>

namespace corvid::shell {

namespace {

constexpr int kFirstPanelCommand = 34008;
constexpr int kLastPanelCommand = 34014;

const std::array<CommandInfo, 17> kCommands = {{
    {"p2p_connect", 34001, 36101, 36128, CommandAction::kConnect},
    {"p2p_disconnect", 34002, 36102, 36129, CommandAction::kDisconnect},
    {"p2p_browse_host", 34003, 36103, 36131, CommandAction::kBrowseHost},
    {"p2p_cut", 34004, 36104, 0, CommandAction::kEdit},
    {"p2p_copy", 34005, 36105, 0, CommandAction::kEdit},
    {"p2p_paste", 34006, 36106, 0, CommandAction::kEdit},
    {"p2p_selectall", 34007, 36107, 0, CommandAction::kEdit},
    {"p2p_toolbar_customise", 34015, 36108, 0, CommandAction::kToolbarCustomise},
    {"p2p_search", 34008, 36109, 36121, CommandAction::kShowPanel},
    {"p2p_download", 34009, 36110, 36126, CommandAction::kShowPanel},
    {"p2p_upload", 34010, 36111, 36122, CommandAction::kShowPanel},
    {"p2p_library", 34011, 36112, 36120, CommandAction::kShowPanel},
    {"p2p_theater", 34012, 36113, 36125, CommandAction::kShowPanel},
    {"p2p_console", 34013, 36114, 36127, CommandAction::kShowPanel},
    {"p2p_hosts", 34014, 36115, 36124, CommandAction::kShowPanel},
    {"p2p_options", 34016, 36116, 36130, CommandAction::kOptions},
    {"p2p_search_window_list", 34017, 0, 0, CommandAction::kSearchWindowList},
}};

} // namespace

std::span<const CommandInfo> Commands() {
    return kCommands;
}

const CommandInfo* FindCommand(std::string_view name) {
    auto it = std::find_if(kCommands.begin(), kCommands.end(),
                           [&](const CommandInfo& info) { return name == info.name; });
    return it == kCommands.end() ? nullptr : &*it;
}

const CommandInfo* FindCommand(int id) {
    auto it = std::find_if(kCommands.begin(), kCommands.end(),
                           [&](const CommandInfo& info) { return info.id == id; });
    return it == kCommands.end() ? nullptr : &*it;
}

std::optional<std::string_view> PanelCommandName(int id) {
    if (id < kFirstPanelCommand || id > kLastPanelCommand) {
        return std::nullopt;
    }
    return FindCommand(id)->name;
}

std::vector<std::pair<std::string, int>> CommandStates(int currentPanel, bool online) {
    std::vector<std::pair<std::string, int>> states;
    if (currentPanel != 0) {
        if (auto current = PanelCommandName(currentPanel)) {
            for (int id = kFirstPanelCommand; id <= kLastPanelCommand; ++id) {
                if (id != currentPanel) {
                    states.emplace_back(*PanelCommandName(id), kCommandEnabled);
                }
            }
            states.emplace_back(*current, kCommandChecked);
        }
    }
    states.emplace_back("p2p_connect", online ? kCommandGreyed : kCommandEnabled);
    states.emplace_back("p2p_disconnect", online ? kCommandEnabled : kCommandGreyed);
    return states;
}

std::vector<int> BuiltinToolbarOrder() {
    return {34001, 34002, 0, 34008, 34009, 34010, 34011, 34012, 34014, 34013, 0, 34016};
}

std::vector<int> ToolbarButtonChoices() {
    std::vector<int> choices;
    for (int id : BuiltinToolbarOrder()) {
        if (id != 0) {
            choices.push_back(id);
        }
    }
    choices.push_back(34003);
    return choices;
}

std::vector<int> AvailableButtons(const std::vector<int>& current) {
    std::vector<int> available;
    for (int id : ToolbarButtonChoices()) {
        if (std::find(current.begin(), current.end(), id) == current.end()) {
            available.push_back(id);
        }
    }
    return available;
}

} // namespace corvid::shell
