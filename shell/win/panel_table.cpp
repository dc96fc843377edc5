#include "shell/win/panel_table.h"

#include "shell/win/basic_panels.h"

#include <array>

namespace corvid::shell {

namespace {

// Rows whose panel is not built yet say so through a placeholder; each row's factory is replaced
// by the panel's own when it arrives.
std::unique_ptr<Panel> MakeLibraryPlaceholder(PanelSite& site) {
    return MakePlaceholderPanel(site, 36120, 36140, 36148);
}
std::unique_ptr<Panel> MakeSearchPlaceholder(PanelSite& site) {
    return MakePlaceholderPanel(site, 36121, 36141, 36149);
}
std::unique_ptr<Panel> MakeUploadPlaceholder(PanelSite& site) {
    return MakePlaceholderPanel(site, 36122, 36142, 36148);
}
std::unique_ptr<Panel> MakeHostsPlaceholder(PanelSite& site) {
    return MakePlaceholderPanel(site, 36124, 36143, 36148);
}
std::unique_ptr<Panel> MakeTheaterPlaceholder(PanelSite& site) {
    return MakePlaceholderPanel(site, 36125, 36144, 36148);
}
std::unique_ptr<Panel> MakeDownloadPlaceholder(PanelSite& site) {
    return MakePlaceholderPanel(site, 36126, 36145, 36148);
}

// Creation order: library, (the status bar), search, upload, information, hosts, theater; the
// download page and the console beside them. The information panel answers no command.
const std::array<PanelEntry, 8> kPanels = {{
    {kCmdLibrary, "p2p_library", 1, 36120, &MakeLibraryPlaceholder},
    {kCmdSearch, "p2p_search", 3, 36121, &MakeSearchPlaceholder},
    {kCmdUpload, "p2p_upload", 4, 36122, &MakeUploadPlaceholder},
    {0, "", 5, 36123, &MakeInfoPanel},
    {kCmdHosts, "p2p_hosts", 6, 36124, &MakeHostsPlaceholder},
    {kCmdTheater, "p2p_theater", 7, 36125, &MakeTheaterPlaceholder},
    {kCmdDownload, "p2p_download", 8, 36126, &MakeDownloadPlaceholder},
    {kCmdConsole, "p2p_console", 9, 36127, &MakeConsolePanel},
}};

} // namespace

std::span<const PanelEntry> PanelTable() {
    return kPanels;
}

} // namespace corvid::shell
