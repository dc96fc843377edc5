#pragma once

#include "library/hash_cache.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

namespace corvid::library {

struct SharedFile {
    std::uint32_t index = 0; // what peers name the file by; kept while the file stays shared
    std::filesystem::path path;
    std::string name; // the file name as peers see it (UTF-8)
    std::uint64_t size = 0;
    std::string sha1; // base32, empty until the file has been hashed
};

// Called after each piece of a file is hashed with the time that piece took; returning false
// abandons the file (it stays waiting).
using HashPacer = std::function<bool(std::chrono::steady_clock::duration busy)>;

// Splits a file name or a query into lower-case keywords the way Gnutella peers do.
std::vector<std::string> Keywords(std::string_view text);

// Hashes a whole file; nullopt when it cannot be read to its end or the pacer gave up.
std::optional<std::string> HashFile(const std::filesystem::path& path, const HashPacer& pace = {});

// The files this node shares: the shared folders, walked recursively on a thread of the index's
// own, and the completed downloads added one by one. All members may be called from any thread.
class FileIndex {
public:
    // cacheFile: where hashes are kept across runs; empty for no cache.
    explicit FileIndex(std::filesystem::path cacheFile = {});
    // Stops a walk under way and waits for its thread.
    ~FileIndex();
    FileIndex(const FileIndex&) = delete;
    FileIndex& operator=(const FileIndex&) = delete;

    // Files of folders no longer shared leave at once; the folders are then walked in the
    // background as Rescan does.
    void SetSharedFolders(std::vector<std::filesystem::path> folders);
    std::vector<std::filesystem::path> SharedFolders() const;

    // Walks the shared folders again, in the background, and returns at once: files join as they
    // are found (hashed from the cache when their size and time are unchanged, otherwise queued
    // for hashing), and those that vanished leave once the walk has been through every folder.
    // A walk under way gives up and starts again, so the newest folders and files are what the
    // index ends with. Folders that cannot be read, links and trees deeper than a limit are
    // passed over.
    void Rescan();
    // Waits until no walk runs or waits to run; false when the limit passed first.
    bool WaitForWalk(std::chrono::steady_clock::duration limit = std::chrono::minutes(1));

    // Shares one more file (a completed download); it stays shared across rescans while it exists.
    std::optional<std::uint32_t> AddFile(const std::filesystem::path& file);

    std::optional<SharedFile> FindByIndex(std::uint32_t index) const;
    // "Is this file already on disk, and where": the SHA1 in base32, either case.
    std::optional<SharedFile> FindBySha1(std::string_view sha1) const;
    // Files whose names hold every keyword of the query, or whose SHA1 a "urn:sha1:" query names.
    std::vector<SharedFile> Match(std::string_view query, std::size_t limit) const;
    std::vector<SharedFile> Files() const;
    std::size_t FileCount() const;
    // Files whose SHA1 is known, without copying the library.
    std::size_t HashedCount() const;
    std::uint64_t TotalBytes() const;
    // Grows with every change of the shared files or their hashes.
    std::uint64_t Revision() const;

    std::size_t WaitingForHash() const;
    // Hashes the next file that waits for its SHA1; false when none waits.
    bool HashNext(const HashPacer& pace = {});
    // Told whenever files start waiting for their hash (the background hasher's wake-up); a walk
    // tells it once per batch of files it found, from the walk's thread.
    void OnHashWaiting(std::function<void()> callback);

    bool SaveCache() const;

private:
    struct Entry {
        SharedFile file;
        FileStamp stamp;
        bool added = false;         // shared on its own, not through a folder
        std::uint64_t lastWalk = 0; // the walk that last found it in a shared folder
    };
    struct Found {
        std::filesystem::path path;
        std::string key; // the path in UTF-8
        FileStamp stamp;
    };

    void RequestWalk();
    void RunWalks();
    bool WalkFolders(std::uint64_t request);
    // False when the folders changed since the walk began: what it found is out of date.
    bool Merge(std::vector<Found>& found, std::uint64_t folderChanges, std::uint64_t walk);
    void Finish(std::uint64_t folderChanges, std::uint64_t walk);
    Entry& Insert(const std::filesystem::path& path, const std::string& key, const FileStamp& stamp,
                  bool added, std::vector<std::uint32_t>& queued);
    void Remove(std::map<std::uint32_t, Entry>::iterator entry);
    void NotifyWaiting(const std::vector<std::uint32_t>& queued);

    mutable std::mutex mutex_;
    std::filesystem::path cacheFile_;
    HashCache cache_;
    std::vector<std::filesystem::path> folders_;
    std::map<std::uint32_t, Entry> entries_;
    std::unordered_map<std::string, std::uint32_t> byPath_;
    std::unordered_multimap<std::string, std::uint32_t> bySha1_;
    std::vector<std::uint32_t> waiting_;
    std::uint32_t nextIndex_ = 1;
    std::uint64_t revision_ = 0;
    std::uint64_t folderChanges_ = 0;
    // Told outside the index's lock, so the one told may read the index; replacing the callback
    // waits for a call under way, so it is never called once replaced.
    std::mutex notifyMutex_;
    std::function<void()> onHashWaiting_;

    // The walker: one thread, made on the first walk asked for, running one walk at a time.
    std::mutex walkMutex_;
    std::condition_variable walkChanged_;
    std::uint64_t walksAsked_ = 0;
    std::uint64_t walksDone_ = 0; // the last request a walk ran to its end for
    bool stopping_ = false;
    std::uint64_t walkCount_ = 0; // the walker's own: marks the entries each walk finds
    std::thread walker_;
};

// Hashes the index's waiting files on a thread of its own, using at most the given share of one
// processor: after each piece it rests in proportion to the time the piece took.
class BackgroundHasher {
public:
    BackgroundHasher(FileIndex& index, int cpuPercent);
    ~BackgroundHasher();
    BackgroundHasher(const BackgroundHasher&) = delete;
    BackgroundHasher& operator=(const BackgroundHasher&) = delete;

    // 1 to 100; other values are brought into that range.
    void SetCpuShare(int percent);
    // Blocks until every file that waits has been hashed (or given up as unreadable).
    void WaitUntilIdle();

private:
    void Run();
    bool Rest(std::chrono::steady_clock::duration busy);

    FileIndex& index_;
    std::mutex mutex_;
    std::condition_variable wake_;
    int cpuPercent_;
    bool work_ = true;
    bool idle_ = false;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace corvid::library
