#pragma once

// The result store of one search window or browse-host tab: the distinct files found so far,
// grouped by SHA1, and the queue of groups the list has not shown yet.

#include "search/media_class.h"
#include "search/result_records.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

namespace corvid {

inline constexpr int kDefaultResultLimit = 10000;

class ResultStore {
public:
    explicit ResultStore(int limit = kDefaultResultLimit, MediaClassNames classNames = {});
    ResultStore(const ResultStore&) = delete;
    ResultStore& operator=(const ResultStore&) = delete;

    // The count of distinct files accepted, and the window's limit on it.
    int Count() const { return count_; }
    int Limit() const { return limit_; }
    void SetLimit(int limit) { limit_ = limit; }

    const MediaClassNames& ClassNames() const { return classNames_; }

    // Every group in order of arrival, and the group of a SHA1 (null when unknown or empty).
    // Neither is guarded: the reader and the view take turns on the user-interface thread.
    const std::vector<ResultGroup*>& Groups() const { return groups_; }
    ResultGroup* Find(std::string_view sha1) const;

    // Takes the groups not yet shown off the queue, in order of arrival. The store keeps
    // owning them. Safe against a reader appending at the same time.
    std::vector<ResultGroup*> TakeNewGroups();

    // Deletes every group and empties the queue; the count goes back to 0, the limit stays.
    void Clear();

private:
    friend bool AcceptResult(ResultStore& store, const ResultFields& result);
    friend int AcceptResults(ResultStore& store, std::span<const ResultFields> results);

    // A group as the store keeps it: its key again, beside it, so that a lookup compares the key
    // in the memory it touches anyway instead of following the string to its own allocation.
    // Keys too long for the copy are compared with the group's own.
    struct StoredGroup {
        static constexpr std::size_t kKeyCopy = 40;
        ResultGroup group;
        std::size_t keySize = 0;
        char key[kKeyCopy];
        bool HasKey(std::string_view sha1) const;
    };

    // The SHA1 index: open addressing over one array, since a search fills it with tens of
    // thousands of keys and every result looks one up. A slot without a group is free. The keys
    // come from remote peers, so they are hashed with a key of the store's own, drawn at random:
    // a peer cannot choose SHA1 texts that all land on one chain.
    struct IndexSlot {
        std::uint64_t hash = 0;
        StoredGroup* stored = nullptr;
    };
    std::uint64_t HashOf(std::string_view sha1) const;
    ResultGroup* Find(std::string_view sha1, std::uint64_t hash) const;
    void AddToIndex(StoredGroup* stored, std::uint64_t hash);
    bool Accept(const ResultFields& result, std::uint64_t hash);
    // Hints for a lookup soon to come: the index slot of hash, and the group found there.
    void PrefetchSlot(std::uint64_t hash) const;
    void PrefetchGroup(std::uint64_t hash) const;

    // The groups live in blocks that never move, so pointers to them stay valid as they grow;
    // groups_ lists them in order of arrival.
    std::deque<StoredGroup> groupBlocks_;
    std::vector<ResultGroup*> groups_;
    std::vector<IndexSlot> index_;
    std::size_t indexed_ = 0;
    std::uint64_t hashKey_[2] = {};
    std::mutex queueLock_;
    std::vector<ResultGroup*> newGroups_;
    int count_ = 0;
    int limit_;
    MediaClassNames classNames_;
};

// Filters one result by the search's type and files it in its group. True when it counted as a
// new distinct file, and also once the store is full (the result is then dropped but the window
// must still refresh); false when it was filtered out or became a further source of a known
// file. An "All" result's type becomes its file's media class name.
// Nothing is copied out of result before the filter and the check for a known host have passed.
bool AcceptResult(ResultStore& store, const ResultFields& result);
bool AcceptResult(ResultStore& store, const ParsedResult& result);

// AcceptResult for each of results in turn; returns how many counted. Faster than one call per
// result, since the lookups of the whole batch are started together.
int AcceptResults(ResultStore& store, std::span<const ResultFields> results);

} // namespace corvid
