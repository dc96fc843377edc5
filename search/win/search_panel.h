#pragma once

// The search view: the main view's fixed "Search" panel (command 34008). It opens a result
// window as a tab of its own for every search (the main view's SearchOnP2P hands it the search
// object through OpenSearch; its own form starts searches too), answers the p2p_browse_host
// command with the "Input Host Address" dialog, and opens a browse-host tab for every
// "browse:<address>" request (message 2028).

#include "shell/win/panel.h"

#include <memory>

namespace corvid::search {

std::unique_ptr<shell::Panel> MakeSearchPanel(shell::PanelSite& site);

} // namespace corvid::search
