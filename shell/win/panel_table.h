#pragma once

// The one table of the main view's fixed panels. Adding a panel is one row here and one factory
// function beside the panel's class; the main view knows no panel by name beyond this table.

#include "shell/win/panel.h"

#include <cstdint>
#include <memory>
#include <span>

namespace corvid::shell {

struct PanelEntry {
    int commandId;           // 34008-34014, the tab strip's and WM_COMMAND's number
    const char* commandName; // the host's name for the command, e.g. "p2p_search"
    int creationOrder;       // panels are created in this order when the main view is made
    std::uint32_t titleId;   // string-table id of the tab's title
    std::unique_ptr<Panel> (*make)(PanelSite& site);
};

std::span<const PanelEntry> PanelTable();

} // namespace corvid::shell
