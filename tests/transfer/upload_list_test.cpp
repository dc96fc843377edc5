#include "transfer/upload_list.h"

#include <gtest/gtest.h>

namespace corvid::transfer {
namespace {

TEST(UploadList, ReadsEachUploadInTheEnginesOrder) {
    const auto uploads = ParseUploads(
        "<uploads><UploadInfo id=\"7\"><Progress>42</Progress><Speed>1024</Speed>"
        "<Description>d</Description><FileName>song.mp3</FileName><FileSize>2048</FileSize>"
        "<IP>10.0.0.5</IP><port>6346</port></UploadInfo>"
        "<uploadinfo ID=\"8\"><FileName>b</FileName><Progress>5</Progress><port>x</port>"
        "</uploadinfo></uploads>");
    ASSERT_EQ(uploads.size(), 2u);
    EXPECT_EQ(uploads[0], (UploadInfo{7, 42, 1024, "d", "song.mp3", 2048, "10.0.0.5", 6346}));
    // Out of order: FileName stands before Progress, so its search, starting behind Progress,
    // finds nothing; a port that is not a number reads as 0.
    EXPECT_EQ(uploads[1].id, 8);
    EXPECT_EQ(uploads[1].progress, 5);
    EXPECT_EQ(uploads[1].fileName, "");
    EXPECT_EQ(uploads[1].port, 0);

    EXPECT_EQ(UploadCellText(uploads[0], kUploadFile), "song.mp3");
    EXPECT_EQ(UploadCellText(uploads[0], kUploadHost), "10.0.0.5:6346");
    EXPECT_EQ(UploadCellText(uploads[0], kUploadProgress), "42%");
    EXPECT_EQ(UploadCellText(uploads[0], kUploadSpeed), "1,024 B/s");
    EXPECT_EQ(UploadCellText(uploads[0], kUploadSize), "2,048");

    EXPECT_TRUE(ParseUploads("").empty());
    EXPECT_TRUE(ParseUploads("<uploads>nothing</uploads>").empty());
    EXPECT_TRUE(ParseUploads("<UploadInfo id=\"1\"><Progress>1").empty()) << "never closed";
}

TEST(UploadList, LimitSpeedToggles) {
    // Nothing stored: on with the default, then off.
    EXPECT_FALSE(UploadLimitOn(std::nullopt));
    auto change = ToggleUploadLimit(std::nullopt, std::nullopt);
    EXPECT_TRUE(change.checked);
    EXPECT_EQ(change.newLimit, 30720u);
    change = ToggleUploadLimit(change.newLimit, std::nullopt);
    EXPECT_FALSE(change.checked);
    EXPECT_EQ(change.newLimit, 0u);

    // An "UploadLimit" of its own is the value written.
    change = ToggleUploadLimit(0u, 5000u);
    EXPECT_TRUE(change.checked);
    EXPECT_EQ(change.newLimit, 5000u);

    // An "UploadLimit" of 0 writes 0 and checks the button; the next press turns it on again.
    change = ToggleUploadLimit(std::nullopt, 0u);
    EXPECT_TRUE(change.checked);
    EXPECT_EQ(change.newLimit, 0u);
    change = ToggleUploadLimit(change.newLimit, 0u);
    EXPECT_TRUE(change.checked);
}

TEST(UploadList, UploadSpeedFieldTakesWholeNumbersOnly) {
    EXPECT_EQ(ParseUploadSpeed("30720"), 30720u);
    EXPECT_EQ(ParseUploadSpeed(" 0 "), 0u);
    EXPECT_EQ(ParseUploadSpeed("4294967295"), 4294967295u);
    for (const char* bad : {"", "  ", "12k", "-5", "1 000", "4294967296", "99999999999999999999"})
        EXPECT_FALSE(ParseUploadSpeed(bad)) << bad;
}

} // namespace
} // namespace corvid::transfer
