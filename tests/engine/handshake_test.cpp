// Header blocks as real peers write them, and the limits a hostile one meets.
#include <gtest/gtest.h>

#include "engine/core/handshake.h"

namespace corvid::gnutella {
namespace {

HeaderBlockReader::Status ReadAll(HeaderBlockReader& reader, std::string_view text,
                                  std::size_t* used) {
    return reader.Feed(AsBytes(text), used);
}

TEST(HeaderBlocks, ToleratesCaseBareLfRepeatsAndContinuations) {
    std::string text = "GNUTELLA CONNECT/0.6\n"
                       "user-agent: Other/2.0\r\n"
                       "X-ULTRAPEER: true\n"
                       "X-Try-Ultrapeers: 1.2.3.4:6346 2006-01-01T00:00Z\n"
                       "x-try-ultrapeers: 5.6.7.8\n"
                       "X-Unknown: folded\n"
                       "  more\n"
                       "\n"
                       "binary";
    HeaderBlockReader reader;
    std::size_t used = 0;
    ASSERT_EQ(ReadAll(reader, text, &used), HeaderBlockReader::Status::Complete);
    EXPECT_EQ(text.substr(used), "binary");
    const auto& block = reader.block();
    EXPECT_TRUE(block.is_connect);
    EXPECT_EQ(block.Get("User-Agent"), "Other/2.0");
    EXPECT_TRUE(block.IsTrue("X-Ultrapeer"));
    EXPECT_EQ(block.Get("x-unknown"), "folded more");
    auto hosts = ParseTryList(*block.Get("X-Try-Ultrapeers"));
    ASSERT_EQ(hosts.size(), 2u);
    EXPECT_EQ(hosts[0].ToString(), "1.2.3.4:6346");
    EXPECT_EQ(hosts[1].ToString(), "5.6.7.8:6346");
}

TEST(HeaderBlocks, ResponsesOfLaterVersionsAndOneByteReads) {
    std::string text = "GNUTELLA/0.7 200 OK\r\nContent-Encoding: DEFLATE\r\n\r\n";
    HeaderBlockReader reader;
    HeaderBlockReader::Status status = HeaderBlockReader::Status::NeedMore;
    for (char c : text) {
        std::size_t used = 0;
        status = reader.Feed(AsBytes(std::string_view(&c, 1)), &used);
        if (status != HeaderBlockReader::Status::NeedMore)
            break;
    }
    ASSERT_EQ(status, HeaderBlockReader::Status::Complete);
    EXPECT_EQ(reader.block().code, 200);
    EXPECT_TRUE(reader.block().HasToken("Content-Encoding", "deflate"));

    HeaderBlockReader refusal;
    std::size_t used = 0;
    ASSERT_EQ(ReadAll(refusal, "GNUTELLA/0.6 503 Full\r\n\r\n", &used),
              HeaderBlockReader::Status::Complete);
    EXPECT_EQ(refusal.block().code, 503);
}

TEST(HeaderBlocks, HostileBlocksAreErrorsWithinBoundedMemory) {
    std::size_t used = 0;
    HeaderBlockReader http;
    EXPECT_EQ(ReadAll(http, "GET / HTTP/1.1\r\n\r\n", &used), HeaderBlockReader::Status::Error);
    HeaderBlockReader no_colon;
    EXPECT_EQ(ReadAll(no_colon, "GNUTELLA CONNECT/0.6\r\nbogus\r\n\r\n", &used),
              HeaderBlockReader::Status::Error);
    HeaderBlockReader bad_code;
    EXPECT_EQ(ReadAll(bad_code, "GNUTELLA/0.6 2x0 OK\r\n\r\n", &used),
              HeaderBlockReader::Status::Error);

    // A megabyte of headers stops at the limit, whatever the line lengths.
    HeaderBlockReader flood;
    std::string start = "GNUTELLA CONNECT/0.6\r\n";
    ASSERT_EQ(ReadAll(flood, start, &used), HeaderBlockReader::Status::NeedMore);
    std::string line = "X-Filler: " + std::string(100, 'x') + "\r\n";
    HeaderBlockReader::Status status = HeaderBlockReader::Status::NeedMore;
    std::size_t fed = start.size();
    while (status == HeaderBlockReader::Status::NeedMore && fed < 1'000'000) {
        status = ReadAll(flood, line, &used);
        fed += line.size();
    }
    EXPECT_EQ(status, HeaderBlockReader::Status::Error);
    EXPECT_LE(fed, kMaxHandshakeBlock + line.size());

    HeaderBlockReader one_long_line;
    EXPECT_EQ(ReadAll(one_long_line, std::string(kMaxHandshakeBlock + 1, 'G'), &used),
              HeaderBlockReader::Status::Error);
}

} // namespace
} // namespace corvid::gnutella
