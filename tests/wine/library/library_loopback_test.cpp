// The library panel over the real file manager, in the process of an engine joined to a loopback
// network: what the panel shares a native peer finds, and a folder removed is found no more.

#include "library/win/library_panel.h"
#include "tests/wine/network/loopback_support.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <string>

namespace corvid::testing {
namespace {

// A folder of files no node of the network shares, with a word of their own in their names.
std::string MakeSharedFolder() {
    char temp[MAX_PATH] = {};
    ::GetTempPathA(sizeof temp, temp);
    const std::string folder =
        std::string(temp) + "corvid-library-" + std::to_string(::GetCurrentProcessId());
    ::CreateDirectoryA(folder.c_str(), nullptr);
    for (const char* name : {"quillwort alpha.txt", "quillwort beta.txt"}) {
        std::ofstream out(folder + "\\" + name, std::ios::binary);
        for (int i = 0; i < 2000; ++i) {
            out << name << ' ' << i << '\n';
        }
    }
    return folder;
}

bool Holds(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

TEST(LibraryPanelOverTheFileManager, SharesWhatItAddsAndStopsAtOnceWhenRemoved) {
    const LoopbackNetwork network = LoadLoopbackNetwork();
    ASSERT_TRUE(network.loaded) << "CORVID_TEST_LOOPBACK names no started network";
    win::ComApartment apartment;
    ASSERT_TRUE(RegisterEngineServer());
    win::ComPtr<IFileManager> manager;
    ASSERT_EQ(CreateLikeThePlugIn(CLSID_FileManager, IID_IFileManager, manager.put_void()), S_OK);

    const std::string folder = MakeSharedFolder();
    FakePanelSite site{"Library"};
    site.fileManager = manager.get();
    std::optional<std::string> picked = folder;
    auto panel = library::MakeLibraryPanel(site, [&](HWND, const std::string&) { return picked; });
    ASSERT_TRUE(site.Adopt(*panel));
    HWND root = panel->Window();
    HWND shared = ::GetDlgItem(root, library::kLibrarySharedFiles);
    HWND folders = ::GetDlgItem(root, library::kLibraryFolders);
    auto sharedNames = [&] {
        std::vector<std::string> names;
        for (int row = 0; row < ListView_GetItemCount(shared); ++row) {
            if (ListViewText(shared, row, 3) == "Hashed") {
                names.push_back(ListViewText(shared, row, 0));
            }
        }
        return names;
    };

    ::SendMessageA(root, WM_COMMAND, MAKEWPARAM(library::kLibraryAddFolder, BN_CLICKED), 0);
    ASSERT_TRUE(PumpUntil(
        [&] {
            const auto names = sharedNames();
            return Holds(names, "quillwort alpha.txt") && Holds(names, "quillwort beta.txt");
        },
        30000));
    for (int row = 0; row < ListView_GetItemCount(shared); ++row) {
        if (ListViewText(shared, row, 0) == "quillwort alpha.txt") {
            EXPECT_EQ(ListViewText(shared, row, 2).size(), 32u) << "a base32 SHA1";
            EXPECT_EQ(ListViewText(shared, row, 1), "48,890");
        }
    }
    EXPECT_GE(site.counters[shell::kPaneShared], 2);
    EXPECT_GE(panel->SharedFileCount(), 2);
    PumpPending();
    SaveScreenshot("library_panel_real");

    // Joined after the files are in, the engine's first routing table for its ultrapeers holds
    // them; a peer's search finds them once an ultrapeer has that table.
    win::ComPtr<IGnutellaEngine> engine = StartLoopbackEngine(network);
    ASSERT_TRUE(engine);
    std::vector<std::string> found;
    for (int attempt = 0; attempt < 5 && !Holds(found, "quillwort alpha.txt"); ++attempt) {
        found = PeerSearch(network, "quillwort");
    }
    EXPECT_TRUE(Holds(found, "quillwort alpha.txt"));
    EXPECT_TRUE(Holds(found, "quillwort beta.txt"));

    int index = -1;
    for (int i = 0; i < ::SendMessageA(folders, LB_GETCOUNT, 0, 0); ++i) {
        char text[MAX_PATH] = {};
        ::SendMessageA(folders, LB_GETTEXT, i, reinterpret_cast<LPARAM>(text));
        if (::lstrcmpiA(text, folder.c_str()) == 0) {
            index = i;
        }
    }
    ASSERT_GE(index, 0) << "the folder is listed";
    ::SendMessageA(folders, LB_SETCURSEL, index, 0);
    ::SendMessageA(root, WM_COMMAND, MAKEWPARAM(library::kLibraryFolders, LBN_SELCHANGE),
                   reinterpret_cast<LPARAM>(folders));
    ::SendMessageA(root, WM_COMMAND, MAKEWPARAM(library::kLibraryRemoveFolder, BN_CLICKED), 0);
    EXPECT_FALSE(Holds(sharedNames(), "quillwort alpha.txt"));
    EXPECT_TRUE(PeerSearch(network, "quillwort").empty());

    site.fileManager = nullptr;
    panel.reset();
    manager.reset();
    engine->Disconnect();
    for (const char* name : {"quillwort alpha.txt", "quillwort beta.txt"}) {
        ::DeleteFileA((folder + "\\" + name).c_str());
    }
    ::RemoveDirectoryA(folder.c_str());
}

} // namespace
} // namespace corvid::testing
