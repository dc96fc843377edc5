// The file index walks shared folders on a thread of its own. A walk is held still where it hands
// its first batch of files to the index (the hash-waiting callback runs on the walk's thread), so
// what the callers see mid-walk is certain rather than a matter of timing.
#include "library/file_index.h"
#include "temp_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>

#include <sys/wait.h>
#include <unistd.h>

namespace corvid::library {
namespace {
namespace fs = std::filesystem;

constexpr auto kLimit = std::chrono::seconds(30);

// Writes `count` small files spread over ten folders; returns their names.
std::set<std::string> WriteFiles(testing::TempFolder& folder, const std::string& prefix,
                                 int count) {
    std::set<std::string> names;
    for (int i = 0; i < count; ++i) {
        const std::string name = prefix + std::to_string(i) + ".txt";
        folder.Write(fs::path("part" + std::to_string(i % 10)) / name, name);
        names.insert(name);
    }
    return names;
}

std::set<std::string> Names(const FileIndex& index) {
    std::set<std::string> names;
    for (const auto& file : index.Files()) {
        names.insert(file.name);
    }
    return names;
}

// Holds the walk in its first batch until released.
class WalkGate {
public:
    explicit WalkGate(FileIndex& index) {
        index.OnHashWaiting([this] {
            std::unique_lock lock(mutex_);
            ++batches_;
            changed_.notify_all();
            changed_.wait(lock, [this] { return open_; });
        });
    }

    bool WaitForFirstBatch() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kLimit, [this] { return batches_ > 0; });
    }

    void Open() {
        std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

    int Batches() {
        std::lock_guard lock(mutex_);
        return batches_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int batches_ = 0;
    bool open_ = false;
};

TEST(FolderWalk, SharingReturnsAtOnceAndFilesArriveWhileTheWalkGoesOn) {
    testing::TempFolder shared;
    const auto names = WriteFiles(shared, "file", 1200);
    FileIndex index;
    WalkGate gate(index);
    const std::uint64_t before = index.Revision();

    index.SetSharedFolders({shared.path()});
    ASSERT_TRUE(gate.WaitForFirstBatch());
    EXPECT_FALSE(index.WaitForWalk(std::chrono::milliseconds(0))) << "the walk is still held";
    const std::size_t early = index.FileCount();
    EXPECT_GT(early, 0u);
    EXPECT_LT(early, names.size());
    EXPECT_GT(index.Revision(), before) << "readers can tell the library changed";
    // Every file seen mid-walk is whole.
    for (const auto& file : index.Files()) {
        EXPECT_EQ(file.size, file.name.size());
        EXPECT_EQ(file.path.filename().string(), file.name);
    }

    gate.Open();
    ASSERT_TRUE(index.WaitForWalk(kLimit));
    EXPECT_EQ(Names(index), names);
    EXPECT_EQ(index.WaitingForHash(), names.size());
    EXPECT_GT(gate.Batches(), 1) << "files join in batches, not all at the end";
}

TEST(FolderWalk, ANewFolderListMidWalkLeavesExactlyItsFiles) {
    testing::TempFolder first;
    testing::TempFolder second;
    WriteFiles(first, "first", 1000);
    const auto wanted = WriteFiles(second, "second", 300);
    FileIndex index;
    WalkGate gate(index);

    index.SetSharedFolders({first.path()});
    ASSERT_TRUE(gate.WaitForFirstBatch());
    EXPECT_GT(index.FileCount(), 0u);
    index.SetSharedFolders({second.path()});
    EXPECT_EQ(index.FileCount(), 0u) << "the first folder's files leave at once";
    index.Rescan();
    gate.Open();
    ASSERT_TRUE(index.WaitForWalk(kLimit));
    EXPECT_EQ(Names(index), wanted);
    EXPECT_EQ(index.SharedFolders(), std::vector<fs::path>{fs::weakly_canonical(second.path())});
}

TEST(FolderWalk, DestroyingTheIndexStopsAWalkUnderWay) {
    testing::TempFolder shared;
    const auto names = WriteFiles(shared, "many", 10000);
    auto index = std::make_unique<FileIndex>();
    WalkGate gate(*index);
    index->SetSharedFolders({shared.path()});
    ASSERT_TRUE(gate.WaitForFirstBatch());
    gate.Open();
    index.reset();
    // Far fewer batches than the whole tree would take: the walk gave up when told.
    EXPECT_LT(static_cast<std::size_t>(gate.Batches()), names.size() / 1000);
}

TEST(FolderWalk, WhatCannotBeWalkedIsPassedOver) {
    testing::TempFolder shared;
    testing::TempFolder elsewhere;
    shared.Write("top.txt", "top");
    shared.Write("sub/inner.txt", "inner");
    // Links round in a circle and out of the folder, and one that points nowhere.
    std::error_code error;
    fs::create_directory_symlink(shared.path(), shared.path() / "sub" / "loop", error);
    fs::create_directory_symlink(elsewhere.path(), shared.path() / "out", error);
    fs::create_symlink(shared.path() / "absent", shared.path() / "dangling", error);
    elsewhere.Write("private.txt", "private");
    // A tree deeper than any real one.
    fs::path deep = "deep";
    for (int level = 0; level < 200; ++level) {
        deep /= "d";
    }
    shared.Write(deep / "bottom.txt", "bottom");
    shared.Write("deep/shallow.txt", "shallow");
    const fs::path missing = shared.path() / "no such folder";

    FileIndex index;
    index.SetSharedFolders({missing, shared.path(), shared.path() / "top.txt"});
    ASSERT_TRUE(index.WaitForWalk(kLimit));
    const auto found = Names(index);
    EXPECT_TRUE(found.count("top.txt"));
    EXPECT_TRUE(found.count("inner.txt"));
    EXPECT_TRUE(found.count("shallow.txt"));
    EXPECT_FALSE(found.count("private.txt"));
    EXPECT_EQ(index.FileCount(), found.size());

    // Folders vanishing while they are walked end the walk early, not the program.
    WriteFiles(shared, "gone", 1000);
    WalkGate gate(index);
    index.Rescan();
    ASSERT_TRUE(gate.WaitForFirstBatch());
    fs::remove_all(shared.path(), error);
    gate.Open();
    ASSERT_TRUE(index.WaitForWalk(kLimit));
    index.Rescan();
    ASSERT_TRUE(index.WaitForWalk(kLimit));
    EXPECT_EQ(index.FileCount(), 0u);

    // The folder comes back and is walked again.
    shared.Write("back.txt", "back");
    index.Rescan();
    ASSERT_TRUE(index.WaitForWalk(kLimit));
    EXPECT_EQ(Names(index), std::set<std::string>{"back.txt"});
}

// Runs the check as an ordinary user: permissions do not bind the superuser, so as root it runs in
// a child process that has given its rights up.
bool AsOrdinaryUser(const std::function<bool()>& check) {
    if (::geteuid() != 0) {
        return check();
    }
    const pid_t child = ::fork();
    if (child == 0) {
        const bool dropped = ::setgid(65534) == 0 && ::setuid(65534) == 0;
        ::_exit(dropped && check() ? 0 : 1);
    }
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

TEST(FolderWalk, AnUnreadableFolderIsPassedOver) {
    testing::TempFolder shared;
    shared.Write("open/seen.txt", "seen");
    shared.Write("closed/hidden.txt", "hidden");
    shared.Write("open/later/also seen.txt", "also seen");
    fs::permissions(shared.path() / "closed", fs::perms::none);
    const bool passedOver = AsOrdinaryUser([&] {
        FileIndex index;
        index.SetSharedFolders({shared.path()});
        return index.WaitForWalk(kLimit) &&
               Names(index) == std::set<std::string>{"also seen.txt", "seen.txt"};
    });
    fs::permissions(shared.path() / "closed", fs::perms::owner_all);
    EXPECT_TRUE(passedOver);
}

} // namespace
} // namespace corvid::library
