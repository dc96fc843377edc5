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

// The files this node shares: the shared folders, scanned recursively, and the completed
// downloads added one by one. All members may be called from any thread.
class FileIndex {
public:
    // cacheFile: where hashes are kept across runs; empty for no cache.
    explicit FileIndex(std::filesystem::path cacheFile = {});

    void SetSharedFolders(std::vector<std::filesystem::path> folders);
    std::vector<std::filesystem::path> SharedFolders() const;

    // Walks the shared folders again: new files join (hashed from the cache when their size and
    // time are unchanged, otherwise queued for hashing), vanished ones leave.
    void Rescan();

    // Shares one more file (a completed download); it stays shared across rescans while it exists.
    std::optional<std::uint32_t> AddFile(const std::filesystem::path& file);

    std::optional<SharedFile> FindByIndex(std::uint32_t index) const;
    // "Is this file already on disk, and where": the SHA1 in base32, either case.
    std::optional<SharedFile> FindBySha1(std::string_view sha1) const;
    // Files whose names hold every keyword of the query, or whose SHA1 a "urn:sha1:" query names.
    std::vector<SharedFile> Match(std::string_view query, std::size_t limit) const;
    std::vector<SharedFile> Files() const;
    std::size_t FileCount() const;
    std::uint64_t TotalBytes() const;
    // Grows with every change of the shared files or their hashes.
    std::uint64_t Revision() const;

    std::size_t WaitingForHash() const;
    // Hashes the next file that waits for its SHA1; false when none waits.
    bool HashNext(const HashPacer& pace = {});
    // Told whenever files start waiting for their hash (the background hasher's wake-up).
    void OnHashWaiting(std::function<void()> callback);

    bool SaveCache() const;

private:
    struct Entry {
        SharedFile file;
        FileStamp stamp;
        bool added = false; // shared on its own, not through a folder
    };

    void Insert(const std::filesystem::path& path, const FileStamp& stamp, bool added,
                std::vector<std::uint32_t>& queued);
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
    std::function<void()> onHashWaiting_;
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
