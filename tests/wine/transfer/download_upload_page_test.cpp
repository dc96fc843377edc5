// The "Download/Upload" options page (dialog 212) in a property sheet under Wine: what it shows,
// what it refuses, and what it writes.

#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"
#include "tests/wine/transfer/transfer_test_support.h"
#include "transfer/win/download_panel.h"
#include "transfer/win/download_upload_page.h"
#include "transfer/win/transfer_resources.h"
#include "transfer/win/transfer_settings.h"

#include <commctrl.h>
#include <gtest/gtest.h>

namespace corvid::transfer::testing {
namespace {

using corvid::testing::WindowText;

class DownloadUploadPageTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* value :
             {win::kDownloadFolderValue, win::kTempFolderValue, win::kUploadLimitValue})
            ::RegDeleteKeyValueA(HKEY_CURRENT_USER, win::kP2PViewKey, value);
        const OptionsSheet opened = OpenDownloadUploadPage(
            site, [this](const std::string& text) { reported.push_back(text); });
        sheet = opened.sheet;
        page = opened.page;
        ASSERT_TRUE(sheet);
        ASSERT_TRUE(page);
        corvid::testing::PumpPending();
    }
    void TearDown() override {
        if (sheet)
            ::DestroyWindow(sheet);
    }
    void Set(int id, const std::string& text) { ::SetDlgItemTextA(page, id, text.c_str()); }
    std::string Get(int id) { return WindowText(::GetDlgItem(page, id)); }
    bool Apply() { return ::SendMessageA(sheet, PSM_APPLY, 0, 0) != 0; }

    corvid::testing::FakePanelSite site{"Corvid options"};
    HWND sheet = nullptr;
    HWND page = nullptr;
    std::vector<std::string> reported;
};

TEST_F(DownloadUploadPageTest, ShowsTheDefaultsAndSavesWhatIsGood) {
    EXPECT_EQ(Get(IDC_DOWNLOAD_FOLDER), win::BaseFolder() + "\\download");
    EXPECT_EQ(Get(IDC_TEMP_FOLDER), win::BaseFolder() + "\\temp");
    EXPECT_EQ(Get(IDC_UPLOAD_LIMIT), "30720");
    corvid::testing::SaveScreenshot("download-upload-page");

    const auto downloads = FreshFolder("chosen-download");
    const auto temp = FreshFolder("chosen-temp");
    Set(IDC_DOWNLOAD_FOLDER, " " + downloads + " ");
    Set(IDC_TEMP_FOLDER, temp);
    Set(IDC_UPLOAD_LIMIT, "8192");
    ASSERT_TRUE(Apply());
    EXPECT_TRUE(reported.empty());
    EXPECT_EQ(win::ReadText(win::kP2PViewKey, win::kDownloadFolderValue), downloads);
    EXPECT_EQ(win::ReadDword(win::kP2PViewKey, win::kUploadLimitValue), 8192u);
    const auto options = win::DefaultDownloadPanelOptions();
    EXPECT_EQ(options.downloadFolder, downloads);
    EXPECT_EQ(options.tempFolder, temp);
}

TEST_F(DownloadUploadPageTest, FoldersThatCannotBeUsedAndOddSpeedsAreRefused) {
    const auto good = FreshFolder("good");
    const auto missing = good + "\\not-there";
    Set(IDC_DOWNLOAD_FOLDER, missing);
    Set(IDC_TEMP_FOLDER, good);
    EXPECT_FALSE(Apply());
    ASSERT_EQ(reported.size(), 1u);
    EXPECT_EQ(reported[0], "This folder does not exist:\n" + missing);

    // A file is not a folder either.
    const auto file = good + "\\file.txt";
    ::CloseHandle(
        ::CreateFileA(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    Set(IDC_DOWNLOAD_FOLDER, good);
    Set(IDC_TEMP_FOLDER, file);
    EXPECT_FALSE(Apply());
    EXPECT_EQ(reported.back(), "This folder does not exist:\n" + file);

    Set(IDC_TEMP_FOLDER, good);
    Set(IDC_UPLOAD_LIMIT, "12k");
    EXPECT_FALSE(Apply());
    EXPECT_EQ(reported.back(), "The upload speed must be a whole number of bytes per second.");
    EXPECT_EQ(::GetFocus(), ::GetDlgItem(page, IDC_UPLOAD_LIMIT));

    EXPECT_FALSE(win::ReadText(win::kP2PViewKey, win::kDownloadFolderValue));
    EXPECT_FALSE(win::ReadDword(win::kP2PViewKey, win::kUploadLimitValue));
}

// A folder typed without its root is shown and kept as the full path it means now; one written
// into the registry by hand without a root gives way to the default.
TEST_F(DownloadUploadPageTest, FoldersWithoutTheirRootAreMadeFullOrLeftOut) {
    const auto parent = FreshFolder("relative-parent");
    ::CreateDirectoryA((parent + "\\inner").c_str(), nullptr);
    ASSERT_TRUE(::SetCurrentDirectoryA(parent.c_str()));
    Set(IDC_DOWNLOAD_FOLDER, "inner");
    Set(IDC_TEMP_FOLDER, parent);
    ASSERT_TRUE(Apply());
    EXPECT_EQ(Get(IDC_DOWNLOAD_FOLDER), parent + "\\inner");
    EXPECT_EQ(win::ReadText(win::kP2PViewKey, win::kDownloadFolderValue), parent + "\\inner");

    ASSERT_TRUE(win::WriteText(win::kP2PViewKey, win::kDownloadFolderValue, "inner"));
    ASSERT_TRUE(win::WriteText(win::kP2PViewKey, win::kTempFolderValue, "\\temp"));
    EXPECT_EQ(win::DownloadFolder(), win::BaseFolder() + "\\download");
    EXPECT_EQ(win::TempFolder(), win::BaseFolder() + "\\temp");
    for (const char* value : {win::kDownloadFolderValue, win::kTempFolderValue})
        ::RegDeleteKeyValueA(HKEY_CURRENT_USER, win::kP2PViewKey, value);
}

} // namespace
} // namespace corvid::transfer::testing
