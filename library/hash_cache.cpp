#include "library/hash_cache.h"

#include "library/sha1.h"

#include <charconv>
#include <fstream>
#include <sstream>
#include <system_error>

namespace corvid::library {
namespace {

constexpr std::string_view kHeader = "CorvidHashCache 1";
constexpr std::size_t kMaxLineLength = 8192;
constexpr std::size_t kMaxEntries = 1'000'000;

template <typename Number> bool ParseNumber(std::string_view text, Number& value) {
    if (text.empty()) {
        return false;
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

bool HasControlCharacters(std::string_view text) {
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7F) {
            return true;
        }
    }
    return false;
}

// One line: SHA1, size, modification stamp, path; tab-separated, the path last.
bool ParseLine(std::string_view line, std::string& path, CachedHash& hash) {
    std::string_view fields[3];
    for (auto& field : fields) {
        const std::size_t tab = line.find('\t');
        if (tab == std::string_view::npos) {
            return false;
        }
        field = line.substr(0, tab);
        line.remove_prefix(tab + 1);
    }
    hash.sha1 = NormalizeSha1Text(fields[0]);
    if (hash.sha1.empty() || !ParseNumber(fields[1], hash.stamp.size) ||
        !ParseNumber(fields[2], hash.stamp.modified) || line.empty() ||
        HasControlCharacters(line)) {
        return false;
    }
    path.assign(line);
    return true;
}

} // namespace

const CachedHash* HashCache::Find(const std::string& path) const {
    const auto found = entries_.find(path);
    return found == entries_.end() ? nullptr : &found->second;
}

void HashCache::Put(const std::string& path, CachedHash hash) {
    if (path.empty() || HasControlCharacters(path) || path.size() > kMaxLineLength / 2) {
        return;
    }
    entries_[path] = std::move(hash);
}

void HashCache::Parse(std::string_view text) {
    entries_.clear();
    bool first = true;
    while (!text.empty() && entries_.size() < kMaxEntries) {
        const std::size_t newline = text.find('\n');
        std::string_view line = text.substr(0, newline);
        text.remove_prefix(newline == std::string_view::npos ? text.size() : newline + 1);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (first) {
            if (line != kHeader) {
                return;
            }
            first = false;
            continue;
        }
        if (line.size() > kMaxLineLength) {
            continue;
        }
        std::string path;
        CachedHash hash;
        if (ParseLine(line, path, hash)) {
            entries_[path] = std::move(hash);
        }
    }
}

std::string HashCache::Serialize() const {
    std::string text(kHeader);
    text += '\n';
    for (const auto& [path, hash] : entries_) {
        text += hash.sha1;
        text += '\t';
        text += std::to_string(hash.stamp.size);
        text += '\t';
        text += std::to_string(hash.stamp.modified);
        text += '\t';
        text += path;
        text += '\n';
    }
    return text;
}

bool HashCache::Load(const std::filesystem::path& file) {
    entries_.clear();
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream contents;
    contents << in.rdbuf();
    Parse(contents.str());
    return true;
}

bool HashCache::Save(const std::filesystem::path& file) const {
    std::filesystem::path temporary = file;
    temporary += ".new";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out) {
            return false;
        }
        const std::string text = Serialize();
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        if (!out.flush()) {
            return false;
        }
    }
    std::error_code error;
    std::filesystem::rename(temporary, file, error);
    return !error;
}

} // namespace corvid::library
