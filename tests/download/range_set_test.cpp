#include "download/core/range_set.h"

#include <gtest/gtest.h>

namespace corvid::download {
namespace {

TEST(RangeSet, MergesTouchingAndOverlappingSpans) {
    RangeSet set;
    set.add({10, 20});
    set.add({30, 40});
    set.add({20, 25});
    set.add({5, 12});
    EXPECT_EQ(set.spans(), (std::vector<ByteSpan>{{5, 25}, {30, 40}}));
    EXPECT_EQ(set.total(), 30u);
    set.add({0, 100});
    EXPECT_EQ(set.spans(), (std::vector<ByteSpan>{{0, 100}}));
    EXPECT_EQ(set.total(), 100u);
}

TEST(RangeSet, AnswersCoverageAndGaps) {
    RangeSet set;
    set.add({10, 20});
    set.add({30, 40});
    EXPECT_TRUE(set.covers({12, 18}));
    EXPECT_FALSE(set.covers({15, 35}));
    EXPECT_TRUE(set.intersects({19, 31}));
    EXPECT_FALSE(set.intersects({20, 30}));
    EXPECT_EQ(set.firstGap(0, 100), (ByteSpan{0, 10}));
    EXPECT_EQ(set.firstGap(10, 100), (ByteSpan{20, 30}));
    EXPECT_EQ(set.firstGap(35, 100), (ByteSpan{40, 100}));
    EXPECT_EQ(set.firstGap(35, 40), std::nullopt);
}

TEST(RangeMap, RoundTripsThroughText) {
    RangeMapRecord record;
    record.length = 1000;
    record.sha1 = Base32DecodeSha1("VGMT4NSHA2AWVOR6EVYXQUGCNSONBWE5");
    record.done = {{0, 100}, {200, 1000}};
    const auto back = ParseRangeMap(FormatRangeMap(record));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->length, 1000u);
    EXPECT_EQ(back->sha1, record.sha1);
    EXPECT_EQ(back->done, record.done);
}

TEST(RangeMap, RefusesDamagedOrLyingMaps) {
    RangeMapRecord record;
    record.length = 1000;
    record.done = {{0, 100}, {200, 300}};
    const std::string good = FormatRangeMap(record);
    ASSERT_TRUE(ParseRangeMap(good));
    EXPECT_FALSE(ParseRangeMap(good.substr(0, good.size() - 1))) << "cut off";
    EXPECT_FALSE(ParseRangeMap(good + "junk\n"));
    EXPECT_FALSE(ParseRangeMap("corvid-range-map 1\nlength 10\nsha1 -\nspans 1\n5 20\n"))
        << "beyond the length";
    EXPECT_FALSE(ParseRangeMap("corvid-range-map 1\nlength 10\nsha1 -\nspans 2\n0 5\n3 8\n"))
        << "overlapping";
    EXPECT_FALSE(ParseRangeMap("corvid-range-map 1\nlength 10\nsha1 -\nspans 1\n5 5\n"));
    EXPECT_FALSE(ParseRangeMap("corvid-range-map 1\nlength 10\nsha1 XYZ\nspans 0\n"));
    EXPECT_FALSE(ParseRangeMap("corvid-range-map 1\nlength 10\nsha1 -\nspans 99999999\n"));
    EXPECT_FALSE(ParseRangeMap(""));
}

} // namespace
} // namespace corvid::download
