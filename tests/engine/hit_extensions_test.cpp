// The forms in which deployed servents describe a hit's files: hashes as URN text or GGEP "H",
// large sizes, alternate locations and push proxies, laid out byte by byte as the documents give
// them.
#include <gtest/gtest.h>

#include "engine/core/descriptor.h"

namespace corvid::gnutella {
namespace {

// SHA1 of "abc" and the Tiger tree root of the empty file, as raw bytes and as base32.
const Bytes kSha1Raw = {0xA9, 0x99, 0x3E, 0x36, 0x47, 0x06, 0x81, 0x6A, 0xBA, 0x3E,
                        0x25, 0x71, 0x78, 0x50, 0xC2, 0x6C, 0x9C, 0xD0, 0xD8, 0x9D};
constexpr char kSha1Text[] = "VGMT4NSHA2AWVOR6EVYXQUGCNSONBWE5";
const Bytes kTigerRaw = {0x5D, 0x9E, 0xD0, 0x0A, 0x03, 0x0E, 0x63, 0x8B, 0xDB, 0x75, 0x3A, 0x6A,
                         0x24, 0xFB, 0x90, 0x0E, 0x5A, 0x63, 0xB8, 0xE7, 0x3E, 0x6C, 0x25, 0xB6};
constexpr char kTigerText[] = "LWPNACQDBZRYXW3VHJVCJ64QBZNGHOHHHZWCLNQ";

// A hit payload with one result whose extension area is `extensions`, a trailer of open-data size
// 4 whose private area is `trailer_ggep`, and a servent GUID of 0x11 bytes.
Bytes HitWith(const Bytes& extensions, const Bytes& trailer_ggep = {}, std::uint32_t size = 1000) {
    Bytes out;
    PutU8(out, 1);
    PutU16Le(out, 6346);
    PutU32Be(out, 0x0A000001);
    PutU32Le(out, 100);
    PutU32Le(out, 7);
    PutU32Le(out, size);
    PutText(out, "song.mp3");
    out.push_back(0);
    PutBytes(out, extensions);
    out.push_back(0);
    PutText(out, "LIME");
    out.push_back(4);
    bool ggep = !trailer_ggep.empty();
    out.push_back(static_cast<std::uint8_t>(0x1C | (ggep ? 0x20 : 0)));
    out.push_back(static_cast<std::uint8_t>(0x01 | (ggep ? 0x20 : 0)));
    PutU16Le(out, 0);
    PutBytes(out, trailer_ggep);
    PutBytes(out, Bytes(16, 0x11));
    return out;
}

Bytes Ggep(std::vector<GgepExtension> extensions) {
    GgepBlock block;
    block.extensions = std::move(extensions);
    return *EncodeGgep(block);
}

Bytes Text(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

Bytes Concat(Bytes a, const Bytes& b) {
    PutBytes(a, b);
    return a;
}

HitResult OnlyResult(const Bytes& payload) {
    auto hit = ParseQueryHit(payload);
    EXPECT_TRUE(hit);
    if (!hit || hit->results.size() != 1)
        return {};
    return hit->results[0];
}

TEST(HitHashes, GgepHashOfTypeOneIsTheSha1AndTypeTwoAddsTheTigerRoot) {
    Bytes type1 = Concat({0x01}, kSha1Raw);
    auto r1 = OnlyResult(HitWith(Ggep({{"H", type1, false, false}})));
    EXPECT_EQ(r1.sha1, kSha1Text);
    EXPECT_EQ(r1.tiger, "");

    Bytes type2 = Concat(Concat({0x02}, kSha1Raw), kTigerRaw);
    auto r2 = OnlyResult(HitWith(Ggep({{"H", type2, false, false}})));
    EXPECT_EQ(r2.sha1, kSha1Text);
    EXPECT_EQ(r2.tiger, kTigerText);

    // The same hash COBS-encoded, as servents do to keep NUL bytes out of the area.
    auto r3 = OnlyResult(HitWith(Ggep({{"H", type2, false, true}})));
    EXPECT_EQ(r3.sha1, kSha1Text);
}

TEST(HitHashes, ShortOrUnknownGgepHashesNameNothing) {
    for (const Bytes& data : {Bytes{}, Bytes{0x01, 0xA9}, Concat({0x02}, kSha1Raw),
                              Concat({0x03}, kSha1Raw), Concat({0x00}, kSha1Raw)}) {
        auto r = OnlyResult(HitWith(Ggep({{"H", data, false, false}})));
        EXPECT_EQ(r.sha1, "") << data.size();
    }
    EXPECT_FALSE(ParseGgepHash({}));
}

TEST(HitHashes, UrnTextFormsInAnyCase) {
    auto sha1 = OnlyResult(HitWith(Text("URN:SHA1:vgmt4nsha2awvor6evyxqugcnsonbwe5")));
    EXPECT_EQ(sha1.sha1, kSha1Text);

    std::string bitprint = std::string("urn:bitprint:") + kSha1Text + "." + kTigerText;
    auto r = OnlyResult(HitWith(Text(bitprint)));
    EXPECT_EQ(r.sha1, kSha1Text);
    EXPECT_EQ(r.tiger, kTigerText);

    for (std::string bad :
         {std::string("urn:bitprint:") + kSha1Text,
          std::string("urn:bitprint:") + kSha1Text + "-" + kTigerText,
          std::string("urn:bitprint:") + kSha1Text + "." + "1" + std::string(kTigerText).substr(1),
          std::string("urn:sha1:") + kSha1Text + "A", std::string("urn:md5:x")})
        EXPECT_EQ(OnlyResult(HitWith(Text(bad))).sha1, "") << bad;
}

TEST(HitHashes, TextAndGgepTogetherKeepTheFirstSha1) {
    Bytes area = Text(std::string("urn:sha1:") + kSha1Text);
    area.push_back(0x1C);
    Bytes other(20, 0x42);
    PutBytes(area, Ggep({{"H", Concat(Concat({0x02}, other), kTigerRaw), false, false}}));
    auto r = OnlyResult(HitWith(area));
    EXPECT_EQ(r.sha1, kSha1Text);
    EXPECT_EQ(r.tiger, ""); // that root belongs to another file
}

TEST(HitExtensions, LargeSizesAlternatesAndPushProxies) {
    // 5 GiB + 3 as "LF", the 32-bit field left at its cap.
    std::uint64_t large = 5ull * 1024 * 1024 * 1024 + 3;
    Bytes lf;
    for (std::uint64_t v = large; v; v >>= 8)
        lf.push_back(static_cast<std::uint8_t>(v));
    Bytes alt = {10, 0, 0, 2, 0xCA, 0x18, 10, 0, 0, 3, 0x00, 0x00, 10, 0, 0, 4, 0xCB, 0x18};
    Bytes push = {192, 168, 1, 9, 0xCA, 0x18, 172, 16, 0, 1, 0x39, 0x30};
    // Both carry NUL bytes, so inside the NUL-ended area they travel COBS-encoded.
    auto hit = ParseQueryHit(HitWith(Ggep({{"LF", lf, false, true}, {"ALT", alt, false, true}}),
                                     Ggep({{"BH", {}, false, false}, {"PUSH", push, false, false}}),
                                     0xFFFFFFFFu));
    ASSERT_TRUE(hit);
    ASSERT_EQ(hit->results.size(), 1u);
    EXPECT_EQ(hit->results[0].size, large);
    // The entry with port 0 is no address at all.
    EXPECT_EQ(hit->results[0].alternates,
              (std::vector<Endpoint>{{0x0A000002, 6346}, {0x0A000004, 6347}}));
    EXPECT_EQ(hit->push_proxies, (std::vector<Endpoint>{{0xC0A80109, 6346}, {0xAC100001, 12345}}));

    // A features byte before the proxies, as some servents write it.
    auto featured =
        ParseQueryHit(HitWith({}, Ggep({{"PUSH", Concat({0x00}, push), false, false}})));
    ASSERT_TRUE(featured);
    EXPECT_EQ(featured->push_proxies.size(), 2u);
}

TEST(HitExtensions, SmallLfValuesDoNotOverrideTheSizeField) {
    auto r = OnlyResult(HitWith(Ggep({{"LF", {0x10}, false, false}}), {}, 1234));
    EXPECT_EQ(r.size, 1234u);
}

TEST(HitExtensions, OwnHitsWithLargeFilesReadBackWhole) {
    QueryHit hit;
    hit.port = 6346;
    hit.ip = 0x7F000001;
    hit.vendor = "CRVD";
    hit.results.push_back({3, 6ull << 30, "big.iso", kSha1Text, "", {}});
    auto back = ParseQueryHit(SerializeQueryHit(hit));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->results[0].size, 6ull << 30);
    EXPECT_EQ(back->results[0].sha1, kSha1Text);
}

TEST(QueryHashes, AUrnQueryMayNameItsSha1ByGgep) {
    Bytes payload;
    PutU16Be(payload, kQueryFlagsPresent | kQueryGgepH);
    PutText(payload, "\\");
    payload.push_back(0);
    PutBytes(payload, Ggep({{"H", Concat({0x01}, kSha1Raw), false, false}}));
    auto query = ParseQuery(payload);
    ASSERT_TRUE(query);
    EXPECT_EQ(query->sha1s, std::vector<std::string>{kSha1Text});
}

} // namespace
} // namespace corvid::gnutella
