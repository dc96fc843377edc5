#include "search/result_store.h"

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

ResultGroup* ResultStore::Find(std::string_view sha1) const {
    if (sha1.empty()) {
        return nullptr;
    }
    const auto it = bySha1_.find(sha1);
    return it == bySha1_.end() ? nullptr : it->second;
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
    bySha1_.clear();
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

    if (ResultGroup* known = store.Find(result.sha1)) {
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
        store.bySha1_.emplace(added->sha1, added);
    }
    {
        const std::lock_guard lock(store.queueLock_);
        store.newGroups_.push_back(added);
    }
    ++store.count_;
    return true;
}

} // namespace corvid
