#include "../library/temp_folder.h"
#include "engine/sharing/upload_protocol.h"
#include "library/sha1.h"

#include <gtest/gtest.h>

namespace corvid::gnutella {
namespace {

using library::Sha1Of;
using library::ToBase32;

TEST(RequestHead, ReadsRequestLineAndHeadersWithEitherLineEnd) {
    const std::string crlf =
        "GET /get/3/a.mp3 HTTP/1.1\r\nHost: 127.0.0.1\r\nRange:  bytes=0-9 \r\n\r\n";
    const HeadParse parse = ParseRequestHead(crlf + "GET / HTTP/1.1\r\n");
    ASSERT_EQ(parse.status, HeadStatus::Complete);
    EXPECT_EQ(parse.consumed, crlf.size());
    EXPECT_EQ(parse.request.method, "GET");
    EXPECT_EQ(parse.request.target, "/get/3/a.mp3");
    EXPECT_EQ(parse.request.minorVersion, 1);
    ASSERT_NE(parse.request.Header("range"), nullptr);
    EXPECT_EQ(*parse.request.Header("RANGE"), "bytes=0-9");
    EXPECT_EQ(parse.request.Header("X-Alt"), nullptr);

    const HeadParse bare = ParseRequestHead("HEAD / HTTP/1.0\nAccept: x\n\n");
    ASSERT_EQ(bare.status, HeadStatus::Complete);
    EXPECT_EQ(bare.consumed, 27u);
    EXPECT_EQ(bare.request.minorVersion, 0);
}

TEST(RequestHead, WaitsForMoreAndRefusesWhatIsNotARequest) {
    EXPECT_EQ(ParseRequestHead("").status, HeadStatus::Incomplete);
    EXPECT_EQ(ParseRequestHead("GET / HTTP/1.1\r\nHost: x\r\n").status, HeadStatus::Incomplete);
    EXPECT_EQ(ParseRequestHead(std::string(kMaxRequestHead, 'A')).status, HeadStatus::Invalid);
    for (const char* bad :
         {"\r\n\r\n", "GET\r\n\r\n", "GET /\r\n\r\n", "GET / HTTP/2.0\r\n\r\n",
          "GET / FTP/1.1\r\n\r\n", "G(T / HTTP/1.1\r\n\r\n", "GET /a b HTTP/1.1\r\n\r\n",
          "GET / HTTP/1.1\r\nNoColon\r\n\r\n", "GET / HTTP/1.1\r\nBad Name: x\r\n\r\n",
          "GET / HTTP/1.1\r\nX: a\x01z\r\n\r\n"}) {
        EXPECT_EQ(ParseRequestHead(bad).status, HeadStatus::Invalid) << bad;
    }
    std::string manyHeaders = "GET / HTTP/1.1\r\n";
    for (int i = 0; i < 100; ++i) {
        manyHeaders += "X: y\r\n";
    }
    EXPECT_EQ(ParseRequestHead(manyHeaders + "\r\n").status, HeadStatus::Invalid);
}

TEST(RequestHead, KeepAliveFollowsTheHttpVersionAndConnectionHeader) {
    auto keepAlive = [](const char* head) {
        return ParseRequestHead(head).request.WantsKeepAlive();
    };
    EXPECT_TRUE(keepAlive("GET / HTTP/1.1\r\n\r\n"));
    EXPECT_FALSE(keepAlive("GET / HTTP/1.1\r\nConnection: close\r\n\r\n"));
    EXPECT_FALSE(keepAlive("GET / HTTP/1.0\r\n\r\n"));
    EXPECT_TRUE(keepAlive("GET / HTTP/1.0\r\nConnection: Keep-Alive\r\n\r\n"));
}

TEST(Ranges, ServeTheFirstSatisfiableRangeAndIgnoreMalformedOnes) {
    struct Case {
        const char* header;
        RangeStatus status;
        std::uint64_t first, last;
    };
    const Case cases[] = {
        {"bytes=0-1023", RangeStatus::Part, 0, 1023},
        {"bytes = 10 - 19", RangeStatus::Part, 10, 19},
        {"bytes=100-", RangeStatus::Part, 100, 9999},
        {"bytes=9000-20000", RangeStatus::Part, 9000, 9999},
        {"bytes=-10", RangeStatus::Part, 9990, 9999},
        {"bytes=-20000", RangeStatus::Part, 0, 9999},
        {"bytes=0-0,5-9", RangeStatus::Part, 0, 0},
        {"bytes=10000-", RangeStatus::Unsatisfiable, 0, 0},
        {"bytes=-0", RangeStatus::Unsatisfiable, 0, 0},
        {"bytes=20-10", RangeStatus::Whole, 0, 9999},
        {"bytes=a-b", RangeStatus::Whole, 0, 9999},
        {"bytes=-", RangeStatus::Whole, 0, 9999},
        {"bytes=+1-5", RangeStatus::Whole, 0, 9999},
        {"bytes=99999999999999999999999-", RangeStatus::Whole, 0, 9999},
        {"items=0-5", RangeStatus::Whole, 0, 9999},
        {"", RangeStatus::Whole, 0, 9999},
    };
    for (const Case& c : cases) {
        const std::string header = c.header;
        const RangeChoice choice = ChooseRange(&header, 10000);
        EXPECT_EQ(choice.status, c.status) << c.header;
        if (c.status != RangeStatus::Unsatisfiable) {
            EXPECT_EQ(choice.range.first, c.first) << c.header;
            EXPECT_EQ(choice.range.last, c.last) << c.header;
        }
    }
    const std::string any = "bytes=0-";
    EXPECT_EQ(ChooseRange(&any, 0).status, RangeStatus::Unsatisfiable)
        << "an empty file has no bytes";
    EXPECT_EQ(ChooseRange(nullptr, 0).status, RangeStatus::Whole);
}

class DecideUploadTest : public ::testing::Test {
protected:
    DecideUploadTest() {
        song_ = shared_.Write("Song One.mp3", "0123456789");
        shared_.Write("sub/notes.txt", "notes");
        outside_.Write("secret.txt", "top secret");
        index_.SetSharedFolders({shared_.path()});
        EXPECT_TRUE(index_.WaitForWalk());
        while (index_.HashNext()) {
        }
        songIndex_ = index_.Match("song", 1).at(0).index;
    }

    UploadReply Decide(const std::string& head, std::string_view peer = "127.0.0.2") {
        const HeadParse parse = ParseRequestHead(head);
        EXPECT_EQ(parse.status, HeadStatus::Complete) << head;
        return DecideUpload(parse.request, index_, alternates_, peer, settings_);
    }

    testing::TempFolder shared_;
    testing::TempFolder outside_;
    std::filesystem::path song_;
    library::FileIndex index_;
    AltLocations alternates_;
    UploadSettings settings_;
    std::uint32_t songIndex_ = 0;
    const std::string songSha1_ = ToBase32(Sha1Of("0123456789"));
};

TEST_F(DecideUploadTest, ServesAFileBySha1WithItsUrnAndLength) {
    const UploadReply reply =
        Decide("GET /uri-res/N2R?urn:sha1:" + songSha1_ + " HTTP/1.1\r\n\r\n");
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.body, UploadReply::Body::File);
    ASSERT_TRUE(reply.file.has_value());
    EXPECT_EQ(reply.file->path, std::filesystem::weakly_canonical(song_));
    EXPECT_EQ(reply.range.first, 0u);
    EXPECT_EQ(reply.range.last, 9u);
    EXPECT_TRUE(reply.keepAlive);
    EXPECT_EQ(reply.head.rfind("HTTP/1.1 200 OK\r\n", 0), 0u);
    EXPECT_NE(reply.head.find("\r\nContent-Length: 10\r\n"), std::string::npos);
    EXPECT_NE(reply.head.find("\r\nX-Gnutella-Content-URN: urn:sha1:" + songSha1_ + "\r\n"),
              std::string::npos);
    EXPECT_NE(reply.head.find("\r\nConnection: Keep-Alive\r\n"), std::string::npos);
    EXPECT_TRUE(reply.head.ends_with("\r\n\r\n"));
}

TEST_F(DecideUploadTest, ARangeGivesPartialContentWithItsContentRange) {
    const UploadReply reply = Decide("GET /get/" + std::to_string(songIndex_) +
                                     "/Song%20One.mp3 HTTP/1.1\r\nRange: bytes=2-5\r\n"
                                     "Connection: close\r\n\r\n");
    EXPECT_EQ(reply.status, 206);
    EXPECT_EQ(reply.range.first, 2u);
    EXPECT_EQ(reply.range.last, 5u);
    EXPECT_FALSE(reply.keepAlive);
    EXPECT_NE(reply.head.find("\r\nContent-Length: 4\r\n"), std::string::npos);
    EXPECT_NE(reply.head.find("\r\nContent-Range: bytes 2-5/10\r\n"), std::string::npos);
    EXPECT_NE(reply.head.find("X-Gnutella-Content-URN: urn:sha1:" + songSha1_), std::string::npos)
        << "the whole file's URN, even for a part";

    const UploadReply beyond =
        Decide("GET /uri-res/N2R?urn:sha1:" + songSha1_ + " HTTP/1.1\r\nRange: bytes=10-\r\n\r\n");
    EXPECT_EQ(beyond.status, 416);
    EXPECT_EQ(beyond.body, UploadReply::Body::None);
    EXPECT_NE(beyond.head.find("Content-Range: bytes */10\r\n"), std::string::npos);

    const UploadReply head =
        Decide("HEAD /uri-res/N2R?urn:sha1:" + songSha1_ + " HTTP/1.1\r\n\r\n");
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.body, UploadReply::Body::None);
}

TEST_F(DecideUploadTest, NoRequestReachesAFileOutsideTheIndex) {
    const std::string index = std::to_string(songIndex_);
    const std::string attempts[] = {
        "/etc/passwd",
        "/../secret.txt",
        "//etc/passwd",
        "/get/" + index + "/../../secret.txt",
        "/get/" + index + "/..%2f..%2fsecret.txt",
        "/get/" + index + "/%2e%2e%2f%2e%2e%2fsecret.txt",
        "/get/" + index + "/..%5csecret.txt",
        "/get/" + index + "/Song%20One.mp3%00.txt",
        "/get/" + index + "/Song%2",
        "/get/" + index + "/secret.txt",
        "/get/" + index + "/",
        "/get/99999/secret.txt",
        "/get/-1/Song%20One.mp3",
        "/get/4294967297/Song%20One.mp3",
        "/get/0x1/Song%20One.mp3",
        "/get//Song%20One.mp3",
        "/get/" + index,
        "/uri-res/N2R?urn:sha1:../../secret.txt",
        "/uri-res/N2R?urn:sha1:" + ToBase32(Sha1Of("top secret")),
        "/uri-res/N2R?" + songSha1_,
        "/uri-res/N2R?urn:sha1:" + songSha1_ + "/../secret.txt",
        "http://127.0.0.1/get/" + index + "/Song%20One.mp3",
        "/get/" + index + "/" + outside_.path().string() + "/secret.txt",
    };
    for (const std::string& target : attempts) {
        const UploadReply reply = Decide("GET " + target + " HTTP/1.1\r\n\r\n");
        EXPECT_EQ(reply.status, 404) << target;
        EXPECT_EQ(reply.body, UploadReply::Body::None) << target;
        EXPECT_FALSE(reply.file.has_value()) << target;
    }
    EXPECT_EQ(Decide("POST /get/" + index + "/Song%20One.mp3 HTTP/1.1\r\n\r\n").status, 400);
}

TEST_F(DecideUploadTest, AFileLeavesTheSharesAndIsNoLongerServed) {
    std::filesystem::remove(song_);
    index_.Rescan();
    ASSERT_TRUE(index_.WaitForWalk());
    EXPECT_EQ(Decide("GET /uri-res/N2R?urn:sha1:" + songSha1_ + " HTTP/1.1\r\n\r\n").status, 404);
    EXPECT_EQ(Decide("GET /get/" + std::to_string(songIndex_) + "/Song%20One.mp3 HTTP/1.1\r\n\r\n")
                  .status,
              404);
}

TEST_F(DecideUploadTest, AlternateSourcesAreLearnedAndHandedToOthers) {
    Decide("GET /uri-res/N2R?urn:sha1:" + songSha1_ +
               " HTTP/1.1\r\nX-Alt: 127.0.0.5:7000, 127.0.0.6, bogus, 999.1.1.1:1, "
               "127.0.0.7:0\r\n\r\n",
           "127.0.0.5");
    const UploadReply reply =
        Decide("GET /uri-res/N2R?urn:sha1:" + songSha1_ + " HTTP/1.1\r\n\r\n", "127.0.0.6");
    EXPECT_NE(reply.head.find("\r\nX-Alt: 127.0.0.5:7000\r\n"), std::string::npos) << reply.head;
    const UploadReply third =
        Decide("GET /uri-res/N2R?urn:sha1:" + songSha1_ + " HTTP/1.1\r\n\r\n", "127.0.0.9");
    EXPECT_NE(third.head.find("\r\nX-Alt: 127.0.0.5:7000, 127.0.0.6:6346\r\n"), std::string::npos)
        << third.head;
}

TEST_F(DecideUploadTest, BrowseAnswersOnlyThoseWhoAcceptGnutellaPackets) {
    const UploadReply browse =
        Decide("GET / HTTP/1.1\r\nAccept: text/html, "
               "application/x-gnutella-packets\r\nAccept-Encoding: deflate\r\n\r\n");
    EXPECT_EQ(browse.status, 200);
    EXPECT_EQ(browse.body, UploadReply::Body::Browse);
    EXPECT_TRUE(browse.deflate);
    EXPECT_FALSE(browse.keepAlive);
    EXPECT_NE(browse.head.find("Content-Type: application/x-gnutella-packets\r\n"),
              std::string::npos);
    EXPECT_NE(browse.head.find("Content-Encoding: deflate\r\n"), std::string::npos);

    const UploadReply plain =
        Decide("GET / HTTP/1.1\r\nAccept: application/x-gnutella-packets\r\n\r\n");
    EXPECT_EQ(plain.body, UploadReply::Body::Browse);
    EXPECT_FALSE(plain.deflate);
    EXPECT_EQ(plain.head.find("Content-Encoding"), std::string::npos);

    EXPECT_EQ(Decide("GET / HTTP/1.1\r\nAccept: text/html\r\n\r\n").status, 406);
    settings_.browseHost = false;
    EXPECT_EQ(Decide("GET / HTTP/1.1\r\nAccept: application/x-gnutella-packets\r\n\r\n").status,
              406);
}

TEST(Refusals, BusyTellsWhenToComeBack) {
    UploadSettings settings;
    settings.retryAfterSeconds = 45;
    const UploadReply busy = BusyReply(settings);
    EXPECT_EQ(busy.status, 503);
    EXPECT_NE(busy.head.find("\r\nRetry-After: 45\r\n"), std::string::npos);
    EXPECT_NE(busy.head.find("\r\nContent-Length: 0\r\n"), std::string::npos);
}

TEST(Endpoints, OnlyDottedIpv4AddressesWithValidPorts) {
    EXPECT_EQ(NormalizeEndpoint(" 127.0.0.1:80 "), "127.0.0.1:80");
    EXPECT_EQ(NormalizeEndpoint("127.000.0.1"), "127.0.0.1:6346");
    for (const char* bad :
         {"", "127.0.0", "127.0.0.1.1", "127.0.0.256", "a.b.c.d", "127.0.0.1:", "127.0.0.1:65536",
          "127.0.0.1:0", "127..0.1", "1277.0.0.1", "127.0.0.1:x"}) {
        EXPECT_FALSE(NormalizeEndpoint(bad).has_value()) << bad;
    }
}

} // namespace
} // namespace corvid::gnutella
