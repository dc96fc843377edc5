#include "search/tag_scanner.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace corvid {
namespace {

TEST(TagScannerTest, FindTextFoldsOnlyAsciiLetters) {
    EXPECT_EQ(FindText("abc<FILEINFO id", "<fileinfo"), 3u);
    EXPECT_EQ(FindText("xxSha1", "SHA1"), 2u);
    EXPECT_EQ(FindText("a[b", "a{b"), kNotFound); // '[' and '{' differ only in bit 5
    EXPECT_EQ(FindText("\xC4\xE4", "\xE4"), 1u);  // bytes above ASCII compare exactly
    EXPECT_EQ(FindText("<ty", "<type"), kNotFound);
    EXPECT_EQ(FindText("", "<a"), kNotFound);
    EXPECT_EQ(FindText("abc", ""), 0u);
}

TEST(TagScannerTest, ReadElementReturnsBodyAndDistanceToEndOfClosingName) {
    const std::string text = "..<Keyword lang=\"en\">two words</KEYWORD>rest";
    std::string_view out;
    const std::size_t consumed = ReadElement(text, "<keyword", out);
    EXPECT_EQ(out, "two words");
    EXPECT_EQ(text.substr(consumed), ">rest");

    const std::string port = "<port>6346</port><speed>";
    EXPECT_EQ(ReadElement(port, "<port>", out), 17u);
    EXPECT_EQ(out, "6346");
}

TEST(TagScannerTest, ReadElementFailsWithoutTagBracketOrClosingTag) {
    std::string_view out = "stale";
    EXPECT_EQ(ReadElement("<name>a.mp3", "<name", out), 0u);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(ReadElement("<name a.mp3</name", "<name", out), 0u);
    EXPECT_EQ(ReadElement("no tags at all", "<name", out), 0u);
    // "<port>" wants its exact closing form.
    EXPECT_EQ(ReadElement("<port>1</port ", "<port>", out), 0u);
}

TEST(TagScannerTest, ReadElementFindsTheNthOccurrence) {
    std::string_view out;
    EXPECT_NE(ReadElement("<a>1</a><a>2</a>", "<a", out, 2), 0u);
    EXPECT_EQ(out, "2");
    EXPECT_EQ(ReadElement("<a>1</a>", "<a", out, 2), 0u);
}

TEST(TagScannerTest, ReadOpenTagCopiesThroughTheBracket) {
    std::string_view out;
    const std::string text = "xx<FileInfo id=\"7\"><name>";
    EXPECT_EQ(ReadOpenTag(text, "<fileinfo", out), 18u);
    EXPECT_EQ(out, "<FileInfo id=\"7\">");
    EXPECT_EQ(ReadOpenTag("<FileInfo id=\"7\"", "<fileinfo", out), 0u);
    EXPECT_TRUE(out.empty());
}

TEST(TagScannerTest, ReadElementGivesTheOpenTagAsReadOpenTagDoes) {
    const std::string text = "<x/><fileINFO id=\"3\" a=\">\"><name>n</name></FileInfo>";
    std::string_view body;
    std::string_view openTag;
    std::string_view alone;
    ASSERT_NE(ReadElement(text, "<FileInfo", body, openTag), 0u);
    ReadOpenTag(text, "<fileinfo", alone);
    EXPECT_EQ(openTag, alone);
    EXPECT_EQ(body, "\"><name>n</name>");
    EXPECT_EQ(ReadElement("<FileInfo id=\"3\">", "<FileInfo", body, openTag), 0u);
    EXPECT_TRUE(openTag.empty());
}

TEST(TagScannerTest, ReadAttributeTakesOnlyDoubleQuotes) {
    std::string_view out;
    EXPECT_TRUE(ReadAttribute("<FileInfo ID = \"42\">", "id", out));
    EXPECT_EQ(out, "42");
    EXPECT_FALSE(ReadAttribute("<FileInfo id='42'>", "id", out));
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(ReadAttribute("<FileInfo id=\"42>", "id", out));
    EXPECT_FALSE(ReadAttribute("<FileInfo id>", "id", out));
    EXPECT_TRUE(ReadAttribute("id=\"\"", "id", out));
    EXPECT_TRUE(out.empty());
}

TEST(TagScannerTest, DecimalReadsLikeAtoiAndSaturates) {
    EXPECT_EQ(ParseDecimal("6346"), 6346);
    EXPECT_EQ(ParseDecimal("  -12abc"), -12);
    EXPECT_EQ(ParseDecimal("+7"), 7);
    EXPECT_EQ(ParseDecimal("abc"), 0);
    EXPECT_EQ(ParseDecimal(""), 0);
    EXPECT_EQ(ParseDecimal("-"), 0);
    EXPECT_EQ(ParseDecimal("2147483647"), INT_MAX);
    EXPECT_EQ(ParseDecimal("2147483648"), INT_MAX);
    EXPECT_EQ(ParseDecimal("-2147483648"), INT_MIN);
    EXPECT_EQ(ParseDecimal("-2147483649"), INT_MIN);
    EXPECT_EQ(ParseDecimal(std::string(10000, '9')), INT_MAX);
    EXPECT_EQ(ParseDecimal("-" + std::string(10000, '9')), INT_MIN);
}

TEST(TagScannerTest, HexReadsLikeScanfAndKeepsTheLowBits) {
    EXPECT_EQ(ParseHex("1c"), 0x1cu);
    EXPECT_EQ(ParseHex(" 0x1D"), 0x1du);
    EXPECT_EQ(ParseHex("0x"), 0u);
    EXPECT_EQ(ParseHex("zz"), 0u);
    EXPECT_EQ(ParseHex("123456789"), 0x23456789u);
    EXPECT_EQ(ParseHex(std::string(5000, 'f') + "e") & 1u, 0u);
}

} // namespace
} // namespace corvid
