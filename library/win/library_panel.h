#pragma once

// The library panel (p2p_library): the folders shared through the file manager, the files in them
// with their size, SHA1 and hashing progress, the completed downloads that are shared, and the
// sharing options (share completed downloads, the hashing CPU share). It keeps the status bar's
// shared-files counter.

#include "shell/win/panel.h"

#include <windows.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace corvid::library {

// The folder picker; tests put their own in. Nothing when the user cancels.
using FolderPicker =
    std::function<std::optional<std::string>(HWND owner, const std::string& prompt)>;

// The system's folder dialog.
std::optional<std::string> PickFolder(HWND owner, const std::string& prompt);

std::unique_ptr<shell::Panel> MakeLibraryPanel(shell::PanelSite& site);
std::unique_ptr<shell::Panel> MakeLibraryPanel(shell::PanelSite& site, FolderPicker pickFolder);

// The panel's controls by role, for tests.
enum LibraryControl : int {
    kLibraryFolders = 101,
    kLibraryAddFolder,
    kLibraryRemoveFolder,
    kLibraryShareDownloads,
    kLibraryCpuShare,
    kLibraryCpuShareText,
    kLibrarySharedFiles,
    kLibraryDownloadedFiles,
    kLibraryUnavailable,
    kLibraryFoldersLabel,
    kLibraryCpuShareLabel,
    kLibrarySharedLabel,
    kLibraryDownloadedLabel,
};

} // namespace corvid::library
