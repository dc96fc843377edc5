#include "search/result_rows.h"
#include "search/search_result_reader.h"
#include "tests/search/result_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace corvid {
namespace {

using testing::FileEntry;
using testing::HostEntry;
using testing::ResultText;

ResultGroup Group(std::string name, int size, std::vector<std::string> hosts,
                  std::string sha1 = "") {
    ResultGroup group;
    group.sha1 = std::move(sha1);
    for (std::string& host : hosts) {
        ResultSource source;
        source.name = name;
        source.size = size;
        source.host = std::move(host);
        group.sources.push_back(source);
    }
    return group;
}

std::vector<std::string> Names(const ResultRows& rows) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < rows.RowCount(); ++i) {
        const ResultRow row = rows.Row(i);
        names.push_back((row.source >= 0 ? "  " : "") + row.group->sources.front().name +
                        (row.source >= 0 ? "@" + row.group->sources[row.source].host : ""));
    }
    return names;
}

TEST(ResultSortTest, NumbersCompareAsNumbersAndTextIgnoresCase) {
    ResultGroup small = Group("b.mp3", 9, {"10.0.0.9"});
    ResultGroup large = Group("A.mp3", 10, {"10.0.0.10"});
    EXPECT_LT(CompareGroups(small, large, kColumnSize), 0);
    EXPECT_GT(CompareGroups(small, large, kColumnName), 0);
    // "10.0.0.9" is after "10.0.0.10" as text but before it as an address.
    EXPECT_LT(CompareGroups(small, large, kColumnHost), 0);
    EXPECT_EQ(CompareGroups(small, small, kColumnName), 0);
}

TEST(ResultSortTest, MultipleHostsSortAfterSingleHostsAndRankCountsSources) {
    ResultGroup one = Group("a", 1, {"10.0.0.200"});
    ResultGroup two = Group("b", 1, {"10.0.0.1", "10.0.0.2"});
    ResultGroup three = Group("c", 1, {"10.0.0.1", "10.0.0.2", "10.0.0.3"});
    for (std::uint32_t column : {kColumnHost, kColumnPort, kColumnSpeed, kColumnNodeId}) {
        EXPECT_LT(CompareGroups(one, two, column), 0) << column;
        EXPECT_LT(CompareGroups(two, three, column), 0) << column;
    }
    EXPECT_LT(CompareGroups(one, three, kColumnRank), 0);
    // Name is never "multiple": the first source's name counts.
    EXPECT_GT(CompareGroups(two, one, kColumnName), 0);
}

TEST(ResultSortTest, StableInBothDirections) {
    std::vector<ResultGroup> store = {Group("x", 5, {"1.1.1.1"}), Group("y", 5, {"1.1.1.2"}),
                                      Group("z", 7, {"1.1.1.3"}), Group("w", 5, {"1.1.1.4"})};
    std::vector<ResultGroup*> groups;
    for (ResultGroup& group : store) {
        groups.push_back(&group);
    }
    SortGroups(groups, kColumnSize, true);
    std::string order;
    for (ResultGroup* group : groups) {
        order += group->sources[0].name;
    }
    EXPECT_EQ(order, "xywz");
    SortGroups(groups, kColumnSize, false);
    order.clear();
    for (ResultGroup* group : groups) {
        order += group->sources[0].name;
    }
    EXPECT_EQ(order, "zxyw");
}

TEST(ResultSortTest, EveryColumnSortsAStoreFromRealTexts) {
    ResultStore store;
    HostEntry first;
    first.ip = "10.0.0.2";
    first.port = "7000";
    first.openData = "1d";
    ReadSearchResult(store, ResultText(first, {{"zulu.avi", "300", "S1", "4", "z"},
                                               {"alpha.mp3", "20", "S2", "9", "a"}}));
    HostEntry second;
    second.ip = "10.0.0.1";
    second.port = "6346";
    ReadSearchResult(store, ResultText(second, {{"Mike.zip", "1000", "S3", "1", "m"},
                                                {"zulu.avi", "300", "S1", "4", "z"}}));
    for (std::uint32_t column : kResultColumns) {
        std::vector<ResultGroup*> groups = store.Groups();
        SortGroups(groups, column, true);
        for (std::size_t i = 1; i < groups.size(); ++i) {
            EXPECT_LE(CompareGroups(*groups[i - 1], *groups[i], column), 0) << column;
        }
    }
    std::vector<ResultGroup*> groups = store.Groups();
    SortGroups(groups, kColumnSize, true);
    EXPECT_EQ(groups[0]->sources[0].name, "alpha.mp3");
    EXPECT_EQ(groups[2]->sources[0].name, "Mike.zip"); // 1000 after 300, not before it as text
}

TEST(ResultFilterTest, EveryWordMustBeInTheName) {
    EXPECT_TRUE(NameMatchesWords("Night Train - Live.mp3", "train night"));
    EXPECT_TRUE(NameMatchesWords("Night Train - Live.mp3", "  LIVE\t"));
    EXPECT_FALSE(NameMatchesWords("Night Train - Live.mp3", "night bus"));
    EXPECT_TRUE(NameMatchesWords("anything", ""));
    EXPECT_FALSE(NameMatchesWords("", "a"));
}

class ResultRowsTest : public ::testing::Test {
protected:
    void SetUp() override {
        store_ = {Group("a.mp3", 1, {"h1"}), Group("b.mp3", 2, {"h1", "h2", "h3"}),
                  Group("c.avi", 3, {"h4", "h5"}), Group("d.zip", 4, {"h6"})};
        for (ResultGroup& group : store_) {
            pointers_.push_back(&group);
        }
        rows_.Add(pointers_);
        rows_.SetSort(kColumnSize, true);
        rows_.Sort();
    }
    std::vector<ResultGroup> store_;
    std::vector<ResultGroup*> pointers_;
    ResultRows rows_;
};

TEST_F(ResultRowsTest, ANewListSortsByRankDescending) {
    ResultRows fresh;
    EXPECT_EQ(fresh.SortColumn(), kColumnRank);
    EXPECT_FALSE(fresh.Ascending());
    fresh.Add(pointers_);
    fresh.Sort();
    EXPECT_EQ(fresh.Row(0).group, &store_[1]);
    EXPECT_EQ(fresh.Row(1).group, &store_[2]);
}

TEST_F(ResultRowsTest, HeaderClickSortsThenReverses) {
    rows_.ClickColumn(kColumnName);
    EXPECT_EQ(rows_.SortColumn(), kColumnName);
    EXPECT_TRUE(rows_.Ascending());
    EXPECT_EQ(Names(rows_).front(), "a.mp3");
    rows_.ClickColumn(kColumnName);
    EXPECT_FALSE(rows_.Ascending());
    EXPECT_EQ(Names(rows_).front(), "d.zip");
}

TEST_F(ResultRowsTest, ExpandInsertsSourceRowsAndCountsThem) {
    EXPECT_FALSE(rows_.CanExpand(0)); // one source
    ASSERT_TRUE(rows_.CanExpand(1));
    EXPECT_TRUE(rows_.Expand(1));
    EXPECT_FALSE(rows_.Expand(1)); // already open
    EXPECT_EQ(Names(rows_), (std::vector<std::string>{"a.mp3", "b.mp3", "  b.mp3@h1", "  b.mp3@h2",
                                                      "  b.mp3@h3", "c.avi", "d.zip"}));
    EXPECT_EQ(rows_.GroupCount(), 4u);
    EXPECT_EQ(rows_.ExpandedRows(), 3u);
    EXPECT_FALSE(rows_.CanExpand(2)); // a source row
}

TEST_F(ResultRowsTest, CollapseFromASourceRowReturnsTheGroupRow) {
    rows_.Expand(1);
    rows_.Expand(5); // c.avi, below b's three source rows
    EXPECT_EQ(rows_.Collapse(3), 1);
    EXPECT_EQ(Names(rows_), (std::vector<std::string>{"a.mp3", "b.mp3", "c.avi", "  c.avi@h4",
                                                      "  c.avi@h5", "d.zip"}));
    EXPECT_EQ(rows_.Collapse(1), -1); // closed already
    EXPECT_EQ(rows_.Collapse(0), -1); // cannot open at all
    EXPECT_EQ(rows_.Collapse(2), 2);  // its own row
    EXPECT_EQ(rows_.ExpandedRows(), 0u);
    EXPECT_EQ(rows_.Row(99).group, nullptr);
}

TEST_F(ResultRowsTest, ExpansionSurvivesSortAndNewSources) {
    rows_.Toggle(1);
    store_[1].sources.push_back(store_[1].sources.front());
    store_[1].sources.back().host = "h7";
    rows_.ClickColumn(kColumnSize); // same column: now descending
    EXPECT_EQ(Names(rows_),
              (std::vector<std::string>{"d.zip", "c.avi", "b.mp3", "  b.mp3@h1", "  b.mp3@h2",
                                        "  b.mp3@h3", "  b.mp3@h7", "a.mp3"}));
    EXPECT_EQ(rows_.PositionOf({&store_[1], 3}), 6);
    EXPECT_TRUE(rows_.Toggle(2));
    EXPECT_EQ(rows_.RowCount(), 4u);
}

TEST_F(ResultRowsTest, FilterAndHiddenDownloadsNarrowWithoutLosingGroups) {
    rows_.Expand(1);
    rows_.SetFilter("mp3");
    EXPECT_EQ(Names(rows_), (std::vector<std::string>{"a.mp3", "b.mp3", "  b.mp3@h1", "  b.mp3@h2",
                                                      "  b.mp3@h3"}));
    store_[0].state = kGroupHandedToDownloads;
    rows_.Rebuild();
    EXPECT_EQ(Names(rows_).front(), "b.mp3");
    rows_.SetShowDownloaded(true);
    EXPECT_EQ(Names(rows_).front(), "a.mp3");
    rows_.SetFilter("");
    EXPECT_EQ(rows_.GroupCount(), 4u);
    EXPECT_EQ(rows_.Groups().size(), 4u);
}

TEST_F(ResultRowsTest, TypeAheadFindsNamesFromTheStartRowOnAndWrapsRound) {
    rows_.Expand(1);
    EXPECT_EQ(rows_.FindByName("B", 0), 1);
    EXPECT_EQ(rows_.FindByName("b.MP", 2), 2); // a source row carries the name too
    EXPECT_EQ(rows_.FindByName("a", 3), 0);
    EXPECT_EQ(rows_.FindByName("zz", 0), -1);
    EXPECT_EQ(ResultRows().FindByName("a", 0), -1);
}

} // namespace
} // namespace corvid
