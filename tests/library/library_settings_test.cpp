#include "library/library_settings.h"

#include <gtest/gtest.h>

namespace corvid::library {
namespace {

TEST(LibrarySettings, RoundTripsFoldersFilesAndOptions) {
    LibrarySettings settings;
    settings.folders = {"C:\\Music", "D:\\M\xC3\xBCsik"};
    settings.files = {"C:\\Downloads\\a.mp3"};
    settings.cpuPercent = 25;
    settings.shareDownloads = false;
    const LibrarySettings back = ParseLibrarySettings(SerializeLibrarySettings(settings));
    EXPECT_EQ(back.folders, settings.folders);
    EXPECT_EQ(back.files, settings.files);
    EXPECT_EQ(back.cpuPercent, 25);
    EXPECT_FALSE(back.shareDownloads);
}

TEST(LibrarySettings, SkipsWhatDoesNotParseAndBoundsTheCpuShare) {
    const LibrarySettings settings = ParseLibrarySettings(
        "folder=\nfolder=C:\\A\nfolder=C:\\A\njunk\ncpu=12x\nshare_downloads=\n"
        "colour=blue\nfile=C:\\b.txt\r\n");
    EXPECT_EQ(settings.folders, std::vector<std::string>{"C:\\A"});
    EXPECT_EQ(settings.files, std::vector<std::string>{"C:\\b.txt"});
    EXPECT_EQ(settings.cpuPercent, 50);
    EXPECT_TRUE(settings.shareDownloads);
    EXPECT_EQ(ParseLibrarySettings("cpu=1000").cpuPercent, 100);
    EXPECT_EQ(ParseLibrarySettings("cpu=-5").cpuPercent, 1);
    EXPECT_TRUE(ParseLibrarySettings("").folders.empty());
}

} // namespace
} // namespace corvid::library
