#include "resources/string_table.h"

#include <gtest/gtest.h>

namespace {

TEST(BuiltinStrings, KeepsTheShippedWordingLetterForLetter) {
    EXPECT_EQ(corvid::BuiltinText(32777), "Download seleted item(es)\nDownload");
    EXPECT_EQ(corvid::BuiltinText(32772), "Restart the search\n");
    EXPECT_EQ(corvid::BuiltinText(32950), "Are you sure to delete all selected items?");
    EXPECT_EQ(corvid::BuiltinText(32958), "The file is already in downloading window:");
    EXPECT_EQ(corvid::BuiltinText(34025), "Clear?");
}

TEST(BuiltinStrings, CounterFormatsKeepTheirTrailingBlanks) {
    EXPECT_EQ(corvid::BuiltinText(33001), "%d" + std::string(17, ' '));
    EXPECT_EQ(corvid::BuiltinText(33002), "%d" + std::string(16, ' '));
    EXPECT_EQ(corvid::BuiltinText(33003), "%d" + std::string(16, ' '));
    EXPECT_EQ(corvid::BuiltinText(33004), "%d" + std::string(14, ' '));
    EXPECT_EQ(corvid::BuiltinText(33005), "%d" + std::string(16, ' '));
}

TEST(BuiltinStrings, NamesEveryMediaClassAndColumn) {
    const char* classes[] = {"Video", "Audio", "Application", "Package", "Image", "Others"};
    for (std::uint32_t i = 0; i < 6; ++i) {
        EXPECT_EQ(corvid::BuiltinText(32934 + i), classes[i]);
    }
    const char* columns[] = {"Name",   "Size",   "Host",    "Port",    "File Index",
                             "Rank",   "Type",   "Version", "Speed",   "SHA1",
                             "Browse", "Uptime", "Guid",    "Node ID", "Information"};
    for (std::uint32_t i = 0; i < 15; ++i) {
        EXPECT_EQ(corvid::BuiltinText(33006 + i), columns[i]);
    }
    EXPECT_EQ(corvid::BuiltinText(33023), "Progress");
    EXPECT_EQ(corvid::BuiltinText(33024), "Status");
}

} // namespace
