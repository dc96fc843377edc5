#include "download/core/url.h"

#include <gtest/gtest.h>

namespace corvid::download {
namespace {

TEST(HttpUrlParsing, ReadsHostPortAndTarget) {
    const auto url = ParseHttpUrl("http://10.0.0.7:6346/uri-res/N2R?urn:sha1:ABC");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->host, "10.0.0.7");
    EXPECT_EQ(url->port, 6346);
    EXPECT_EQ(url->target, "/uri-res/N2R?urn:sha1:ABC");
    EXPECT_EQ(url->hostHeader(), "10.0.0.7:6346");

    const auto plain = ParseHttpUrl("HTTP://example.org");
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->port, 80);
    EXPECT_EQ(plain->target, "/");
    EXPECT_EQ(plain->hostHeader(), "example.org");

    const auto ipv6 = ParseHttpUrl("http://[::1]:8080/x");
    ASSERT_TRUE(ipv6);
    EXPECT_EQ(ipv6->host, "::1");
    EXPECT_EQ(ipv6->hostHeader(), "[::1]:8080");
}

TEST(HttpUrlParsing, RefusesWhatCouldNotBeRequestedSafely) {
    for (const char* bad : {"https://a/b", "ftp://a", "http://", "http://a:0/", "http://a:65536/",
                            "http://a:/x", "http://a b/", "http://a/b c", "http://a/b\r\nX: y",
                            "http://user@host/", "http://[::1/x", "http://a:12ab/"}) {
        EXPECT_FALSE(ParseHttpUrl(bad)) << bad;
    }
    EXPECT_FALSE(ParseHttpUrl("http://a/" + std::string(3000, 'x')));
}

TEST(HttpUrlParsing, ResolvesRedirectLocations) {
    const auto base = *ParseHttpUrl("http://a:81/old");
    EXPECT_EQ(ResolveLocation(base, "/new?q")->text(), "http://a:81/new?q");
    EXPECT_EQ(ResolveLocation(base, "http://b:82/x")->text(), "http://b:82/x");
    EXPECT_FALSE(ResolveLocation(base, "https://b/x"));
    EXPECT_FALSE(ResolveLocation(base, "//b/x"));
    EXPECT_FALSE(ResolveLocation(base, "relative"));
}

TEST(Sha1Urn, FoundAnywhereInTheUrl) {
    const auto digest =
        FindSha1Urn("http://h:1/uri-res/N2R?urn:sha1:VGMT4NSHA2AWVOR6EVYXQUGCNSONBWE5");
    ASSERT_TRUE(digest);
    EXPECT_EQ(library::ToBase32(*digest), "VGMT4NSHA2AWVOR6EVYXQUGCNSONBWE5");
    EXPECT_TRUE(FindSha1Urn("/x?URN:SHA1:vgmt4nsha2awvor6evyxqugcnsonbwe5"));
    EXPECT_FALSE(FindSha1Urn("http://h/uri-res/N2R?urn:sha1:TOOSHORT"));
    EXPECT_FALSE(FindSha1Urn("http://h/file.bin"));
}

} // namespace
} // namespace corvid::download
