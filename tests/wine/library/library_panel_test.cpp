#include "library/win/library_panel.h"
#include "tests/wine/library/fake_file_manager.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace corvid::testing {
namespace {

using library::LibraryControl;

class LibraryPanelTest : public ::testing::Test {
protected:
    void SetUp() override {
        manager->folders = {"C:\\Shared\\Music"};
        manager->files = {
            {"night train.mp3", "C:\\Shared\\Music\\night train.mp3", 4518273,
             "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X", 100, false},
            {"long album.flac", "C:\\Shared\\Music\\long album.flac", 312000000, "", 42, false},
            {"queued.wav", "C:\\Shared\\Music\\queued.wav", 10, "", 0, false},
            {"talk.ogg", "C:\\Users\\me\\Downloads\\talk.ogg", 1200,
             "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567", 100, true},
        };
        site.fileManager = manager.get();
    }

    void Open() {
        panel =
            library::MakeLibraryPanel(site, [this](HWND, const std::string&) { return picked; });
        ASSERT_TRUE(site.Adopt(*panel));
    }
    HWND Item(LibraryControl id) { return ::GetDlgItem(panel->Window(), id); }
    void Click(LibraryControl id) {
        ::SendMessageA(panel->Window(), WM_COMMAND, MAKEWPARAM(id, BN_CLICKED),
                       reinterpret_cast<LPARAM>(Item(id)));
    }
    int Folders() {
        return static_cast<int>(::SendMessageA(Item(library::kLibraryFolders), LB_GETCOUNT, 0, 0));
    }
    std::string Folder(int index) {
        char text[MAX_PATH] = {};
        ::SendMessageA(Item(library::kLibraryFolders), LB_GETTEXT, index,
                       reinterpret_cast<LPARAM>(text));
        return text;
    }

    win::ComPtr<FakeFileManager> manager = FakeFileManager::Make();
    FakePanelSite site{"Library"};
    std::unique_ptr<shell::Panel> panel;
    std::optional<std::string> picked;
};

TEST_F(LibraryPanelTest, ShowsFoldersSharedFilesAndDownloadsWithTheirHashing) {
    Open();
    ASSERT_EQ(Folders(), 1);
    EXPECT_EQ(Folder(0), "C:\\Shared\\Music");
    HWND shared = Item(library::kLibrarySharedFiles);
    ASSERT_EQ(ListView_GetItemCount(shared), 3);
    EXPECT_EQ(ListViewText(shared, 0, 0), "night train.mp3");
    EXPECT_EQ(ListViewText(shared, 0, 1), "4,518,273");
    EXPECT_EQ(ListViewText(shared, 0, 2), "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X");
    EXPECT_EQ(ListViewText(shared, 0, 3), "Hashed");
    EXPECT_EQ(ListViewText(shared, 1, 3), "Hashing 42%");
    EXPECT_EQ(ListViewText(shared, 1, 4), "C:\\Shared\\Music");
    EXPECT_EQ(ListViewText(shared, 2, 3), "Waiting");
    HWND downloads = Item(library::kLibraryDownloadedFiles);
    ASSERT_EQ(ListView_GetItemCount(downloads), 1);
    EXPECT_EQ(ListViewText(downloads, 0, 0), "talk.ogg");
    EXPECT_EQ(site.counters[shell::kPaneShared], 2);
    EXPECT_EQ(panel->SharedFileCount(), 2);
    EXPECT_TRUE(::IsDlgButtonChecked(panel->Window(), library::kLibraryShareDownloads));
    EXPECT_EQ(::SendMessageA(Item(library::kLibraryCpuShare), TBM_GETPOS, 0, 0), 25);
    EXPECT_EQ(WindowText(Item(library::kLibraryCpuShareText)), "25% of one processor");
    EXPECT_FALSE(::IsWindowVisible(Item(library::kLibraryUnavailable)));
}

TEST_F(LibraryPanelTest, TheFileManagersChangesAreShown) {
    Open();
    manager->files[1].sha1 = "MMMMMMMMMMMMMMMMMMMMMMMMMMMMMMMM";
    manager->files[1].progress = 100;
    manager->Changed();
    ASSERT_TRUE(PumpUntil(
        [&] { return ListViewText(Item(library::kLibrarySharedFiles), 1, 3) == "Hashed"; }));
    EXPECT_EQ(site.counters[shell::kPaneShared], 3);
}

TEST_F(LibraryPanelTest, AHiddenPanelKeepsTheCountAndReadsTheListWhenShown) {
    Open();
    panel->OnShow(false);
    const int reads = manager->textReads;
    manager->files[1].sha1 = "MMMMMMMMMMMMMMMMMMMMMMMMMMMMMMMM";
    manager->files.push_back({"walked.txt", "C:\\Shared\\Music\\walked.txt", 5, "", 0, false});
    manager->Changed();
    ASSERT_TRUE(PumpUntil([&] { return site.counters[shell::kPaneShared] == 3; }));
    EXPECT_EQ(panel->SharedFileCount(), 3);
    EXPECT_EQ(manager->textReads, reads) << "a large library is not read for nobody to see";
    EXPECT_EQ(ListView_GetItemCount(Item(library::kLibrarySharedFiles)), 3);

    panel->OnShow(true);
    HWND shared = Item(library::kLibrarySharedFiles);
    ASSERT_EQ(ListView_GetItemCount(shared), 4);
    EXPECT_EQ(ListViewText(shared, 3, 0), "walked.txt");
    EXPECT_EQ(ListViewText(shared, 1, 3), "Hashed");
}

TEST_F(LibraryPanelTest, FoldersAreAddedThroughThePickerAndRemovedAtOnce) {
    Open();
    picked = std::nullopt;
    Click(library::kLibraryAddFolder);
    EXPECT_TRUE(manager->added.empty());
    picked = "C:\\Shared\\Video";
    Click(library::kLibraryAddFolder);
    ASSERT_EQ(manager->added, std::vector<std::string>{"C:\\Shared\\Video"});
    ASSERT_EQ(Folders(), 2);

    // Nothing selected: Remove is off and does nothing.
    EXPECT_FALSE(::IsWindowEnabled(Item(library::kLibraryRemoveFolder)));
    Click(library::kLibraryRemoveFolder);
    EXPECT_TRUE(manager->removed.empty());

    ::SendMessageA(Item(library::kLibraryFolders), LB_SETCURSEL, 0, 0);
    ::SendMessageA(panel->Window(), WM_COMMAND, MAKEWPARAM(library::kLibraryFolders, LBN_SELCHANGE),
                   reinterpret_cast<LPARAM>(Item(library::kLibraryFolders)));
    EXPECT_TRUE(::IsWindowEnabled(Item(library::kLibraryRemoveFolder)));
    Click(library::kLibraryRemoveFolder);
    ASSERT_EQ(manager->removed, std::vector<std::string>{"C:\\Shared\\Music"});
    ASSERT_EQ(Folders(), 1);
    EXPECT_EQ(Folder(0), "C:\\Shared\\Video");
}

TEST_F(LibraryPanelTest, SharingOptionsGoToTheFileManager) {
    Open();
    ::CheckDlgButton(panel->Window(), library::kLibraryShareDownloads, BST_UNCHECKED);
    Click(library::kLibraryShareDownloads);
    EXPECT_FALSE(manager->shareDownloads);

    HWND cpu = Item(library::kLibraryCpuShare);
    ::SendMessageA(cpu, TBM_SETPOS, TRUE, 60);
    ::SendMessageA(panel->Window(), WM_HSCROLL, MAKEWPARAM(TB_THUMBTRACK, 60),
                   reinterpret_cast<LPARAM>(cpu));
    EXPECT_EQ(manager->cpuShare, 25);
    EXPECT_EQ(WindowText(Item(library::kLibraryCpuShareText)), "60% of one processor");
    ::SendMessageA(panel->Window(), WM_HSCROLL, MAKEWPARAM(TB_ENDTRACK, 0),
                   reinterpret_cast<LPARAM>(cpu));
    EXPECT_EQ(manager->cpuShare, 60);
}

TEST_F(LibraryPanelTest, WithoutAFileManagerThePanelSaysSo) {
    site.fileManager = nullptr;
    Open();
    EXPECT_TRUE(::IsWindowVisible(Item(library::kLibraryUnavailable)));
    EXPECT_NE(WindowText(Item(library::kLibraryUnavailable)).find("file manager"),
              std::string::npos);
    EXPECT_FALSE(::IsWindowVisible(Item(library::kLibrarySharedFiles)));
    EXPECT_EQ(panel->SharedFileCount(), -1);
    Click(library::kLibraryAddFolder);
    EXPECT_TRUE(manager->added.empty());
}

TEST_F(LibraryPanelTest, Screenshot) {
    manager->folders.push_back("C:\\Shared\\Video");
    manager->files.push_back(
        {"holiday.avi", "C:\\Shared\\Video\\holiday.avi", 734003200, "", 7, false});
    Open();
    ::SendMessageA(Item(library::kLibraryFolders), LB_SETCURSEL, 0, 0);
    ::SendMessageA(panel->Window(), WM_COMMAND, MAKEWPARAM(library::kLibraryFolders, LBN_SELCHANGE),
                   reinterpret_cast<LPARAM>(Item(library::kLibraryFolders)));
    ::SetFocus(Item(library::kLibraryFolders));
    PumpPending();
    SaveScreenshot("library_panel");
}

} // namespace
} // namespace corvid::testing
