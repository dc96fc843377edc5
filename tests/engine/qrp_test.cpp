// Query routing tables: the published hash vectors, the patch a leaf sends, and reassembly.
#include <gtest/gtest.h>

#include "engine/core/qrp.h"

namespace corvid::gnutella {
namespace {

TEST(QrpHash, MatchesThePublishedVectors) {
    EXPECT_EQ(QrpHash("", 13), 0u);
    EXPECT_EQ(QrpHash("eb", 13), 6791u);
    EXPECT_EQ(QrpHash("ebcklmenq", 13), 3527u);
    EXPECT_EQ(QrpHash("n", 16), 65003u);
    EXPECT_EQ(QrpHash("ndfl", 16), 58201u);
    EXPECT_EQ(QrpHash("ol2j34lj", 10), 318u);
    EXPECT_EQ(QrpHash("3NJA9", 10), 581u);
    EXPECT_EQ(QrpHash("3nja9", 10), 581u);
    EXPECT_EQ(QrpHash("test", 3), 2u);
}

TEST(QrpKeywords, SplitOnDelimitersAndAddTruncatedForms) {
    EXPECT_EQ(SplitKeywords("The_Band - Song(live),Mix.MP3"),
              (std::vector<std::string>{"the", "band", "song", "live", "mix", "mp3"}));
    EXPECT_EQ(TableKeywords("songs.ogg"),
              (std::vector<std::string>{"song", "son", "songs", "ogg"}));
}

TEST(QrpPatch, EightEntryTableForTestIsTheKnownBytes) {
    QueryRouteTable table(8);
    table.Add("test");
    auto messages = BuildQrpUpdate(table);
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], (Bytes{0x00, 8, 0, 0, 0, 7}));
    Bytes expected_header{0x01, 1, 1, 1, 4};
    EXPECT_EQ(Bytes(messages[1].begin(), messages[1].begin() + 5), expected_header);
    auto entries = ZlibDecompress(ByteView(messages[1]).subspan(5), 100);
    EXPECT_EQ(entries, (Bytes{0x00, 0xA0, 0x00, 0x00}));

    // The reference compression of the same entries applies the same way.
    QrpReceiver receiver;
    ASSERT_EQ(receiver.Apply(Bytes{0x00, 8, 0, 0, 0, 7}), QrpReceiver::Result::Ok);
    Bytes patch{0x01, 1,    1,    1,    4,    0x78, 0x9C, 0x63, 0x58,
                0xC0, 0xC0, 0x00, 0x00, 0x01, 0xE4, 0x00, 0xA1};
    ASSERT_EQ(receiver.Apply(patch), QrpReceiver::Result::Complete);
    EXPECT_TRUE(receiver.table()->Contains("test"));
    EXPECT_EQ(receiver.table()->Slot(3), false);
}

QueryRouteTable BigTable() {
    // Enough random-looking keywords that the compressed patch needs several chunks.
    QueryRouteTable table;
    std::mt19937 rng(5);
    for (int i = 0; i < 20000; ++i)
        table.Add("w" + std::to_string(rng()));
    table.Add("alpha");
    return table;
}

TEST(QrpReceiver, ReassemblesMultiChunkPatches) {
    auto table = BigTable();
    auto messages = BuildQrpUpdate(table);
    ASSERT_GE(messages.size(), 3u); // a reset and at least two patch chunks
    QrpReceiver receiver;
    for (std::size_t i = 0; i + 1 < messages.size(); ++i)
        ASSERT_EQ(receiver.Apply(messages[i]), QrpReceiver::Result::Ok);
    EXPECT_FALSE(receiver.table()); // nothing usable before the sequence completes
    ASSERT_EQ(receiver.Apply(messages.back()), QrpReceiver::Result::Complete);
    for (std::uint32_t slot = 0; slot < table.size(); ++slot)
        ASSERT_EQ(receiver.table()->Slot(slot), table.Slot(slot)) << slot;
    EXPECT_TRUE(receiver.table()->MatchesQuery("Alpha", {}));
    EXPECT_FALSE(receiver.table()->MatchesQuery("alpha zzzqqq", {}));
}

TEST(QrpReceiver, OutOfOrderOrOversizedPatchesAreErrors) {
    auto messages = BuildQrpUpdate(BigTable());
    QrpReceiver skipping;
    skipping.Apply(messages[0]);
    EXPECT_EQ(skipping.Apply(messages[2]), QrpReceiver::Result::Error);

    QrpReceiver no_reset;
    EXPECT_EQ(no_reset.Apply(messages[1]), QrpReceiver::Result::Error);

    QrpReceiver huge;
    EXPECT_EQ(huge.Apply(Bytes{0x00, 0, 0, 0, 0x40, 7}), QrpReceiver::Result::TooLarge); // 1 GiB
    EXPECT_EQ(huge.Apply(Bytes{0x00, 100, 0, 0, 0, 7}), QrpReceiver::Result::Error);     // not 2^n

    // More entries than the table holds.
    QrpReceiver overflow;
    overflow.Apply(Bytes{0x00, 8, 0, 0, 0, 7});
    Bytes patch{0x01, 1, 1, 0, 4, 0xA0, 0, 0, 0, 0};
    EXPECT_EQ(overflow.Apply(patch), QrpReceiver::Result::Error);

    QrpReceiver broken;
    broken.Apply(Bytes{0x00, 8, 0, 0, 0, 7});
    EXPECT_EQ(broken.Apply(Bytes{0x01, 1, 1, 1, 4, 0x78, 0x9C, 0xFF, 0xFF}),
              QrpReceiver::Result::Error);
}

} // namespace
} // namespace corvid::gnutella
