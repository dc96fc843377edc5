#include "library/library_view.h"

#include <gtest/gtest.h>

namespace corvid::library {
namespace {

TEST(LibraryText, ReadsFilesAndTheirHashingState) {
    const auto rows = ReadLibraryText(
        "<library><file><name>a.mp3</name><path>C:\\s\\a.mp3</path><size>5000000000</size>"
        "<sha1>ABC</sha1><progress>100</progress><download>0</download></file>"
        "<file><name></name><path>x</path></file>"
        "<file><name>b.avi</name><size>big</size><progress>250</progress><download>1</download>"
        "</file><file><name>c");
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].name, "a.mp3");
    EXPECT_EQ(rows[0].path, "C:\\s\\a.mp3");
    EXPECT_EQ(rows[0].size, 5000000000u);
    EXPECT_EQ(rows[0].sha1, "ABC");
    EXPECT_EQ(rows[0].progress, 100);
    EXPECT_FALSE(rows[0].download);
    EXPECT_EQ(rows[1].size, 0u);
    EXPECT_EQ(rows[1].progress, 100);
    EXPECT_TRUE(rows[1].download);
}

TEST(LibraryText, FoldersAreLines) {
    EXPECT_EQ(ReadFolderList("C:\\a\r\n\r\nD:\\b c\r\nE:\\last"),
              (std::vector<std::string>{"C:\\a", "D:\\b c", "E:\\last"}));
    EXPECT_TRUE(ReadFolderList("").empty());
}

TEST(LibraryText, SizesHaveThousandsSeparators) {
    EXPECT_EQ(SizeText(0), "0");
    EXPECT_EQ(SizeText(999), "999");
    EXPECT_EQ(SizeText(4518273), "4,518,273");
}

TEST(RefreshPacer, ACheapRefreshMayFollowAtOnceACostlyOneWaitsNineTimesItsCost) {
    using namespace std::chrono_literals;
    RefreshPacer pacer;
    const RefreshPacer::Clock::time_point start{1h};
    EXPECT_EQ(pacer.Wait(start), 0ms) << "the first refresh runs at once";
    pacer.Ran(start, start + 1ms);
    EXPECT_EQ(pacer.Wait(start + 10ms), 0ms);

    pacer.Ran(start + 10ms, start + 410ms);
    EXPECT_EQ(pacer.Wait(start + 410ms), 3600ms);
    EXPECT_EQ(pacer.Wait(start + 4000ms), 10ms);
    EXPECT_EQ(pacer.Wait(start + 4010ms), 0ms);

    // A clock that went back does not stall the panel.
    pacer.Ran(start + 5s, start + 4s);
    EXPECT_EQ(pacer.Wait(start + 4s), 0ms);
}

} // namespace
} // namespace corvid::library
