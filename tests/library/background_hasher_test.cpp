#include "library/file_index.h"
#include "library/sha1.h"
#include "temp_folder.h"

#include <gtest/gtest.h>

namespace corvid::library {
namespace {

TEST(BackgroundHasher, HashesWhatEachRescanQueues) {
    testing::TempFolder shared;
    shared.Write("a.bin", testing::RandomBytes(3 << 20, 1));
    shared.Write("b.bin", "small");
    FileIndex index;
    index.SetSharedFolders({shared.path()});
    BackgroundHasher hasher(index, 100);
    index.Rescan();
    ASSERT_TRUE(index.WaitForWalk());
    hasher.WaitUntilIdle();
    EXPECT_EQ(index.WaitingForHash(), 0u);
    EXPECT_TRUE(index.FindBySha1(ToBase32(Sha1Of("small"))).has_value());

    shared.Write("c.bin", "later");
    index.Rescan();
    ASSERT_TRUE(index.WaitForWalk());
    hasher.WaitUntilIdle();
    EXPECT_TRUE(index.FindBySha1(ToBase32(Sha1Of("later"))).has_value());
}

TEST(BackgroundHasher, StopsPromptlyWhileRestingAtALowShare) {
    testing::TempFolder shared;
    shared.Write("big.bin", testing::RandomBytes(8 << 20, 2));
    FileIndex index;
    index.SetSharedFolders({shared.path()});
    {
        BackgroundHasher hasher(index, 1);
        hasher.SetCpuShare(0);
        index.Rescan();
        ASSERT_TRUE(index.WaitForWalk());
    }
    // Abandoned mid-file, the file still waits for the next hasher.
    EXPECT_EQ(index.WaitingForHash(), 1u);
    BackgroundHasher again(index, 100);
    again.WaitUntilIdle();
    EXPECT_EQ(index.WaitingForHash(), 0u);
}

} // namespace
} // namespace corvid::library
