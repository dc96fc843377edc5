// A real result window in a stand-in main view, fed by a fake search object that fires result
// texts as the engine does; driven by the messages a user's actions send, read back through the
// list view.

#include "search/win/search_window.h"

#include "search/result_cells.h"
#include "search/win/search_resources.h"
#include "tests/search/result_text.h"
#include "tests/transfer/fakes.h"
#include "tests/wine/search/search_fakes.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace corvid::testing {
namespace {

using search::ResultWindow;

std::string FileSha1(int i) {
    return "SHA" + std::to_string(100000 + i);
}

std::string HostText(const std::string& ip, const std::vector<FileEntry>& files,
                     const std::string& port = "6346", const std::string& openData = "1c") {
    HostEntry host;
    host.ip = ip;
    host.port = port;
    host.openData = openData;
    return ResultText(host, files);
}

// Files first..first+count-1 from one host.
std::string Files(const std::string& ip, int first, int count) {
    std::vector<FileEntry> files;
    for (int i = first; i < first + count; ++i) {
        files.emplace_back("track " + std::to_string(i) + ".mp3", std::to_string(1000 + i),
                           FileSha1(i), std::to_string(i));
    }
    return HostText(ip, files);
}

class ResultWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        search = FakeSearch::Make();
        window = std::make_unique<ResultWindow>(site, search.get(), "night train", "All",
                                                ResultWindow::Kind::Search,
                                                std::make_unique<RecordingDialogs>(dialogs));
        ASSERT_TRUE(site.Adopt(*window));
        list = window->List();
    }

    void Tick() { ::SendMessageA(window->Window(), WM_TIMER, ResultWindow::kRefreshTimer, 0); }
    int Rows() const { return static_cast<int>(::SendMessageA(list, LVM_GETITEMCOUNT, 0, 0)); }
    void Command(int id) { ::SendMessageA(window->Window(), WM_COMMAND, MAKEWPARAM(id, 0), 0); }
    void Key(UINT key) { ::SendMessageA(list, WM_KEYDOWN, key, 0); }
    void Select(std::initializer_list<int> rows) {
        ListView_SetItemState(list, -1, 0, LVIS_SELECTED | LVIS_FOCUSED);
        for (int row : rows) {
            ListView_SetItemState(list, row, LVIS_SELECTED, LVIS_SELECTED);
        }
        if (rows.size() > 0) {
            ListView_SetItemState(list, *rows.begin(), LVIS_FOCUSED, LVIS_FOCUSED);
        }
    }
    std::vector<int> Selected() const {
        std::vector<int> rows;
        int at = -1;
        while ((at = ListView_GetNextItem(list, at, LVNI_SELECTED)) >= 0) {
            rows.push_back(at);
        }
        return rows;
    }
    int Focused() const { return ListView_GetNextItem(list, -1, LVNI_FOCUSED); }
    void ClickHeader(int subItem) {
        NMLISTVIEW click = {};
        click.hdr.hwndFrom = list;
        click.hdr.idFrom = static_cast<UINT_PTR>(::GetDlgCtrlID(list));
        click.hdr.code = LVN_COLUMNCLICK;
        click.iItem = -1;
        click.iSubItem = subItem;
        ::SendMessageA(window->Window(), WM_NOTIFY, click.hdr.idFrom,
                       reinterpret_cast<LPARAM>(&click));
    }
    static int SubItemOf(std::uint32_t column) {
        for (std::size_t i = 0; i < kResultColumns.size(); ++i) {
            if (kResultColumns[i] == column) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }
    std::string Cell(int row, std::uint32_t column) const {
        return ListViewText(list, row, SubItemOf(column));
    }

    FakePanelSite site;
    win::ComPtr<FakeSearch> search;
    DialogLog dialogs;
    std::unique_ptr<ResultWindow> window;
    HWND list = nullptr;
};

TEST_F(ResultWindowTest, ResultsAppearAtTheNextTickAndOnlyWhenVisible) {
    EXPECT_EQ(search->Listeners(), 1u);
    search->Deliver(Files("10.0.0.1", 0, 5));
    EXPECT_EQ(Rows(), 0);
    Tick();
    EXPECT_EQ(Rows(), 5);
    EXPECT_EQ(site.counters[shell::kPaneResults], 5);
    EXPECT_EQ(window->Title(), "night train (5)");
    EXPECT_FALSE(site.retitled.empty());

    ::ShowWindow(window->Window(), SW_HIDE);
    search->Deliver(Files("10.0.0.2", 5, 3));
    Tick();
    EXPECT_EQ(Rows(), 5);
    ::ShowWindow(window->Window(), SW_SHOW);
    EXPECT_EQ(Rows(), 5);
    Tick();
    EXPECT_EQ(Rows(), 8);
}

TEST_F(ResultWindowTest, ANewWindowSortsByRankDescendingAndHeadersSortByTheirColumn) {
    search->Deliver(HostText("10.0.0.1", {{"b.mp3", "300", "S1"}, {"a.mp3", "20", "S2"}}));
    search->Deliver(HostText("10.0.0.2", {{"c.mp3", "1000", "S3"}, {"a.mp3", "20", "S2"}}));
    search->Deliver(HostText("10.0.0.3", {{"a.mp3", "20", "S2"}, {"c.mp3", "1000", "S3"}}));
    Tick();
    ASSERT_EQ(Rows(), 3);
    EXPECT_EQ(Cell(0, kColumnSha1), "S2"); // three hosts
    EXPECT_EQ(Cell(1, kColumnSha1), "S3"); // two
    EXPECT_EQ(Cell(2, kColumnSha1), "S1");

    ClickHeader(SubItemOf(kColumnSize));
    EXPECT_EQ(Cell(0, kColumnSize), "20");
    EXPECT_EQ(Cell(1, kColumnSize), "300");
    EXPECT_EQ(Cell(2, kColumnSize), "1,000"); // a number, not the text "1,000" before "20"
    ClickHeader(SubItemOf(kColumnSize));
    EXPECT_EQ(Cell(0, kColumnSize), "1,000");
    EXPECT_EQ(Cell(2, kColumnSize), "20");
    ClickHeader(SubItemOf(kColumnName));
    EXPECT_EQ(Cell(0, kColumnName), "a.mp3");
}

TEST_F(ResultWindowTest, KeysOpenAndCloseGroupsAndTheSelectionFollows) {
    search->Deliver(HostText("10.0.0.1", {{"a.mp3", "20", "S2"}, {"solo.mp3", "5", "S9"}}));
    search->Deliver(HostText("10.0.0.2", {{"a.mp3", "20", "S2"}}));
    search->Deliver(HostText("10.0.0.3", {{"a.mp3", "20", "S2"}}));
    Tick();
    ASSERT_EQ(Rows(), 2);
    Select({1}); // solo: one host, nothing to open
    Key(VK_RIGHT);
    EXPECT_EQ(Rows(), 2);

    Select({0});
    Key(VK_RIGHT);
    ASSERT_EQ(Rows(), 5);
    EXPECT_EQ(Cell(0, kColumnHost), "multiple(3)");
    EXPECT_EQ(Cell(1, kColumnHost), "10.0.0.1");
    EXPECT_EQ(Cell(3, kColumnHost), "10.0.0.3");
    EXPECT_EQ(Cell(4, kColumnSha1), "S9");
    EXPECT_EQ(Selected(), std::vector<int>{0}); // the selection stays on the group row

    Select({2});
    Key(VK_LEFT);
    EXPECT_EQ(Rows(), 2);
    EXPECT_EQ(Selected(), std::vector<int>{0});
    EXPECT_EQ(Focused(), 0);

    Key(VK_ADD);
    EXPECT_EQ(Rows(), 5);
    Select({3});
    Key(VK_SUBTRACT);
    EXPECT_EQ(Rows(), 2);
    EXPECT_EQ(Focused(), 0);

    // Rows opened stay open through later refreshes and re-sorts.
    Select({0});
    Key(VK_RIGHT);
    search->Deliver(HostText("10.0.0.4", {{"new.mp3", "1", "S10"}, {"a.mp3", "20", "S2"}}));
    Tick();
    EXPECT_EQ(Rows(), 7); // 3 groups, the open one now with 4 hosts
    EXPECT_EQ(Cell(0, kColumnHost), "multiple(4)");
}

TEST_F(ResultWindowTest, AWindowAtItsLimitStopsTheSearchAndRestartLetsItRunOn) {
    for (int first = 0; first < 10000; first += 500) {
        search->Deliver(Files("10.0.0.1", first, 500));
    }
    EXPECT_EQ(search->stops, 1);
    Tick();
    EXPECT_EQ(Rows(), 10000);
    search->Deliver(Files("10.0.0.1", 10000, 5));
    EXPECT_EQ(window->Model().Store().Count(), 10000);

    Command(ID_RESULT_RESTART);
    EXPECT_EQ(search->restarts, 1);
    EXPECT_EQ(window->Model().Store().Limit(), 20000);
    search->Deliver(Files("10.0.0.1", 10000, 5));
    Tick();
    EXPECT_EQ(Rows(), 10005);

    Command(ID_SEARCH_RESTART); // the tab menu's Restart, below the limit now
    EXPECT_EQ(search->restarts, 2);
    EXPECT_EQ(window->Model().Store().Limit(), 20000);
    Command(ID_RESULT_STOP);
    EXPECT_EQ(search->stops, 2);
}

TEST_F(ResultWindowTest, DownloadSkipsFilesOnDiskAndHandsWholeGroupsOver) {
    transfer::testing::PageFixture downloads;
    auto files = FakeFileManager::Make();
    files->onDisk["S1"] = "C:\\Shared\\b.mp3";
    site.fileManager = files.get();
    site.downloads = &downloads.page;
    search->Deliver(HostText("10.0.0.1", {{"b.mp3", "300", "S1"}, {"a.mp3", "20", "S2"}}));
    search->Deliver(HostText("10.0.0.2", {{"a.mp3", "20", "S2"}}, "7001"));
    Tick();
    ClickHeader(SubItemOf(kColumnName));
    ASSERT_EQ(Cell(1, kColumnName), "b.mp3");

    Select({1});
    Command(ID_RESULT_DOWNLOAD);
    EXPECT_EQ(dialogs.alreadyOnDisk, std::vector<std::string>{"C:\\Shared\\b.mp3"});
    EXPECT_TRUE(downloads.page.Items().empty());
    EXPECT_EQ(Rows(), 2);

    // A double click downloads the row under it: a's group with both its hosts.
    NMITEMACTIVATE click = {};
    click.hdr.hwndFrom = list;
    click.hdr.idFrom = static_cast<UINT_PTR>(::GetDlgCtrlID(list));
    click.hdr.code = NM_DBLCLK;
    click.iItem = 0;
    click.ptAction = {400, 5};
    Select({0});
    ::SendMessageA(window->Window(), WM_NOTIFY, click.hdr.idFrom, reinterpret_cast<LPARAM>(&click));
    ASSERT_EQ(downloads.page.Items().size(), 1u);
    const auto item = downloads.page.FindBySha1("S2");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->group.sources.size(), 2u);
    EXPECT_EQ(window->Model().Store().Find("S2")->state, 2);
    // Handed over, it leaves the list until "Search ShowDownloaded" is set.
    EXPECT_EQ(Rows(), 1);
    site.showDownloaded = true;
    window->OnSettingsChanged();
    EXPECT_EQ(Rows(), 2);

    // A host newly offering the file being downloaded becomes one of its sources.
    search->Deliver(HostText("10.0.0.3", {{"a.mp3", "20", "S2"}}));
    EXPECT_EQ(item->group.sources.size(), 3u);
}

TEST_F(ResultWindowTest, CellsReadBackAsTheCellRulesWriteThem) {
    search->Deliver(HostText("10.0.0.1", {{"night train.avi", "1234567", "S1", "4", "live"},
                                          {"setup.exe", "99", "", "5", ""}}));
    search->Deliver(
        HostText("10.0.0.2", {{"night train.avi", "1234567", "S1", "9", "live"}}, "7001", "1d"));
    Tick();
    Select({0});
    Key(VK_RIGHT);
    ASSERT_EQ(Rows(), 4);
    for (int row = 0; row < Rows(); ++row) {
        const ResultRow shown = window->Model().Rows().Row(static_cast<std::size_t>(row));
        for (std::uint32_t column : kResultColumns) {
            EXPECT_EQ(Cell(row, column), CellText(*shown.group, shown.source, column))
                << row << " " << column;
        }
    }
    EXPECT_EQ(Cell(0, kColumnSize), "1,234,567");
    EXPECT_EQ(Cell(0, kColumnBrowse), "multiple(2)");
    EXPECT_EQ(Cell(0, kColumnType), "Video");
    EXPECT_EQ(Cell(2, kColumnBrowse), "No");
    EXPECT_EQ(Cell(2, kColumnPort), "7001");
    EXPECT_EQ(Cell(3, kColumnType), "Application");
    EXPECT_EQ(Cell(3, kColumnRank), " ");
}

TEST_F(ResultWindowTest, BrowseHostPropertiesClearAndClose) {
    search->Deliver(HostText("10.0.0.1", {{"a.mp3", "20", "S2"}}));
    search->Deliver(HostText("10.0.0.2", {{"a.mp3", "20", "S2"}}, "7001"));
    Tick();
    Command(ID_RESULT_BROWSE_HOST); // nothing selected: nothing happens
    EXPECT_TRUE(site.mainMessages.empty());
    Select({0});
    Key(VK_RIGHT);
    Select({2});
    Command(ID_RESULT_BROWSE_HOST);
    ASSERT_EQ(site.mainMessages.size(), 1u);
    EXPECT_EQ(site.mainMessages[0].first, shell::kMsgBrowseHost);
    EXPECT_EQ(site.mainMessages[0].second, "http://10.0.0.2:7001");

    ::SendMessageA(list, WM_KEYDOWN, VK_RETURN, 0); // Enter alone does nothing
    EXPECT_TRUE(dialogs.properties.empty());
    ::SendMessageA(list, WM_SYSKEYDOWN, VK_RETURN, 1 << 29);
    ASSERT_EQ(dialogs.properties.size(), 1u);
    EXPECT_EQ(dialogs.properties[0], (std::pair<std::string, int>{"S2", 1}));

    Command(ID_RESULT_CLEAR);
    EXPECT_EQ(Rows(), 0);
    EXPECT_EQ(window->Model().Store().Count(), 0);

    ResultWindow* tab = window.get();
    site.tabs.push_back(std::move(window));
    ::SendMessageA(tab->Window(), WM_COMMAND, MAKEWPARAM(ID_SEARCH_CLOSE, 0), 0);
    EXPECT_TRUE(PumpUntil([&] { return site.tabs.empty(); }, 5000));
    EXPECT_EQ(search->Listeners(), 0u);
    EXPECT_EQ(search->stops, 1); // a closed window's search stops
}

TEST_F(ResultWindowTest, RefineNarrowsTheShownFilesWithoutTouchingTheStore) {
    search->Deliver(HostText("10.0.0.1", {{"Night Train - Live.mp3", "1", "S1"},
                                          {"Night Bus.mp3", "2", "S2"},
                                          {"Morning Train.avi", "3", "S3"}}));
    Tick();
    ASSERT_EQ(Rows(), 3);
    ::SetWindowTextA(window->FilterBox(), "train");
    EXPECT_EQ(Rows(), 2);
    ::SetWindowTextA(window->FilterBox(), "NIGHT train");
    ASSERT_EQ(Rows(), 1);
    EXPECT_EQ(Cell(0, kColumnSha1), "S1");
    // New files that do not match wait out of sight; the store has them all.
    search->Deliver(HostText("10.0.0.2", {{"Night Train.zip", "4", "S4"}, {"x.mp3", "5", "S5"}}));
    Tick();
    EXPECT_EQ(Rows(), 2);
    EXPECT_EQ(window->Model().Store().Count(), 5);
    ::SetWindowTextA(window->FilterBox(), "");
    EXPECT_EQ(Rows(), 5);
}

TEST_F(ResultWindowTest, EditCommandsAndTypeAhead) {
    search->Deliver(HostText("10.0.0.1", {{"b.mp3", "300", "S1"}, {"a.mp3", "20", "S2"}}));
    Tick();
    ClickHeader(SubItemOf(kColumnName));
    ::SetFocus(list);
    EXPECT_TRUE(window->OnEditCommand("p2p_selectall"));
    EXPECT_EQ(Selected(), (std::vector<int>{0, 1}));
    EXPECT_TRUE(window->OnEditCommand("p2p_copy"));
    ASSERT_TRUE(::OpenClipboard(nullptr));
    HANDLE data = ::GetClipboardData(CF_TEXT);
    const std::string copied = data ? static_cast<const char*>(::GlobalLock(data)) : "";
    if (data) {
        ::GlobalUnlock(data);
    }
    ::CloseClipboard();
    EXPECT_EQ(copied, RowsAsText(window->Model().Rows(), std::vector<int>{0, 1}));
    EXPECT_FALSE(window->OnEditCommand("p2p_paste"));

    Select({0});
    ::SendMessageA(list, WM_CHAR, 'B', 1);
    EXPECT_EQ(Focused(), 1);
}

TEST(BrowseHostTabTest, BrowsesTheAddressAndListsEveryFileTheHostShares) {
    FakePanelSite site;
    auto engine = FakeEngine::Make();
    EXPECT_EQ(search::MakeBrowseHostTab(site, "http://10.0.0.9:6346"), nullptr); // no engine
    site.engine = engine.get();
    EXPECT_EQ(search::MakeBrowseHostTab(site, "http://10.0.0.9"), nullptr);
    EXPECT_TRUE(engine->browsed.empty());

    std::unique_ptr<shell::Panel> tab = search::MakeBrowseHostTab(site, "http://10.0.0.9:6346");
    ASSERT_TRUE(tab);
    EXPECT_EQ(engine->browsed, std::vector<std::string>{"10.0.0.9:6346"});
    ASSERT_TRUE(engine->lastBrowse);
    EXPECT_EQ(engine->lastBrowse->starts, 1);
    EXPECT_FALSE(tab->IsSearchWindow());
    ASSERT_TRUE(site.Adopt(*tab));
    HostEntry host;
    host.type = "BrowseHost";
    host.ip = "10.0.0.9";
    engine->lastBrowse->Deliver(ResultText(
        host, {{"notes.txt", "10", "S1"}, {"song.mp3", "20", "S2"}, {"setup.exe", "30", "S3"}}));
    ::SendMessageA(tab->Window(), WM_TIMER, ResultWindow::kRefreshTimer, 0);
    auto* window = static_cast<ResultWindow*>(tab.get());
    EXPECT_EQ(ListView_GetItemCount(window->List()), 3);
    EXPECT_EQ(tab->Title(), "http://10.0.0.9:6346 (3)");
}

TEST_F(ResultWindowTest, MenusHoldTheirCommandsInOrder) {
    const auto items = [](int menuId) {
        std::vector<UINT> ids;
        HMENU menu = ::LoadMenuA(::GetModuleHandleA(nullptr), MAKEINTRESOURCEA(menuId));
        HMENU popup = ::GetSubMenu(menu, 0);
        for (int i = 0; i < ::GetMenuItemCount(popup); ++i) {
            ids.push_back(::GetMenuItemID(popup, i));
        }
        ::DestroyMenu(menu);
        return ids;
    };
    EXPECT_EQ(items(IDR_RESULT_MENU),
              (std::vector<UINT>{32777, 32845, 0, 32779, 0, 32839, 32840, 0, 32841}));
    EXPECT_EQ(items(IDR_SEARCH_TAB_MENU), (std::vector<UINT>{32772, 32774, 0, 32775, 0, 32771}));
}

// What a tab menu held while it was up; the timer that reads it then closes it.
std::vector<UINT> g_shownMenu;

void CALLBACK ReadAndCloseMenu(HWND, UINT, UINT_PTR timer, DWORD) {
    HWND popup = ::FindWindowA("#32768", nullptr);
    if (!popup) {
        return;
    }
    ::KillTimer(nullptr, timer);
    HMENU menu = reinterpret_cast<HMENU>(::SendMessageA(popup, MN_GETHMENU, 0, 0));
    for (int i = 0; i < ::GetMenuItemCount(menu); ++i) {
        g_shownMenu.push_back(::GetMenuItemID(menu, i));
    }
    ::EndMenu();
}

// A right click on the tab (the main view's part) ends in the panel's ShowTabMenu.
TEST_F(ResultWindowTest, TheTabMenuIsMenu202) {
    g_shownMenu.clear();
    shell::Panel& panel = *window;
    const UINT_PTR timer = ::SetTimer(nullptr, 0, 50, ReadAndCloseMenu);
    POINT screen = {100, 100};
    EXPECT_TRUE(panel.ShowTabMenu(screen));
    ::KillTimer(nullptr, timer);
    EXPECT_EQ(g_shownMenu, (std::vector<UINT>{32772, 32774, 0, 32775, 0, 32771}));
}

// A filled window as a person sees it: 200 files from 40 hosts, sorted by rank, two groups open.
TEST_F(ResultWindowTest, Screenshot) {
    const char* const kWords[] = {"Night Train", "Corvid Club", "Harbour Lights", "Slow River",
                                  "Blue Hour",   "Paper Moon",  "Iron Bridge",    "Late Tram"};
    const char* const kKinds[] = {" - Live.mp3", " (Remaster).mp3", ".avi",
                                  " Demo.wma",   " Cover.jpg",      " Collection.zip"};
    for (int host = 0; host < 40; ++host) {
        std::vector<FileEntry> files;
        for (int k = 0; k < 12; ++k) {
            const int file = (host * 7 + k * k * 13) % 200;
            files.emplace_back(std::string(kWords[file % 8]) + " " + std::to_string(file / 8 + 1) +
                                   kKinds[file % 6],
                               std::to_string(350000 + file * 104729 % 9000000), FileSha1(file),
                               std::to_string(file + 1),
                               "bitrate " + std::to_string(128 + file % 4 * 64));
        }
        search->Deliver(
            HostText("192.168." + std::to_string(host / 10) + "." + std::to_string(20 + host),
                     files, std::to_string(6346 + host % 3), host % 5 == 0 ? "1d" : "1c"));
    }
    for (int file = 0; file < 200; ++file) {
        search->Deliver(HostText(
            "10.1.0." + std::to_string(file % 250 + 1),
            {{std::string(kWords[file % 8]) + " " + std::to_string(file / 8 + 1) + kKinds[file % 6],
              std::to_string(350000 + file * 104729 % 9000000), FileSha1(file),
              std::to_string(file + 1), ""}}));
    }
    Tick();
    ASSERT_EQ(window->Model().Store().Count(), 200);
    Select({2});
    Key(VK_RIGHT);
    const int second =
        2 + static_cast<int>(window->Model().Rows().Row(2).group->sources.size()) + 3;
    Select({second});
    Key(VK_ADD);
    Select({4});
    ::SetFocus(list);
    PumpPending();
    ::RedrawWindow(site.MainWindow(), nullptr, nullptr,
                   RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_UPDATENOW);
    SaveScreenshot("search_window");
}

} // namespace
} // namespace corvid::testing
