#include "engine/sharing/push_giv.h"

#include <gtest/gtest.h>

namespace corvid::gnutella {
namespace {

TEST(Giv, WritesAndReadsTheLineBothEndsExpect) {
    Giv giv;
    giv.index = 42;
    for (std::uint8_t i = 0; i < 16; ++i) {
        giv.servent.bytes[i] = static_cast<std::uint8_t>(i * 17);
    }
    giv.name = "holiday song.mp3";
    const std::string line = FormatGiv(giv);
    EXPECT_EQ(line, "GIV 42:00112233445566778899aabbccddeeff/holiday song.mp3\n\n");

    const GivParse parse = ParseGiv(line + "GET / HTTP/1.1");
    ASSERT_EQ(parse.status, GivStatus::Complete);
    EXPECT_EQ(parse.consumed, line.size());
    EXPECT_EQ(parse.giv.index, 42u);
    EXPECT_EQ(parse.giv.servent, giv.servent);
    EXPECT_EQ(parse.giv.name, "holiday song.mp3");

    const GivParse crlf = ParseGiv("GIV 1:00112233445566778899AABBCCDDEEFF/x\r\n\r\n");
    ASSERT_EQ(crlf.status, GivStatus::Complete);
    EXPECT_EQ(crlf.giv.servent, giv.servent);
}

TEST(Giv, WaitsForTheBlankLineAndRefusesMalformedLines) {
    EXPECT_EQ(ParseGiv("GIV 1:00112233445566778899aabbccddeeff/x").status, GivStatus::Incomplete);
    EXPECT_EQ(ParseGiv("GIV 1:00112233445566778899aabbccddeeff/x\n").status, GivStatus::Incomplete);
    for (const char* bad :
         {"GIV :00112233445566778899aabbccddeeff/x\n\n",
          "GIV x:00112233445566778899aabbccddeeff/x\n\n",
          "GIV 99999999999:00112233445566778899aabbccddeeff/x\n\n",
          "GIV 1:0011223344556677889/x\n\n", "GIV 1:00112233445566778899aabbccddeefg/x\n\n",
          "GIV 1 00112233445566778899aabbccddeeff/x\n\n",
          "GIV 1:00112233445566778899aabbccddeeff/x\nX\n", "GET / HTTP/1.1\n\n"}) {
        EXPECT_EQ(ParseGiv(bad).status, GivStatus::Invalid) << bad;
    }
    EXPECT_EQ(ParseGiv(std::string(5000, 'G')).status, GivStatus::Invalid);
}

} // namespace
} // namespace corvid::gnutella
