#pragma once

// Corvid's main job walked through the real host window in this process: connect by itself,
// search through the host's search bar, download the big file of the results from its sources,
// check it, and show the hosts and the library. Every step is what a user's action sends to the
// windows (keys typed into the search bar, the result list's Download command, the panel
// commands), and every check reads the controls back (list-view cells, status-bar panes).
// Used by corvid-demo.exe and by the end-to-end test.

#include <windows.h>

#include "tests/wine/support/wine_test_support.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace corvid::host {
class HostWindow;
}

namespace corvid::demo {

// What scripts/loopback-network wrote into network.env.
struct NetworkFacts {
    std::string ultrapeers; // "a.b.c.d:port,..."
    int leaves = 0;
    std::string bigFileName;
    std::string bigFileSha1; // base32
    std::uint64_t bigFileSize = 0;
};
// Reads the KEY='value' lines of network.env; nullopt (with the reason) when a value is missing
// or malformed.
std::optional<NetworkFacts> ReadNetworkFacts(const std::string& text, std::string& error);

struct MainJobOptions {
    std::wstring hostFolder; // where Corvid.dll, CorvidEngine.dll and the host's files are
    std::string downloadFolder;
    NetworkFacts network;
    std::string keywords = "corvid demo";
    // How long one step may take before it fails.
    DWORD stepTimeoutMs = 20000;
    // One line per step as it ends: "step N: what (x.x s)".
    std::function<void(const std::string&)> report;
    // Saves a screenshot under the given name (may be empty: none are taken).
    std::function<void(const std::string&)> screenshot;
};

// A list-view row as the user sees it: cells by column title.
struct SeenRow {
    std::string Cell(const std::string& title) const;
    std::vector<std::pair<std::string, std::string>> cells;
};

class MainJob {
public:
    explicit MainJob(MainJobOptions options);
    ~MainJob();
    MainJob(const MainJob&) = delete;
    MainJob& operator=(const MainJob&) = delete;

    // The steps, in order. Each returns false with Error() set when it did not reach its goal.
    bool Open();         // host settings, the plug-in in the host window
    bool WaitOnline();   // AutoOnline connected: the nodes pane counts the ultrapeers
    bool Search();       // typed into the search bar; the big file shows with all its sources
    bool Download();     // the big file's group row downloaded; its row shows on the download page
    bool WaitComplete(); // the row says "Completed"
    bool CheckFile();    // the file on disk hashes to the network's SHA1
    bool ShowHosts();    // the hosts view lists the ultrapeers
    bool ShowLibrary();  // the library lists the file with its SHA1
    bool ShowConsole();  // the console tells of the links the engine opened
    // Closes the host window and waits for it to go.
    void Close();
    // Runs the host's message loop until the user closes the window.
    void RunUntilClosed();

    const std::string& Error() const { return error_; }
    // What the steps read back, for the caller's own checks.
    const SeenRow& ResultRow() const { return resultRow_; }
    const SeenRow& DownloadRow() const { return downloadRow_; }
    const SeenRow& LibraryRow() const { return libraryRow_; }
    int HostRows() const { return hostRows_; }
    // The console's first line about a link ("Connected to ...").
    const std::string& ConsoleLinkLine() const { return consoleLinkLine_; }
    const std::string& NodesPane() const { return nodesPane_; }
    const std::string& DownloadedPath() const { return downloadedPath_; }
    const std::string& DownloadedSha1() const { return downloadedSha1_; }
    HWND Frame() const;

private:
    bool Step(const std::string& what, const std::function<bool()>& body);
    bool PumpUntil(const std::function<bool()>& done, DWORD timeoutMs);
    bool Fail(const std::string& why);
    void ShowPanel(int command);
    HWND StatusBar() const;
    HWND VisibleList(const std::string& columnTitle) const;

    MainJobOptions options_;
    std::unique_ptr<host::HostWindow> window_;
    HWND mainView_ = nullptr;
    HWND resultList_ = nullptr;
    int step_ = 0;
    std::string error_;
    std::string seen_; // what the step saw, for its report line
    SeenRow resultRow_, downloadRow_, libraryRow_;
    int hostRows_ = 0;
    std::string consoleLinkLine_;
    std::string nodesPane_;
    std::string downloadedPath_;
    std::string downloadedSha1_;
};

// Reads a list view in this process: the column titles, the rows' cells.
using testing::ColumnOf;
using testing::RowCount;
SeenRow ReadRow(HWND list, int row);
// The first row whose cell under columnTitle equals text, or -1.
int FindRow(HWND list, const std::string& columnTitle, const std::string& text);

} // namespace corvid::demo
