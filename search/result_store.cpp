#include "search/result_store.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <random>
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

// SipHash-1-3: short keys, a secret key, and no known way to make collisions without it.
class SipHash {
public:
    SipHash(std::uint64_t k0, std::uint64_t k1)
        : v0_(k0 ^ 0x736f6d6570736575ull), v1_(k1 ^ 0x646f72616e646f6dull),
          v2_(k0 ^ 0x6c7967656e657261ull), v3_(k1 ^ 0x7465646279746573ull) {}

    std::uint64_t Of(std::string_view data) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
        const std::size_t size = data.size();
        std::size_t at = 0;
        for (; at + 8 <= size; at += 8) {
            std::uint64_t word;
            std::memcpy(&word, bytes + at, sizeof word);
            Absorb(word);
        }
        std::uint64_t last = static_cast<std::uint64_t>(size) << 56;
        for (std::size_t i = 0; at + i < size; ++i) {
            last |= static_cast<std::uint64_t>(bytes[at + i]) << (8 * i);
        }
        Absorb(last);
        v2_ ^= 0xff;
        Round();
        Round();
        Round();
        return v0_ ^ v1_ ^ v2_ ^ v3_;
    }

private:
    void Absorb(std::uint64_t word) {
        v3_ ^= word;
        Round();
        v0_ ^= word;
    }

    void Round() {
        v0_ += v1_;
        v1_ = std::rotl(v1_, 13) ^ v0_;
        v0_ = std::rotl(v0_, 32);
        v2_ += v3_;
        v3_ = std::rotl(v3_, 16) ^ v2_;
        v0_ += v3_;
        v3_ = std::rotl(v3_, 21) ^ v0_;
        v2_ += v1_;
        v1_ = std::rotl(v1_, 17) ^ v2_;
        v2_ = std::rotl(v2_, 32);
    }

    std::uint64_t v0_;
    std::uint64_t v1_;
    std::uint64_t v2_;
    std::uint64_t v3_;
};

void CopySource(const ResultFields& from, std::string_view type, ResultSource& to) {
    to.name.assign(from.name);
    to.host.assign(from.host);
    to.port = from.port;
    to.fileIndex = from.fileIndex;
    to.size = from.size;
    to.speed = from.speed;
    to.type.assign(type);
    to.vendorCode.assign(from.vendorCode);
    to.browsable = from.browsable;
    to.nodeId.assign(from.nodeId);
    to.info.assign(from.info);
    to.push = from.push;
    to.sourceUrl.assign(from.sourceUrl);
}

} // namespace

ResultStore::ResultStore(int limit, MediaClassNames classNames)
    : limit_(limit), classNames_(std::move(classNames)) {
    std::random_device random;
    for (std::uint64_t& word : hashKey_) {
        word = static_cast<std::uint64_t>(random()) << 32 | random();
    }
}

std::uint64_t ResultStore::HashOf(std::string_view sha1) const {
    return SipHash(hashKey_[0], hashKey_[1]).Of(sha1);
}

ResultGroup* ResultStore::Find(std::string_view sha1) const {
    return sha1.empty() ? nullptr : Find(sha1, HashOf(sha1));
}

bool ResultStore::StoredGroup::HasKey(std::string_view sha1) const {
    if (sha1.size() != keySize) {
        return false;
    }
    return keySize <= kKeyCopy ? std::memcmp(key, sha1.data(), keySize) == 0 : group.sha1 == sha1;
}

ResultGroup* ResultStore::Find(std::string_view sha1, std::uint64_t hash) const {
    if (index_.empty()) {
        return nullptr;
    }
    const std::size_t mask = index_.size() - 1;
    for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
        const IndexSlot& slot = index_[at];
        if (slot.stored == nullptr) {
            return nullptr;
        }
        if (slot.hash == hash && slot.stored->HasKey(sha1)) {
            return &slot.stored->group;
        }
    }
}

void ResultStore::AddToIndex(StoredGroup* stored, std::uint64_t hash) {
    // Kept at most half full, so probes stay short and a free slot always ends them.
    if ((indexed_ + 1) * 2 > index_.size()) {
        std::vector<IndexSlot> old = std::move(index_);
        index_.assign(old.empty() ? 1024 : old.size() * 2, IndexSlot{});
        indexed_ = 0;
        for (const IndexSlot& slot : old) {
            if (slot.stored != nullptr) {
                AddToIndex(slot.stored, slot.hash);
            }
        }
    }
    const std::size_t mask = index_.size() - 1;
    std::size_t at = hash & mask;
    while (index_[at].stored != nullptr) {
        at = (at + 1) & mask;
    }
    index_[at] = IndexSlot{hash, stored};
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
    groupBlocks_.clear();
    count_ = 0;
}

bool ResultStore::Accept(const ResultFields& result, std::uint64_t hash) {
    if (count_ >= limit_) {
        return true;
    }
    std::string_view type = result.type;
    if (EqualsIgnoringCase(type, "All")) {
        type = classNames_.Name(MediaClassOf(result.name));
    } else if (type != "BrowseHost") {
        // A search page type with no class of that name (a "Document" search) keeps nothing.
        if (!EqualsIgnoringCase(type, classNames_.Name(MediaClassOf(result.name)))) {
            return false;
        }
    }

    if (ResultGroup* known = result.sha1.empty() ? nullptr : Find(result.sha1, hash)) {
        // A second host offering a known file is one more source, never a new file; the same
        // host answering again (on any port) adds nothing. Firewalled hosts often name the same
        // private address, so a host the engine relays for is told apart by its relay URL too.
        for (const ResultSource& existing : known->sources) {
            if (existing.host == result.host && existing.sourceUrl == result.sourceUrl) {
                return false;
            }
        }
        CopySource(result, type, known->sources.emplace_back());
        return false;
    }

    StoredGroup& stored = groupBlocks_.emplace_back();
    ResultGroup& added = stored.group;
    added.sha1.assign(result.sha1);
    stored.keySize = result.sha1.size();
    if (!result.sha1.empty()) {
        std::memcpy(stored.key, result.sha1.data(),
                    std::min(result.sha1.size(), StoredGroup::kKeyCopy));
    }
    CopySource(result, type, added.sources.emplace_back());
    groups_.push_back(&added);
    // Files without a SHA1 are never merged, so they stay out of the index.
    if (!added.sha1.empty()) {
        AddToIndex(&stored, hash);
    }
    {
        const std::lock_guard lock(queueLock_);
        newGroups_.push_back(&added);
    }
    ++count_;
    return true;
}

void ResultStore::PrefetchSlot(std::uint64_t hash) const {
    if (!index_.empty()) {
        __builtin_prefetch(&index_[hash & (index_.size() - 1)]);
    }
}

void ResultStore::PrefetchGroup(std::uint64_t hash) const {
    if (!index_.empty()) {
        const IndexSlot& slot = index_[hash & (index_.size() - 1)];
        if (slot.stored != nullptr && slot.hash == hash) {
            __builtin_prefetch(slot.stored);
        }
    }
}

bool AcceptResult(ResultStore& store, const ResultFields& result) {
    return store.Accept(result, result.sha1.empty() ? 0 : store.HashOf(result.sha1));
}

int AcceptResults(ResultStore& store, std::span<const ResultFields> results) {
    // Each lookup is a trip to memory that the caches seldom hold. Asking for every slot of a
    // batch first, and for the group a few results ahead, lets those trips overlap instead of
    // following one another; the results are still filed one by one, in order.
    constexpr std::size_t kBatch = 32;
    constexpr std::size_t kGroupAhead = 4;
    std::uint64_t hashes[kBatch];
    int accepted = 0;
    while (!results.empty()) {
        const std::size_t count = std::min(results.size(), kBatch);
        for (std::size_t i = 0; i < count; ++i) {
            hashes[i] = results[i].sha1.empty() ? 0 : store.HashOf(results[i].sha1);
            store.PrefetchSlot(hashes[i]);
        }
        for (std::size_t i = 0; i < count; ++i) {
            if (i + kGroupAhead < count) {
                store.PrefetchGroup(hashes[i + kGroupAhead]);
            }
            if (store.Accept(results[i], hashes[i])) {
                ++accepted;
            }
        }
        results = results.subspan(count);
    }
    return accepted;
}

bool AcceptResult(ResultStore& store, const ParsedResult& result) {
    const ResultSource& source = result.source;
    ResultFields fields;
    fields.name = source.name;
    fields.host = source.host;
    fields.type = source.type;
    fields.vendorCode = source.vendorCode;
    fields.nodeId = source.nodeId;
    fields.info = source.info;
    fields.sha1 = result.sha1;
    fields.keyword = result.keyword;
    fields.port = source.port;
    fields.fileIndex = source.fileIndex;
    fields.size = source.size;
    fields.speed = source.speed;
    fields.browsable = source.browsable;
    fields.push = source.push;
    fields.sourceUrl = source.sourceUrl;
    return AcceptResult(store, fields);
}

} // namespace corvid
