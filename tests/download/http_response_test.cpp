#include "download/core/http_response.h"

#include <gtest/gtest.h>
#include <string>

namespace corvid::download {
namespace {

using Step = HttpResponseParser::Step;
using namespace std::string_literals;

// Feeds the text in pieces of `piece` bytes and collects what the parser reports.
struct Outcome {
    std::vector<Step> steps;
    std::string body;
    HttpParseError error = HttpParseError::None;
    int status = 0;
};

Outcome FeedAll(HttpResponseParser& parser, const std::string& text, std::size_t piece) {
    Outcome outcome;
    for (std::size_t at = 0; at < text.size(); at += piece) {
        std::string_view input = std::string_view(text).substr(at, piece);
        while (true) {
            const auto result = parser.feed(input);
            input.remove_prefix(result.consumed);
            if (result.step == Step::NeedMore) {
                break;
            }
            outcome.steps.push_back(result.step);
            if (result.step == Step::Head) {
                outcome.status = parser.head().status;
            } else if (result.step == Step::Body) {
                outcome.body += result.body;
            } else {
                outcome.error = parser.error();
                return outcome;
            }
        }
    }
    return outcome;
}

TEST(HttpResponseParser, ReadsHeadAndBodyWhateverTheSplit) {
    const std::string response =
        "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 10-14/100\r\n"
        "Content-Length: 5\r\nX-Alt: 1.2.3.4:6346\r\n\r\nhelloEXTRA";
    for (std::size_t piece : {1u, 2u, 7u, 1000u}) {
        HttpResponseParser parser;
        const Outcome outcome = FeedAll(parser, response, piece);
        ASSERT_FALSE(outcome.steps.empty());
        EXPECT_EQ(outcome.steps.back(), Step::Done) << piece;
        EXPECT_EQ(outcome.status, 206);
        EXPECT_EQ(outcome.body, "hello") << "never more than Content-Length, split " << piece;
        EXPECT_EQ(parser.head().find("x-alt"), "1.2.3.4:6346");
        EXPECT_EQ(parser.head().text.substr(0, 30), "HTTP/1.1 206 Partial Content\r\n");
    }
}

TEST(HttpResponseParser, SkipsInterimResponsesAndAcceptsBareNewlines) {
    HttpResponseParser parser;
    const Outcome outcome =
        FeedAll(parser, "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.0 200 OK\nContent-Length: 2\n\nok", 3);
    EXPECT_EQ(outcome.status, 200);
    EXPECT_EQ(outcome.body, "ok");
    EXPECT_EQ(outcome.steps.back(), Step::Done);
}

TEST(HttpResponseParser, BodyWithoutLengthRunsToTheClose) {
    HttpResponseParser parser;
    const Outcome outcome = FeedAll(parser, "HTTP/1.1 200 OK\r\n\r\nabc", 100);
    EXPECT_EQ(outcome.body, "abc");
    EXPECT_FALSE(parser.bodyRemaining());
    EXPECT_EQ(parser.finish(), Step::Done);
}

TEST(HttpResponseParser, CloseInsideTheBodyOrHeadIsAnError) {
    HttpResponseParser truncated;
    FeedAll(truncated, "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc", 100);
    EXPECT_EQ(truncated.finish(), Step::Error);
    EXPECT_EQ(truncated.error(), HttpParseError::TruncatedBody);

    HttpResponseParser inHead;
    FeedAll(inHead, "HTTP/1.1 200 OK\r\nContent-", 100);
    EXPECT_EQ(inHead.finish(), Step::Error);
    EXPECT_EQ(inHead.error(), HttpParseError::ClosedInHead);
}

TEST(HttpResponseParser, RefusesHostileHeads) {
    struct Case {
        std::string text;
        HttpParseError error;
    };
    const Case cases[] = {
        {"SSH-2.0-OpenSSH\r\n\r\n", HttpParseError::NotHttp},
        {"<html>", HttpParseError::NotHttp},
        {"HTTP/1.1 2000 OK\r\n\r\n", HttpParseError::BadStatusLine},
        {"HTTP/1.1 099 Low\r\n\r\n", HttpParseError::BadStatusLine},
        {"HTTP/x.1 200 OK\r\n\r\n", HttpParseError::BadStatusLine},
        {"HTTP/1.1 200 OK\r\nNoColonHere\r\n\r\n", HttpParseError::BadHeader},
        {"HTTP/1.1 200 OK\r\n folded: x\r\n\r\n", HttpParseError::BadHeader},
        {"HTTP/1.1 200 OK\r\nA: b\0c\r\n\r\n"s, HttpParseError::BadHeader},
        {"HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n", HttpParseError::BadContentLength},
        {"HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999\r\n\r\n",
         HttpParseError::BadContentLength},
        {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Length: 6\r\n\r\n",
         HttpParseError::BadContentLength},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip, chunked\r\n\r\n",
         HttpParseError::UnsupportedTransferEncoding},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5x\r\n", HttpParseError::BadChunk},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nabc\r\n",
         HttpParseError::BadChunk},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFF\r\n",
         HttpParseError::BadChunk},
    };
    for (const Case& c : cases) {
        HttpResponseParser parser;
        const Outcome outcome = FeedAll(parser, c.text, 4);
        ASSERT_FALSE(outcome.steps.empty()) << c.text;
        EXPECT_EQ(outcome.steps.back(), Step::Error) << c.text;
        EXPECT_EQ(outcome.error, c.error) << c.text;
    }
}

TEST(HttpResponseParser, BoundsTheHeadSizeAndHeaderCount) {
    HttpResponseParser big({1024, 64});
    const Outcome huge = FeedAll(big, "HTTP/1.1 200 OK\r\nX: " + std::string(5000, 'a'), 100);
    EXPECT_EQ(huge.error, HttpParseError::HeadTooLarge);

    std::string many = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 10; ++i) {
        many += "X-" + std::to_string(i) + ": v\r\n";
    }
    HttpResponseParser few({16 * 1024, 5});
    EXPECT_EQ(FeedAll(few, many + "\r\n", 50).error, HttpParseError::TooManyHeaders);
}

TEST(HttpResponseParser, ResetReadsTheNextResponseOnTheSameConnection) {
    HttpResponseParser parser;
    EXPECT_EQ(
        FeedAll(parser, "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", 100).steps.back(),
        Step::Done);
    parser.reset();
    const Outcome second = FeedAll(parser, "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nz", 100);
    EXPECT_EQ(second.status, 200);
    EXPECT_EQ(second.body, "z");
}

TEST(HttpResponseParser, ChunkedBodiesReadWholeWhereverTheStreamIsCut) {
    // Two responses on one connection: chunks with an extension and a trailer, then a plain one.
    const std::string first = "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 0-10/100\r\n"
                              "Transfer-Encoding: chunked\r\nContent-Length: 3\r\n\r\n"
                              "4;ext=1\r\nhell\r\n1\r\no\r\n6\nworld!\n0\r\nX-Sum: 1\r\n\r\n";
    const std::string second = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
    const std::string stream = first + second;
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        HttpResponseParser parser;
        std::string body;
        std::vector<Step> steps;
        std::string pending;
        for (std::string_view piece :
             {std::string_view(stream).substr(0, cut), std::string_view(stream).substr(cut)}) {
            pending += piece;
            std::string_view input = pending;
            while (true) {
                const auto result = parser.feed(input);
                input.remove_prefix(result.consumed);
                if (result.step == Step::NeedMore) {
                    break;
                }
                steps.push_back(result.step);
                ASSERT_NE(result.step, Step::Error) << cut << " " << Describe(parser.error());
                if (result.step == Step::Body) {
                    body += result.body;
                } else if (result.step == Step::Done) {
                    body += '|';
                    parser.reset();
                }
            }
            ASSERT_TRUE(input.empty()) << "NeedMore always takes everything";
            pending.clear();
        }
        EXPECT_EQ(body, "helloworld!|ok|") << cut;
    }
}

TEST(HttpResponseParser, AChunkedBodyCutShortIsTruncatedAndLeavesNoReuse) {
    const std::string response =
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n";
    HttpResponseParser parser;
    const Outcome outcome = FeedAll(parser, response, 3);
    EXPECT_EQ(outcome.body, "hello");
    EXPECT_TRUE(parser.chunked());
    EXPECT_TRUE(parser.bodyDelimited());
    EXPECT_FALSE(parser.bodyRemaining());
    EXPECT_EQ(parser.finish(), Step::Error);
    EXPECT_EQ(parser.error(), HttpParseError::TruncatedBody);
}

TEST(HeaderValues, ContentRangeForms) {
    const auto full = ParseContentRange("bytes 0-99/1000");
    ASSERT_TRUE(full);
    EXPECT_EQ(full->first, 0u);
    EXPECT_EQ(full->last, 99u);
    EXPECT_EQ(full->total, 1000u);
    const auto unknownTotal = ParseContentRange("bytes 5-9/*");
    ASSERT_TRUE(unknownTotal);
    EXPECT_FALSE(unknownTotal->total);
    const auto unsatisfied = ParseContentRange("bytes */77");
    ASSERT_TRUE(unsatisfied);
    EXPECT_FALSE(unsatisfied->satisfied);
    EXPECT_EQ(unsatisfied->total, 77u);
    for (const char* bad : {"bytes 9-5/100", "bytes 0-100/100", "items 0-1/2", "bytes 0-1",
                            "bytes */*", "bytes -1-2/3", "bytes 1-2/x"}) {
        EXPECT_FALSE(ParseContentRange(bad)) << bad;
    }
}

TEST(HeaderValues, RetryAfterSecondsAreCapped) {
    EXPECT_EQ(ParseRetryAfterSeconds(" 120 "), 120u);
    EXPECT_EQ(ParseRetryAfterSeconds("99999999"), 24u * 3600);
    EXPECT_FALSE(ParseRetryAfterSeconds("Wed, 21 Oct 2015 07:28:00 GMT"));
}

} // namespace
} // namespace corvid::download
