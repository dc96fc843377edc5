#include "library/file_index.h"
#include "library/sha1.h"
#include "temp_folder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

namespace corvid::library {
namespace {

struct Vector {
    std::string message;
    const char* hex;
};

std::vector<Vector> PublishedVectors() {
    std::string rfcTest4;
    for (int i = 0; i < 10; ++i) {
        rfcTest4 += "0123456701234567012345670123456701234567012345670123456701234567";
    }
    return {
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {std::string(1'000'000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
        {rfcTest4, "dea356a2cddd90c7a7ecedc5ebb563934f460452"},
    };
}

TEST(Sha1, PublishedVectorsWithBothRoundImplementations) {
    for (const auto& vector : PublishedVectors()) {
        Sha1 best;
        best.Update(vector.message);
        Sha1 portable = Sha1::Portable();
        portable.Update(vector.message);
        EXPECT_EQ(ToHex(best.Finish()), vector.hex) << vector.message.substr(0, 20);
        EXPECT_EQ(ToHex(portable.Finish()), vector.hex) << vector.message.substr(0, 20);
    }
}

TEST(Sha1, PiecewiseUpdatesAgreeWithOneCallAtEveryLengthAndSplit) {
    const std::string data = testing::RandomBytes(300, 7);
    for (std::size_t length = 0; length <= data.size(); length += 13) {
        const std::string message = data.substr(0, length);
        Sha1 portable = Sha1::Portable();
        portable.Update(message);
        const std::string expected = ToHex(portable.Finish());
        ASSERT_EQ(ToHex(Sha1Of(message)), expected) << length;
        for (std::size_t split = 0; split <= length; split += 5) {
            Sha1 pieces;
            pieces.Update(std::string_view(message).substr(0, split));
            pieces.Update(std::string_view(message).substr(split));
            ASSERT_EQ(ToHex(pieces.Finish()), expected) << length << " split at " << split;
        }
    }
}

TEST(Sha1, FinishStartsAFreshDigest) {
    Sha1 sha;
    sha.Update("abc");
    sha.Finish();
    sha.Update("abc");
    EXPECT_EQ(ToHex(sha.Finish()), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST(Base32, WritesTheUrnsGnutellaPeersWrite) {
    EXPECT_EQ(ToBase32(Sha1Of("")), "3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBYJ");
    Sha1Digest digest{};
    ASSERT_TRUE(FromBase32("3i42h3s6nnfq2msvx7xzkyayscx5qbyj", digest));
    EXPECT_EQ(digest, Sha1Of(""));
    EXPECT_EQ(NormalizeSha1Text("3i42h3s6nnfq2msvx7xzkyayscx5qbyj"),
              "3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBYJ");
}

TEST(Base32, RefusesAnythingButThirtyTwoAlphabetCharacters) {
    Sha1Digest digest{};
    EXPECT_FALSE(FromBase32("", digest));
    EXPECT_FALSE(FromBase32("3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBY", digest));
    EXPECT_FALSE(FromBase32("3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBYJA", digest));
    EXPECT_FALSE(FromBase32("3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBY1", digest));
    EXPECT_FALSE(FromBase32("3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBY=", digest));
    EXPECT_FALSE(FromBase32(std::string_view("3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBY\0", 32), digest));
    EXPECT_EQ(NormalizeSha1Text("../../etc/passwd"), "");
}

std::string Sha1SumOf(const std::filesystem::path& file) {
    const std::string command = "sha1sum '" + file.string() + "'";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    if (!pipe) {
        return {};
    }
    char line[256] = {};
    if (!std::fgets(line, sizeof line, pipe.get())) {
        return {};
    }
    return std::string(line).substr(0, 40);
}

TEST(Sha1, HashFileAgreesWithSha1sumOnRealFiles) {
    testing::TempFolder folder;
    for (std::size_t size : {std::size_t{0}, std::size_t{55}, std::size_t{64},
                             std::size_t{(1 << 20) - 1}, std::size_t{(3 << 20) + 17}}) {
        const auto file =
            folder.Write("data-" + std::to_string(size), testing::RandomBytes(size, 3));
        const auto base32 = HashFile(file);
        ASSERT_TRUE(base32.has_value());
        Sha1Digest digest{};
        ASSERT_TRUE(FromBase32(*base32, digest));
        EXPECT_EQ(ToHex(digest), Sha1SumOf(file)) << size;
    }
}

} // namespace
} // namespace corvid::library
