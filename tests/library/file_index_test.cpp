#include "library/file_index.h"
#include "library/sha1.h"
#include "temp_folder.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace corvid::library {
namespace {
namespace fs = std::filesystem;

constexpr auto kWalkLimit = std::chrono::seconds(30);

void Share(FileIndex& index, const fs::path& folder) {
    index.SetSharedFolders({folder});
    ASSERT_TRUE(index.WaitForWalk(kWalkLimit));
}

void Rescan(FileIndex& index) {
    index.Rescan();
    ASSERT_TRUE(index.WaitForWalk(kWalkLimit));
}

void HashAll(FileIndex& index) {
    while (index.HashNext()) {
    }
}

std::vector<std::string> Names(const std::vector<SharedFile>& files) {
    std::vector<std::string> names;
    for (const auto& file : files) {
        names.push_back(file.name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

class FileIndexTest : public ::testing::Test {
protected:
    testing::TempFolder shared;
    testing::TempFolder elsewhere;
};

TEST_F(FileIndexTest, ScansFoldersRecursivelyAndHashesEachFile) {
    shared.Write("Holiday Video.avi", "video bytes");
    shared.Write("music/deep/Song_One.mp3", testing::RandomBytes(70000, 1));
    shared.Write("music/empty.txt", "");
    FileIndex index;
    Share(index, shared.path());

    EXPECT_EQ(Names(index.Files()),
              (std::vector<std::string>{"Holiday Video.avi", "Song_One.mp3", "empty.txt"}));
    EXPECT_EQ(index.WaitingForHash(), 3u);
    EXPECT_EQ(index.HashedCount(), 0u);
    EXPECT_EQ(index.TotalBytes(), 70000u + 11u);
    HashAll(index);
    EXPECT_EQ(index.WaitingForHash(), 0u);
    EXPECT_EQ(index.HashedCount(), 3u);

    for (const auto& file : index.Files()) {
        std::ifstream in(file.path, std::ios::binary);
        const std::string contents((std::istreambuf_iterator<char>(in)), {});
        EXPECT_EQ(file.sha1, ToBase32(Sha1Of(contents))) << file.name;
        EXPECT_EQ(file.size, contents.size());
        const auto byIndex = index.FindByIndex(file.index);
        ASSERT_TRUE(byIndex.has_value());
        EXPECT_EQ(byIndex->path, file.path);
    }
}

TEST_F(FileIndexTest, QueriesMatchEveryKeywordAnywhereInTheNameIgnoringCase) {
    shared.Write("Holiday Video.avi", "a");
    shared.Write("holiday-song.mp3", "b");
    shared.Write("Work (final).doc", "c");
    FileIndex index;
    Share(index, shared.path());
    HashAll(index);

    EXPECT_EQ(Names(index.Match("HOLIDAY", 10)),
              (std::vector<std::string>{"Holiday Video.avi", "holiday-song.mp3"}));
    EXPECT_EQ(Names(index.Match("holiday avi", 10)),
              (std::vector<std::string>{"Holiday Video.avi"}));
    EXPECT_EQ(Names(index.Match("olid vid", 10)), (std::vector<std::string>{"Holiday Video.avi"}));
    EXPECT_EQ(Names(index.Match("(final)", 10)), (std::vector<std::string>{"Work (final).doc"}));
    EXPECT_TRUE(index.Match("holiday doc", 10).empty());
    EXPECT_TRUE(index.Match("", 10).empty());
    EXPECT_TRUE(index.Match(" - . _ ", 10).empty());
    EXPECT_EQ(index.Match("holiday", 1).size(), 1u);

    const std::string urn = "urn:sha1:" + ToBase32(Sha1Of("c"));
    EXPECT_EQ(Names(index.Match(urn, 10)), (std::vector<std::string>{"Work (final).doc"}));
    EXPECT_TRUE(index.Match("urn:sha1:" + ToBase32(Sha1Of("zzz")), 10).empty());
}

TEST_F(FileIndexTest, FindsAFileOnDiskByItsSha1InEitherCase) {
    const auto file = shared.Write("sub/report.pdf", "report");
    FileIndex index;
    Share(index, shared.path());
    const std::string sha1 = ToBase32(Sha1Of("report"));
    EXPECT_FALSE(index.FindBySha1(sha1).has_value()) << "not hashed yet";
    HashAll(index);

    std::string lower = sha1;
    std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
    const auto found = index.FindBySha1(lower);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->path, fs::weakly_canonical(file));
    EXPECT_FALSE(index.FindBySha1(ToBase32(Sha1Of("other"))).has_value());
    EXPECT_FALSE(index.FindBySha1("not a hash").has_value());
}

TEST_F(FileIndexTest, RescanFollowsAddedChangedAndRemovedFiles) {
    shared.Write("stays.txt", "same");
    const auto changing = shared.Write("changes.txt", "before");
    const auto leaving = shared.Write("leaves.txt", "gone soon");
    FileIndex index;
    Share(index, shared.path());
    HashAll(index);
    const std::uint32_t staysIndex = index.Match("stays", 1).at(0).index;
    const std::uint64_t revision = index.Revision();

    fs::remove(leaving);
    shared.Write("changes.txt", "after, and longer");
    shared.Write("new/arrived.txt", "new");
    Rescan(index);
    EXPECT_GT(index.Revision(), revision);
    EXPECT_EQ(Names(index.Files()),
              (std::vector<std::string>{"arrived.txt", "changes.txt", "stays.txt"}));
    EXPECT_EQ(index.WaitingForHash(), 2u);
    EXPECT_EQ(index.Match("stays", 1).at(0).index, staysIndex);
    EXPECT_FALSE(index.FindBySha1(ToBase32(Sha1Of("before"))).has_value());
    EXPECT_FALSE(index.FindBySha1(ToBase32(Sha1Of("gone soon"))).has_value());
    HashAll(index);
    EXPECT_TRUE(index.FindBySha1(ToBase32(Sha1Of("after, and longer"))).has_value());
    (void)changing;
}

TEST_F(FileIndexTest, ACompletedDownloadIsSharedUntilItIsDeleted) {
    const auto download = elsewhere.Write("finished.iso", "iso image");
    FileIndex index;
    Share(index, shared.path());
    const auto added = index.AddFile(download);
    ASSERT_TRUE(added.has_value());
    EXPECT_EQ(index.AddFile(download), added) << "adding twice keeps one entry";
    EXPECT_FALSE(index.AddFile(elsewhere.path() / "missing.bin").has_value());
    EXPECT_FALSE(index.AddFile(elsewhere.path()).has_value()) << "a folder is not a file";
    HashAll(index);

    Rescan(index);
    ASSERT_EQ(index.FileCount(), 1u);
    EXPECT_EQ(index.FindBySha1(ToBase32(Sha1Of("iso image")))->index, *added);

    fs::remove(download);
    Rescan(index);
    EXPECT_EQ(index.FileCount(), 0u);
}

TEST_F(FileIndexTest, LinksInsideASharedFolderAreNotFollowed) {
    const auto secret = elsewhere.Write("secret.txt", "private");
    shared.Write("public.txt", "public");
    std::error_code error;
    fs::create_symlink(secret, shared.path() / "link.txt", error);
    fs::create_directory_symlink(elsewhere.path(), shared.path() / "linked-folder", error);
    FileIndex index;
    Share(index, shared.path());
    EXPECT_EQ(Names(index.Files()), (std::vector<std::string>{"public.txt"}));
}

TEST_F(FileIndexTest, HashesComeBackFromTheCacheOnlyForUnchangedFiles) {
    testing::TempFolder state;
    const fs::path cacheFile = state.path() / "hashes.txt";
    shared.Write("one.bin", "first file");
    shared.Write("two.bin", "second file");
    {
        FileIndex index(cacheFile);
        Share(index, shared.path());
        HashAll(index);
        ASSERT_TRUE(index.SaveCache());
    }
    shared.Write("two.bin", "second file, rewritten");

    FileIndex index(cacheFile);
    Share(index, shared.path());
    EXPECT_EQ(index.WaitingForHash(), 1u);
    EXPECT_TRUE(index.FindBySha1(ToBase32(Sha1Of("first file"))).has_value());
    HashAll(index);
    EXPECT_TRUE(index.FindBySha1(ToBase32(Sha1Of("second file, rewritten"))).has_value());
    EXPECT_FALSE(index.FindBySha1(ToBase32(Sha1Of("second file"))).has_value());
}

TEST(HashCache, AHostileCacheFileYieldsOnlyItsWellFormedLines) {
    const std::string good = ToBase32(Sha1Of("x"));
    std::string text = "CorvidHashCache 1\r\n";
    text += good + "\t10\t-5\t/shared/ok.txt\r\n";
    text += good + "\t10\t5\n";                                    // no path
    text += "NOTAHASH\t10\t5\t/shared/bad-hash.txt\n";             // bad hash
    text += good + "\t-1\t5\t/shared/negative-size.txt\n";         // negative size
    text += good + "\t99999999999999999999999\t5\t/shared/huge\n"; // overflow
    text += good + "\t10\t5x\t/shared/trailing.txt\n";             // junk after a number
    text += good + "\t10\t5\t/shared/bell\a.txt\n";                // control character
    text += good + "\t\t\t\n";
    text += std::string(20000, 'A') + "\n";
    text += std::string("\0\xff\xfe\t\t\t\n", 7);
    text += good + "\t7\t1\t/shared/last line without newline";

    HashCache cache;
    cache.Parse(text);
    EXPECT_EQ(cache.size(), 2u);
    ASSERT_NE(cache.Find("/shared/ok.txt"), nullptr);
    EXPECT_EQ(cache.Find("/shared/ok.txt")->stamp, (FileStamp{10, -5}));
    EXPECT_EQ(cache.Find("/shared/ok.txt")->sha1, good);
    ASSERT_NE(cache.Find("/shared/last line without newline"), nullptr);

    HashCache reread;
    reread.Parse(cache.Serialize());
    EXPECT_EQ(reread.Serialize(), cache.Serialize());

    HashCache foreign;
    foreign.Parse(good + "\t10\t5\t/shared/ok.txt\n");
    EXPECT_EQ(foreign.size(), 0u) << "a file without the header is not a cache";
    foreign.Parse(testing::RandomBytes(100000, 9));
    EXPECT_EQ(foreign.size(), 0u);
}

TEST(HashCache, AMissingOrUnwritableCacheIsReportedNotFatal) {
    testing::TempFolder state;
    HashCache cache;
    EXPECT_FALSE(cache.Load(state.path() / "absent.txt"));
    EXPECT_FALSE(cache.Save(state.path() / "no-such-folder" / "hashes.txt"));
    FileIndex index(state.path() / "absent.txt");
    EXPECT_EQ(index.FileCount(), 0u);
}

} // namespace
} // namespace corvid::library
