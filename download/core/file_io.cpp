#include "download/core/file_io.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <system_error>

#ifdef _WIN32
#include <io.h>
#include <sys/stat.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace corvid::download {
namespace {

#ifdef _WIN32
int OpenReadWrite(const std::string& path) {
    return ::_open(path.c_str(), _O_RDWR | _O_CREAT | _O_BINARY | _O_NOINHERIT,
                   _S_IREAD | _S_IWRITE);
}
bool SeekTo(int fd, std::uint64_t offset) {
    return ::_lseeki64(fd, static_cast<__int64>(offset), SEEK_SET) >= 0;
}
#else
int OpenReadWrite(const std::string& path) {
    return ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
}
#endif

} // namespace

RandomAccessFile::~RandomAccessFile() {
    close();
}

bool RandomAccessFile::open(const std::string& path) {
    close();
    fd_ = OpenReadWrite(path);
    return fd_ >= 0;
}

void RandomAccessFile::close() {
    if (fd_ >= 0) {
#ifdef _WIN32
        ::_close(fd_);
#else
        ::close(fd_);
#endif
        fd_ = -1;
    }
}

bool RandomAccessFile::writeAt(std::uint64_t offset, const char* data, std::size_t size) {
    while (size > 0) {
#ifdef _WIN32
        if (!SeekTo(fd_, offset)) {
            return false;
        }
        const unsigned piece = static_cast<unsigned>(std::min<std::size_t>(size, 1u << 30));
        const int written = ::_write(fd_, data, piece);
#else
        const ssize_t written = ::pwrite(fd_, data, size, static_cast<off_t>(offset));
#endif
        if (written <= 0) {
            return false;
        }
        data += written;
        size -= static_cast<std::size_t>(written);
        offset += static_cast<std::uint64_t>(written);
    }
    return true;
}

std::optional<std::size_t> RandomAccessFile::readAt(std::uint64_t offset, char* data,
                                                    std::size_t size) {
#ifdef _WIN32
    if (!SeekTo(fd_, offset)) {
        return std::nullopt;
    }
    const int got =
        ::_read(fd_, data, static_cast<unsigned>(std::min<std::size_t>(size, 1u << 30)));
#else
    const ssize_t got = ::pread(fd_, data, size, static_cast<off_t>(offset));
#endif
    if (got < 0) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(got);
}

std::optional<std::uint64_t> RandomAccessFile::size() {
#ifdef _WIN32
    const __int64 end = ::_lseeki64(fd_, 0, SEEK_END);
    if (end < 0) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(end);
#else
    struct stat status {};
    if (::fstat(fd_, &status) != 0) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(status.st_size);
#endif
}

bool RandomAccessFile::truncate(std::uint64_t length) {
#ifdef _WIN32
    return ::_chsize_s(fd_, static_cast<__int64>(length)) == 0;
#else
    return ::ftruncate(fd_, static_cast<off_t>(length)) == 0;
#endif
}

std::optional<std::string> ReadSmallFile(const std::string& path, std::size_t limit) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    std::string text;
    char buffer[4096];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
        text.append(buffer, static_cast<std::size_t>(in.gcount()));
        if (text.size() > limit) {
            return std::nullopt;
        }
    }
    return text;
}

bool WriteFileAtomically(const std::string& path, const std::string& text) {
    const std::string temporary = path + ".new";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out || !out.write(text.data(), static_cast<std::streamsize>(text.size())) ||
            !out.flush()) {
            return false;
        }
    }
    std::error_code error;
    std::filesystem::rename(temporary, path, error);
    if (error) {
        std::filesystem::remove(path, error);
        std::filesystem::rename(temporary, path, error);
    }
    return !error;
}

} // namespace corvid::download
