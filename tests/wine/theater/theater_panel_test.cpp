#include "theater/win/theater_panel.h"

#include "platform/win/handles.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"

#include <gtest/gtest.h>
#include <objbase.h>

#include <cstdio>
#include <string>
#include <vector>

namespace corvid::testing {
namespace {

// A machine with neither player control.
class TheaterWithoutPlayerTest : public ::testing::Test {
protected:
    void SetUp() override {
        panel = theater::MakeTheaterPanel(site, {L"Corvid.NoSuchPlayer"});
        ASSERT_TRUE(site.Adopt(*panel));
    }

    FakePanelSite site{"Theater"};
    std::unique_ptr<shell::Panel> panel;
};

TEST_F(TheaterWithoutPlayerTest, SaysPlainlyThatNoPlayerIsThere) {
    HWND message = theater::TheaterMessageOf(panel->Window());
    ASSERT_NE(message, nullptr);
    EXPECT_TRUE(::IsWindowVisible(message));
    EXPECT_NE(WindowText(message).find("No media player is installed"), std::string::npos);
}

TEST_F(TheaterWithoutPlayerTest, AcceptsNothingAndRunFallsBackToOpen) {
    theater::MediaPlayer* player = theater::FindMediaPlayer();
    ASSERT_NE(player, nullptr);
    EXPECT_FALSE(player->Accepts("C:\\Downloads\\night train.mp3"));
    EXPECT_FALSE(player->Play("C:\\Downloads\\night train.mp3"));

    std::vector<std::string> opened;
    auto open = [&](HWND, const std::string& path) {
        opened.push_back(path);
        return true;
    };
    EXPECT_TRUE(theater::RunMediaFile(site.MainWindow(), "C:\\Downloads\\holiday.avi", open));
    EXPECT_EQ(opened, std::vector<std::string>{"C:\\Downloads\\holiday.avi"});
    EXPECT_TRUE(site.shownPanels.empty());
}

TEST_F(TheaterWithoutPlayerTest, ThePlayerGoesWithThePanel) {
    EXPECT_NE(theater::FindMediaPlayer(), nullptr);
    panel.reset();
    EXPECT_EQ(theater::FindMediaPlayer(), nullptr);
    bool opened = false;
    theater::RunMediaFile(site.MainWindow(), "C:\\a.mp3", [&](HWND, const std::string&) {
        opened = true;
        return true;
    });
    EXPECT_TRUE(opened);
}

TEST_F(TheaterWithoutPlayerTest, Screenshot) {
    PumpPending();
    SaveScreenshot("theater_without_player");
}

// A second of silence as a WAV file.
std::string WriteSilence() {
    char folder[MAX_PATH] = {};
    ::GetTempPathA(sizeof folder, folder);
    const std::string path = std::string(folder) + "corvid-silence.wav";
    const DWORD rate = 8000;
    std::vector<char> samples(rate, static_cast<char>(0x80));
    std::string header = "RIFF";
    auto word = [&](DWORD value, int bytes) {
        for (int i = 0; i < bytes; ++i) {
            header += static_cast<char>((value >> (8 * i)) & 0xFF);
        }
    };
    word(36 + rate, 4);
    header += "WAVEfmt ";
    word(16, 4);
    word(1, 2);    // PCM
    word(1, 2);    // mono
    word(rate, 4); // samples per second
    word(rate, 4); // bytes per second
    word(1, 2);    // block align
    word(8, 2);    // bits per sample
    header += "data";
    word(rate, 4);
    if (FILE* out = std::fopen(path.c_str(), "wb")) {
        std::fwrite(header.data(), 1, header.size(), out);
        std::fwrite(samples.data(), 1, samples.size(), out);
        std::fclose(out);
    }
    return path;
}

// The installed player control, where there is one (Wine brings its own "WMPlayer.OCX").
TEST(TheaterWithPlayer, HostsTheControlAndPlaysWhatItAccepts) {
    CLSID player;
    if (FAILED(::CLSIDFromProgID(L"WMPlayer.OCX", &player)) &&
        FAILED(::CLSIDFromProgID(L"rmocx.RealPlayer G2 Control", &player))) {
        GTEST_SKIP() << "no player control on this machine";
    }
    win::ComApartment apartment;
    FakePanelSite site{"Theater"};
    auto panel = theater::MakeTheaterPanel(site);
    ASSERT_TRUE(site.Adopt(*panel));
    theater::MediaPlayer* playerOfPanel = theater::FindMediaPlayer();
    ASSERT_NE(playerOfPanel, nullptr);
    EXPECT_NE(WindowText(theater::TheaterMessageOf(panel->Window())).find("Ready"),
              std::string::npos);
    EXPECT_TRUE(playerOfPanel->Accepts("C:\\Downloads\\night train.mp3"));
    EXPECT_FALSE(playerOfPanel->Accepts("C:\\Downloads\\photo.jpg"));

    std::vector<std::string> opened;
    auto open = [&](HWND, const std::string& path) {
        opened.push_back(path);
        return true;
    };
    EXPECT_TRUE(theater::RunMediaFile(site.MainWindow(), "C:\\Downloads\\photo.jpg", open));
    EXPECT_EQ(opened.size(), 1u);

    const std::string silence = WriteSilence();
    EXPECT_TRUE(theater::RunMediaFile(site.MainWindow(), silence, open));
    EXPECT_EQ(opened.size(), 1u);
    EXPECT_EQ(site.shownPanels, std::vector<int>{shell::kCmdTheater});
    EXPECT_FALSE(::IsWindowVisible(theater::TheaterMessageOf(panel->Window())));
    PumpPending();
    SaveScreenshot("theater");
    panel.reset();
    ::DeleteFileA(silence.c_str());
}

} // namespace
} // namespace corvid::testing
