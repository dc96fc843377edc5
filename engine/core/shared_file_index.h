// What the servent asks of the files it shares. The in-memory index here stands in until the
// file manager's index takes its place behind the same interface.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace corvid::gnutella {

struct SharedFile {
    std::uint32_t index = 0;
    std::uint64_t size = 0;
    std::string name;
    std::string sha1; // base32, upper case; empty when not hashed yet
};

class SharedFileIndex {
public:
    virtual ~SharedFileIndex() = default;

    // Files whose names hold every keyword (lower case, as SplitKeywords gives them), or whose
    // SHA1 is one of sha1s. At most max_results.
    virtual std::vector<SharedFile> Match(const std::vector<std::string>& keywords,
                                          const std::vector<std::string>& sha1s,
                                          std::size_t max_results) const = 0;
    // Every shared file, for building the query routing table.
    virtual std::vector<SharedFile> All() const = 0;
    // Grows whenever the set of files changes, so the servent knows to resend its table.
    virtual std::uint64_t Revision() const = 0;
};

class InMemoryFileIndex : public SharedFileIndex {
public:
    // Gives the file the next index; a SHA1 that is not 32 base32 characters is dropped.
    std::uint32_t Add(std::string name, std::uint64_t size, std::string sha1);
    void Clear();

    std::vector<SharedFile> Match(const std::vector<std::string>& keywords,
                                  const std::vector<std::string>& sha1s,
                                  std::size_t max_results) const override;
    std::vector<SharedFile> All() const override;
    std::uint64_t Revision() const override;

private:
    mutable std::mutex mutex_;
    std::vector<SharedFile> files_;
    std::vector<std::string> lower_names_;
    std::uint32_t next_index_ = 1;
    std::uint64_t revision_ = 0;
};

// Reads a share list: one file a line, "size<TAB>sha1<TAB>name" (sha1 may be "-"). Lines that
// do not parse are skipped; returns how many were added.
std::size_t LoadShareList(std::string_view text, InMemoryFileIndex& index);

} // namespace corvid::gnutella
