#pragma once

// The "Download/Upload" page of the options sheet (dialog 212): the download and temporary
// folders, each with "Browse...", and the upload speed that Limit Speed applies ("UploadLimit").
// A folder that does not exist or cannot be written is reported and nothing is saved; the
// download page takes the new folders when it is next created.

#include <windows.h>

#include <prsht.h>

#include <functional>
#include <string>

namespace corvid::shell {
class PanelSite;
}

namespace corvid::transfer::win {

HPROPSHEETPAGE CreateDownloadUploadPage(shell::PanelSite& site);
// The same, telling `report` instead of a message box why the page cannot be applied.
HPROPSHEETPAGE CreateDownloadUploadPage(shell::PanelSite& site,
                                        std::function<void(const std::string&)> report);

} // namespace corvid::transfer::win
