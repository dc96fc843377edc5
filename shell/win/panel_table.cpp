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

// Creation order: library, (the status bar), search, upload, information, hosts, theater; the
// download page and the console beside them. The information panel answers no command.
const std::array<PanelEntry, 8> kPanels = {{
    {kCmdLibrary, "p2p_library", 1, 36120, &library::MakeLibraryPanel},
    {kCmdSearch, "p2p_search", 3, 36121, &search::MakeSearchPanel},
    {kCmdUpload, "p2p_upload", 4, 36122, &transfer::win::MakeUploadPanel},
    {0, "", 5, 36123, &MakeInfoPanel},
    {kCmdHosts, "p2p_hosts", 6, 36124, &network::MakeHostsPanel},
    {kCmdTheater, "p2p_theater", 7, 36125, &theater::MakeTheaterPanel},
    {kCmdDownload, "p2p_download", 8, 36126, &transfer::win::MakeDownloadPanel},
    {kCmdConsole, "p2p_console", 9, 36127, &MakeConsolePanel},
}};

} // namespace

std::span<const PanelEntry> PanelTable() {
    return kPanels;
}

} // namespace corvid::shell
