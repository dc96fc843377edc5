#include "transfer/download_states.h"
#include "transfer/engine_events.h"

#include <gtest/gtest.h>

namespace corvid::transfer {
namespace {

constexpr const char* kSha1 = "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X";

std::string Url(const std::string& address) {
    return "http://" + address + "/uri-res/N2R?urn:sha1:" + kSha1;
}

TEST(EngineEventTexts, ItemEventsLetterForLetter) {
    EXPECT_EQ(ItemEventText(0, 0), "Download stopped.");
    EXPECT_EQ(ItemEventText(1, 0), "Download start");
    EXPECT_EQ(ItemEventText(16, 5000), "Retrieve file length 5000 bytes");
    EXPECT_EQ(ItemEventText(16, -1), "Retrieve file length -1 bytes");
    EXPECT_EQ(ItemEventText(18, 0), "");
    EXPECT_EQ(ItemEventText(21, 0), "No valid source");
    EXPECT_EQ(ItemEventText(22, 0), "User Abortted");
    EXPECT_EQ(ItemEventText(23, 0), "Download succeed");
    for (int code : {0, 1, 16, 18, 21, 22, 23})
        EXPECT_TRUE(IsItemEvent(code)) << code;
    for (int code : {-1, 2, 8, 10, 13, 20, 24, 1000})
        EXPECT_FALSE(IsItemEvent(code)) << code;
}

TEST(EngineEventTexts, SourceEventsWithKindStatusAndFailure) {
    struct Expected {
        int code;
        std::string text;
        int kind;
        int status; // -1: unchanged
        bool failed;
    };
    const Expected table[] = {
        {2, "Invalid source", kLogError, kSourceFailed, true},
        {3, "Waiting 5 seconds to retry", kLogStatus, kSourceWaiting, false},
        {4, "Connecting... [1.2.3.4:6346]", kLogStatus, kSourceConnecting, false},
        {5, "Resolve name failed 1.2.3.4:6346", kLogError, kSourceFailed, true},
        {6, "Connection OK", kLogStatus, -1, false},
        {7, "Connection failed", kLogError, kSourceFailed, true},
        {8, "Unknown state", kLogStatus, -1, false},
        {9, "Send request", kLogStatus, -1, false},
        {10, "Unknown state", kLogStatus, -1, false},
        {11, "Received http header", kLogStatus, -1, false},
        {12, "Receiving data...", kLogStatus, kSourceReceiving, false},
        {14, "Redirect to 1.2.3.4:6346", kLogStatus, kSourceConnecting, false},
        {15, "Retrieved file name [1.2.3.4:6346]", kLogStatus, -1, false},
        {17, "Time out", kLogStatus, kSourceFailed, true},
        {19, "Error occured: -42", kLogError, kSourceFailed, true},
        {20, "Disconnected", kLogStatus, -1, true},
        {24, "Unknown state", kLogStatus, -1, false},
        {-3, "Unknown state", kLogStatus, -1, false},
    };
    for (const auto& expected : table) {
        const auto effect = DescribeSourceEvent(expected.code, "1.2.3.4:6346", -42);
        EXPECT_EQ(effect.text, expected.text) << expected.code;
        EXPECT_EQ(effect.kind, expected.kind) << expected.code;
        EXPECT_EQ(effect.status.value_or(-1), expected.status) << expected.code;
        EXPECT_EQ(effect.failed, expected.failed) << expected.code;
    }
}

TEST(EngineEventTexts, LinesSplitAtCrLfWithoutEmptyOnes) {
    EXPECT_EQ(SplitLines("GET / HTTP/1.1\r\nHost: a\r\n\r\n"),
              (std::vector<std::string>{"GET / HTTP/1.1", "Host: a"}));
    EXPECT_EQ(SplitLines("one\ntwo"), std::vector<std::string>{"one\ntwo"});
    EXPECT_TRUE(SplitLines("").empty());
    EXPECT_TRUE(SplitLines("\r\n\r\n").empty());
}

TEST(SourceUrls, SearchHitsAndTheirChecks) {
    EXPECT_EQ(HitSourceUrl("10.0.0.1", 6346, kSha1), Url("10.0.0.1:6346"));
    EXPECT_EQ(HitSourceUrl("peer.example.org", 80, kSha1), Url("peer.example.org:80"));
    EXPECT_FALSE(HitSourceUrl("", 6346, kSha1));
    EXPECT_FALSE(HitSourceUrl("10.0.0.1@evil", 6346, kSha1));
    EXPECT_FALSE(HitSourceUrl("10.0.0.1", -1, kSha1));
    EXPECT_FALSE(HitSourceUrl("10.0.0.1", 6346, ""));
    EXPECT_FALSE(HitSourceUrl("10.0.0.1", 6346, "ABC DEF"));
}

TEST(SourceUrls, FirewalledHitsGoThroughTheEnginesRelayOnlyInItsOwnShape) {
    const std::string relay = std::string("http://127.0.0.1:40123/push/"
                                          "01112131415161718191a1b1c1d1e1f1/42/10.0.0.1:6346/"
                                          "uri-res/N2R?urn:sha1:") +
                              kSha1;
    ResultSource hit;
    hit.host = "192.168.1.20";
    hit.port = 6346;
    hit.push = 1;
    hit.sourceUrl = relay;
    EXPECT_EQ(SourceUrlOf(hit, kSha1), relay);

    // Anything that is not the engine's relay asking for this very file is not taken: the host's
    // own address is used, as for any hit.
    const std::string sha1(kSha1);
    for (const std::string& bad :
         {"http://10.0.0.5:40123/push/01/1/-/uri-res/N2R?urn:sha1:" + sha1,
          "http://127.0.0.1:40123/get/1/a?urn:sha1:" + sha1,
          "http://127.0.0.1:99999/push/01/1/-/uri-res/N2R?urn:sha1:" + sha1,
          std::string("http://127.0.0.1:40123/push/01/1/-/uri-res/N2R?urn:sha1:AAAA"),
          "http://127.0.0.1:40123/push/0 1/1/-/uri-res/N2R?urn:sha1:" + sha1,
          "http://127.0.0.1:40123/push/" + std::string(2000, 'a') +
              "/uri-res/N2R?urn:sha1:" + sha1}) {
        hit.sourceUrl = bad;
        EXPECT_EQ(SourceUrlOf(hit, kSha1), Url("192.168.1.20:6346")) << bad;
    }
    hit.sourceUrl.clear();
    EXPECT_EQ(SourceUrlOf(hit, kSha1), Url("192.168.1.20:6346"));
    hit.sourceUrl = relay;
    EXPECT_FALSE(SourceUrlOf(hit, "../x"));
}

TEST(SourceUrls, AltHeaderWithTwoPieces) {
    const auto header = "HTTP/1.1 200 OK\r\nServer: X\r\nx-alt: 10.0.0.7, 10.0.0.8:6347\r\n\r\n";
    EXPECT_EQ(AltSourceUrls(header, kSha1),
              (std::vector<std::string>{Url("10.0.0.7:6346"), Url("10.0.0.8:6347")}));
}

TEST(SourceUrls, AltHeadersInAnyCaseRepeatedAndHostile) {
    const auto header = "X-Alt: 10.0.0.1:6346,10.0.0.1\r\n"
                        "X-ALT: 10.0.0.2:0, 10.0.0.3:99999, 10.0.0.4/x, , a b, 10.0.0.5:63a\r\n"
                        "X-Alt:10.0.0.6\r\n"
                        "X-NAlt: 10.0.0.9\r\n"
                        "x-alt: \t10.0.0.10:1\t";
    EXPECT_EQ(AltSourceUrls(header, kSha1),
              (std::vector<std::string>{Url("10.0.0.1:6346"), Url("10.0.0.10:1")}));
    EXPECT_TRUE(AltSourceUrls("Server: X\r\n", kSha1).empty());
    EXPECT_TRUE(AltSourceUrls("X-Alt: 10.0.0.1\r\n", "../x").empty());
}

TEST(SourceUrls, OneHeaderGivesABoundedNumberOfSources) {
    std::string header = "X-Alt: ";
    for (int i = 0; i < 1000; ++i)
        header += "10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256) + ",";
    EXPECT_EQ(AltSourceUrls(header, kSha1).size(), kMaxAltSourcesPerHeader);
}

} // namespace
} // namespace corvid::transfer
