#pragma once

// The result store of one search window or browse-host tab: the distinct files found so far,
// grouped by SHA1, and the queue of groups the list has not shown yet.

#include "search/media_class.h"
#include "search/result_records.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
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
    const std::vector<std::unique_ptr<ResultGroup>>& Groups() const { return groups_; }
    ResultGroup* Find(std::string_view sha1) const;

    // Takes the groups not yet shown off the queue, in order of arrival. The store keeps
    // owning them. Safe against a reader appending at the same time.
    std::vector<ResultGroup*> TakeNewGroups();

    // Deletes every group and empties the queue; the count goes back to 0, the limit stays.
    void Clear();

private:
    friend bool AcceptResult(ResultStore& store, ParsedResult&& result);

    // The SHA1 index: open addressing over one array, since a search fills it with tens of
    // thousands of keys and every result looks one up. A slot without a group is free.
    struct IndexSlot {
        std::uint64_t hash = 0;
        ResultGroup* group = nullptr;
    };
    static std::uint64_t HashOf(std::string_view sha1);
    ResultGroup* Find(std::string_view sha1, std::uint64_t hash) const;
    void AddToIndex(ResultGroup* group, std::uint64_t hash);

    std::vector<std::unique_ptr<ResultGroup>> groups_;
    std::vector<IndexSlot> index_;
    std::size_t indexed_ = 0;
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
bool AcceptResult(ResultStore& store, ParsedResult&& result);

} // namespace corvid
