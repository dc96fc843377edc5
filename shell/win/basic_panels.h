#pragma once

// The panels of the main view itself: the information panel (the engine's network figures for
// people), the console (the engine's status messages with their times), and the placeholder that
// stands in a row of the panel table until the panel of that row is built.

#include "shell/win/panel.h"

#include <cstdint>
#include <memory>

namespace corvid::shell {

std::unique_ptr<Panel> MakeInfoPanel(PanelSite& site);
std::unique_ptr<Panel> MakeConsolePanel(PanelSite& site);
// A panel titled by string `titleId` that says, in string `textId`, what will be there, and in
// string `noteId` that it is not there yet.
std::unique_ptr<Panel> MakePlaceholderPanel(PanelSite& site, std::uint32_t titleId,
                                            std::uint32_t textId, std::uint32_t noteId);

} // namespace corvid::shell
