#pragma once

// The hosts view: the nodes the engine is connected to, rebuilt from its host-info text once a
// second, with the "HostsPopup" menu (Add node..., Disconnect, Browse Host) and a properties
// dialog for one node.

#include "shell/win/panel.h"

#include <windows.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace corvid::network {

// What the view asks of the system and the user; tests put their own in.
struct HostsViewPorts {
    // The system tick counter the engine's times are taken from.
    std::function<std::uint32_t()> tickCount;
    // Asks for a node's address ("a.b.c.d:port"); nothing when the user cancels.
    std::function<std::optional<std::string>(HWND owner)> askAddress;
    // Shows one node's fields.
    std::function<void(HWND owner, const std::string& fields)> showProperties;
};

// The ports that go to the system and to the user: GetTickCount, the "Add node" dialog and the
// properties dialog.
HostsViewPorts SystemHostsViewPorts(shell::PanelSite& site);

std::unique_ptr<shell::Panel> MakeHostsPanel(shell::PanelSite& site);
std::unique_ptr<shell::Panel> MakeHostsPanel(shell::PanelSite& site, HostsViewPorts ports);

// The list view inside the panel's window (tests read it back).
HWND HostsListOf(HWND hostsPanelWindow);

// The "Add node" dialog: the address entered, or nothing on Cancel.
std::optional<std::string> AskNodeAddress(HWND owner, const LanguageTable& language);

} // namespace corvid::network
