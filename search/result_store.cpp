#include "search/result_store.h"

#include <functional>
#include <utility>

namespace corvid {
namespace {

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i];
        char y = b[i];
        x = x >= 'A' && x <= 'Z' ? static_cast<char>(x + ('a' - 'A')) : x;
        y = y >= 'A' && y <= 'Z' ? static_cast<char>(y + ('a' - 'A')) : y;
        if (x != y) {
            return false;
        }
    }
    return true;
}

} // namespace

ResultStore::ResultStore(int limit, MediaClassNames classNames)
    : limit_(limit), classNames_(std::move(classNames)) {}

std::uint64_t ResultStore::HashOf(std::string_view sha1) {
    return std::hash<std::string_view>{}(sha1);
}

ResultGroup* ResultStore::Find(std::string_view sha1) const {
    return sha1.empty() ? nullptr : Find(sha1, HashOf(sha1));
}

ResultGroup* ResultStore::Find(std::string_view sha1, std::uint64_t hash) const {
    if (index_.empty()) {
        return nullptr;
    }
    const std::size_t mask = index_.size() - 1;
    for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
        const IndexSlot& slot = index_[at];
        if (slot.group == nullptr) {
            return nullptr;
        }
        if (slot.hash == hash && slot.group->sha1 == sha1) {
            return slot.group;
        }
    }
}

void ResultStore::AddToIndex(ResultGroup* group, std::uint64_t hash) {
    // Kept at most half full, so probes stay short and a free slot always ends them.
    if ((indexed_ + 1) * 2 > index_.size()) {
        std::vector<IndexSlot> old = std::move(index_);
        index_.assign(old.empty() ? 1024 : old.size() * 2, IndexSlot{});
        indexed_ = 0;
        for (const IndexSlot& slot : old) {
            if (slot.group != nullptr) {
                AddToIndex(slot.group, slot.hash);
            }
        }
    }
    const std::size_t mask = index_.size() - 1;
    std::size_t at = hash & mask;
    while (index_[at].group != nullptr) {
        at = (at + 1) & mask;
    }
    index_[at] = IndexSlot{hash, group};
    ++indexed_;
}

std::vector<ResultGroup*> ResultStore::TakeNewGroups() {
    std::vector<ResultGroup*> taken;
    const std::lock_guard lock(queueLock_);
    taken.swap(newGroups_);
    return taken;
}

void ResultStore::Clear() {
    {
        const std::lock_guard lock(queueLock_);
        newGroups_.clear();
    }
    index_.clear();
    indexed_ = 0;
    groups_.clear();
    count_ = 0;
}

bool AcceptResult(ResultStore& store, ParsedResult&& result) {
    if (store.count_ >= store.limit_) {
        return true;
    }
    ResultSource& source = result.source;
    if (EqualsIgnoringCase(source.type, "All")) {
        source.type = store.classNames_.Name(MediaClassOf(source.name));
    } else if (source.type != "BrowseHost") {
        // A search page type with no class of that name (a "Document" search) keeps nothing.
        if (!EqualsIgnoringCase(source.type, store.classNames_.Name(MediaClassOf(source.name)))) {
            return false;
        }
    }

    const std::uint64_t hash = result.sha1.empty() ? 0 : ResultStore::HashOf(result.sha1);
    if (ResultGroup* known = result.sha1.empty() ? nullptr : store.Find(result.sha1, hash)) {
        // A second host offering a known file is one more source, never a new file; the same
        // host answering again (on any port) adds nothing.
        for (const ResultSource& existing : known->sources) {
            if (existing.host == source.host) {
                return false;
            }
        }
        known->sources.push_back(std::move(source));
        return false;
    }

    auto group = std::make_unique<ResultGroup>();
    group->sha1 = std::move(result.sha1);
    group->sources.push_back(std::move(source));
    ResultGroup* added = group.get();
    store.groups_.push_back(std::move(group));
    // Files without a SHA1 are never merged, so they stay out of the index.
    if (!added->sha1.empty()) {
        store.AddToIndex(added, hash);
    }
    {
        const std::lock_guard lock(store.queueLock_);
        store.newGroups_.push_back(added);
    }
    ++store.count_;
    return true;
}

} // namespace corvid
