#include "tools/corvid_demo/main_job.h"

#include "host/host_window.h"
#include "host_h.h"
#include "library/sha1.h"
#include "platform/win/handles.h"
#include "search/win/search_resources.h"
#include "shell/status_texts.h"
#include "shell/win/panel.h"
#include "tests/wine/support/wine_test_support.h"

#include <commctrl.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <vector>

namespace corvid::demo {
namespace {

using Clock = std::chrono::steady_clock;
using win::ComPtr;

constexpr wchar_t kPlugInProgId[] = L"Corvid.P2PView";
// The engine's class, registered by CorvidEngine.dll beside the plug-in.
constexpr wchar_t kEngineClassKey[] = L"CLSID\\{70057F54-0649-425E-9F47-CC862103B33E}";
constexpr char kSettingsKey[] = "Software\\Tarvo Explorer\\P2P View";

std::string ClassOf(HWND window) {
    char name[64] = {};
    ::GetClassNameA(window, name, sizeof name);
    return name;
}

struct Search {
    std::string className;
    std::vector<HWND> found;
};

BOOL CALLBACK Collect(HWND window, LPARAM context) {
    auto& search = *reinterpret_cast<Search*>(context);
    if (::lstrcmpiA(ClassOf(window).c_str(), search.className.c_str()) == 0) {
        search.found.push_back(window);
    }
    return TRUE;
}

std::vector<HWND> Descendants(HWND root, const char* className) {
    Search search{className, {}};
    if (root) {
        ::EnumChildWindows(root, &Collect, reinterpret_cast<LPARAM>(&search));
    }
    return search.found;
}

// Shown on screen: the window and every ancestor visible.
bool Showing(HWND window) {
    return ::IsWindowVisible(window) != FALSE;
}

bool Registered(const wchar_t* classKey) {
    win::RegKey key;
    return ::RegOpenKeyExW(HKEY_CLASSES_ROOT, classKey, 0, KEY_READ, key.put()) == ERROR_SUCCESS;
}

bool RegisterServer(const std::wstring& path) {
    win::Module module(::LoadLibraryW(path.c_str()));
    if (!module) {
        return false;
    }
    auto registerServer =
        win::ProcAddress<HRESULT(STDAPICALLTYPE*)()>(module.get(), "DllRegisterServer");
    return registerServer && SUCCEEDED(registerServer());
}

bool WriteSetting(const char* name, DWORD type, const void* data, DWORD size) {
    win::RegKey key;
    if (::RegCreateKeyExA(HKEY_CURRENT_USER, kSettingsKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                          key.put(), nullptr) != ERROR_SUCCESS) {
        return false;
    }
    return ::RegSetValueExA(key.get(), name, 0, type, static_cast<const BYTE*>(data), size) ==
           ERROR_SUCCESS;
}

int LeadingNumber(const std::string& text) {
    int value = -1;
    return std::sscanf(text.c_str(), " %d", &value) == 1 ? value : -1;
}

std::string Seconds(Clock::duration elapsed) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", std::chrono::duration<double>(elapsed).count());
    return text;
}

// Unquotes one value of network.env: 'text' with no quote inside.
std::optional<std::string> Unquote(std::string value) {
    if (!value.empty() && value.back() == '\r') {
        value.pop_back();
    }
    if (value.size() < 2 || value.front() != '\'' || value.back() != '\'') {
        return std::nullopt;
    }
    value = value.substr(1, value.size() - 2);
    if (value.find('\'') != std::string::npos) {
        return std::nullopt;
    }
    return value;
}

} // namespace

std::optional<NetworkFacts> ReadNetworkFacts(const std::string& text, std::string& error) {
    NetworkFacts facts;
    std::istringstream lines(text);
    std::string line;
    std::string size;
    while (std::getline(lines, line)) {
        const auto equals = line.find('=');
        if (line.empty() || line[0] == '#' || equals == std::string::npos) {
            continue;
        }
        const std::string key = line.substr(0, equals);
        auto value = Unquote(line.substr(equals + 1));
        if (!value) {
            continue;
        }
        if (key == "ULTRAPEERS") {
            facts.ultrapeers = *value;
        } else if (key == "LEAVES") {
            facts.leaves = static_cast<int>(std::count(value->begin(), value->end(), ',')) +
                           (value->empty() ? 0 : 1);
        } else if (key == "BIG_FILE_NAME") {
            facts.bigFileName = *value;
        } else if (key == "BIG_FILE_SHA1") {
            facts.bigFileSha1 = *value;
        } else if (key == "BIG_FILE_SIZE") {
            size = *value;
        }
    }
    library::Sha1Digest digest;
    char* end = nullptr;
    const unsigned long long bytes = size.empty() ? 0 : std::strtoull(size.c_str(), &end, 10);
    if (facts.ultrapeers.empty()) {
        error = "network.env names no ultrapeer";
    } else if (facts.bigFileName.empty() ||
               facts.bigFileName.find_first_of("\\/:") != std::string::npos) {
        error = "network.env names no usable big file";
    } else if (!library::FromBase32(facts.bigFileSha1, digest)) {
        error = "network.env's BIG_FILE_SHA1 is not a SHA1 in base32";
    } else if (size.empty() || *end != '\0' || bytes == 0) {
        error = "network.env's BIG_FILE_SIZE is not a size";
    } else {
        facts.bigFileSize = bytes;
        return facts;
    }
    return std::nullopt;
}

std::string SeenRow::Cell(const std::string& title) const {
    for (const auto& [column, text] : cells) {
        if (column == title) {
            return text;
        }
    }
    return {};
}

SeenRow ReadRow(HWND list, int row) {
    SeenRow seen;
    std::string title;
    for (int column = 0; testing::ListViewColumnTitle(list, column, title); ++column) {
        seen.cells.emplace_back(title, testing::ListViewText(list, row, column));
    }
    return seen;
}

int FindRow(HWND list, const std::string& columnTitle, const std::string& text) {
    const int column = ColumnOf(list, columnTitle);
    if (column < 0) {
        return -1;
    }
    const int rows = RowCount(list);
    for (int row = 0; row < rows; ++row) {
        if (testing::ListViewText(list, row, column) == text) {
            return row;
        }
    }
    return -1;
}

MainJob::MainJob(MainJobOptions options) : options_(std::move(options)) {}

MainJob::~MainJob() {
    Close();
}

HWND MainJob::Frame() const {
    return window_ ? window_->FrameWindow() : nullptr;
}

bool MainJob::Fail(const std::string& why) {
    error_ = why;
    return false;
}

bool MainJob::Step(const std::string& what, const std::function<bool()>& body) {
    const auto start = Clock::now();
    const bool ok = body();
    ++step_;
    if (!ok && options_.screenshot) {
        options_.screenshot("failed-step-" + std::to_string(step_));
    }
    if (options_.report) {
        options_.report("step " + std::to_string(step_) + ": " + what + " (" +
                        Seconds(Clock::now() - start) + ")" +
                        (ok ? (seen_.empty() ? "" : ": " + seen_) : " FAILED: " + error_));
    }
    seen_.clear();
    return ok;
}

// The host's own message loop, bounded: the search bar's keys go through PreTranslate as they do
// in corvid-host.exe.
bool MainJob::PumpUntil(const std::function<bool()>& done, DWORD timeoutMs) {
    const DWORD start = ::GetTickCount();
    for (;;) {
        MSG message;
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            if (message.message == WM_QUIT) {
                return done();
            }
            if (window_ && window_->PreTranslate(message)) {
                continue;
            }
            ::TranslateMessage(&message);
            ::DispatchMessageW(&message);
        }
        if (done()) {
            return true;
        }
        if (::GetTickCount() - start >= timeoutMs) {
            return false;
        }
        ::MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
    }
}

void MainJob::ShowPanel(int command) {
    ::SendMessageA(mainView_, WM_COMMAND, MAKEWPARAM(command, 0), 0);
}

HWND MainJob::StatusBar() const {
    const auto bars = Descendants(mainView_, STATUSCLASSNAMEA);
    return bars.empty() ? nullptr : bars.front();
}

HWND MainJob::VisibleList(const std::string& columnTitle) const {
    for (HWND list : Descendants(mainView_, WC_LISTVIEWA)) {
        if (Showing(list) && (columnTitle.empty() || ColumnOf(list, columnTitle) >= 0)) {
            return list;
        }
    }
    return nullptr;
}

bool MainJob::Open() {
    return Step("open corvid-host with the plug-in", [&] {
        INITCOMMONCONTROLSEX controls = {sizeof controls,
                                         ICC_WIN95_CLASSES | ICC_TAB_CLASSES | ICC_BAR_CLASSES |
                                             ICC_LISTVIEW_CLASSES | ICC_INTERNET_CLASSES};
        ::InitCommonControlsEx(&controls);
        // The settings a user would make in the host's settings dialog and options sheet.
        const DWORD online = 1;
        if (!WriteSetting("AutoOnline", REG_DWORD, &online, sizeof online) ||
            !WriteSetting("Download Folder", REG_SZ, options_.downloadFolder.c_str(),
                          static_cast<DWORD>(options_.downloadFolder.size() + 1))) {
            return Fail("the host's settings could not be written");
        }
        ::CreateDirectoryA(options_.downloadFolder.c_str(), nullptr);
        // The engine finds the loopback ultrapeers here, never on a public list.
        ::SetEnvironmentVariableA("CORVID_ENGINE_BOOTSTRAP", options_.network.ultrapeers.c_str());

        CLSID clsid = {};
        if (FAILED(::CLSIDFromProgID(kPlugInProgId, &clsid))) {
            RegisterServer(options_.hostFolder + L"\\Corvid.dll");
        }
        if (!Registered(kEngineClassKey)) {
            RegisterServer(options_.hostFolder + L"\\CorvidEngine.dll");
        }
        if (FAILED(::CLSIDFromProgID(kPlugInProgId, &clsid)) || !Registered(kEngineClassKey)) {
            return Fail("Corvid.dll and CorvidEngine.dll are not registered");
        }
        ComPtr<ITarvoPlugIn> plugIn;
        const HRESULT hr = ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER,
                                              IID_ITarvoPlugIn, plugIn.put_void());
        if (FAILED(hr)) {
            return Fail("the plug-in could not be created");
        }
        window_ = std::make_unique<host::HostWindow>(options_.hostFolder, host::HostOptions{});
        if (!window_->Open(plugIn.get())) {
            return Fail("the plug-in could not open its view");
        }
        const auto views = Descendants(Frame(), "CorvidMainView");
        if (views.empty()) {
            return Fail("the host shows no main view");
        }
        mainView_ = views.front();
        return PumpUntil([&] { return StatusBar() != nullptr; }, options_.stepTimeoutMs) ||
               Fail("the main view has no status bar");
    });
}

bool MainJob::WaitOnline() {
    const int ultrapeers = static_cast<int>(std::count(options_.network.ultrapeers.begin(),
                                                       options_.network.ultrapeers.end(), ',')) +
                           1;
    return Step("connected by itself (AutoOnline) to the loopback ultrapeers", [&] {
        const bool online = PumpUntil(
            [&] {
                nodesPane_ =
                    testing::StatusBarText(StatusBar(), shell::StatusPaneIndex(shell::kPaneNodes));
                return testing::StatusBarText(StatusBar(), 0) == "Connections OK" &&
                       LeadingNumber(nodesPane_) >= ultrapeers;
            },
            options_.stepTimeoutMs);
        if (!online) {
            std::string panes;
            for (int pane = 0; pane < 6; ++pane) {
                panes += " [" + testing::StatusBarText(StatusBar(), pane) + "]";
            }
            return Fail("the status bar says" + panes + ", not " + std::to_string(ultrapeers) +
                        " nodes");
        }
        return true;
    });
}

bool MainJob::Search() {
    const int sources = std::min(options_.network.leaves, 4);
    return Step(
        "searched \"" + options_.keywords + "\" in the search bar; \"" +
            options_.network.bigFileName + "\" from " + std::to_string(sources) + " sources",
        [&] {
            HWND edit = ::FindWindowExA(Frame(), nullptr, "Edit", nullptr);
            if (!edit) {
                return Fail("the host has no search bar");
            }
            ::SetFocus(edit);
            for (const char c : options_.keywords) {
                ::PostMessageA(edit, WM_CHAR, static_cast<unsigned char>(c), 1);
            }
            ::PostMessageA(edit, WM_KEYDOWN, VK_RETURN, 1);
            const std::string wanted = "multiple(" + std::to_string(sources) + ")";
            int row = -1;
            const bool found = PumpUntil(
                [&] {
                    resultList_ = VisibleList("Host");
                    row = resultList_ ? FindRow(resultList_, "Name", options_.network.bigFileName)
                                      : -1;
                    return row >= 0 && ReadRow(resultList_, row).Cell("Host") == wanted;
                },
                options_.stepTimeoutMs);
            if (row >= 0) {
                resultRow_ = ReadRow(resultList_, row);
            }
            if (!found) {
                return Fail(resultList_ ? "the results show no \"" + options_.network.bigFileName +
                                              "\" from " + wanted
                                        : "no result window opened");
            }
            if (options_.screenshot) {
                options_.screenshot("search-results");
            }
            return true;
        });
}

bool MainJob::Download() {
    return Step("Download on its group row; the download page shows it", [&] {
        const int row = FindRow(resultList_, "Name", options_.network.bigFileName);
        if (row < 0) {
            return Fail("the big file's row is gone from the results");
        }
        LVITEMA none = {};
        none.stateMask = LVIS_SELECTED;
        ::SendMessageA(resultList_, LVM_SETITEMSTATE, static_cast<WPARAM>(-1),
                       reinterpret_cast<LPARAM>(&none));
        LVITEMA chosen = {};
        chosen.state = chosen.stateMask = LVIS_SELECTED | LVIS_FOCUSED;
        ::SendMessageA(resultList_, LVM_SETITEMSTATE, row, reinterpret_cast<LPARAM>(&chosen));
        ::SendMessageA(::GetParent(resultList_), WM_COMMAND, MAKEWPARAM(ID_RESULT_DOWNLOAD, 0), 0);
        ShowPanel(shell::kCmdDownload);
        HWND list = nullptr;
        const bool shown = PumpUntil(
            [&] {
                list = VisibleList("Status");
                const int at = list ? FindRow(list, "Name", options_.network.bigFileName) : -1;
                if (at >= 0) {
                    downloadRow_ = ReadRow(list, at);
                }
                return at >= 0;
            },
            options_.stepTimeoutMs);
        if (!shown) {
            return Fail("the download page shows no row for the big file");
        }
        seen_ = "Status \"" + downloadRow_.Cell("Status") + "\", Progress \"" +
                downloadRow_.Cell("Progress") + "\"";
        if (options_.screenshot) {
            options_.screenshot("download-progress");
        }
        return true;
    });
}

bool MainJob::WaitComplete() {
    return Step("the download page says \"Completed\"", [&] {
        const bool complete = PumpUntil(
            [&] {
                HWND list = VisibleList("Status");
                const int at = list ? FindRow(list, "Name", options_.network.bigFileName) : -1;
                if (at >= 0) {
                    downloadRow_ = ReadRow(list, at);
                }
                return downloadRow_.Cell("Status") == "Completed";
            },
            options_.stepTimeoutMs);
        if (!complete) {
            return Fail("the download's status is \"" + downloadRow_.Cell("Status") + "\"");
        }
        if (options_.screenshot) {
            options_.screenshot("download-complete");
        }
        return true;
    });
}

bool MainJob::CheckFile() {
    return Step("the downloaded file's SHA1 is the source's", [&] {
        downloadedPath_ = options_.downloadFolder + "\\" + options_.network.bigFileName;
        std::ifstream in(downloadedPath_, std::ios::binary);
        if (!in) {
            return Fail("no file at " + downloadedPath_);
        }
        library::Sha1 sha1;
        std::vector<char> buffer(1 << 20);
        std::uint64_t total = 0;
        while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) ||
               in.gcount() > 0) {
            const auto got = static_cast<std::size_t>(in.gcount());
            sha1.Update(std::span(reinterpret_cast<const std::uint8_t*>(buffer.data()), got));
            total += got;
        }
        downloadedSha1_ = library::ToBase32(sha1.Finish());
        if (total != options_.network.bigFileSize) {
            return Fail("the file has " + std::to_string(total) + " bytes, not " +
                        std::to_string(options_.network.bigFileSize));
        }
        return downloadedSha1_ == options_.network.bigFileSha1 ||
               Fail("the file's SHA1 is " + downloadedSha1_ + ", not " +
                    options_.network.bigFileSha1);
    });
}

bool MainJob::ShowHosts() {
    return Step("the hosts view lists the ultrapeers", [&] {
        ShowPanel(shell::kCmdHosts);
        const int ultrapeers =
            static_cast<int>(std::count(options_.network.ultrapeers.begin(),
                                        options_.network.ultrapeers.end(), ',')) +
            1;
        const bool listed = PumpUntil(
            [&] {
                HWND list = VisibleList("");
                hostRows_ = list ? RowCount(list) : 0;
                return hostRows_ >= ultrapeers;
            },
            options_.stepTimeoutMs);
        if (!listed) {
            return Fail("the hosts view lists " + std::to_string(hostRows_) + " hosts");
        }
        if (options_.screenshot) {
            options_.screenshot("hosts");
        }
        return true;
    });
}

bool MainJob::ShowLibrary() {
    return Step("the library lists the file with its SHA1", [&] {
        ShowPanel(shell::kCmdLibrary);
        const bool listed = PumpUntil(
            [&] {
                for (HWND list : Descendants(mainView_, WC_LISTVIEWA)) {
                    const int at =
                        Showing(list) ? FindRow(list, "Name", options_.network.bigFileName) : -1;
                    if (at >= 0) {
                        libraryRow_ = ReadRow(list, at);
                        if (libraryRow_.Cell("SHA1") == options_.network.bigFileSha1) {
                            return true;
                        }
                    }
                }
                return false;
            },
            options_.stepTimeoutMs);
        if (!listed) {
            return Fail(libraryRow_.cells.empty()
                            ? "the library does not list the file"
                            : "the library's SHA1 is \"" + libraryRow_.Cell("SHA1") + "\"");
        }
        if (options_.screenshot) {
            options_.screenshot("library");
        }
        return true;
    });
}

bool MainJob::ShowConsole() {
    return Step("the console tells of the links to the ultrapeers", [&] {
        ShowPanel(shell::kCmdConsole);
        const bool told = PumpUntil(
            [&] {
                HWND list = VisibleList("Message");
                const int column = list ? ColumnOf(list, "Message") : -1;
                for (int row = 0; column >= 0 && row < RowCount(list); ++row) {
                    const std::string line = testing::ListViewText(list, row, column);
                    if (line.rfind("Connected to ", 0) == 0) {
                        consoleLinkLine_ = line;
                        return true;
                    }
                }
                return false;
            },
            options_.stepTimeoutMs);
        if (!told) {
            return Fail("the console tells of no link");
        }
        if (options_.screenshot) {
            options_.screenshot("console");
        }
        return true;
    });
}

void MainJob::RunUntilClosed() {
    PumpUntil([&] { return !Frame() || !::IsWindow(Frame()); }, INFINITE);
}

void MainJob::Close() {
    if (!window_) {
        return;
    }
    if (HWND frame = Frame(); frame && ::IsWindow(frame)) {
        ::PostMessageA(frame, WM_CLOSE, 0, 0);
        PumpUntil([&] { return !::IsWindow(frame); }, options_.stepTimeoutMs);
    }
    window_.reset();
    // The engine and the downloads let go of their threads through posted messages.
    PumpUntil([] { return false; }, 200);
}

} // namespace corvid::demo
