#pragma once

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>

#include <unistd.h>

namespace corvid::testing {

// A fresh folder under the system's temporary folder, removed with everything in it at the end.
class TempFolder {
public:
    TempFolder() {
        static std::atomic<int> counter{0};
        path_ = std::filesystem::temp_directory_path() /
                ("corvid-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

    std::filesystem::path Write(const std::filesystem::path& relative, std::string_view contents) {
        const auto file = path_ / relative;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
        return file;
    }

private:
    std::filesystem::path path_;
};

inline std::string RandomBytes(std::size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) {
        c = static_cast<char>(generator() & 0xFF);
    }
    return bytes;
}

} // namespace corvid::testing
