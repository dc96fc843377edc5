#pragma once

// The options property sheet ("&Corvid Options...", command p2p_options). Its pages come from one
// table, OptionsPages() in options_sheet.cpp, so another subsystem's page is added there by one
// line: a creator that makes its page for the sheet (and frees what it allocated when the sheet
// releases the page, PSPCB_RELEASE).

#include "shell/win/panel.h"

#include <windows.h>

#include <prsht.h>

#include <span>

namespace corvid::network {

using OptionsPageCreator = HPROPSHEETPAGE (*)(shell::PanelSite& site);

// Network first, then the pages of other subsystems (Download/Upload).
std::span<const OptionsPageCreator> OptionsPages();

// Shows the sheet with these pages, owned by the main window; returns when the user closes it.
// A creator that fails (returns null) leaves its page out.
void ShowOptionsSheet(shell::PanelSite& site,
                      std::span<const OptionsPageCreator> pages = OptionsPages());

// The same sheet made modeless: tests drive it with PSM_ messages and destroy it themselves.
HWND ShowOptionsSheetModeless(shell::PanelSite& site,
                              std::span<const OptionsPageCreator> pages = OptionsPages());

// The "Network" page (dialog 219) over "Config\NetWork.ini" (network/win/config_paths.h) and
// the plug-in's settings; when the engine is running, applying it tells the engine to reload.
HPROPSHEETPAGE CreateNetworkPage(shell::PanelSite& site);

} // namespace corvid::network
