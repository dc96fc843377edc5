// SHA1 throughput of the file index's hasher on one file: the same path the background hasher
// takes (1 MiB reads, no pacing). Prints the hex digest so the script can check it against
// the reference's.
#include "library/file_index.h"
#include "library/sha1.h"

#include <chrono>
#include <cstdio>
#include <filesystem>

int main(int argc, char** argv) {
    using namespace corvid::library;
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FILE\n", argv[0]);
        return 2;
    }
    const std::filesystem::path file = argv[1];
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    if (error) {
        std::fprintf(stderr, "cannot read %s\n", argv[1]);
        return 1;
    }
    const auto started = std::chrono::steady_clock::now();
    const auto base32 = HashFile(file);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    Sha1Digest digest{};
    if (!base32 || !FromBase32(*base32, digest)) {
        std::fprintf(stderr, "hashing failed\n");
        return 1;
    }
    std::printf("%s %.3f %.1f %s\n", ToHex(digest).c_str(), took.count(),
                static_cast<double>(size) / (1 << 20) / took.count(),
                Sha1::UsesShaInstructions() ? "sha-instructions" : "portable");
    return 0;
}
