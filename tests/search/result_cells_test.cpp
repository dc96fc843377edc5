#include "search/media_class.h"
#include "search/result_cells.h"
#include "search/search_result_reader.h"
#include "tests/search/result_text.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>

namespace corvid {
namespace {

using testing::HostEntry;
using testing::ResultText;

TEST(ResultCellsTest, SizeHasThousandsSeparators) {
    EXPECT_EQ(FormatSize(0), "0");
    EXPECT_EQ(FormatSize(999), "999");
    EXPECT_EQ(FormatSize(1000), "1,000");
    EXPECT_EQ(FormatSize(1234567), "1,234,567");
    EXPECT_EQ(FormatSize(INT_MAX), "2,147,483,647");
    EXPECT_EQ(FormatSize(-1024), "-1,024");
    EXPECT_EQ(FormatSize(-999), "-999");
    EXPECT_EQ(FormatSize(INT64_MIN), "-9,223,372,036,854,775,808");
}

TEST(ResultCellsTest, MediaClassByLastExtension) {
    EXPECT_EQ(MediaClassOf("a.RMVB"), MediaClass::Video);
    EXPECT_EQ(MediaClassOf("a.mp4"), MediaClass::Audio);
    EXPECT_EQ(MediaClassOf("a.b.Tiff"), MediaClass::Image);
    EXPECT_EQ(MediaClassOf("a.tar.gz"), MediaClass::Package);
    EXPECT_EQ(MediaClassOf("setup.exe"), MediaClass::Application);
    EXPECT_EQ(MediaClassOf("a.mp"), MediaClass::Others); // a prefix of an extension is not one
    EXPECT_EQ(MediaClassOf("a."), MediaClass::Others);
    EXPECT_EQ(MediaClassOf("README"), MediaClass::Others);
    EXPECT_EQ(MediaClassOf(""), MediaClass::Others);
    EXPECT_EQ(MediaClassOf("x." + std::string(100000, 'a')), MediaClass::Others);
    // The key is looked for as a substring of each list, so a '|' inside a name can span two
    // extensions of one list.
    EXPECT_EQ(MediaClassOf("x.mpeg|.mpg"), MediaClass::Video);

    const MediaClassNames names;
    EXPECT_EQ(names.Name(MediaClass::Video), "Video");
    EXPECT_EQ(names.Name(MediaClass::Image), "Image");
    EXPECT_EQ(names.Name(MediaClass::Application), "Application");
    EXPECT_EQ(names.Name(static_cast<MediaClass>(42)), "Others");
}

class GroupCellsTest : public ::testing::Test {
protected:
    void SetUp() override {
        HostEntry first;
        first.ip = "1.1.1.1";
        first.port = "6346";
        first.speed = "100";
        first.vendorCode = "AAAA";
        first.nodeId = "N1";
        HostEntry second;
        second.ip = "2.2.2.2";
        second.port = "7000";
        second.speed = "200";
        second.vendorCode = "BBBB";
        second.nodeId = "N2";
        second.openData = "1d";
        ReadSearchResult(store, ResultText(first, {{"film.mpg", "1234567", "SHA", "5", "info1"}}));
        ReadSearchResult(store, ResultText(second, {{"film2.mpg", "7", "SHA", "6", "info2"}}));
        ReadSearchResult(store, ResultText(first, {{"single.zip", "12", "ONE", "8"}}));
        group = store.Find("SHA");
        single = store.Find("ONE");
        ASSERT_NE(group, nullptr);
        ASSERT_NE(single, nullptr);
    }

    ResultStore store;
    const ResultGroup* group = nullptr;
    const ResultGroup* single = nullptr;
};

TEST_F(GroupCellsTest, GroupRowShowsMultipleWhereHostsDiffer) {
    const std::array<std::string, 15> expected = {
        "film.mpg", "1,234,567",   "multiple(2)", "multiple(2)", "multiple(2)", " ",
        "Video",    "multiple(2)", "multiple(2)", "SHA",         "multiple(2)", "multiple(2)",
        "",         "multiple(2)", "info1"};
    for (std::size_t i = 0; i < kResultColumns.size(); ++i) {
        EXPECT_EQ(CellText(*group, -1, kResultColumns[i]), expected[i]) << kResultColumns[i];
    }
}

TEST_F(GroupCellsTest, SourceRowsShowTheirOwnValues) {
    const std::array<std::string, 15> second = {"film2.mpg", "7",     "2.2.2.2", "7000", "6",
                                                " ",         "Video", "BBBB",    "200",  "SHA",
                                                "No",        "",      "",        "N2",   "info2"};
    for (std::size_t i = 0; i < kResultColumns.size(); ++i) {
        EXPECT_EQ(CellText(*group, 1, kResultColumns[i]), second[i]) << kResultColumns[i];
    }
    EXPECT_EQ(CellText(*group, 0, kColumnBrowse), "Yes");
    EXPECT_EQ(CellText(*group, 0, kColumnHost), "1.1.1.1");
}

TEST_F(GroupCellsTest, SingleSourceGroupRowShowsValues) {
    EXPECT_EQ(CellText(*single, -1, kColumnHost), "1.1.1.1");
    EXPECT_EQ(CellText(*single, -1, kColumnPort), "6346");
    EXPECT_EQ(CellText(*single, -1, kColumnFileIndex), "8");
    EXPECT_EQ(CellText(*single, -1, kColumnType), "Package");
    EXPECT_EQ(CellText(*single, -1, kColumnRank), " ");
}

TEST_F(GroupCellsTest, OutOfRangeRowsAndColumnsAreEmpty) {
    EXPECT_EQ(CellText(*group, 2, kColumnName), "");
    EXPECT_EQ(CellText(*group, -2, kColumnName), "");
    EXPECT_EQ(CellText(*group, -1, 33021), "");
    EXPECT_EQ(CellText(ResultGroup{}, -1, kColumnName), "");
}

TEST_F(GroupCellsTest, CopyCutsToTheBuffer) {
    std::array<char, 6> buffer{};
    EXPECT_EQ(CopyCellText(*group, -1, kColumnSize, buffer), 5u);
    EXPECT_STREQ(buffer.data(), "1,234");
    std::array<char, 32> roomy{};
    EXPECT_EQ(CopyCellText(*group, -1, kColumnHost, roomy), 11u);
    EXPECT_STREQ(roomy.data(), "multiple(2)");
    EXPECT_EQ(CopyCellText(*group, -1, kColumnHost, std::span<char>()), 0u);
}

} // namespace
} // namespace corvid
