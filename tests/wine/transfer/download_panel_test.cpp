// The download page under Wine with the real Download.dll, fetching from nginx and corvid-node
// peers on loopback (started by transfer_fixture.sh), driven through its toolbar and list.

#include "download/core/range_set.h"
#include "search/win/search_resources.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"
#include "tests/wine/transfer/transfer_test_support.h"
#include "transfer/safe_file_name.h"
#include "transfer/win/download_panel.h"
#include "transfer/win/transfer_resources.h"
#include "transfer/win/transfer_settings.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <thread>

namespace corvid::transfer::testing {
namespace {

using corvid::testing::FakePanelSite;
using corvid::testing::ListViewText;
using corvid::testing::PumpUntil;
using win::DownloadPanel;

constexpr DWORD kTransferTimeout = 90000;

class DownloadPanelTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(fixture.Ready()) << "CORVID_TRANSFER_FIXTURE names no fixture";
        site.fileManager = files.get();
        options.downloadFolder = FreshFolder("download");
        options.tempFolder = FreshFolder("temp");
        options.listFile = FreshFolder("list") + "\\Downloads.xml";
        options.prompts = &prompts;
        options.openFile = [this](const std::string& path) { opened.push_back(path); };
        options.playInTheater = [this](const std::string& path) {
            played.push_back(path);
            return theaterTakes;
        };
    }
    void TearDown() override { panel.reset(); }

    void Open() {
        panel = std::make_unique<DownloadPanel>(site, options);
        ASSERT_TRUE(site.Adopt(*panel));
        ASSERT_TRUE(panel->LibraryLoaded());
        site.downloads = panel->Page();
    }
    HWND List() const { return panel->List(); }
    void Command(int id) { ::SendMessageA(panel->Window(), WM_COMMAND, id, 0); }
    int RowOf(const std::string& name) {
        for (int row = 0; row < RowCount(List()); ++row)
            if (Cell(List(), row, "Name") == name)
                return row;
        return -1;
    }
    std::string Status(const std::string& name) {
        const int row = RowOf(name);
        return row < 0 ? "<no row>" : Cell(List(), row, "Status");
    }
    bool WaitForStatus(const std::string& name, const std::string& prefix,
                       DWORD timeout = kTransferTimeout) {
        return PumpUntil([&] { return Status(name).rfind(prefix, 0) == 0; }, timeout);
    }
    int Progress(const std::string& name) {
        const int row = RowOf(name);
        return row < 0 ? -1 : std::atoi(Cell(List(), row, "Progress").c_str());
    }
    void Select(const std::string& name) {
        SelectRow(List(), RowOf(name));
        corvid::testing::PumpPending();
    }
    std::vector<std::string> LogLines() {
        std::vector<std::string> lines;
        for (int row = 0; row < RowCount(panel->LogList()); ++row)
            lines.push_back(ListViewText(panel->LogList(), row, 1));
        return lines;
    }
    std::string Partial(const std::string& name) {
        return options.tempFolder + "\\" + name + ".part";
    }
    std::string Final(const std::string& name) { return options.downloadFolder + "\\" + name; }

    Fixture fixture;
    FakePanelSite site{"Corvid download page"};
    corvid::win::ComPtr<FakeFileManager> files = FakeFileManager::Make();
    RecordingPrompts prompts;
    win::DownloadPanelOptions options;
    std::unique_ptr<DownloadPanel> panel;
    std::vector<std::string> opened;
    std::vector<std::string> played;
    bool theaterTakes = false;
};

TEST_F(DownloadPanelTest, FourSourcesCompleteTheFileWhichIsSharedAndRuns) {
    Open();
    const auto group = GroupOf(fixture, "big.bin", {"fast1", "fast2", "node1", "node2"});
    ASSERT_TRUE(panel->Page()->StartDownload(group, false));
    ASSERT_TRUE(PumpUntil([&] { return RowCount(List()) == 1; }));
    EXPECT_EQ(Cell(List(), 0, "Host"), "multiple(4)");
    EXPECT_EQ(Cell(List(), 0, "SHA1"), group.sha1);
    EXPECT_EQ(Cell(List(), 0, "Size"), "3,145,728");
    // The size column holds ten-digit sizes whole, beside the cell's margins.
    const int widest = static_cast<int>(
        ::SendMessageA(List(), LVM_GETSTRINGWIDTHA, 0, reinterpret_cast<LPARAM>("9,999,999,999")));
    EXPECT_GE(::SendMessageA(List(), LVM_GETCOLUMNWIDTH, 1, 0), widest + 12);

    ASSERT_TRUE(WaitForStatus("big.bin", "Completed")) << Status("big.bin");
    EXPECT_EQ(Cell(List(), 0, "Progress"), "100%");
    EXPECT_EQ(ReadWholeFile(Final("big.bin")), ReadWholeFile(fixture.SharedFile("big.bin")));
    EXPECT_FALSE(FileExists(Partial("big.bin")));
    ASSERT_TRUE(PumpUntil([&] { return !files->shared.empty(); }));
    EXPECT_EQ(files->shared, std::vector<std::string>{Final("big.bin")});
    EXPECT_TRUE(PumpUntil([&] { return site.counters[shell::kPaneDownloading] == 0; }));

    // Every source was asked: nginx logged both of its ports.
    const auto log = fixture.AccessLog();
    for (const char* port : {"fast1", "fast2"})
        EXPECT_TRUE(std::any_of(log.begin(), log.end(), [&](const std::string& line) {
            return line.rfind(std::to_string(fixture.Port(port)) + " ", 0) == 0 &&
                   line.find(group.sha1) != std::string::npos;
        })) << port;

    // A double click runs the completed file: the theater first, the shell when it declines.
    SelectRow(List(), 0);
    NMITEMACTIVATE click = {};
    click.hdr.hwndFrom = List();
    click.hdr.idFrom = ::GetDlgCtrlID(List());
    click.hdr.code = NM_DBLCLK;
    click.iItem = 0;
    ::SendMessageA(panel->Window(), WM_NOTIFY, click.hdr.idFrom, reinterpret_cast<LPARAM>(&click));
    EXPECT_EQ(played, std::vector<std::string>{Final("big.bin")});
    EXPECT_EQ(opened, std::vector<std::string>{Final("big.bin")});
    theaterTakes = true;
    Command(win::kDownloadRun);
    EXPECT_EQ(opened.size(), 1u);
    EXPECT_EQ(site.shownPanels, std::vector<int>{shell::kCmdTheater});
    EXPECT_TRUE(prompts.questions.empty()) << "a completed file is run without asking";

    // The same SHA1 again: the file-exists dialog, and still one row.
    EXPECT_FALSE(panel->Page()->StartDownload(group, false));
    EXPECT_EQ(prompts.fileExists,
              std::vector<std::string>{"The file is already in downloading window:big.bin"});
    corvid::testing::PumpPending();
    EXPECT_EQ(RowCount(List()), 1);
}

// Fast sources keep Download.dll's threads reporting (and the shown log growing) all the time; the
// list must still answer the user at once and show the transfer moving rather than jump to its end.
TEST_F(DownloadPanelTest, TheListStaysLiveWhileFastSourcesDownload) {
    Open();
    const auto group = GroupOf(fixture, "large.bin", {"open1", "open2"});
    ASSERT_TRUE(panel->Page()->StartDownload(group, false));
    ASSERT_TRUE(PumpUntil([&] { return RowCount(List()) == 1; }));
    ASSERT_TRUE(PumpUntil([&] { return FileExists(Partial("large.bin")); }, kTransferTimeout));

    // Selecting the running row shows its sources; the call comes back while bytes still flow.
    const auto started = ::GetTickCount64();
    SelectRow(List(), 0);
    const auto selectTook = ::GetTickCount64() - started;
    const bool finishedMeanwhile = FileExists(Final("large.bin"));
    EXPECT_FALSE(finishedMeanwhile)
        << "selecting the row waited " << selectTook << " ms, until the transfer ended";
    const auto tree = TreeTexts(panel->Tree());
    ASSERT_FALSE(tree.empty());
    EXPECT_EQ(tree.front(), "Grap/Log");
    EXPECT_TRUE(PumpUntil([&] { return !LogLines().empty(); }));

    int midway = 0;
    std::string statusMidway;
    ASSERT_TRUE(PumpUntil(
        [&] {
            const auto status = Status("large.bin");
            const int progress = Progress("large.bin");
            if (status.rfind("Completed", 0) == 0)
                return true;
            if (progress > 0 && progress < 100 && midway == 0) {
                midway = progress;
                statusMidway = status;
            }
            return false;
        },
        kTransferTimeout))
        << Status("large.bin");
    const auto transferTook = ::GetTickCount64() - started;
    std::printf("selecting took %llu ms, the transfer %llu ms\n",
                static_cast<unsigned long long>(selectTook),
                static_cast<unsigned long long>(transferTook));
    EXPECT_GT(midway, 0) << "the row jumped from 0 to Completed";
    EXPECT_EQ(statusMidway.rfind("Downloading(", 0), 0u) << statusMidway;
    EXPECT_EQ(Cell(List(), 0, "Progress"), "100%");
    EXPECT_EQ(ReadWholeFile(Final("large.bin")), ReadWholeFile(fixture.SharedFile("large.bin")));
}

TEST_F(DownloadPanelTest, AFolderChosenInTheOptionsTakesTheNextDownloadAtOnce) {
    Open();
    const auto chosen = FreshFolder("chosen-download");
    const OptionsSheet opened = OpenDownloadUploadPage(site, [](const std::string&) {});
    ASSERT_TRUE(opened.sheet);
    HWND sheet = opened.sheet;
    HWND dialog = opened.page;
    ::SetDlgItemTextA(dialog, IDC_DOWNLOAD_FOLDER, chosen.c_str());
    ::SetDlgItemTextA(dialog, IDC_TEMP_FOLDER, options.tempFolder.c_str());
    const bool applied = ::SendMessageA(sheet, PSM_APPLY, 0, 0) != 0;
    ::DestroyWindow(sheet);
    ::RegDeleteKeyValueA(HKEY_CURRENT_USER, win::kP2PViewKey, win::kDownloadFolderValue);
    ::RegDeleteKeyValueA(HKEY_CURRENT_USER, win::kP2PViewKey, win::kTempFolderValue);
    ASSERT_TRUE(applied);

    ASSERT_TRUE(panel->Page()->StartDownload(GroupOf(fixture, "small.bin", {"fast1"}), false));
    ASSERT_TRUE(WaitForStatus("small.bin", "Completed")) << Status("small.bin");
    EXPECT_EQ(ReadWholeFile(chosen + "\\small.bin"),
              ReadWholeFile(fixture.SharedFile("small.bin")));
    EXPECT_FALSE(FileExists(Final("small.bin")));
}

TEST_F(DownloadPanelTest, StopKeepsThePartialFileRestartResumesAndDeleteRemovesIt) {
    Open();
    const auto group = GroupOf(fixture, "slow.bin", {"slow"});
    ASSERT_TRUE(panel->Page()->StartDownload(group, true));
    ASSERT_TRUE(PumpUntil([&] { return Progress("slow.bin") >= 2; }, kTransferTimeout))
        << Status("slow.bin");
    EXPECT_EQ(Status("slow.bin").rfind("Downloading(", 0), 0u) << Status("slow.bin");
    EXPECT_TRUE(PumpUntil([&] { return site.counters[shell::kPaneDownloading] == 1; }));
    ASSERT_TRUE(FileExists(Partial("slow.bin")));

    // The log pane shows the source, its request and the response's lines.
    Select("slow.bin");
    EXPECT_EQ(TreeTexts(panel->Tree()), (std::vector<std::string>{"Grap/Log", "Source 1"}));
    ASSERT_TRUE(PumpUntil([&] {
        const auto lines = LogLines();
        return std::find(lines.begin(), lines.end(), "Receiving data...") != lines.end();
    }));
    const auto lines = LogLines();
    const auto has = [&](const std::string& prefix) {
        return std::any_of(lines.begin(), lines.end(),
                           [&](const std::string& line) { return line.rfind(prefix, 0) == 0; });
    };
    EXPECT_TRUE(has("Connecting... [127.0.0.1:" + std::to_string(fixture.Port("slow")) + "]"));
    EXPECT_TRUE(has("Connection OK"));
    EXPECT_TRUE(has("Send request"));
    EXPECT_TRUE(has("GET /uri-res/N2R?urn:sha1:" + group.sha1));
    EXPECT_TRUE(has("Received http header"));
    EXPECT_TRUE(has("HTTP/1.1 20"));
    EXPECT_TRUE(has("Retrieve file length 2097152 bytes"));
    EXPECT_FALSE(ListViewText(panel->LogList(), 0, 0).empty()) << "each line has its time";

    Command(win::kDownloadStop);
    ASSERT_TRUE(WaitForStatus("slow.bin", "Stopped")) << Status("slow.bin");
    EXPECT_TRUE(PumpUntil([&] { return site.counters[shell::kPaneDownloading] == 0; }));
    ASSERT_TRUE(FileExists(Partial("slow.bin"))) << "a stopped download keeps its partial file";
    EXPECT_TRUE(TreeTexts(panel->Tree()).empty()) << "the pane lets the stopped item go";

    Select("slow.bin");
    Command(win::kDownloadRestart);
    ASSERT_TRUE(WaitForStatus("slow.bin", "Downloading(1/")) << Status("slow.bin");
    ASSERT_TRUE(PumpUntil([&] { return Progress("slow.bin") >= 4; }, kTransferTimeout));

    Select("slow.bin");
    Command(win::kDownloadDelete);
    ASSERT_EQ(prompts.questions.size(), 1u);
    EXPECT_EQ(prompts.questions[0], "Tarvo|Are you sure to delete all selected items?");
    ASSERT_TRUE(PumpUntil([&] { return RowCount(List()) == 0; }));
    EXPECT_FALSE(FileExists(Partial("slow.bin"))) << "deleting an unfinished item removes it";
    EXPECT_FALSE(FileExists(Final("slow.bin")));

    // nginx logs a request when it ends: the restarted one asked for no byte the first run had.
    std::vector<std::pair<long, long>> requests; // (range start, bytes sent)
    ASSERT_TRUE(PumpUntil(
        [&] {
            requests.clear();
            for (const auto& line : fixture.AccessLog()) {
                const auto range = line.find("\"bytes=");
                if (line.find(group.sha1) == std::string::npos || range == std::string::npos)
                    continue;
                const long sent = std::atol(line.c_str() + line.find(' ', line.find(' ') + 1) + 1);
                requests.emplace_back(std::atol(line.c_str() + range + 7), sent);
            }
            return requests.size() >= 2;
        },
        30000));
    EXPECT_EQ(requests[0].first, 0);
    EXPECT_GT(requests[1].first, 0);
    EXPECT_LE(requests[1].first, requests[0].second);
}

TEST_F(DownloadPanelTest, ClearCommandsTakeExactlyTheirStates) {
    Open();
    auto missing = GroupOf(fixture, "missing.bin", {"fast1"});
    missing.sha1 = "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA";
    ASSERT_TRUE(panel->Page()->StartDownload(GroupOf(fixture, "small.bin", {"fast1"}), false));
    ASSERT_TRUE(panel->Page()->StartDownload(GroupOf(fixture, "slow.bin", {"slow"}), false));
    ASSERT_TRUE(panel->Page()->StartDownload(missing, false));
    ASSERT_TRUE(panel->Page()->StartDownload(GroupOf(fixture, "big.bin", {"medium"}), false));
    ASSERT_TRUE(WaitForStatus("small.bin", "Completed")) << Status("small.bin");
    ASSERT_TRUE(WaitForStatus("missing.bin", "More sources needed")) << Status("missing.bin");
    ASSERT_TRUE(PumpUntil([&] { return Progress("slow.bin") >= 1 && Progress("big.bin") >= 5; },
                          kTransferTimeout));
    // The counters follow message 2029, posted once the worker has finished each change.
    EXPECT_TRUE(PumpUntil([&] { return site.counters[shell::kPaneDownloading] == 2; }))
        << site.counters[shell::kPaneDownloading];
    EXPECT_EQ(corvid::testing::WindowText(panel->Counter()), "Downloading items count: 2");

    // The page mid-transfer, with the log of the slow source below it.
    Select("slow.bin");
    ASSERT_TRUE(PumpUntil([&] {
        const auto lines = LogLines();
        return std::find(lines.begin(), lines.end(), "Receiving data...") != lines.end();
    }));
    corvid::testing::SaveScreenshot("download-page");

    Command(win::kDownloadStop);
    ASSERT_TRUE(WaitForStatus("slow.bin", "Stopped"));
    ASSERT_TRUE(FileExists(Partial("slow.bin")));

    // Clear stopped takes the stopped item and the one that needs sources, and their files.
    prompts.answerYes = false;
    Command(win::kDownloadClearStopped);
    corvid::testing::PumpPending();
    EXPECT_EQ(RowCount(List()), 4) << "No keeps everything";
    prompts.answerYes = true;
    Command(win::kDownloadClearStopped);
    ASSERT_TRUE(PumpUntil([&] { return RowCount(List()) == 2; }));
    EXPECT_EQ(prompts.questions,
              (std::vector<std::string>{"Tarvo|Are you sure to clear all stopped items?",
                                        "Tarvo|Are you sure to clear all stopped items?"}));
    EXPECT_EQ(RowOf("slow.bin"), -1);
    EXPECT_EQ(RowOf("missing.bin"), -1);
    EXPECT_FALSE(FileExists(Partial("slow.bin")));

    // Clear completed takes the completed item only, and leaves its file where it is.
    Command(win::kDownloadClearCompleted);
    ASSERT_TRUE(PumpUntil([&] { return RowCount(List()) == 1; }));
    EXPECT_EQ(prompts.questions.back(), "Tarvo|Are you sure to clear all completed items?");
    EXPECT_EQ(RowOf("big.bin"), 0);
    EXPECT_TRUE(Status("big.bin").rfind("Downloading(", 0) == 0) << Status("big.bin");
    EXPECT_EQ(ReadWholeFile(Final("small.bin")), ReadWholeFile(fixture.SharedFile("small.bin")));

    // The worker waits on the event of its documented name.
    corvid::win::KernelHandle event(::OpenEventA(SYNCHRONIZE, FALSE, "CmdQueueEvent"));
    EXPECT_TRUE(event);
}

TEST_F(DownloadPanelTest, TheSameFileTwiceShowsTheFileExistsDialog) {
    options.prompts = nullptr;
    Open();
    const auto group = GroupOf(fixture, "small.bin", {"fast2"});
    ASSERT_TRUE(panel->Page()->StartDownload(group, false));
    // The dialog is modal: another thread reads it and presses OK. It is read once it shows,
    // which a modal dialog does only after its controls have their texts; the window itself can
    // be found before that.
    std::string shown;
    std::thread closer([&] {
        for (int tries = 0; tries < 400; ++tries) {
            HWND dialog = ::FindWindowA("#32770", "Tarvo Explorer");
            if (dialog && ::IsWindowVisible(dialog)) {
                char text[512] = {};
                char name[512] = {};
                ::GetDlgItemTextA(dialog, IDC_FILE_EXISTS_TEXT, text, sizeof text);
                ::GetDlgItemTextA(dialog, IDC_FILE_EXISTS_PATH, name, sizeof name);
                shown = std::string(text) + name;
                ::PostMessageA(dialog, WM_COMMAND, IDOK, 0);
                return;
            }
            ::Sleep(25);
        }
    });
    EXPECT_FALSE(panel->Page()->StartDownload(group, false));
    closer.join();
    EXPECT_EQ(shown, "The file is already in downloading window:small.bin");
    EXPECT_EQ(panel->Page()->Items().size(), 1u);
}

// "http://localhost:PORT/uri-res/N2R?urn:sha1:SHA1" as a magnet link's parameter. The page takes
// one source per host, so the link names loopback by name and the peers answer by address.
std::string EncodedSource(int port, const std::string& sha1) {
    return "http%3A%2F%2Flocalhost%3A" + std::to_string(port) + "%2Furi-res%2FN2R%3Furn%3Asha1%3A" +
           sha1;
}

TEST_F(DownloadPanelTest, MagnetLinksStartDownloadsAndTheNetworkBringsMoreSources) {
    auto engine = FakeEngine::Make();
    site.engine = engine.get();
    Open();

    // A link this program cannot fetch says why and starts nothing.
    std::string error;
    EXPECT_TRUE(win::IsMagnetLink("  MAGNET:?dn=x"));
    EXPECT_FALSE(win::IsMagnetLink("magnets and more"));
    EXPECT_FALSE(win::StartMagnet(site, "magnet:?dn=nothing.bin", &error));
    EXPECT_EQ(error.rfind("This magnet link cannot be downloaded:\n", 0), 0u) << error;
    EXPECT_GT(error.size(), std::string("This magnet link cannot be downloaded:\n").size());
    EXPECT_TRUE(panel->Page()->Items().empty());
    EXPECT_TRUE(engine->searches.empty());

    // A link with a source starts at once, and the network is asked for the same SHA1.
    const auto slow = fixture.Sha1("slow.bin");
    ASSERT_TRUE(win::StartMagnet(site,
                                 "magnet:?xt=urn:sha1:" + slow + "&dn=slow%20copy.bin&xl=" +
                                     std::to_string(fixture.Size("slow.bin")) +
                                     "&xs=" + EncodedSource(fixture.Port("slow"), slow),
                                 &error))
        << error;
    EXPECT_EQ(site.shownPanels, std::vector<int>{shell::kCmdDownload});
    ASSERT_TRUE(PumpUntil([&] { return Progress("slow copy.bin") >= 1; }, kTransferTimeout));
    FakeSearch* search = engine->SearchFor("urn:sha1:" + slow);
    ASSERT_TRUE(search);
    EXPECT_EQ(search->starts, 1);
    // A peer answers: it joins the running download, which finishes with its help.
    search->Deliver(ResultFrom(fixture.Port("node1"), "slow.bin", fixture.Size("slow.bin"), slow));
    EXPECT_EQ(Cell(List(), RowOf("slow copy.bin"), "Host"), "localhost");
    // The slow source alone would need over a minute; the peer brings it in seconds.
    ASSERT_TRUE(WaitForStatus("slow copy.bin", "Completed", 30000)) << Status("slow copy.bin");
    EXPECT_EQ(ReadWholeFile(Final("slow copy.bin")), ReadWholeFile(fixture.SharedFile("slow.bin")));

    // A link without sources waits for the network's first answer.
    const auto small = fixture.Sha1("small.bin");
    ASSERT_TRUE(win::StartMagnet(site, "magnet:?xt=urn:sha1:" + small + "&dn=found.bin", &error));
    corvid::testing::PumpPending();
    EXPECT_EQ(RowOf("found.bin"), -1);
    search = engine->SearchFor("urn:sha1:" + small);
    ASSERT_TRUE(search);
    search->Deliver(ResultFrom(fixture.Port("node2"), "small.bin", fixture.Size("small.bin"),
                               fixture.Sha1("big.bin")));
    corvid::testing::PumpPending();
    EXPECT_EQ(RowOf("found.bin"), -1) << "another file's answer is not taken";
    search->Deliver(
        ResultFrom(fixture.Port("node2"), "small.bin", fixture.Size("small.bin"), small));
    ASSERT_TRUE(WaitForStatus("found.bin", "Completed")) << Status("found.bin");
    EXPECT_EQ(ReadWholeFile(Final("found.bin")), ReadWholeFile(fixture.SharedFile("small.bin")));
}

TEST_F(DownloadPanelTest, AnItemThatNeedsSourcesAsksTheNetworkAgainAndFinishes) {
    auto engine = FakeEngine::Make();
    site.engine = engine.get();
    options.requerySeconds = 3;
    Open();
    const auto orphan = fixture.Sha1("orphan.bin");
    // Only the peers have the file: nginx's 404 leaves the item wanting sources.
    ASSERT_TRUE(panel->Page()->StartDownload(GroupOf(fixture, "orphan.bin", {"fast1"}), false));
    ASSERT_TRUE(WaitForStatus("orphan.bin", "More sources needed")) << Status("orphan.bin");
    EXPECT_TRUE(engine->searches.empty());

    // The tick that ends the period asks the network for it.
    for (int tick = 0; tick < 3; ++tick)
        panel->OnTick();
    FakeSearch* search = engine->SearchFor("urn:sha1:" + orphan);
    ASSERT_TRUE(search);
    search->Deliver(
        ResultFrom(fixture.Port("node1"), "orphan.bin", fixture.Size("orphan.bin"), orphan));
    ASSERT_TRUE(WaitForStatus("orphan.bin", "Completed")) << Status("orphan.bin");
    EXPECT_EQ(ReadWholeFile(Final("orphan.bin")), ReadWholeFile(fixture.SharedFile("orphan.bin")));

    // The next round lets the finished item's search go.
    for (int tick = 0; tick < 3; ++tick)
        panel->OnTick();
    EXPECT_GT(search->stops, 0);
}

// Runs the stand-in host; the process handle, or none.
corvid::win::KernelHandle StartHost(const std::vector<std::string>& arguments) {
    char program[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, program, MAX_PATH);
    std::string command = std::string(program);
    command =
        "\"" + command.substr(0, command.find_last_of('\\') + 1) + "download_host_helper.exe\"";
    for (const auto& argument : arguments)
        command += " \"" + argument + "\"";
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!::CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                          &startup, &process))
        return {};
    ::CloseHandle(process.hThread);
    return corvid::win::KernelHandle(process.hProcess);
}

bool Exited(HANDLE process) {
    return ::WaitForSingleObject(process, 0) == WAIT_OBJECT_0;
}

// (start, last) of every request nginx logged for a SHA1, in the order they ended.
std::vector<std::pair<long long, long long>>
Requests(const std::vector<std::string>& log, const std::string& sha1, std::size_t from = 0) {
    std::vector<std::pair<long long, long long>> requests;
    for (std::size_t i = from; i < log.size(); ++i) {
        const auto& line = log[i];
        const auto range = line.find("\"bytes=");
        if (line.find(sha1) == std::string::npos || range == std::string::npos)
            continue;
        const auto dash = line.find('-', range);
        requests.emplace_back(std::atoll(line.c_str() + range + 7),
                              std::atoll(line.c_str() + dash + 1));
    }
    return requests;
}

TEST_F(DownloadPanelTest, AHostKilledMidwayResumesWithoutFetchingARangeTwice) {
    const std::string sha1 = fixture.Sha1("resume.bin");
    const std::string size = std::to_string(fixture.Size("resume.bin"));
    const std::vector<std::string> folders = {options.listFile, options.downloadFolder,
                                              options.tempFolder};
    auto arguments = folders;
    arguments.insert(arguments.end(),
                     {sha1, "resume.bin", size, std::to_string(fixture.Port("medium"))});
    auto host = StartHost(arguments);
    ASSERT_TRUE(host);

    // Killed once the range map holds half a megabyte, and the list has been written.
    const auto mapPath = Partial("resume.bin") + ".ranges";
    std::optional<download::RangeMapRecord> map;
    ASSERT_TRUE(PumpUntil(
        [&] {
            map = download::ParseRangeMap(ReadWholeFile(mapPath));
            std::uint64_t done = 0;
            if (map)
                for (const auto& span : map->done)
                    done += span.end - span.begin;
            return done >= 512 * 1024 && FileExists(options.listFile);
        },
        kTransferTimeout));
    ASSERT_FALSE(Exited(host.get()));
    ASSERT_TRUE(::TerminateProcess(host.get(), 99));
    ASSERT_EQ(::WaitForSingleObject(host.get(), 30000), WAIT_OBJECT_0);
    map = download::ParseRangeMap(ReadWholeFile(mapPath));
    ASSERT_TRUE(map);
    ASSERT_FALSE(map->done.empty());
    ASSERT_FALSE(FileExists(Final("resume.bin")));

    // nginx logs the cut request as soon as it sees the connection go.
    std::size_t logged = 0;
    ASSERT_TRUE(PumpUntil(
        [&] {
            const auto now = Requests(fixture.AccessLog(), sha1).size();
            if (now != logged) {
                logged = now;
                return false;
            }
            return logged > 0 && Requests(fixture.AccessLog(), sha1).size() == logged;
        },
        10000));
    const std::size_t linesBefore = fixture.AccessLog().size();

    host = StartHost(folders);
    ASSERT_TRUE(host);
    ASSERT_TRUE(PumpUntil([&] { return Exited(host.get()); }, kTransferTimeout));
    DWORD code = 0;
    ::GetExitCodeProcess(host.get(), &code);
    EXPECT_EQ(code, 0u);
    EXPECT_EQ(ReadWholeFile(Final("resume.bin")), ReadWholeFile(fixture.SharedFile("resume.bin")));
    EXPECT_FALSE(FileExists(Partial("resume.bin")));
    const auto kept = ReadDownloadList(ReadWholeFile(options.listFile));
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(kept[0].state, kItemCompleted);

    // The second run asked only for bytes the range map did not hold.
    std::vector<std::pair<long long, long long>> after;
    ASSERT_TRUE(PumpUntil(
        [&] {
            after = Requests(fixture.AccessLog(), sha1, linesBefore);
            return !after.empty();
        },
        10000));
    for (const auto& [first, last] : after)
        for (const auto& span : map->done)
            EXPECT_TRUE(last < static_cast<long long>(span.begin) ||
                        first >= static_cast<long long>(span.end))
                << "bytes=" << first << "-" << last << " was on disk as " << span.begin << "-"
                << span.end;
}

} // namespace
} // namespace corvid::transfer::testing
