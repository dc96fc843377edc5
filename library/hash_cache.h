#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

namespace corvid::library {

// What a file looked like when it was hashed; a hash is reused only while both still hold.
struct FileStamp {
    std::uint64_t size = 0;
    std::int64_t modified = 0;

    bool operator==(const FileStamp&) const = default;
};

struct CachedHash {
    FileStamp stamp;
    std::string sha1;
};

// Hashes remembered across runs, keyed by the file's path (UTF-8).
class HashCache {
public:
    const CachedHash* Find(const std::string& path) const;
    void Put(const std::string& path, CachedHash hash);
    void Erase(const std::string& path) { entries_.erase(path); }
    std::size_t size() const { return entries_.size(); }

    // The cache file is read as untrusted text: lines that are not well formed are skipped, and a
    // file that is not a cache at all gives an empty cache. Returns false when it could not be
    // read.
    bool Load(const std::filesystem::path& file);
    // Written to a temporary file first and renamed over the old one, so a crash leaves either.
    bool Save(const std::filesystem::path& file) const;

    // The parsing step of Load, on text already in memory.
    void Parse(std::string_view text);
    std::string Serialize() const;

private:
    std::map<std::string, CachedHash> entries_;
};

} // namespace corvid::library
