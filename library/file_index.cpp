#include "library/file_index.h"

#include "library/sha1.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <system_error>

namespace corvid::library {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kHashPiece = 1 << 20;
constexpr std::string_view kSha1Urn = "urn:sha1:";
// A walk hands what it found to the index in batches: readers see files arrive while a large tree
// is walked, and the index's lock is taken once per batch, not once per file.
constexpr std::size_t kWalkBatch = 256;
constexpr auto kWalkBatchTime = std::chrono::milliseconds(200);
// Real trees are a few dozen folders deep; far deeper is a junction looping back on itself.
constexpr int kWalkDepth = 64;

bool IsDelimiter(char c) {
    return std::string_view(" -._+/*()\\,\t").find(c) != std::string_view::npos;
}

char LowerAscii(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), LowerAscii);
    return lower;
}

std::string Utf8(const fs::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

// The size and time of what is known to be a regular file.
std::optional<FileStamp> StampOfFile(const fs::path& path) {
    std::error_code error;
    FileStamp stamp;
    stamp.size = fs::file_size(path, error);
    if (error) {
        return std::nullopt;
    }
    const auto modified = fs::last_write_time(path, error);
    if (error) {
        return std::nullopt;
    }
    stamp.modified = static_cast<std::int64_t>(modified.time_since_epoch().count());
    return stamp;
}

std::optional<FileStamp> StampOf(const fs::path& path) {
    std::error_code error;
    const auto status = fs::symlink_status(path, error);
    if (error || !fs::is_regular_file(status)) {
        return std::nullopt;
    }
    return StampOfFile(path);
}

// Whether the file lies in the folder or below it, by the paths' parts (so "/a/bc" is not in
// "/a/b").
bool IsInside(const fs::path& file, const fs::path& folder) {
    auto part = file.begin();
    for (const auto& folderPart : folder) {
        if (folderPart.empty()) {
            continue; // what a trailing separator leaves
        }
        if (part == file.end() || *part != folderPart) {
            return false;
        }
        ++part;
    }
    return part != file.end();
}

// Calls onFile for every regular file under root, depth first, until it returns false or stop()
// says the walk is no longer wanted. Links are not followed: they could lead out of the shared
// folder or round in a circle. Folders that cannot be read or vanish are passed over, and so is
// what lies deeper than kWalkDepth, where only a loop the system does not show as a link leads.
template <typename OnFile, typename Stop>
bool WalkTree(const fs::path& root, OnFile&& onFile, Stop&& stop) {
    std::vector<std::pair<fs::path, int>> pending{{root, 0}};
    while (!pending.empty()) {
        const auto [folder, depth] = std::move(pending.back());
        pending.pop_back();
        std::error_code error;
        fs::directory_iterator entries(folder, fs::directory_options::skip_permission_denied,
                                       error);
        for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
            if (stop()) {
                return false;
            }
            // The entry's own type, which the listing often tells without asking the disk again.
            std::error_code typeError;
            if (entries->is_symlink(typeError) || typeError) {
                continue;
            }
            const bool isFolder = entries->is_directory(typeError);
            if (typeError) {
                continue;
            }
            if (isFolder) {
                if (depth + 1 < kWalkDepth) {
                    pending.emplace_back(entries->path(), depth + 1);
                }
            } else if (entries->is_regular_file(typeError) && !onFile(entries->path())) {
                return false;
            }
        }
    }
    return true;
}

} // namespace

std::vector<std::string> Keywords(std::string_view text) {
    std::vector<std::string> words;
    std::string word;
    for (char c : text) {
        if (IsDelimiter(c)) {
            if (!word.empty()) {
                words.push_back(std::move(word));
                word.clear();
            }
        } else {
            word += LowerAscii(c);
        }
    }
    if (!word.empty()) {
        words.push_back(std::move(word));
    }
    return words;
}

std::optional<std::string> HashFile(const fs::path& path, const HashPacer& pace) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> buffer(kHashPiece);
    Sha1 sha;
    for (;;) {
        const auto started = std::chrono::steady_clock::now();
        in.read(reinterpret_cast<char*>(buffer.data()),
                static_cast<std::streamsize>(buffer.size()));
        const auto got = static_cast<std::size_t>(in.gcount());
        sha.Update(std::span(buffer.data(), got));
        if (in.bad()) {
            return std::nullopt;
        }
        if (got < buffer.size()) {
            break;
        }
        if (pace && !pace(std::chrono::steady_clock::now() - started)) {
            return std::nullopt;
        }
    }
    return ToBase32(sha.Finish());
}

FileIndex::FileIndex(fs::path cacheFile) : cacheFile_(std::move(cacheFile)) {
    if (!cacheFile_.empty()) {
        cache_.Load(cacheFile_);
    }
}

FileIndex::~FileIndex() {
    {
        std::lock_guard lock(walkMutex_);
        stopping_ = true;
        walkChanged_.notify_all();
    }
    if (walker_.joinable()) {
        walker_.join();
    }
}

void FileIndex::SetSharedFolders(std::vector<fs::path> folders) {
    std::vector<fs::path> absolute;
    for (auto& folder : folders) {
        std::error_code error;
        fs::path path = fs::weakly_canonical(folder, error);
        if (!error && !path.empty()) {
            absolute.push_back(std::move(path));
        }
    }
    {
        std::lock_guard lock(mutex_);
        folders_ = std::move(absolute);
        ++folderChanges_;
        // An unshared folder's files stop being offered now, not once a walk has been through.
        bool removed = false;
        for (auto entry = entries_.begin(); entry != entries_.end();) {
            const auto next = std::next(entry);
            const auto inside = [&](const fs::path& folder) {
                return IsInside(entry->second.file.path, folder);
            };
            if (!entry->second.added && std::none_of(folders_.begin(), folders_.end(), inside)) {
                Remove(entry);
                removed = true;
            }
            entry = next;
        }
        if (removed) {
            ++revision_;
        }
    }
    RequestWalk();
}

std::vector<fs::path> FileIndex::SharedFolders() const {
    std::lock_guard lock(mutex_);
    return folders_;
}

void FileIndex::Rescan() {
    RequestWalk();
}

void FileIndex::RequestWalk() {
    std::lock_guard lock(walkMutex_);
    ++walksAsked_;
    if (!walker_.joinable()) {
        walker_ = std::thread([this] { RunWalks(); });
    }
    walkChanged_.notify_all();
}

bool FileIndex::WaitForWalk(std::chrono::steady_clock::duration limit) {
    std::unique_lock lock(walkMutex_);
    return walkChanged_.wait_for(lock, limit, [this] { return walksDone_ == walksAsked_; });
}

void FileIndex::RunWalks() {
    std::unique_lock lock(walkMutex_);
    for (;;) {
        walkChanged_.wait(lock, [this] { return stopping_ || walksDone_ != walksAsked_; });
        if (stopping_) {
            return;
        }
        const std::uint64_t request = walksAsked_;
        lock.unlock();
        bool ended = true;
        try {
            ended = WalkFolders(request);
        } catch (const std::exception&) {
            // Out of memory in the middle of a tree: what was found stays, and a thread that
            // threw would end the process.
        }
        lock.lock();
        if (ended) {
            walksDone_ = request;
            walkChanged_.notify_all();
        }
    }
}

bool FileIndex::WalkFolders(std::uint64_t request) {
    std::vector<fs::path> folders;
    std::uint64_t folderChanges = 0;
    {
        std::lock_guard lock(mutex_);
        folders = folders_;
        folderChanges = folderChanges_;
    }
    const std::uint64_t walk = ++walkCount_;
    const auto outdated = [&] {
        std::lock_guard lock(walkMutex_);
        return stopping_ || walksAsked_ != request;
    };
    std::vector<Found> found;
    auto merged = std::chrono::steady_clock::now();
    const auto onFile = [&](const fs::path& path) {
        try {
            if (auto stamp = StampOfFile(path)) {
                found.push_back(Found{path, Utf8(path), *stamp});
            }
        } catch (const std::exception&) {
            return true; // a name with no UTF-8 form cannot be offered to peers
        }
        const auto now = std::chrono::steady_clock::now();
        if (found.size() < kWalkBatch && now - merged < kWalkBatchTime) {
            return true;
        }
        merged = now;
        return Merge(found, folderChanges, walk);
    };
    for (const auto& folder : folders) {
        if (!WalkTree(folder, onFile, outdated)) {
            return false;
        }
    }
    if (!Merge(found, folderChanges, walk)) {
        return false;
    }
    Finish(folderChanges, walk);
    return true;
}

bool FileIndex::Merge(std::vector<Found>& found, std::uint64_t folderChanges, std::uint64_t walk) {
    // A folder's files are numbered in the order of their names, whatever order the disk gave.
    std::sort(found.begin(), found.end(),
              [](const Found& a, const Found& b) { return a.key < b.key; });
    std::vector<std::uint32_t> queued;
    {
        std::lock_guard lock(mutex_);
        if (folderChanges != folderChanges_) {
            return false;
        }
        bool changed = false;
        for (const Found& file : found) {
            bool added = false;
            if (const auto known = byPath_.find(file.key); known != byPath_.end()) {
                const auto entry = entries_.find(known->second);
                if (entry->second.stamp == file.stamp) {
                    entry->second.lastWalk = walk;
                    continue;
                }
                added = entry->second.added;
                Remove(entry);
            }
            Insert(file.path, file.key, file.stamp, added, queued).lastWalk = walk;
            changed = true;
        }
        if (changed) {
            ++revision_;
        }
    }
    found.clear();
    NotifyWaiting(queued);
    return true;
}

void FileIndex::Finish(std::uint64_t folderChanges, std::uint64_t walk) {
    std::vector<std::pair<std::uint32_t, FileStamp>> added;
    {
        std::lock_guard lock(mutex_);
        if (folderChanges != folderChanges_) {
            return;
        }
        bool removed = false;
        for (auto entry = entries_.begin(); entry != entries_.end();) {
            const auto next = std::next(entry);
            if (entry->second.added) {
                added.emplace_back(entry->first, entry->second.stamp);
            } else if (entry->second.lastWalk != walk) {
                Remove(entry);
                removed = true;
            }
            entry = next;
        }
        if (removed) {
            ++revision_;
        }
    }

    // Files shared one by one are looked at too, outside the lock like the walk.
    std::vector<std::pair<std::uint32_t, std::optional<FileStamp>>> now;
    for (const auto& [index, stamp] : added) {
        const auto file = FindByIndex(index);
        if (!file) {
            continue;
        }
        const auto current = StampOf(file->path);
        if (current != stamp) {
            now.emplace_back(index, current);
        }
    }
    if (now.empty()) {
        return;
    }
    std::vector<std::uint32_t> queued;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [index, stamp] : now) {
            const auto entry = entries_.find(index);
            if (entry == entries_.end()) {
                continue; // unshared or replaced meanwhile
            }
            const fs::path path = entry->second.file.path;
            const std::string key = Utf8(path);
            Remove(entry);
            if (stamp) {
                Insert(path, key, *stamp, true, queued);
            }
        }
        ++revision_;
    }
    NotifyWaiting(queued);
}

std::optional<std::uint32_t> FileIndex::AddFile(const fs::path& file) {
    std::error_code error;
    const fs::path absolute = fs::weakly_canonical(file, error);
    if (error) {
        return std::nullopt;
    }
    const auto stamp = StampOf(absolute);
    if (!stamp) {
        return std::nullopt;
    }
    std::string key;
    try {
        key = Utf8(absolute);
    } catch (const std::exception&) {
        return std::nullopt; // a name with no UTF-8 form cannot be offered to peers
    }
    std::vector<std::uint32_t> queued;
    std::uint32_t index = 0;
    {
        std::lock_guard lock(mutex_);
        const auto known = byPath_.find(key);
        if (known != byPath_.end()) {
            Entry& entry = entries_.at(known->second);
            entry.added = true;
            if (entry.stamp == *stamp) {
                return known->second;
            }
            Remove(entries_.find(known->second));
        }
        index = Insert(absolute, key, *stamp, true, queued).file.index;
        ++revision_;
    }
    NotifyWaiting(queued);
    return index;
}

FileIndex::Entry& FileIndex::Insert(const fs::path& path, const std::string& key,
                                    const FileStamp& stamp, bool added,
                                    std::vector<std::uint32_t>& queued) {
    Entry entry;
    entry.file.index = nextIndex_++;
    entry.file.path = path;
    entry.file.name = Utf8(path.filename());
    entry.file.size = stamp.size;
    entry.stamp = stamp;
    entry.added = added;
    if (const CachedHash* cached = cache_.Find(key); cached && cached->stamp == stamp) {
        entry.file.sha1 = cached->sha1;
        bySha1_.emplace(entry.file.sha1, entry.file.index);
    } else {
        waiting_.push_back(entry.file.index);
        queued.push_back(entry.file.index);
    }
    byPath_[key] = entry.file.index;
    const std::uint32_t index = entry.file.index;
    return entries_.emplace(index, std::move(entry)).first->second;
}

void FileIndex::Remove(std::map<std::uint32_t, Entry>::iterator entry) {
    const SharedFile& file = entry->second.file;
    byPath_.erase(Utf8(file.path));
    auto [first, last] = bySha1_.equal_range(file.sha1);
    for (auto it = first; it != last; ++it) {
        if (it->second == file.index) {
            bySha1_.erase(it);
            break;
        }
    }
    std::erase(waiting_, file.index);
    entries_.erase(entry);
}

void FileIndex::NotifyWaiting(const std::vector<std::uint32_t>& queued) {
    if (queued.empty()) {
        return;
    }
    std::lock_guard lock(notifyMutex_);
    if (onHashWaiting_) {
        onHashWaiting_();
    }
}

void FileIndex::OnHashWaiting(std::function<void()> callback) {
    std::lock_guard lock(notifyMutex_);
    onHashWaiting_ = std::move(callback);
}

std::optional<SharedFile> FileIndex::FindByIndex(std::uint32_t index) const {
    std::lock_guard lock(mutex_);
    const auto found = entries_.find(index);
    if (found == entries_.end()) {
        return std::nullopt;
    }
    return found->second.file;
}

std::optional<SharedFile> FileIndex::FindBySha1(std::string_view sha1) const {
    const std::string key = NormalizeSha1Text(sha1);
    if (key.empty()) {
        return std::nullopt;
    }
    std::lock_guard lock(mutex_);
    const auto found = bySha1_.find(key);
    if (found == bySha1_.end()) {
        return std::nullopt;
    }
    return entries_.at(found->second).file;
}

std::vector<SharedFile> FileIndex::Match(std::string_view query, std::size_t limit) const {
    std::vector<SharedFile> matches;
    if (limit == 0) {
        return matches;
    }
    if (query.size() >= kSha1Urn.size() && Lower(query.substr(0, kSha1Urn.size())) == kSha1Urn) {
        if (auto file = FindBySha1(query.substr(kSha1Urn.size()))) {
            matches.push_back(std::move(*file));
        }
        return matches;
    }
    const std::vector<std::string> words = Keywords(query);
    if (words.empty()) {
        return matches;
    }
    std::lock_guard lock(mutex_);
    for (const auto& [index, entry] : entries_) {
        const std::string name = Lower(entry.file.name);
        const bool all = std::all_of(words.begin(), words.end(), [&](const std::string& word) {
            return name.find(word) != std::string::npos;
        });
        if (all) {
            matches.push_back(entry.file);
            if (matches.size() == limit) {
                break;
            }
        }
    }
    return matches;
}

std::vector<SharedFile> FileIndex::Files() const {
    std::lock_guard lock(mutex_);
    std::vector<SharedFile> files;
    files.reserve(entries_.size());
    for (const auto& [index, entry] : entries_) {
        files.push_back(entry.file);
    }
    return files;
}

std::size_t FileIndex::FileCount() const {
    std::lock_guard lock(mutex_);
    return entries_.size();
}

std::size_t FileIndex::HashedCount() const {
    std::lock_guard lock(mutex_);
    return bySha1_.size();
}

std::uint64_t FileIndex::TotalBytes() const {
    std::lock_guard lock(mutex_);
    std::uint64_t total = 0;
    for (const auto& [index, entry] : entries_) {
        total += entry.file.size;
    }
    return total;
}

std::uint64_t FileIndex::Revision() const {
    std::lock_guard lock(mutex_);
    return revision_;
}

std::size_t FileIndex::WaitingForHash() const {
    std::lock_guard lock(mutex_);
    return waiting_.size();
}

bool FileIndex::HashNext(const HashPacer& pace) {
    std::uint32_t index = 0;
    fs::path path;
    FileStamp stamp;
    {
        std::lock_guard lock(mutex_);
        if (waiting_.empty()) {
            return false;
        }
        index = waiting_.front();
        const Entry& entry = entries_.at(index);
        path = entry.file.path;
        stamp = entry.stamp;
    }
    bool abandoned = false;
    HashPacer watch;
    if (pace) {
        watch = [&](std::chrono::steady_clock::duration busy) {
            abandoned = !pace(busy);
            return !abandoned;
        };
    }
    const std::optional<std::string> sha1 = HashFile(path, watch);
    if (abandoned) {
        return false;
    }
    const std::optional<FileStamp> after = StampOf(path);

    std::lock_guard lock(mutex_);
    const auto entry = entries_.find(index);
    if (entry == entries_.end()) {
        return true; // unshared while it was being read
    }
    std::erase(waiting_, index);
    if (!sha1 || !after) {
        return true; // unreadable: it stays unhashed until a rescan finds it again
    }
    if (*after != stamp) {
        // Written to while it was read: hash it again once the others have had their turn.
        entry->second.stamp = *after;
        entry->second.file.size = after->size;
        waiting_.push_back(index);
        ++revision_;
        return true;
    }
    entry->second.file.sha1 = *sha1;
    bySha1_.emplace(*sha1, index);
    cache_.Put(Utf8(path), CachedHash{stamp, *sha1});
    ++revision_;
    return true;
}

bool FileIndex::SaveCache() const {
    std::lock_guard lock(mutex_);
    return cacheFile_.empty() || cache_.Save(cacheFile_);
}

BackgroundHasher::BackgroundHasher(FileIndex& index, int cpuPercent)
    : index_(index), cpuPercent_(std::clamp(cpuPercent, 1, 100)) {
    index_.OnHashWaiting([this] {
        std::lock_guard lock(mutex_);
        work_ = true;
        wake_.notify_all();
    });
    thread_ = std::thread([this] { Run(); });
}

BackgroundHasher::~BackgroundHasher() {
    index_.OnHashWaiting({});
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        wake_.notify_all();
    }
    thread_.join();
}

void BackgroundHasher::SetCpuShare(int percent) {
    std::lock_guard lock(mutex_);
    cpuPercent_ = std::clamp(percent, 1, 100);
    wake_.notify_all();
}

bool BackgroundHasher::Rest(std::chrono::steady_clock::duration busy) {
    std::unique_lock lock(mutex_);
    const auto rest = busy * (100 - cpuPercent_) / cpuPercent_;
    wake_.wait_for(lock, rest, [this] { return stopping_; });
    return !stopping_;
}

void BackgroundHasher::WaitUntilIdle() {
    std::unique_lock lock(mutex_);
    wake_.wait(lock, [this] { return (idle_ && !work_) || stopping_; });
}

void BackgroundHasher::Run() {
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            idle_ = true;
            wake_.notify_all();
            wake_.wait(lock, [this] { return work_ || stopping_; });
            if (stopping_) {
                return;
            }
            work_ = false;
            idle_ = false;
        }
        while (index_.HashNext([this](auto busy) { return Rest(busy); })) {
            std::lock_guard lock(mutex_);
            if (stopping_) {
                return;
            }
        }
    }
}

} // namespace corvid::library
