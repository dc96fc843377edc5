// A stand-in for the host in the restart test: the download page alone in a window, its list kept
// in the given file, resuming what it finds there. With a source given it starts that download
// first. It ends with 0 once every item is completed, and is meant to be killed before that.
//   download_host_helper LIST DOWNLOAD_FOLDER TEMP_FOLDER [SHA1 NAME SIZE PORT]

#include <windows.h>

#include "platform/win/handles.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"
#include "transfer/win/download_panel.h"

#include <cstdlib>

namespace {

class SilentPrompts : public corvid::transfer::UserPrompts {
public:
    bool AskYesNo(const std::string&, const std::string&) override { return true; }
    void ShowFileExists(const std::string&) override {}
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 4 && argc != 8)
        return 2;
    corvid::win::ComApartment apartment;
    corvid::testing::FakePanelSite site("Corvid download host");
    SilentPrompts prompts;
    corvid::transfer::win::DownloadPanelOptions options;
    options.listFile = argv[1];
    options.downloadFolder = argv[2];
    options.tempFolder = argv[3];
    options.autoResume = true;
    options.prompts = &prompts;
    corvid::transfer::win::DownloadPanel panel(site, options);
    if (!site.Adopt(panel) || !panel.LibraryLoaded())
        return 3;
    auto& page = *panel.Page();
    if (argc == 8) {
        corvid::ResultGroup group;
        group.sha1 = argv[4];
        corvid::ResultSource source;
        source.name = argv[5];
        source.size = std::atoi(argv[6]);
        source.host = "127.0.0.1";
        source.port = std::atoi(argv[7]);
        group.sources.push_back(source);
        if (!page.StartDownload(group, false))
            return 4;
        panel.SaveList();
    }
    const bool done = corvid::testing::PumpUntil(
        [&] {
            const auto items = page.Items();
            for (const auto& item : items) {
                std::lock_guard guard(item->lock);
                if (item->state != corvid::transfer::kItemCompleted)
                    return false;
            }
            return !items.empty();
        },
        300000);
    return done ? 0 : 1;
}
