#include "search/browse_history.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <unistd.h>

namespace corvid {
namespace {

using Entries = std::vector<std::string>;

TEST(BrowseHistoryTest, LinesOfAnyEndingLoadWithoutBlanks) {
    EXPECT_EQ(ParseBrowseHistory("1.2.3.4:6346\r\n\r\n  \t\n5.6.7.8:80\n\n9.9.9.9:1"),
              (Entries{"1.2.3.4:6346", "5.6.7.8:80", "9.9.9.9:1"}));
    EXPECT_EQ(ParseBrowseHistory("  1.2.3.4:6346 \r\r\n"), Entries{"1.2.3.4:6346"});
    EXPECT_TRUE(ParseBrowseHistory("").empty());
    // A line longer than a reader's piece becomes several entries.
    const Entries split = ParseBrowseHistory(std::string(300, 'x') + "\r\n");
    ASSERT_EQ(split.size(), 2u);
    EXPECT_EQ(split[0].size(), 255u);
    EXPECT_EQ(split[1].size(), 45u);
}

TEST(BrowseHistoryTest, WrittenBackEveryLineEndsWithCrLf) {
    EXPECT_EQ(FormatBrowseHistory(ParseBrowseHistory("1.2.3.4:6346\n\n5.6.7.8:80")),
              "1.2.3.4:6346\r\n5.6.7.8:80\r\n");
    EXPECT_EQ(FormatBrowseHistory({}), "");
}

TEST(BrowseHistoryTest, NewEntriesGoOnTopAndKnownOnesStayWhereTheyAre) {
    Entries entries = {"1.1.1.1:1", "2.2.2.2:2"};
    EXPECT_TRUE(AddToBrowseHistory(entries, "3.3.3.3:3"));
    EXPECT_FALSE(AddToBrowseHistory(entries, "2.2.2.2:2"));
    EXPECT_EQ(entries, (Entries{"3.3.3.3:3", "1.1.1.1:1", "2.2.2.2:2"}));
    EXPECT_TRUE(AddToBrowseHistory(entries, "2.2.2.2:22")); // exact text only
}

TEST(BrowseHistoryTest, AHistoryLineReadsBackAsFarAsItFits) {
    HistoryAddress full = ParseHistoryAddress("192.168.1.20:6346");
    EXPECT_EQ(PackAddress(full.octets), 0xC0A80114u);
    EXPECT_EQ(full.port, 6346);

    HistoryAddress partial = ParseHistoryAddress("10.20.x.4:80");
    EXPECT_EQ(PackAddress(partial.octets), 0x0A140000u);
    EXPECT_FALSE(partial.port);

    HistoryAddress noPort = ParseHistoryAddress("1.2.3.4");
    EXPECT_EQ(PackAddress(noPort.octets), 0x01020304u);
    EXPECT_FALSE(noPort.port);

    HistoryAddress junk = ParseHistoryAddress("host.example:6346");
    EXPECT_EQ(PackAddress(junk.octets), 0u);
    EXPECT_FALSE(junk.port);

    // Numbers too big for an octet keep their low byte, huge ones saturate.
    HistoryAddress big = ParseHistoryAddress("300.1.1.1:99999999999");
    EXPECT_EQ(PackAddress(big.octets), 0x2C010101u);
    EXPECT_EQ(big.port, 2147483647);
    EXPECT_FALSE(IsValidPort(*big.port));
}

TEST(BrowseHistoryTest, TextsHandedOn) {
    EXPECT_EQ(HistoryEntry(0x7F000001u, 6346), "127.0.0.1:6346");
    EXPECT_EQ(BrowseUrl(0x0A000002u, 80), "http://10.0.0.2:80");
    EXPECT_EQ(BrowseTarget("http://10.0.0.2:80"), "10.0.0.2:80");
    EXPECT_EQ(BrowseTarget("10.0.0.2:6346"), "10.0.0.2:6346");
    EXPECT_EQ(BrowseTarget("http://10.0.0.2:0"), "");
    EXPECT_EQ(BrowseTarget("http://10.0.0.2"), "");
    EXPECT_EQ(BrowseTarget("http://:80"), "");
    EXPECT_EQ(BrowseTarget("http://a b:80"), "");
    EXPECT_EQ(BrowseTarget("http://10.0.0.2:123456"), "");
}

TEST(BrowseHistoryTest, FolderUnderTheTempPath) {
    EXPECT_EQ(BrowseHistoryFolder("C:\\Temp"), "C:\\Temp\\Tarvo\\P2P\\");
    EXPECT_EQ(BrowseHistoryFolder("C:\\Temp\\"), "C:\\Temp\\Tarvo\\P2P\\");
    EXPECT_EQ(BrowseHistoryFolders("C:\\Temp\\"),
              (Entries{"C:\\Temp\\Tarvo\\", "C:\\Temp\\Tarvo\\P2P\\"}));
}

TEST(BrowseHistoryTest, FileRoundTripAndMissingFile) {
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("corvid_bhistory_" + std::to_string(::getpid()));
    EXPECT_TRUE(LoadBrowseHistory(path.string()).empty());
    {
        std::ofstream out(path, std::ios::binary);
        out << "5.6.7.8:80\n\n 1.2.3.4:6346 \r\n";
    }
    Entries entries = LoadBrowseHistory(path.string());
    EXPECT_EQ(entries, (Entries{"5.6.7.8:80", "1.2.3.4:6346"}));
    AddToBrowseHistory(entries, "9.9.9.9:9");
    ASSERT_TRUE(SaveBrowseHistory(path.string(), entries));
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    EXPECT_EQ(content.str(), "9.9.9.9:9\r\n5.6.7.8:80\r\n1.2.3.4:6346\r\n");
    std::filesystem::remove(path);
    EXPECT_FALSE(SaveBrowseHistory((path / "no" / "such").string(), entries));
}

} // namespace
} // namespace corvid
