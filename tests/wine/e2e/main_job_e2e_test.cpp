// Corvid's main job through the real host window: it connects by itself, a search typed into the
// host's search bar shows the big file grouped from its four sources, Download fetches it, and
// the hosts view and the library show the outcome. Every check reads what the user sees.

#include <windows.h>

#include "platform/win/handles.h"
#include "tests/wine/support/wine_test_support.h"
#include "tools/corvid_demo/main_job.h"
#include "transfer/win/transfer_settings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace corvid::demo {
namespace {

std::wstring ProgramFolder() {
    wchar_t path[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring folder(path, length < MAX_PATH ? length : 0);
    return folder.substr(0, folder.find_last_of(L"\\/"));
}

std::string FreshFolder() {
    char base[MAX_PATH] = {};
    ::GetTempPathA(MAX_PATH, base);
    const std::string folder =
        std::string(base) + "corvid-e2e-" + std::to_string(::GetCurrentProcessId());
    ::CreateDirectoryA(folder.c_str(), nullptr);
    return folder;
}

class MainJobEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        const char* file = std::getenv("CORVID_E2E_NETWORK");
        ASSERT_TRUE(file && *file) << "CORVID_E2E_NETWORK names no network.env";
        std::ifstream in(file, std::ios::binary);
        ASSERT_TRUE(in) << "no network.env at " << file;
        std::stringstream text;
        text << in.rdbuf();
        std::string error;
        const auto facts = ReadNetworkFacts(text.str(), error);
        ASSERT_TRUE(facts) << error;
        options_.network = *facts;
        options_.hostFolder = ProgramFolder();
        options_.downloadFolder = FreshFolder();
        options_.stepTimeoutMs = 60000;
        options_.screenshot = [](const std::string& name) {
            corvid::testing::SaveScreenshot("e2e-" + name);
        };
    }

    // Leaves the prefix as other tests expect it: no AutoOnline, no kept download list.
    void TearDown() override {
        win::RegKey key;
        if (::RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\Tarvo Explorer\\P2P View", 0,
                            KEY_SET_VALUE, key.put()) == ERROR_SUCCESS) {
            ::RegDeleteValueA(key.get(), "AutoOnline");
            ::RegDeleteValueA(key.get(), "Download Folder");
        }
        ::DeleteFileA(transfer::win::DownloadListFile().c_str());
    }

    win::ComApartment apartment_;
    MainJobOptions options_;
};

TEST_F(MainJobEndToEnd, SearchDownloadFromFourSourcesAndTheFileInTheLibrary) {
    ASSERT_TRUE(SUCCEEDED(apartment_.result()));
    MainJob job(options_);
    ASSERT_TRUE(job.Open()) << job.Error();
    ASSERT_TRUE(job.WaitOnline()) << job.Error();

    ASSERT_TRUE(job.Search()) << job.Error();
    // One group for the file, its four offers folded into it.
    EXPECT_EQ(job.ResultRow().Cell("Host"), "multiple(4)");
    EXPECT_EQ(job.ResultRow().Cell("Port"), "multiple(4)");
    EXPECT_EQ(job.ResultRow().Cell("SHA1"), options_.network.bigFileSha1);

    ASSERT_TRUE(job.Download()) << job.Error();
    EXPECT_EQ(job.DownloadRow().Cell("Host"), "multiple(4)");
    ASSERT_TRUE(job.WaitComplete()) << job.Error();
    EXPECT_EQ(job.DownloadRow().Cell("Progress"), "100%");
    EXPECT_EQ(job.DownloadRow().Cell("SHA1"), options_.network.bigFileSha1);

    ASSERT_TRUE(job.CheckFile()) << job.Error();
    EXPECT_EQ(job.DownloadedSha1(), options_.network.bigFileSha1);

    ASSERT_TRUE(job.ShowHosts()) << job.Error();
    EXPECT_GE(job.HostRows(), 2);

    ASSERT_TRUE(job.ShowLibrary()) << job.Error();
    EXPECT_EQ(job.LibraryRow().Cell("SHA1"), options_.network.bigFileSha1);
    EXPECT_EQ(job.LibraryRow().Cell("Name"), options_.network.bigFileName);

    ASSERT_TRUE(job.ShowConsole()) << job.Error();
    EXPECT_NE(job.ConsoleLinkLine().find("(Ultrapeer, "), std::string::npos)
        << job.ConsoleLinkLine();

    job.Close();
    EXPECT_EQ(job.Frame(), nullptr);
}

TEST(NetworkFacts, ReadsWhatTheLoopbackScriptWritesAndRefusesTheRest) {
    std::string error;
    const std::string good = "# a comment\n"
                             "ULTRAPEERS='127.0.0.1:5001,127.0.0.1:5002'\r\n"
                             "LEAVES='127.0.0.2:1,127.0.0.3:2,127.0.0.4:3'\n"
                             "BIG_FILE_NAME='corvid demo big file.bin'\n"
                             "BIG_FILE_SHA1='UJH3ZDKCYRWCWDVCAHGYY3XKXRRE5AZL'\n"
                             "BIG_FILE_SIZE='8388608'\n";
    const auto facts = ReadNetworkFacts(good, error);
    ASSERT_TRUE(facts) << error;
    EXPECT_EQ(facts->ultrapeers, "127.0.0.1:5001,127.0.0.1:5002");
    EXPECT_EQ(facts->leaves, 3);
    EXPECT_EQ(facts->bigFileName, "corvid demo big file.bin");
    EXPECT_EQ(facts->bigFileSize, 8388608u);

    auto without = [&](const std::string& from, const std::string& to) {
        std::string text = good;
        text.replace(text.find(from), from.size(), to);
        return ReadNetworkFacts(text, error);
    };
    EXPECT_FALSE(without("ULTRAPEERS", "X"));
    EXPECT_FALSE(without("'corvid demo big file.bin'", "'..\\evil.bin'"));
    EXPECT_FALSE(without("'UJH3ZDKCYRWCWDVCAHGYY3XKXRRE5AZL'", "'UJH3'"));
    EXPECT_FALSE(without("'8388608'", "'8388608x'"));
    EXPECT_FALSE(without("'8388608'", "'0'"));
    EXPECT_FALSE(without("'8388608'", "8388608"));
}

} // namespace
} // namespace corvid::demo
