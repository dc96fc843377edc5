#include "transfer/magnet_link.h"
#include "transfer/safe_file_name.h"

#include <gtest/gtest.h>

namespace corvid::transfer {
namespace {

// The SHA1 of no bytes at all, in both spellings.
constexpr const char* kEmptySha1 = "3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBYJ";
constexpr const char* kEmptySha1Hex = "da39a3ee5e6b4b0d3255bfef95601890afd80709";

std::optional<MagnetLink> Parse(const std::string& text, std::string* error = nullptr) {
    std::string ignored;
    return ParseMagnetLink(text, error ? error : &ignored);
}

TEST(MagnetLink, ReadsEveryPartOfAGoodLink) {
    const auto link = Parse(std::string("magnet:?xt=urn:sha1:") + kEmptySha1 +
                            "&dn=free+software%20song.mp3&xl=4518273&kt=free+song"
                            "&xs=http://10.0.0.1:6346/uri-res/N2R?urn:sha1:" +
                            kEmptySha1 + "&as=http%3A%2F%2Fexample.org%2Fsong.mp3");
    ASSERT_TRUE(link);
    EXPECT_EQ(link->sha1, kEmptySha1);
    EXPECT_EQ(link->displayName, "free software song.mp3");
    EXPECT_EQ(link->length, 4518273u);
    EXPECT_EQ(link->keywords, "free song");
    ASSERT_EQ(link->sources.size(), 2u);
    EXPECT_EQ(link->sources[0],
              std::string("http://10.0.0.1:6346/uri-res/N2R?urn:sha1:") + kEmptySha1);
    EXPECT_EQ(link->sources[1], "http://example.org/song.mp3");
    EXPECT_EQ(MagnetFileName(*link), "free software song.mp3");
}

TEST(MagnetLink, AcceptsTheSpellingsFoundInTheWild) {
    for (const std::string& xt :
         {std::string("urn:sha1:") + kEmptySha1, std::string("URN:SHA1:") + kEmptySha1,
          std::string("urn:sha1:3i42h3s6nnfq2msvx7xzkyayscx5qbyj"),
          std::string("urn:sha1:") + kEmptySha1Hex,
          std::string("urn:bitprint:") + kEmptySha1 + ".LWPNACQDBZRYXW3VHJVCJ64QBZNGHOHHHZWCLNQ",
          std::string("urn%3Asha1%3A") + kEmptySha1}) {
        const auto link = Parse("  MAGNET:?dn=x&xt.1=urn:btih:abc&xt.2=" + xt + "\n");
        ASSERT_TRUE(link) << xt;
        EXPECT_EQ(link->sha1, kEmptySha1) << xt;
    }
    // The same SHA1 twice is fine; so are parameters without a value and ones nobody knows.
    EXPECT_TRUE(Parse(std::string("magnet:?xt=urn:sha1:") + kEmptySha1 +
                      "&xt=urn:sha1:" + kEmptySha1Hex + "&&tr=udp://x&novalue&x.pe=1.2.3.4:5"));
}

TEST(MagnetLink, KeepsOnlyPlainHttpSourcesAndNotTooMany) {
    std::string text = std::string("magnet:?xt=urn:sha1:") + kEmptySha1 +
                       "&xs=https://a/b&xs=ftp://a/b&xs=http://&xs=http://a/b%20c&xs=dchub://x"
                       "&xs.1=http://1.2.3.4:5/x&xs=http://a/%0d%0aHost:b";
    for (int i = 0; i < 100; ++i)
        text += "&as=http://10.0.0." + std::to_string(i) + "/";
    const auto link = Parse(text);
    ASSERT_TRUE(link);
    ASSERT_EQ(link->sources.size(), kMaxMagnetSources);
    EXPECT_EQ(link->sources[0], "http://1.2.3.4:5/x");
    EXPECT_EQ(link->sources[1], "http://10.0.0.0/");
}

TEST(MagnetLink, RefusesWhatCannotBeFetchedWithAReason) {
    const std::string sha1 = std::string("urn:sha1:") + kEmptySha1;
    const std::pair<std::string, std::string> cases[] = {
        {"http://example.org/?xt=" + sha1, "must start with"},
        {"magnet:xt=" + sha1, "must start with"},
        {"", "must start with"},
        {"magnet:?dn=song.mp3&xl=10", "no xt=urn:sha1"},
        {"magnet:?xt=urn:btih:c12fe1c06bba254a9dc9f519b335aa7c1367a88a", "no xt=urn:sha1"},
        {"magnet:?xt=urn:sha1:3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBY", "has 31 characters"},
        {"magnet:?xt=urn:sha1:3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBYJJ", "has 33 characters"},
        {"magnet:?xt=urn:sha1:3I42H3S6NNFQ2MSVX7XZKYAYSCX5QB1J", "bad one"},
        {"magnet:?xt=urn:sha1:", "has 0 characters"},
        {"magnet:?xt=urn:bitprint:ABC.DEF", "bitprint"},
        {"magnet:?xt=" + sha1 + "&xt=urn:sha1:AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA", "two different"},
        {"magnet:?xt=" + sha1 + "&xl=12kB", "xl"},
        {"magnet:?xt=" + sha1 + "&xl=", "xl"},
        {"magnet:?xt=" + sha1 + "&xl=99999999999999999999999", "xl"},
        {"magnet:?xt=" + sha1 + "&dn=a%2", "percent-encoding in the dn"},
        {"magnet:?xt=" + sha1 + "&dn=%zz", "percent-encoding"},
        {"magnet:?xt=" + sha1 + "%", "percent-encoding in the xt"},
    };
    for (const auto& [text, reason] : cases) {
        std::string error;
        EXPECT_FALSE(Parse(text, &error)) << text;
        EXPECT_NE(error.find(reason), std::string::npos) << text << " -> " << error;
    }
}

TEST(MagnetLink, NoNameLeadsOutOfTheDownloadFolder) {
    const std::string head = std::string("magnet:?xt=urn:sha1:") + kEmptySha1 + "&dn=";
    const std::pair<std::string, std::string> cases[] = {
        {"../../x", ".._.._x"},
        {"..%2F..%2Fetc%2Fpasswd", ".._.._etc_passwd"},
        {"..%5C..%5CWindows%5Cwin.ini", ".._.._Windows_win.ini"},
        {"C%3A%5Cboot.ini", "C__boot.ini"},
        {"..", "download"},
        {"%00", "_"},
        {"a%00b%0D%0A.txt", "a_b__.txt"},
        {"/", "_"},
        {"", kEmptySha1},
    };
    for (const auto& [dn, expected] : cases) {
        const auto link = Parse(head + dn);
        ASSERT_TRUE(link) << dn;
        EXPECT_EQ(MagnetFileName(*link), expected) << dn;
    }
    // Without any dn the file is named by its hash.
    const auto bare = Parse(std::string("magnet:?xt=urn:sha1:") + kEmptySha1);
    ASSERT_TRUE(bare);
    EXPECT_EQ(MagnetFileName(*bare), kEmptySha1);
}

TEST(MagnetLink, HugeLinksAreRefusedAndLongOnesRead) {
    const std::string head = std::string("magnet:?xt=urn:sha1:") + kEmptySha1 + "&dn=";
    std::string error;
    EXPECT_FALSE(Parse(head + std::string(1024 * 1024, 'a'), &error));
    EXPECT_NE(error.find("longer"), std::string::npos) << error;
    const auto longName = Parse(head + std::string(60000, 'a') + ".mp3");
    ASSERT_TRUE(longName);
    EXPECT_EQ(longName->displayName.size(), 60004u);
    const auto name = MagnetFileName(*longName);
    EXPECT_LE(name.size(), kMaxFileNameLength);
    EXPECT_TRUE(name.ends_with(".mp3")) << name;
}

} // namespace
} // namespace corvid::transfer
