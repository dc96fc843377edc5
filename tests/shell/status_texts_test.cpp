#include "shell/status_texts.h"

#include "markup/language_table.h"
#include "tests/markup/fake_host_files.h"

#include <gtest/gtest.h>

namespace corvid::shell {
namespace {

TEST(StatusTexts, CountersKeepTheirFormatsTrailingBlanksIncluded) {
    LanguageTable builtin;
    StatusTexts texts;
    EXPECT_TRUE(texts.SetCounter(33001, 12, builtin));
    EXPECT_EQ(texts.Text(2), "12" + std::string(17, ' '));
    EXPECT_TRUE(texts.SetCounter(33004, 3, builtin));
    EXPECT_EQ(texts.Text(5), "3" + std::string(14, ' '));
    EXPECT_TRUE(texts.SetCounter(33002, -1, builtin));
    EXPECT_EQ(texts.Text(1), "-1" + std::string(16, ' '));
}

TEST(StatusTexts, AnUnknownPaneChangesNothing) {
    LanguageTable builtin;
    StatusTexts texts;
    texts.SetText("Connections OK");
    EXPECT_FALSE(texts.SetCounter(33006, 5, builtin));
    EXPECT_FALSE(texts.SetCounter(0, 5, builtin));
    EXPECT_EQ(texts.Text(0), "Connections OK");
    for (std::size_t i = 1; i < kStatusPaneCount; ++i) {
        EXPECT_EQ(texts.Text(i), "");
    }
    EXPECT_EQ(StatusPaneIndex(12345), -1);
    EXPECT_EQ(StatusPaneIndex(33005), 3);
}

TEST(StatusTexts, PanesHaveTheirWidthsIconsAndTips) {
    const int ids[] = {0, 33002, 33001, 33005, 33003, 33004};
    const int widths[] = {-1, 70, 60, 70, 60, 60};
    const int icons[] = {1, 0, 2, 5, 3, 4};
    for (std::size_t i = 0; i < kStatusPaneCount; ++i) {
        EXPECT_EQ(kStatusPanes[i].id, ids[i]);
        EXPECT_EQ(kStatusPanes[i].width, widths[i]);
        EXPECT_EQ(kStatusPanes[i].icon, icons[i]);
    }
}

TEST(StatusTexts, HostileTranslatedFormatsAreNeverPrintfDirectives) {
    EXPECT_EQ(FormatCounter("%s%n%d items", 4), "%s%n4 items");
    EXPECT_EQ(FormatCounter("Nodes: ", 4), "Nodes: 4");
    EXPECT_EQ(FormatCounter("%d %d", 4), "4 %d");

    test::FakeHostFiles files;
    files.files["C:\\Tarvo\\language\\xx\\Corvid.srml"] =
        "<lang><define><item id=\"IDS_NODES\" value=\"33001\"/></define>"
        "<string><item id=\"IDS_NODES\" value=\"%s nodes %d\"/></string></lang>";
    LanguageTable language;
    StatusTexts texts;
    texts.SetCounter(33001, 7, language);
    ASSERT_TRUE(language.Load("xx"));
    texts.Reformat(language);
    EXPECT_EQ(texts.Text(2), "%s nodes 7");
    EXPECT_EQ(texts.Text(1), ""); // never set, not invented by the reformat
}

} // namespace
} // namespace corvid::shell
