#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace corvid::download {

// The partial file, written at any offset. One owner; closed on destruction.
class RandomAccessFile {
public:
    RandomAccessFile() = default;
    ~RandomAccessFile();
    RandomAccessFile(const RandomAccessFile&) = delete;
    RandomAccessFile& operator=(const RandomAccessFile&) = delete;

    // Opens for reading and writing, creating the file when missing; never truncates.
    bool open(const std::string& path);
    bool isOpen() const { return fd_ >= 0; }
    bool writeAt(std::uint64_t offset, const char* data, std::size_t size);
    // Reads up to `size` bytes; returns how many, or nothing on an error.
    std::optional<std::size_t> readAt(std::uint64_t offset, char* data, std::size_t size);
    std::optional<std::uint64_t> size();
    bool truncate(std::uint64_t length);
    void close();

private:
    int fd_ = -1;
};

std::optional<std::string> ReadSmallFile(const std::string& path, std::size_t limit);
// Writes beside the target and renames over it, so a crash leaves the old or the new text.
bool WriteFileAtomically(const std::string& path, const std::string& text);

} // namespace corvid::download
