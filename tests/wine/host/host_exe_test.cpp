// The standalone host as a user runs it, with the real plug-in: the window appears, the plug-in's
// items stand in the host's menus where its menu document puts them, and choosing "Connect"
// greys it and enables "Disconnect". The engine is a stand-in registered under its class id.

#include <windows.h>

#include "tests/wine/support/wine_test_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr char kEngineKey[] = "CLSID\\{70057F54-0649-425E-9F47-CC862103B33E}";

std::string ProgramFolder() {
    char path[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string folder(path, length);
    return folder.substr(0, folder.find_last_of('\\'));
}

DWORD RunProgram(const std::string& commandLine, HANDLE* process = nullptr) {
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info = {};
    std::string command = commandLine;
    if (!::CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                          &startup, &info)) {
        return ::GetLastError() | 0x80000000u;
    }
    ::CloseHandle(info.hThread);
    if (process) {
        *process = info.hProcess;
        return 0;
    }
    ::WaitForSingleObject(info.hProcess, 60000);
    DWORD code = 0xFFFFFFFFu;
    ::GetExitCodeProcess(info.hProcess, &code);
    ::CloseHandle(info.hProcess);
    return code;
}

bool FileExists(const std::string& path) {
    return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// One entry of the host's menu report: its label ("-" for a separator), command id, flags and
// submenu.
struct MenuLine {
    std::string text;
    unsigned id = 0;
    bool greyed = false;
    bool checked = false;
    std::vector<MenuLine> children;
};

std::string ReadWhole(const std::string& path) {
    std::string text;
    if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
        char buffer[4096];
        std::size_t got = 0;
        while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) {
            text.append(buffer, got);
        }
        std::fclose(file);
    }
    return text;
}

// The report's lines as a tree: a line's tabs give its depth below the bar.
MenuLine ParseReport(const std::string& report) {
    MenuLine bar;
    std::vector<MenuLine*> open = {&bar};
    std::size_t start = 0;
    while (start < report.size()) {
        std::size_t end = report.find('\n', start);
        if (end == std::string::npos) {
            end = report.size();
        }
        std::string line = report.substr(start, end - start);
        start = end + 1;
        std::size_t depth = 0;
        while (depth < line.size() && line[depth] == '\t') {
            ++depth;
        }
        line.erase(0, depth);
        if (depth + 1 > open.size()) {
            continue;
        }
        open.resize(depth + 1);
        MenuLine entry;
        const std::size_t first = line.find('|');
        const std::size_t second = first == std::string::npos ? first : line.find('|', first + 1);
        entry.text = line.substr(0, first);
        if (second != std::string::npos) {
            entry.id = static_cast<unsigned>(std::strtoul(line.c_str() + first + 1, nullptr, 10));
            const std::string flags = line.substr(second + 1);
            entry.greyed = flags.find('g') != std::string::npos;
            entry.checked = flags.find('c') != std::string::npos;
        }
        open.back()->children.push_back(entry);
        open.push_back(&open.back()->children.back());
    }
    return bar;
}

std::vector<std::string> Texts(const MenuLine& menu) {
    std::vector<std::string> texts;
    for (const MenuLine& line : menu.children) {
        texts.push_back(line.text);
    }
    return texts;
}

const MenuLine* Find(const MenuLine& menu, const std::string& text) {
    for (const MenuLine& line : menu.children) {
        if (line.text == text) {
            return &line;
        }
    }
    return nullptr;
}

class HostProgram : public ::testing::Test {
protected:
    void SetUp() override {
        folder_ = ProgramFolder();
        ASSERT_EQ(RunProgram("regsvr32.exe /s \"" + folder_ + "\\Corvid.dll\""), 0u);
        // The stand-in engine, in process, under the engine's class id.
        HKEY key = nullptr;
        const std::string server = std::string(kEngineKey) + "\\InprocServer32";
        ASSERT_EQ(::RegCreateKeyExA(HKEY_CLASSES_ROOT, server.c_str(), 0, nullptr, 0, KEY_SET_VALUE,
                                    nullptr, &key, nullptr),
                  ERROR_SUCCESS);
        const std::string dll = folder_ + "\\FakeEngine.dll";
        ::RegSetValueExA(key, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(dll.c_str()),
                         static_cast<DWORD>(dll.size() + 1));
        ::RegSetValueExA(key, "ThreadingModel", 0, REG_SZ,
                         reinterpret_cast<const BYTE*>("Apartment"), 10);
        ::RegCloseKey(key);
        char temp[MAX_PATH] = {};
        ::GetTempPathA(MAX_PATH, temp);
        ready_ = std::string(temp) + "corvid-host-ready";
        quit_ = std::string(temp) + "corvid-host-quit";
        menus_ = std::string(temp) + "corvid-host-menus";
        ::DeleteFileA(menus_.c_str());
        ::DeleteFileA(ready_.c_str());
        ::DeleteFileA(quit_.c_str());
    }
    void TearDown() override {
        if (process_) {
            std::FILE* file = std::fopen(quit_.c_str(), "w");
            if (file) {
                std::fclose(file);
            }
            if (::WaitForSingleObject(process_, 20000) != WAIT_OBJECT_0) {
                ::TerminateProcess(process_, 1);
            }
            ::CloseHandle(process_);
        }
        ::DeleteFileA(ready_.c_str());
        ::DeleteFileA(quit_.c_str());
        ::DeleteFileA(menus_.c_str());
        ::RegDeleteTreeA(HKEY_CLASSES_ROOT, kEngineKey);
        ::RegDeleteKeyA(HKEY_CLASSES_ROOT, kEngineKey);
        EXPECT_EQ(RunProgram("regsvr32.exe /s /u \"" + folder_ + "\\Corvid.dll\""), 0u);
    }

    HWND Start(const std::string& options = "") {
        const std::string command = "\"" + folder_ + "\\corvid-host.exe\" --ready-file \"" +
                                    ready_ + "\" --quit-file \"" + quit_ + "\" --menu-report \"" +
                                    menus_ + "\" " + options;
        EXPECT_EQ(RunProgram(command, &process_), 0u);
        EXPECT_TRUE(corvid::testing::PumpUntil([&] { return FileExists(ready_); }, 30000));
        return ::FindWindowA("TarvoExplorerFrame", nullptr);
    }

    std::string folder_;
    std::string ready_;
    std::string quit_;
    std::string menus_;
    HANDLE process_ = nullptr;
};

TEST_F(HostProgram, ShowsTheMergedMenusAndConnectSwapsTheCommandStates) {
    HWND frame = Start();
    ASSERT_TRUE(frame);
    EXPECT_TRUE(::IsWindowVisible(frame));
    MenuLine bar = ParseReport(ReadWhole(menus_));
    ASSERT_EQ(Texts(bar),
              (std::vector<std::string>{"&File", "&Edit", "&View", "&Tools", "&Window", "&Help"}));
    const MenuLine& file = bar.children[0];
    EXPECT_EQ(Texts(file),
              (std::vector<std::string>{"&Connect", "&Disconnect", "-", "&Browse Host...", "-",
                                        "&Hide Window", "-", "E&xit"}));
    EXPECT_EQ(Texts(bar.children[1]),
              (std::vector<std::string>{"&Cut", "&Copy", "&Paste", "-", "&Select All"}));
    const MenuLine& view = bar.children[2];
    EXPECT_EQ(Texts(view),
              (std::vector<std::string>{"&Toolbars", "Tab &Panel", "-", "&Search", "&Download",
                                        "&Upload", "&Library", "&Theater", "&Console", "&Hosts"}));
    EXPECT_EQ(Texts(view.children[0]),
              (std::vector<std::string>{"&Lock the Toolbars", "Customise..."}));
    EXPECT_EQ(Texts(bar.children[3]),
              (std::vector<std::string>{"&Browser Options...", "&Corvid Options..."}));
    EXPECT_FALSE(file.children[0].greyed);
    EXPECT_TRUE(file.children[1].greyed);
    EXPECT_TRUE(Find(view, "&Search")->checked);
    EXPECT_FALSE(Find(view, "&Hosts")->checked);

    ::PostMessageA(frame, WM_COMMAND, MAKEWPARAM(file.children[0].id, 0), 0);
    ASSERT_TRUE(corvid::testing::PumpUntil(
        [&] {
            const MenuLine now = ParseReport(ReadWhole(menus_));
            return !now.children.empty() && now.children[0].children.size() > 1 &&
                   now.children[0].children[0].greyed && !now.children[0].children[1].greyed;
        },
        10000));

    // Choosing a panel in the menu checks it there.
    ::PostMessageA(frame, WM_COMMAND, MAKEWPARAM(Find(view, "&Hosts")->id, 0), 0);
    ASSERT_TRUE(corvid::testing::PumpUntil(
        [&] {
            const MenuLine now = ParseReport(ReadWhole(menus_));
            return now.children.size() > 2 && Find(now.children[2], "&Hosts") &&
                   Find(now.children[2], "&Hosts")->checked &&
                   !Find(now.children[2], "&Search")->checked;
        },
        10000));
    ::PostMessageA(frame, WM_COMMAND, MAKEWPARAM(Find(view, "&Search")->id, 0), 0);

    // The whole window as it stands now, painted through before the picture is taken.
    ::RedrawWindow(frame, nullptr, nullptr,
                   RDW_INVALIDATE | RDW_ERASE | RDW_UPDATENOW | RDW_ALLCHILDREN);
    corvid::testing::SaveScreenshot("corvid-host");
}

TEST_F(HostProgram, TheSettingsDialogStoresPerUserAndTheMenusFollow) {
    HWND frame = Start();
    ASSERT_TRUE(frame);
    MenuLine bar = ParseReport(ReadWhole(menus_));
    ASSERT_GE(bar.children.size(), 4u);
    const MenuLine* tabPanel = Find(bar.children[2], "Tab &Panel");
    const MenuLine* options = Find(bar.children[3], "&Browser Options...");
    ASSERT_TRUE(tabPanel && options);
    EXPECT_TRUE(tabPanel->checked);

    ::PostMessageA(frame, WM_COMMAND, MAKEWPARAM(options->id, 0), 0);
    HWND dialog = nullptr;
    ASSERT_TRUE(corvid::testing::PumpUntil(
        [&] {
            // The dialog lives in the host's process: its window exists before its controls and
            // their WM_INITDIALOG values, and a modal dialog is shown only once both are done.
            dialog = ::FindWindowA("#32770", "Browser Options");
            return dialog && ::IsWindowVisible(dialog);
        },
        10000));
    HWND visible = ::GetDlgItem(dialog, 203);
    ASSERT_TRUE(visible);
    EXPECT_EQ(::SendMessageA(visible, BM_GETCHECK, 0, 0), BST_CHECKED);
    ::SendMessageA(visible, BM_SETCHECK, BST_UNCHECKED, 0);
    ::PostMessageA(dialog, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
    ASSERT_TRUE(corvid::testing::PumpUntil(
        [&] {
            const MenuLine now = ParseReport(ReadWhole(menus_));
            const MenuLine* line =
                now.children.size() > 2 ? Find(now.children[2], "Tab &Panel") : nullptr;
            return line && !line->checked;
        },
        10000));
    DWORD value = 1;
    DWORD size = sizeof value;
    EXPECT_EQ(::RegGetValueA(HKEY_CURRENT_USER, "Software\\Tarvo Explorer\\Settings", "Tab Visible",
                             RRF_RT_REG_DWORD, nullptr, &value, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(value, 0u);
    ::RegDeleteTreeA(HKEY_CURRENT_USER, "Software\\Tarvo Explorer\\Settings");
    ::RegDeleteTreeA(HKEY_CURRENT_USER, "Software\\Tarvo Explorer\\P2P View");
}

} // namespace
