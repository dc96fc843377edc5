#include "resources/string_table.h"

#include <gtest/gtest.h>

namespace {

TEST(BuiltinStrings, LooksUpTextsByIdWithTheirLineBreaks) {
    EXPECT_EQ(corvid::BuiltinText(32949),
              "Corvid is currently offline, do you want to connect now?");
    EXPECT_EQ(corvid::BuiltinText(32960),
              "Create P2P module failed, please close the program.\r\nIf this message appears "
              "again, please reinstall Tarvo Explorer!");
}

TEST(BuiltinStrings, UnknownIdsGiveAnEmptyText) {
    EXPECT_TRUE(corvid::BuiltinText(0).empty());
    EXPECT_TRUE(corvid::BuiltinText(32950 - 1 + 100000).empty());
}

} // namespace
