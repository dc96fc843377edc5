#include "network/win/options_sheet.h"

#include "network/win/dialog_language.h"

#include <commctrl.h>

#include <array>
#include <string>
#include <vector>

namespace corvid::network {

namespace {

constexpr std::uint32_t kSheetCaption = 37400;

const std::array<OptionsPageCreator, 1> kPages = {
    CreateNetworkPage,
};

HWND Show(shell::PanelSite& site, std::span<const OptionsPageCreator> pages, bool modeless) {
    INITCOMMONCONTROLSEX classes = {sizeof classes, ICC_UPDOWN_CLASS | ICC_STANDARD_CLASSES};
    ::InitCommonControlsEx(&classes);
    std::vector<HPROPSHEETPAGE> made;
    for (OptionsPageCreator create : pages) {
        if (HPROPSHEETPAGE page = create(site)) {
            made.push_back(page);
        }
    }
    if (made.empty()) {
        return nullptr;
    }
    const std::string caption = Text(site.Language(), kSheetCaption);
    PROPSHEETHEADERA header = {};
    header.dwSize = sizeof header;
    header.dwFlags = PSH_NOCONTEXTHELP | (modeless ? PSH_MODELESS : 0);
    header.hwndParent = site.MainWindow();
    header.pszCaption = caption.c_str();
    header.nPages = static_cast<UINT>(made.size());
    header.phpage = made.data();
    return reinterpret_cast<HWND>(::PropertySheetA(&header));
}

} // namespace

std::span<const OptionsPageCreator> OptionsPages() {
    return kPages;
}

void ShowOptionsSheet(shell::PanelSite& site, std::span<const OptionsPageCreator> pages) {
    Show(site, pages, false);
}

HWND ShowOptionsSheetModeless(shell::PanelSite& site, std::span<const OptionsPageCreator> pages) {
    return Show(site, pages, true);
}

} // namespace corvid::network
