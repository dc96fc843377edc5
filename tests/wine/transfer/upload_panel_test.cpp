// The upload page under Wine over an upload manager that answers like the engine's: the list
// rebuilt from its text, Stop and Stop All, and the Limit Speed button over the registry.

#include "platform/win/com_object.h"
#include "platform/win/text.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"
#include "tests/wine/transfer/transfer_test_support.h"
#include "transfer/win/transfer_settings.h"
#include "transfer/win/upload_panel.h"

#include "engine_h.h"

#include <commctrl.h>
#include <gtest/gtest.h>

namespace corvid::transfer::testing {
namespace {

using corvid::testing::FakePanelSite;
using corvid::win::ComPtr;
using win::UploadPanel;

class FakeUploads : public corvid::win::ComObject<FakeUploads, IUploadManager> {
public:
    HRESULT STDMETHODCALLTYPE GetUploadsText(BSTR* out) override {
        ++textCalls;
        *out = ::SysAllocString(corvid::win::ToWide(text).c_str());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetUploadCount(long* count) override {
        ++countCalls;
        *count = 2;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE StopUpload(long id) override {
        stopped.push_back(id);
        return failStop ? E_FAIL : S_OK;
    }
    std::string text;
    int textCalls = 0;
    int countCalls = 0;
    bool failStop = false;
    std::vector<long> stopped;
};

std::string Upload(int id, const char* file, int progress, const char* ip) {
    return "<UploadInfo id=\"" + std::to_string(id) + "\"><Progress>" + std::to_string(progress) +
           "</Progress><Speed>2048</Speed><Description>d</Description><FileName>" + file +
           "</FileName><FileSize>1048576</FileSize><IP>" + ip + "</IP><port>6346</port>" +
           "</UploadInfo>";
}

bool LimitChecked(HWND toolbar) {
    return ::SendMessageA(toolbar, TB_ISBUTTONCHECKED, win::kUploadLimitSpeed, 0) != 0;
}

class UploadPanelTest : public ::testing::Test {
protected:
    void SetUp() override {
        ::RegDeleteKeyValueA(HKEY_CURRENT_USER, win::kHttpServerKey, win::kMaxUploadSpeedValue);
        ::RegDeleteKeyValueA(HKEY_CURRENT_USER, win::kP2PViewKey, win::kUploadLimitValue);
        uploads->text = "<uploads>" + Upload(11, "first song.mp3", 40, "10.0.0.5") +
                        Upload(12, "second.avi", 75, "10.0.0.6") +
                        Upload(13, "third.txt", 5, "10.0.0.7") + "</uploads>";
        site.engine = engine.get();
    }
    void Open() {
        panel = std::make_unique<UploadPanel>(site);
        ASSERT_TRUE(site.Adopt(*panel));
    }
    void Command(int id) { ::SendMessageA(panel->Window(), WM_COMMAND, id, 0); }
    void Limit() { Command(win::kUploadLimitSpeed); }
    std::optional<std::uint32_t> MaxSpeed() {
        return win::ReadDword(win::kHttpServerKey, win::kMaxUploadSpeedValue);
    }

    FakePanelSite site{"Corvid upload page"};
    ComPtr<FakeUploads> uploads = FakeUploads::Make();
    ComPtr<FakeEngine> engine = FakeEngine::Make(uploads.get());
    std::unique_ptr<UploadPanel> panel;
};

TEST_F(UploadPanelTest, TheListFollowsTheEnginesTextAndStopsWhatIsChosen) {
    Open();
    panel->OnTick();
    corvid::testing::PumpPending();
    ASSERT_EQ(RowCount(panel->List()), 3);
    EXPECT_EQ(Cell(panel->List(), 0, "Name"), "first song.mp3");
    EXPECT_EQ(Cell(panel->List(), 1, "Host"), "10.0.0.6:6346");
    EXPECT_EQ(Cell(panel->List(), 1, "Progress"), "75%");
    EXPECT_EQ(Cell(panel->List(), 2, "Speed"), "2,048 B/s");
    EXPECT_EQ(Cell(panel->List(), 2, "Size"), "1,048,576");
    EXPECT_EQ(site.counters[shell::kPaneUploading], 3);
    EXPECT_EQ(corvid::testing::WindowText(panel->Counter()), "Uploading items count: 3");
    corvid::testing::SaveScreenshot("upload-page");

    // Stop with nothing chosen does nothing; with rows chosen it stops each, in order.
    Command(win::kUploadStop);
    EXPECT_TRUE(uploads->stopped.empty());
    SelectRow(panel->List(), 0);
    SelectRow(panel->List(), 2, false);
    Command(win::kUploadStop);
    EXPECT_EQ(uploads->stopped, (std::vector<long>{11, 13}));
    uploads->stopped.clear();
    Command(win::kUploadStopAll);
    EXPECT_EQ(uploads->stopped, (std::vector<long>{11, 12, 13}));

    // A failing stop ends the command there.
    uploads->stopped.clear();
    uploads->failStop = true;
    Command(win::kUploadStopAll);
    EXPECT_EQ(uploads->stopped, std::vector<long>{11});

    // View Host Info is accepted and changes nothing.
    Command(win::kUploadViewHostInfo);

    // A text without uploads empties the list.
    uploads->text = "<uploads></uploads>";
    panel->OnTick();
    EXPECT_EQ(RowCount(panel->List()), 0);
    EXPECT_EQ(site.counters[shell::kPaneUploading], 0);
}

TEST_F(UploadPanelTest, AHiddenListOnlyCountsAndNoEngineMeansNothing) {
    Open();
    ::ShowWindow(panel->Window(), SW_HIDE);
    uploads->textCalls = uploads->countCalls = 0;
    panel->OnTick();
    EXPECT_EQ(uploads->textCalls, 0);
    EXPECT_EQ(uploads->countCalls, 1);
    EXPECT_EQ(site.counters[shell::kPaneUploading], 2);

    panel->OnEngine(nullptr);
    ::ShowWindow(panel->Window(), SW_SHOW);
    panel->OnTick();
    Command(win::kUploadStopAll);
    EXPECT_EQ(uploads->textCalls, 0);
    EXPECT_TRUE(uploads->stopped.empty());
}

TEST_F(UploadPanelTest, LimitSpeedTogglesTheLimitInForce) {
    // Nothing stored: on with 30720, then off with 0.
    Open();
    EXPECT_FALSE(LimitChecked(panel->Toolbar()));
    Limit();
    EXPECT_TRUE(LimitChecked(panel->Toolbar()));
    EXPECT_EQ(MaxSpeed(), 30720u);
    Limit();
    EXPECT_FALSE(LimitChecked(panel->Toolbar()));
    EXPECT_EQ(MaxSpeed(), 0u);

    // The user's own limit is the one applied.
    win::WriteDword(win::kP2PViewKey, win::kUploadLimitValue, 4096);
    Limit();
    EXPECT_EQ(MaxSpeed(), 4096u);

    // A new page shows the limit in force.
    panel.reset();
    Open();
    EXPECT_TRUE(LimitChecked(panel->Toolbar()));

    // An "UploadLimit" of 0 writes 0 and checks the button; the next press turns it on again.
    win::WriteDword(win::kP2PViewKey, win::kUploadLimitValue, 0);
    Limit();
    EXPECT_FALSE(LimitChecked(panel->Toolbar()));
    EXPECT_EQ(MaxSpeed(), 0u);
    Limit();
    EXPECT_TRUE(LimitChecked(panel->Toolbar()));
    EXPECT_EQ(MaxSpeed(), 0u);
    Limit();
    EXPECT_TRUE(LimitChecked(panel->Toolbar()));
    EXPECT_EQ(MaxSpeed(), 0u);
}

} // namespace
} // namespace corvid::transfer::testing
