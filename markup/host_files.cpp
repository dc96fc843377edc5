#include "markup/host_files.h"

#include <cstdio>
#include <memory>

namespace corvid {

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

const HostFiles* installed = nullptr;

} // namespace

std::optional<std::string> StdioHostFiles::ReadFile(const std::string& path) const {
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    if (!file || std::fseek(file.get(), 0, SEEK_END) != 0) {
        return std::nullopt;
    }
    const long size = std::ftell(file.get());
    if (size < 0 || size > kMaxHostFileSize || std::fseek(file.get(), 0, SEEK_SET) != 0) {
        return std::nullopt;
    }
    std::string contents(static_cast<std::size_t>(size), '\0');
    if (std::fread(contents.data(), 1, contents.size(), file.get()) != contents.size()) {
        return std::nullopt;
    }
    return contents;
}

const HostFiles& CurrentHostFiles() {
    static const StdioHostFiles fallback(".");
    return installed ? *installed : fallback;
}

void InstallHostFiles(const HostFiles* files) {
    installed = files;
}

} // namespace corvid
