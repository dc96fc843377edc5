#include "transfer/magnet_download.h"

#include <gtest/gtest.h>

namespace corvid::transfer {
namespace {

constexpr const char* kSha1 = "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X";

TEST(MagnetDownload, HttpSourcesBecomeHostsAndPorts) {
    using Address = std::optional<std::pair<std::string, std::int32_t>>;
    EXPECT_EQ(HttpHostAndPort("http://10.0.0.1:6346/uri-res/N2R?urn:sha1:X"),
              Address(std::make_pair("10.0.0.1", 6346)));
    EXPECT_EQ(HttpHostAndPort("HTTP://example.org/file.bin"),
              Address(std::make_pair("example.org", 80)));
    EXPECT_EQ(HttpHostAndPort("http://host:8080?x"), Address(std::make_pair("host", 8080)));
    for (const char* bad :
         {"https://host/x", "ftp://host/x", "http://", "http:///x", "http://user@host/x",
          "http://host:0/x", "http://host:65536/x", "http://host:80x/x", "http://host:/x"})
        EXPECT_FALSE(HttpHostAndPort(bad)) << bad;
}

TEST(MagnetDownload, TheLinkBecomesAGroupOfItsSources) {
    std::string error;
    const auto link =
        ParseMagnetLink(std::string("magnet:?xt=urn:sha1:") + kSha1 +
                            "&dn=My%20Song.mp3&xl=5000&xs=http%3A%2F%2F10.0.0.1%3A6346%2Furi-res%"
                            "2FN2R%3Furn%3Asha1%3A" +
                            kSha1 + "&as=http://10.0.0.2/song.mp3&xs=http://10.0.0.1:6346/other" +
                            "&as=https://secure/x",
                        &error);
    ASSERT_TRUE(link) << error;
    const auto group = MagnetGroup(*link);
    EXPECT_EQ(group.sha1, kSha1);
    ASSERT_EQ(group.sources.size(), 2u) << "one source per host, http only";
    EXPECT_EQ(group.sources[0].host, "10.0.0.1");
    EXPECT_EQ(group.sources[0].port, 6346);
    EXPECT_EQ(group.sources[0].name, "My Song.mp3");
    EXPECT_EQ(group.sources[0].size, 5000);
    EXPECT_EQ(group.sources[1].host, "10.0.0.2");
    EXPECT_EQ(group.sources[1].port, 80);

    ResultSource hit;
    hit.name = "found.mp3";
    hit.host = "10.0.0.9";
    EXPECT_EQ(MagnetSource(*link, hit).name, "My Song.mp3");
    EXPECT_EQ(MagnetSource(*link, hit).host, "10.0.0.9");

    // No sources, no name, a length beyond the list's sizes.
    const auto bare =
        ParseMagnetLink(std::string("magnet:?xt=urn:sha1:") + kSha1 + "&xl=99999999999", &error);
    ASSERT_TRUE(bare) << error;
    EXPECT_TRUE(MagnetGroup(*bare).sources.empty());
    EXPECT_EQ(MagnetSource(*bare, hit).name, "found.mp3");
}

} // namespace
} // namespace corvid::transfer
