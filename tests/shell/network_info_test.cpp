#include "shell/network_info.h"

#include "markup/language_table.h"

#include <gtest/gtest.h>

namespace corvid::shell {
namespace {

TEST(NetworkInfo, ShowsTheEnginesFiguresUnderLabels) {
    LanguageTable builtin;
    const auto lines = ReadNetworkInfo(
        "<info><Mode>Leaf</Mode><Address>127.0.0.1:6346</Address><Firewalled>1</Firewalled>"
        "<Connections>3</Connections><Ultrapeers>3</Ultrapeers><Leaves>0</Leaves>"
        "<SharedFiles>12</SharedFiles><SharedKB>2048</SharedKB><Uploads>1</Uploads>"
        "<Uptime>7322</Uptime><UserAgent>Corvid/0.1</UserAgent></info>",
        builtin);
    ASSERT_EQ(lines.size(), 11u);
    EXPECT_EQ(lines[0], (InfoLine{"Mode", "Leaf"}));
    EXPECT_EQ(lines[2], (InfoLine{"Firewalled", "Yes"}));
    EXPECT_EQ(lines[9], (InfoLine{"Uptime", "2 h 02 min"}));
    EXPECT_EQ(lines[10], (InfoLine{"Software", "Corvid/0.1"}));
}

TEST(NetworkInfo, LeavesOutMissingFiguresAndReadsJunkAsNumbersSafely) {
    LanguageTable builtin;
    EXPECT_TRUE(ReadNetworkInfo("", builtin).empty());
    EXPECT_TRUE(ReadNetworkInfo("<info>", builtin).empty());
    EXPECT_TRUE(ReadNetworkInfo("<Mode>Leaf</Mode>", builtin).empty());
    const auto lines = ReadNetworkInfo(
        "<INFO version=\"2\"><Connections>lots</Connections><Uptime>-5</Uptime></INFO>", builtin);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], (InfoLine{"Connections", "0"}));
    EXPECT_EQ(lines[1], (InfoLine{"Uptime", "0 min"}));
}

TEST(NetworkInfo, UptimeInMinutesThenHours) {
    EXPECT_EQ(UptimeText(59), "0 min");
    EXPECT_EQ(UptimeText(3599), "59 min");
    EXPECT_EQ(UptimeText(3600), "1 h 00 min");
    EXPECT_EQ(UptimeText(100LL * 3600 + 61), "100 h 01 min");
}

} // namespace
} // namespace corvid::shell
