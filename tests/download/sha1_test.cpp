#include "download/core/sha1.h"

#include <gtest/gtest.h>
#include <string>

namespace corvid::download {
namespace {

std::string Sha1Base32(const std::string& text) {
    Sha1 hasher;
    hasher.update(text.data(), text.size());
    return Base32Encode(hasher.finish());
}

TEST(Sha1, MatchesKnownDigests) {
    // FIPS 180 examples, written as base32 the way peers name files.
    EXPECT_EQ(Sha1Base32(""), "3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBYJ");
    EXPECT_EQ(Sha1Base32("abc"), "VGMT4NSHA2AWVOR6EVYXQUGCNSONBWE5");
    EXPECT_EQ(Sha1Base32("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "QSMD4RA4HPJG5OVOJKQ7SUJJ4XSUM4HR");
}

TEST(Sha1, SameDigestWhateverThePieces) {
    std::string text;
    for (int i = 0; i < 1000; ++i) {
        text += static_cast<char>(i * 7);
    }
    const std::string whole = Sha1Base32(text);
    for (std::size_t piece : {1u, 3u, 63u, 64u, 65u, 200u}) {
        Sha1 hasher;
        for (std::size_t at = 0; at < text.size(); at += piece) {
            hasher.update(text.data() + at, std::min(piece, text.size() - at));
        }
        EXPECT_EQ(Base32Encode(hasher.finish()), whole) << "pieces of " << piece;
    }
}

TEST(Base32, RoundTripsAndRefusesBadText) {
    const auto digest = Base32DecodeSha1("VGMT4NSHA2AWVOR6EVYXQUGCNSONBWE5");
    ASSERT_TRUE(digest);
    EXPECT_EQ(Base32Encode(*digest), "VGMT4NSHA2AWVOR6EVYXQUGCNSONBWE5");
    EXPECT_EQ(Base32DecodeSha1("vgmt4nsha2awvor6evyxqugcnsonbwe5"), digest);
    EXPECT_FALSE(Base32DecodeSha1("VGMT4NSHA2AWVOR6EVYXQUGCNSONBWE"));
    EXPECT_FALSE(Base32DecodeSha1("VGMT4NSHA2AWVOR6EVYXQUGCNSONBWE1"));
    EXPECT_FALSE(Base32DecodeSha1(""));
}

} // namespace
} // namespace corvid::download
