#include "shell/win/panel_table.h"

#include "library/win/library_panel.h"
#include "network/win/hosts_panel.h"
#include "search/win/search_panel.h"
#include "shell/win/basic_panels.h"
#include "theater/win/theater_panel.h"
#include "transfer/win/download_panel.h"
#include "transfer/win/upload_panel.h"

#include <array>

namespace corvid::shell {

namespace {

// The panels' factories; some are overloaded, so each row names one by a plain function.
std::unique_ptr<Panel> MakeLibrary(PanelSite& site) {
    return library::MakeLibraryPanel(site);
}
std::unique_ptr<Panel> MakeSearch(PanelSite& site) {
    return search::MakeSearchPanel(site);
}
std::unique_ptr<Panel> MakeUpload(PanelSite& site) {
    return transfer::win::MakeUploadPanel(site);
}
std::unique_ptr<Panel> MakeHosts(PanelSite& site) {
    return network::MakeHostsPanel(site);
}
std::unique_ptr<Panel> MakeTheater(PanelSite& site) {
    return theater::MakeTheaterPanel(site);
}
std::unique_ptr<Panel> MakeDownload(PanelSite& site) {
    return transfer::win::MakeDownloadPanel(site);
}

// Creation order: library, (the status bar), search, upload, information, hosts, theater; the
// download page and the console beside them. The information panel answers no command.
const std::array<PanelEntry, 8> kPanels = {{
    {kCmdLibrary, "p2p_library", 1, 36120, &MakeLibrary},
    {kCmdSearch, "p2p_search", 3, 36121, &MakeSearch},
    {kCmdUpload, "p2p_upload", 4, 36122, &MakeUpload},
    {0, "", 5, 36123, &MakeInfoPanel},
    {kCmdHosts, "p2p_hosts", 6, 36124, &MakeHosts},
    {kCmdTheater, "p2p_theater", 7, 36125, &MakeTheater},
    {kCmdDownload, "p2p_download", 8, 36126, &MakeDownload},
    {kCmdConsole, "p2p_console", 9, 36127, &MakeConsolePanel},
}};

} // namespace

std::span<const PanelEntry> PanelTable() {
    return kPanels;
}

} // namespace corvid::shell
