// The search side's dialogs, created modeless and driven by messages: the browse-host dialog with
// its history file, the file-exists dialog and the properties dialog.

#include "search/win/search_dialogs.h"

#include "markup/language_table.h"
#include "search/win/search_resources.h"
#include "tests/wine/support/wine_test_support.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace corvid::testing {
namespace {

using search::BrowseHostDialog;

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary);
    out << content;
}

std::string ComboText(HWND dialog, int index) {
    HWND combo = ::GetDlgItem(dialog, IDC_BROWSE_HISTORY);
    char text[300] = {};
    ::SendMessageA(combo, CB_GETLBTEXT, static_cast<WPARAM>(index), reinterpret_cast<LPARAM>(text));
    return text;
}

int ComboCount(HWND dialog) {
    return static_cast<int>(::SendDlgItemMessageA(dialog, IDC_BROWSE_HISTORY, CB_GETCOUNT, 0, 0));
}

class BrowseDialogTest : public ::testing::Test {
protected:
    void SetUp() override {
        char temp[MAX_PATH] = {};
        ::GetTempPathA(MAX_PATH, temp);
        path = std::string(temp) + "corvid_bhistory_test.txt";
        ::DeleteFileA(path.c_str());
    }
    void TearDown() override {
        if (dialog && ::IsWindow(dialog)) {
            ::DestroyWindow(dialog);
        }
        ::DeleteFileA(path.c_str());
    }

    HWND Open(BrowseHostDialog& state) {
        dialog = state.CreateModeless(nullptr);
        return dialog;
    }
    void Choose(int index) {
        ::SendDlgItemMessageA(dialog, IDC_BROWSE_HISTORY, CB_SETCURSEL, index, 0);
        ::SendMessageA(dialog, WM_COMMAND, MAKEWPARAM(IDC_BROWSE_HISTORY, CBN_SELCHANGE),
                       reinterpret_cast<LPARAM>(::GetDlgItem(dialog, IDC_BROWSE_HISTORY)));
    }
    void Press(int id) {
        ::SendMessageA(dialog, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED),
                       reinterpret_cast<LPARAM>(::GetDlgItem(dialog, id)));
    }
    DWORD Address() const {
        DWORD address = 0;
        ::SendDlgItemMessageA(dialog, IDC_BROWSE_ADDRESS, IPM_GETADDRESS, 0,
                              reinterpret_cast<LPARAM>(&address));
        return address;
    }
    search::MessagePrompt Recorder(int answer) {
        return [this, answer](HWND, const std::string& text, UINT type) {
            prompts.emplace_back(text, type);
            return answer;
        };
    }

    LanguageTable language;
    std::string path;
    HWND dialog = nullptr;
    std::vector<std::pair<std::string, UINT>> prompts;
};

TEST_F(BrowseDialogTest, HistoryLoadsWithoutBlanksAndChosenLinesFillTheFields) {
    WriteFile(path, "1.2.3.4:6346\n\n  5.6.7.8:80 \r\n\r\n10.20.x.4:99\r\n");
    BrowseHostDialog state(language, path, Recorder(IDOK));
    ASSERT_TRUE(Open(state));
    ASSERT_EQ(ComboCount(dialog), 3);
    EXPECT_EQ(ComboText(dialog, 0), "1.2.3.4:6346");
    EXPECT_EQ(ComboText(dialog, 1), "5.6.7.8:80");

    Choose(1);
    EXPECT_EQ(Address(), 0x05060708u);
    EXPECT_EQ(WindowText(::GetDlgItem(dialog, IDC_BROWSE_PORT)), "80");

    // A malformed line gives what could be read, and the port field keeps its number.
    Choose(2);
    EXPECT_EQ(Address(), 0x0A140000u);
    EXPECT_EQ(WindowText(::GetDlgItem(dialog, IDC_BROWSE_PORT)), "80");
    EXPECT_FALSE(state.ended());
}

TEST_F(BrowseDialogTest, OkKeepsTheDialogOpenUntilPortAndAddressAreGiven) {
    BrowseHostDialog state(language, path, Recorder(IDOK));
    ASSERT_TRUE(Open(state));
    EXPECT_EQ(ComboCount(dialog), 0); // no file yet

    ::SetDlgItemTextA(dialog, IDC_BROWSE_PORT, "abc");
    Press(IDOK);
    EXPECT_FALSE(state.ended());
    EXPECT_TRUE(prompts.empty());

    ::SetDlgItemTextA(dialog, IDC_BROWSE_PORT, "70000");
    Press(IDOK);
    EXPECT_FALSE(state.ended());

    ::SetDlgItemTextA(dialog, IDC_BROWSE_PORT, "6346");
    Press(IDOK);
    EXPECT_FALSE(state.ended());
    ASSERT_EQ(prompts.size(), 1u);
    EXPECT_EQ(prompts[0].first, "Please input the IP address");

    ::SendDlgItemMessageA(dialog, IDC_BROWSE_ADDRESS, IPM_SETADDRESS, 0,
                          MAKEIPADDRESS(127, 0, 0, 1));
    Press(IDOK);
    ASSERT_TRUE(state.ended());
    EXPECT_EQ(state.result(), IDOK);
    EXPECT_EQ(state.Entry(), "127.0.0.1:6346");
    EXPECT_EQ(state.Url(), "http://127.0.0.1:6346");
    EXPECT_EQ(ReadFile(path), "127.0.0.1:6346\r\n");
    EXPECT_FALSE(::IsWindow(dialog));
}

TEST_F(BrowseDialogTest, KnownAddressesStayWhereTheyAreAndEveryLineEndsWithCrLf) {
    WriteFile(path, "1.2.3.4:6346\n5.6.7.8:80\n");
    {
        BrowseHostDialog state(language, path, Recorder(IDOK));
        ASSERT_TRUE(Open(state));
        Choose(1);
        Press(IDOK);
        ASSERT_TRUE(state.ended());
        EXPECT_EQ(state.Url(), "http://5.6.7.8:80");
        EXPECT_EQ(ReadFile(path), "1.2.3.4:6346\r\n5.6.7.8:80\r\n");
    }
    BrowseHostDialog state(language, path, Recorder(IDOK));
    ASSERT_TRUE(Open(state));
    ::SendDlgItemMessageA(dialog, IDC_BROWSE_ADDRESS, IPM_SETADDRESS, 0, MAKEIPADDRESS(9, 9, 9, 9));
    ::SetDlgItemTextA(dialog, IDC_BROWSE_PORT, "9");
    Press(IDOK);
    EXPECT_EQ(ReadFile(path), "9.9.9.9:9\r\n1.2.3.4:6346\r\n5.6.7.8:80\r\n");
}

TEST_F(BrowseDialogTest, ClearHistoryAsksFirst) {
    WriteFile(path, "1.2.3.4:6346\r\n");
    {
        BrowseHostDialog state(language, path, Recorder(IDNO));
        ASSERT_TRUE(Open(state));
        Press(IDC_BROWSE_CLEAR_HISTORY);
        ASSERT_EQ(prompts.size(), 1u);
        EXPECT_EQ(prompts[0].first, "Clear?");
        EXPECT_EQ(prompts[0].second, static_cast<UINT>(MB_YESNO | MB_ICONQUESTION | MB_DEFBUTTON2));
        EXPECT_EQ(ComboCount(dialog), 1);
        EXPECT_EQ(ReadFile(path), "1.2.3.4:6346\r\n");
        Press(IDCANCEL);
        EXPECT_EQ(state.result(), IDCANCEL);
    }
    BrowseHostDialog state(language, path, Recorder(IDYES));
    ASSERT_TRUE(Open(state));
    Press(IDC_BROWSE_CLEAR_HISTORY);
    EXPECT_EQ(ComboCount(dialog), 0);
    EXPECT_EQ(::GetFileAttributesA(path.c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(SearchDialogsTest, TheHistoryLivesUnderTarvoP2PInTheTempFolder) {
    const std::string path = search::BrowseHistoryPath();
    char temp[MAX_PATH] = {};
    ::GetTempPathA(MAX_PATH, temp);
    EXPECT_EQ(path, std::string(temp) + "Tarvo\\P2P\\BHistory.txt");
    const std::string folder = path.substr(0, path.rfind('\\'));
    EXPECT_NE(::GetFileAttributesA(folder.c_str()) & FILE_ATTRIBUTE_DIRECTORY, 0u);
}

TEST(SearchDialogsTest, FileExistsAndPropertiesShowWhatTheyAreGiven) {
    LanguageTable language;
    search::FileExistsDialog exists(language, "C:\\Shared\\night train.mp3");
    HWND dialog = exists.CreateModeless(nullptr);
    ASSERT_TRUE(dialog);
    EXPECT_EQ(WindowText(dialog), "Tarvo Explorer");
    EXPECT_EQ(WindowText(::GetDlgItem(dialog, IDC_FILE_EXISTS_TEXT)),
              "File already exists on your hard disk:");
    EXPECT_EQ(WindowText(::GetDlgItem(dialog, IDC_FILE_EXISTS_PATH)),
              "C:\\Shared\\night train.mp3");
    ::SendMessageA(dialog, WM_COMMAND, IDOK, 0);
    EXPECT_TRUE(exists.ended());
    EXPECT_FALSE(::IsWindow(dialog));

    ResultGroup group;
    group.sha1 = "S1";
    ResultSource source;
    source.name = "night train.mp3";
    source.host = "10.0.0.2";
    source.port = 7001;
    source.size = 1234567;
    source.push = 1;
    group.sources.push_back(source);
    search::PropertiesDialog properties(language, group, -1);
    dialog = properties.CreateModeless(nullptr);
    ASSERT_TRUE(dialog);
    EXPECT_EQ(WindowText(dialog), "Properties");
    HWND list = ::GetDlgItem(dialog, IDC_PROPERTIES_LIST);
    ASSERT_EQ(ListView_GetItemCount(list), 15);
    EXPECT_EQ(ListViewText(list, 0, 0), "Name");
    EXPECT_EQ(ListViewText(list, 0, 1), "night train.mp3");
    EXPECT_EQ(ListViewText(list, 1, 1), "1,234,567");
    EXPECT_EQ(ListViewText(list, 14, 0), "Push");
    EXPECT_EQ(ListViewText(list, 14, 1), "Yes");
    ::ShowWindow(dialog, SW_SHOW);
    PumpPending();
    SaveScreenshot("search_properties");
    ::SendMessageA(dialog, WM_COMMAND, IDCANCEL, 0);
    EXPECT_TRUE(properties.ended());
}

TEST(SearchDialogsTest, BrowseDialogLooksRight) {
    LanguageTable language;
    char temp[MAX_PATH] = {};
    ::GetTempPathA(MAX_PATH, temp);
    const std::string path = std::string(temp) + "corvid_bhistory_look.txt";
    WriteFile(path, "192.168.1.20:6346\r\n10.0.0.7:6347\r\n");
    BrowseHostDialog state(language, path);
    HWND dialog = state.CreateModeless(nullptr);
    ASSERT_TRUE(dialog);
    ::SendDlgItemMessageA(dialog, IDC_BROWSE_HISTORY, CB_SETCURSEL, 0, 0);
    ::SendMessageA(dialog, WM_COMMAND, MAKEWPARAM(IDC_BROWSE_HISTORY, CBN_SELCHANGE), 0);
    ::ShowWindow(dialog, SW_SHOW);
    PumpPending();
    SaveScreenshot("search_browse_host");
    EXPECT_EQ(WindowText(dialog), "Input Host Address");
    ::DestroyWindow(dialog);
    ::DeleteFileA(path.c_str());
}

} // namespace
} // namespace corvid::testing
