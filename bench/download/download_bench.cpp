// Our downloader with four sources beside aria2c with the same four URLs and curl with one, all
// fetching the same file from nginx on four loopback ports, in one run.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "download/core/download_runner.h"
#include "tests/download/test_support.h"

using namespace corvid::download;
using namespace corvid::download::testing;

namespace {

using Clock = std::chrono::steady_clock;

void WritePatternFile(const std::string& path, std::uint64_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    std::vector<std::uint64_t> block(1 << 17);
    std::uint64_t state = 0x9E3779B97F4A7C15ull;
    for (std::uint64_t written = 0; written < size;) {
        for (auto& word : block) {
            state ^= state << 13;
            state ^= state >> 7;
            state ^= state << 17;
            word = state;
        }
        const std::uint64_t take = std::min<std::uint64_t>(size - written, block.size() * 8);
        out.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(take));
        written += take;
    }
}

bool SameContent(const std::string& a, const std::string& b) {
    std::ifstream left(a, std::ios::binary);
    std::ifstream right(b, std::ios::binary);
    std::vector<char> x(1 << 20);
    std::vector<char> y(1 << 20);
    while (left && right) {
        left.read(x.data(), static_cast<std::streamsize>(x.size()));
        right.read(y.data(), static_cast<std::streamsize>(y.size()));
        if (left.gcount() != right.gcount() ||
            !std::equal(x.begin(), x.begin() + left.gcount(), y.begin())) {
            return false;
        }
    }
    return left.eof() && right.eof();
}

double Seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

// Seconds our library took, or a negative number when it did not succeed.
double RunOurs(const std::vector<std::string>& urls, const std::string& target) {
    std::mutex lock;
    std::condition_variable changed;
    bool stopped = false;
    bool succeeded = false;
    DownloadRunner runner(target, DownloadOptions{});
    for (const auto& url : urls) {
        runner.addSource(url);
    }
    const auto start = Clock::now();
    runner.start([&](const DownloadEvent& event) {
        std::lock_guard guard(lock);
        succeeded |= event.code == EventCode::Succeeded;
        stopped |= event.code == EventCode::Stopped;
        changed.notify_all();
    });
    std::unique_lock guard(lock);
    changed.wait(guard, [&] { return stopped; });
    const double seconds = Seconds(start);
    return succeeded ? seconds : -1;
}

double RunCommand(const std::string& command) {
    const auto start = Clock::now();
    const int status = std::system(command.c_str());
    const double seconds = Seconds(start);
    return status == 0 ? seconds : -1;
}

} // namespace

int main(int argc, char** argv) {
    std::uint64_t mebibytes = 1024;
    int rounds = 2;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string flag = argv[i];
        if (flag == "--size-mib") {
            mebibytes = std::strtoull(argv[i + 1], nullptr, 10);
        } else if (flag == "--rounds") {
            rounds = std::atoi(argv[i + 1]);
        }
    }
    const std::uint64_t size = mebibytes * 1024 * 1024;
    TempDir dir;
    std::filesystem::create_directory(dir.file("www"));
    const std::string source = dir.file("www/big.bin");
    std::printf("generating %llu MiB...\n", static_cast<unsigned long long>(mebibytes));
    WritePatternFile(source, size);
    NginxServer nginx(dir.file("www"), 4);
    if (!nginx.running()) {
        std::fprintf(stderr, "nginx did not start\n");
        return 1;
    }
    std::vector<std::string> urls;
    for (int i = 0; i < 4; ++i) {
        urls.push_back(nginx.url(i, "big.bin"));
    }
    std::string aria = "aria2c -q --allow-overwrite=true --auto-file-renaming=false "
                       "--file-allocation=none -s4 -j1 --min-split-size=1M -d " +
                       dir.path() + " -o aria.bin";
    for (const auto& url : urls) {
        aria += " " + url;
    }
    const std::string curl = "curl -s -f -o " + dir.file("curl.bin") + " " + urls[0];

    const double megabytes = static_cast<double>(size) / 1e6;
    double best[3] = {1e30, 1e30, 1e30};
    bool failed = false;
    for (int round = 0; round < rounds; ++round) {
        for (const char* name : {"ours.bin", "aria.bin", "curl.bin"}) {
            std::filesystem::remove(dir.file(name));
            std::filesystem::remove(dir.file(std::string(name) + ".ranges"));
        }
        const double times[3] = {RunOurs(urls, dir.file("ours.bin")), RunCommand(aria),
                                 RunCommand(curl)};
        const char* names[3] = {"ours.bin", "aria.bin", "curl.bin"};
        for (int i = 0; i < 3; ++i) {
            if (times[i] < 0 || !SameContent(source, dir.file(names[i]))) {
                std::fprintf(stderr, "%s: download failed or wrong bytes\n", names[i]);
                failed = true;
            } else {
                best[i] = std::min(best[i], times[i]);
            }
        }
        std::printf("round %d: corvid %.0f MB/s, aria2c %.0f MB/s, curl %.0f MB/s\n", round + 1,
                    megabytes / times[0], megabytes / times[1], megabytes / times[2]);
    }
    if (failed) {
        return 1;
    }
    const double ours = megabytes / best[0];
    const double aria2 = megabytes / best[1];
    const double curlRate = megabytes / best[2];
    std::printf("best of %d, %llu MiB from nginx on 4 loopback ports:\n", rounds,
                static_cast<unsigned long long>(mebibytes));
    std::printf("  corvid (4 sources)  %8.0f MB/s\n", ours);
    std::printf("  aria2c (4 URLs)     %8.0f MB/s   corvid/aria2c = %.2f\n", aria2, ours / aria2);
    std::printf("  curl   (1 URL)      %8.0f MB/s   corvid/curl   = %.2f\n", curlRate,
                ours / curlRate);
    return 0;
}
