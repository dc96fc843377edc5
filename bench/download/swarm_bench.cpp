// Our downloader against real-world sources: four nginx ports throttled per connection to
// different rates, one server that accepts and then says nothing, and one that passes a throttled
// nginx port through but spoils the bytes of one response. aria2c gets the same six URLs. All on
// loopback, started and stopped by the benchmark.
#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "download/core/download_runner.h"
#include "library/sha1.h"
#include "tests/download/test_support.h"

using namespace corvid::download;
using namespace corvid::download::testing;

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

std::string PatternBytes(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint64_t state = 0x9E3779B97F4A7C15ull;
    for (std::size_t i = 0; i + 8 <= size; i += 8) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        std::memcpy(bytes.data() + i, &state, 8);
    }
    return bytes;
}

int ListenLoopback(std::uint16_t& port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    const int one = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(fd, 64);
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
    return fd;
}

int ConnectLoopback(std::uint16_t port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool SendAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t sent = ::send(fd, data, size, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

// Accepts connections on a thread of its own until stopped; each is handled by `serve` on a
// thread of its own, which must return once `stopping` is set or its socket is shut down.
class LoopbackServer {
public:
    using Serve = std::function<void(int fd, const std::atomic<bool>& stopping)>;
    explicit LoopbackServer(Serve serve) : serve_(std::move(serve)) {
        listener_ = ListenLoopback(port_);
        acceptor_ = std::thread([this] { acceptLoop(); });
    }
    ~LoopbackServer() {
        stopping_ = true;
        acceptor_.join();
        {
            std::lock_guard guard(lock_);
            for (int fd : open_) {
                ::shutdown(fd, SHUT_RDWR);
            }
        }
        for (auto& thread : threads_) {
            thread.join();
        }
        for (int fd : open_) {
            ::close(fd);
        }
        ::close(listener_);
    }
    std::uint16_t port() const { return port_; }

private:
    void acceptLoop() {
        while (!stopping_) {
            pollfd wait{listener_, POLLIN, 0};
            if (::poll(&wait, 1, 50) <= 0) {
                continue;
            }
            const int fd = ::accept(listener_, nullptr, nullptr);
            if (fd < 0) {
                continue;
            }
            std::lock_guard guard(lock_);
            open_.push_back(fd);
            threads_.emplace_back([this, fd] { serve_(fd, stopping_); });
        }
    }

    Serve serve_;
    int listener_ = -1;
    std::uint16_t port_ = 0;
    std::atomic<bool> stopping_{false};
    std::thread acceptor_;
    std::mutex lock_;
    std::vector<int> open_;
    std::vector<std::thread> threads_;
};

// Reads what the client sends and never answers.
void Stall(int fd, const std::atomic<bool>& stopping) {
    char buffer[4096];
    while (!stopping) {
        pollfd wait{fd, POLLIN, 0};
        if (::poll(&wait, 1, 50) > 0 && ::recv(fd, buffer, sizeof buffer, 0) <= 0) {
            return;
        }
    }
}

// Passes each connection through to an upstream port at `rate` bytes per second for that
// connection, however many requests it carries. When `spoiled` is above 0, the bytes of 64 KiB in
// the middle of the body of the `spoiled`th response the relay forwards (counted from 1 across
// connections) are spoiled.
class Relay {
public:
    Relay(std::uint16_t upstream, std::uint64_t rate, int spoiled)
        : upstream_(upstream), rate_(rate), spoiled_(spoiled),
          server_([this](int fd, const std::atomic<bool>& stopping) { serve(fd, stopping); }) {}
    std::uint16_t port() const { return server_.port(); }
    // The file offsets spoiled so far, [begin, end); empty when none.
    std::pair<std::uint64_t, std::uint64_t> spoiledSpan() {
        std::lock_guard guard(lock_);
        return spoiledSpan_;
    }
    void reset() {
        std::lock_guard guard(lock_);
        responses_ = 0;
        spoiledSpan_ = {};
    }

private:
    void serve(int client, const std::atomic<bool>& stopping) {
        const int upstream = ConnectLoopback(upstream_);
        if (upstream < 0) {
            return;
        }
        std::thread requests([&] {
            char buffer[16384];
            for (;;) {
                const ssize_t got = ::recv(client, buffer, sizeof buffer, 0);
                if (got <= 0 || !SendAll(upstream, buffer, static_cast<std::size_t>(got))) {
                    break;
                }
            }
            ::shutdown(upstream, SHUT_RDWR);
        });
        std::string head;
        std::uint64_t bodyLeft = 0;
        std::uint64_t offset = 0;
        std::uint64_t spoilBegin = 0;
        std::uint64_t spoilEnd = 0;
        // Slices of a twentieth of a second keep the pace smooth.
        std::vector<char> buffer(std::clamp<std::uint64_t>(rate_ / 20, 4096, 256 * 1024));
        const auto start = Clock::now();
        std::uint64_t forwarded = 0;
        while (!stopping) {
            const ssize_t got = ::recv(upstream, buffer.data(), buffer.size(), 0);
            if (got <= 0) {
                break;
            }
            std::size_t at = 0;
            const auto size = static_cast<std::size_t>(got);
            while (at < size) {
                if (bodyLeft == 0) {
                    head.push_back(buffer[at++]);
                    if (head.size() >= 4 && head.compare(head.size() - 4, 4, "\r\n\r\n") == 0) {
                        startBody(head, bodyLeft, offset, spoilBegin, spoilEnd);
                        head.clear();
                    }
                    continue;
                }
                const std::size_t take =
                    static_cast<std::size_t>(std::min<std::uint64_t>(bodyLeft, size - at));
                for (std::size_t i = 0; i < take; ++i) {
                    if (offset + i >= spoilBegin && offset + i < spoilEnd) {
                        buffer[at + i] ^= 0x5A;
                    }
                }
                at += take;
                offset += take;
                bodyLeft -= take;
            }
            forwarded += size;
            std::this_thread::sleep_until(start +
                                          std::chrono::microseconds(forwarded * 1'000'000 / rate_));
            if (!SendAll(client, buffer.data(), size)) {
                break;
            }
        }
        ::shutdown(client, SHUT_RDWR);
        ::shutdown(upstream, SHUT_RDWR);
        requests.join();
        ::close(upstream);
    }

    void startBody(const std::string& head, std::uint64_t& bodyLeft, std::uint64_t& offset,
                   std::uint64_t& spoilBegin, std::uint64_t& spoilEnd) {
        const auto number = [&](const char* name) -> std::uint64_t {
            const std::size_t at = head.find(name);
            return at == std::string::npos
                       ? 0
                       : std::strtoull(head.c_str() + at + std::strlen(name), nullptr, 10);
        };
        bodyLeft = number("Content-Length: ");
        offset = number("Content-Range: bytes ");
        spoilBegin = spoilEnd = 0;
        std::lock_guard guard(lock_);
        if (bodyLeft > 0 && ++responses_ == spoiled_) {
            const std::uint64_t size = std::min<std::uint64_t>(bodyLeft, 64 * 1024);
            spoilBegin = offset + (bodyLeft - size) / 2;
            spoilEnd = spoilBegin + size;
            spoiledSpan_ = {spoilBegin, spoilEnd};
        }
    }

    std::uint16_t upstream_;
    std::uint64_t rate_;
    int spoiled_;
    std::mutex lock_;
    int responses_ = 0;
    std::pair<std::uint64_t, std::uint64_t> spoiledSpan_;
    LoopbackServer server_;
};

struct OurRun {
    double seconds = -1;
    bool succeeded = false;
    double stalledDropped = -1; // seconds from the start until the stalling source timed out
    double liarFound = -1;      // ... until the spoiling source was declared invalid
    std::map<std::uint32_t, std::int64_t> received;
};

bool trace = false;

OurRun RunOurs(const std::vector<std::string>& urls, std::size_t stalling, std::size_t liar,
               const std::string& target) {
    std::mutex lock;
    std::condition_variable changed;
    bool stopped = false;
    OurRun run;
    DownloadRunner runner(target, DownloadOptions{});
    std::vector<std::uint32_t> ids;
    for (const auto& url : urls) {
        ids.push_back(runner.addSource(url));
    }
    const auto start = Clock::now();
    runner.start([&](const DownloadEvent& event) {
        std::lock_guard guard(lock);
        if (trace && event.code != EventCode::Progress && event.code != EventCode::Received) {
            std::printf("    %7.3f s  source %u  event %d %lld %.60s\n", Seconds(start),
                        event.sourceId, static_cast<int>(event.code),
                        static_cast<long long>(event.number),
                        event.text.substr(0, event.text.find('\r')).c_str());
        }
        if (event.code == EventCode::Received) {
            run.received[event.sourceId] = event.number;
        }
        if (event.sourceId == ids[stalling] && event.code == EventCode::TimedOut &&
            run.stalledDropped < 0) {
            run.stalledDropped = Seconds(start);
        }
        if (event.sourceId == ids[liar] && event.code == EventCode::InvalidSource) {
            run.liarFound = Seconds(start);
        }
        run.succeeded |= event.code == EventCode::Succeeded;
        stopped |= event.code == EventCode::Stopped;
        changed.notify_all();
    });
    std::unique_lock guard(lock);
    changed.wait(guard, [&] { return stopped; });
    run.seconds = Seconds(start);
    std::vector<std::int64_t> byIndex;
    for (std::uint32_t id : ids) {
        byIndex.push_back(run.received[id]);
    }
    run.received.clear();
    for (std::size_t i = 0; i < byIndex.size(); ++i) {
        run.received[static_cast<std::uint32_t>(i)] = byIndex[i];
    }
    return run;
}

double RunCommand(const std::string& command) {
    const auto start = Clock::now();
    const int status = std::system(command.c_str());
    const double seconds = Seconds(start);
    return status == 0 ? seconds : -seconds;
}

// What the four throttled ports deliver together over one connection each, measured with curl.
double MeasuredSum(const std::vector<std::string>& urls, const std::string& folder) {
    std::string command = "(";
    for (std::size_t i = 0; i < urls.size(); ++i) {
        command += "curl -s -o /dev/null --max-time 4 -w '%{size_download} %{time_total}\\n' " +
                   urls[i] + " >> " + folder + "/sum.txt & ";
    }
    command += "wait)";
    std::filesystem::remove(folder + "/sum.txt");
    if (std::system(command.c_str()) != 0) {
        return 0;
    }
    std::ifstream in(folder + "/sum.txt");
    double rate = 0;
    double bytes = 0;
    double seconds = 0;
    while (in >> bytes >> seconds) {
        rate += seconds > 0 ? bytes / seconds : 0;
    }
    return rate / 1e6;
}

bool SameContent(const std::string& path, const std::string& expected) {
    return std::filesystem::exists(path) && ReadWholeFile(path) == expected;
}

} // namespace

int main(int argc, char** argv) {
    std::uint64_t mebibytes = 256;
    int rounds = 2;
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--trace") {
            trace = true;
        }
    }
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string flag = argv[i];
        if (flag == "--size-mib") {
            mebibytes = std::strtoull(argv[i + 1], nullptr, 10);
        } else if (flag == "--rounds") {
            rounds = std::atoi(argv[i + 1]);
        }
    }
    const std::vector<std::uint64_t> goodRates = {2'000'000, 4'000'000, 8'000'000, 16'000'000};
    const std::uint64_t liarRate = 4'000'000;
    TempDir dir;
    std::filesystem::create_directory(dir.file("www"));
    const std::string content = PatternBytes(mebibytes * 1024 * 1024);
    WriteWholeFile(dir.file("www/big.bin"), content);
    const std::string urn =
        "urn:sha1:" + corvid::library::ToBase32(corvid::library::Sha1Of(content));
    std::string hex;
    for (std::uint8_t byte : corvid::library::Sha1Of(content)) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        hex += digits;
    }
    NginxServer nginx(dir.file("www"), 1);
    if (!nginx.running()) {
        std::fprintf(stderr, "nginx did not start\n");
        return 1;
    }
    const std::uint16_t origin = nginx.ports()[0];
    std::vector<std::unique_ptr<Relay>> relays;
    for (std::uint64_t rate : goodRates) {
        relays.push_back(std::make_unique<Relay>(origin, rate, 0));
    }
    LoopbackServer staller(Stall);
    Relay liar(origin, liarRate, 2);

    std::vector<std::string> good;
    for (const auto& relay : relays) {
        good.push_back("http://127.0.0.1:" + std::to_string(relay->port()) + "/big.bin");
    }
    std::vector<std::string> urls = good;
    urls.push_back("http://127.0.0.1:" + std::to_string(staller.port()) + "/big.bin");
    urls.push_back("http://127.0.0.1:" + std::to_string(liar.port()) + "/big.bin");
    const std::size_t stalling = 4;
    const std::size_t spoiling = 5;
    for (auto& url : urls) {
        url += "?" + urn;
    }

    double nominal = 0;
    for (std::uint64_t rate : goodRates) {
        nominal += static_cast<double>(rate) / 1e6;
    }
    const double measured = MeasuredSum(good, dir.path());
    std::printf("%llu MiB from nginx through relays paced per connection to 2, 4, 8, 16 MB/s, "
                "one source that stalls, one at 4 MB/s that spoils 64 KiB of one response\n",
                static_cast<unsigned long long>(mebibytes));
    std::printf("summed rate of the four good sources: %.1f MB/s configured, %.1f MB/s measured "
                "(four curls at once, 4 s)\n",
                nominal, measured);

    std::string aria = "timeout 600 aria2c -q --allow-overwrite=true --auto-file-renaming=false "
                       "--file-allocation=none -s6 -x6 -j1 --min-split-size=1M --checksum=sha-1=" +
                       hex + " -d " + dir.path() + " -o aria.bin";
    for (const auto& url : urls) {
        aria += " " + url;
    }
    const double megabytes = static_cast<double>(content.size()) / 1e6;
    double bestOurs = 0;
    double bestAria = 0;
    bool failed = false;
    for (int round = 0; round < rounds; ++round) {
        for (const char* name : {"ours.bin", "aria.bin"}) {
            std::filesystem::remove(dir.file(name));
            std::filesystem::remove(dir.file(std::string(name) + ".ranges"));
            std::filesystem::remove(dir.file(std::string(name) + ".aria2"));
        }
        liar.reset();
        const OurRun ours = RunOurs(urls, stalling, spoiling, dir.file("ours.bin"));
        const auto oursSpoiled = liar.spoiledSpan();
        const bool oursRight = ours.succeeded && SameContent(dir.file("ours.bin"), content);
        liar.reset();
        const double ariaSeconds = RunCommand(aria);
        const auto ariaSpoiled = liar.spoiledSpan();
        const bool ariaRight = ariaSeconds > 0 && SameContent(dir.file("aria.bin"), content);
        const double oursRate = megabytes / ours.seconds;
        const double ariaRate = megabytes / std::abs(ariaSeconds);
        std::printf("round %d:\n", round + 1);
        std::printf("  corvid  %5.1f MB/s = %3.0f%% of the good sources' sum, SHA1 %s; stalled "
                    "source dropped after %.1f s; spoiled bytes [%llu, %llu) %s",
                    oursRate, 100 * oursRate / nominal, oursRight ? "right" : "WRONG",
                    ours.stalledDropped, static_cast<unsigned long long>(oursSpoiled.first),
                    static_cast<unsigned long long>(oursSpoiled.second),
                    oursSpoiled.second == 0 ? "(the spoiling source served no second response)"
                                            : "");
        if (ours.liarFound >= 0) {
            std::printf("found, its source dropped after %.1f s", ours.liarFound);
        } else if (oursSpoiled.second != 0) {
            std::printf("never found");
        }
        std::printf("\n          bytes received per source (2, 4, 8, 16 MB/s, staller, spoiler):");
        for (const auto& [index, bytes] : ours.received) {
            std::printf(" %.1f", static_cast<double>(bytes) / 1e6);
        }
        std::printf(" MB\n");
        std::printf("  aria2c  %5.1f MB/s = %3.0f%% of the good sources' sum, %s; spoiled bytes "
                    "[%llu, %llu)\n",
                    ariaRate, 100 * ariaRate / nominal,
                    ariaRight ? "SHA1 right"
                              : (ariaSeconds > 0 ? "SHA1 WRONG" : "failed (its SHA1 check)"),
                    static_cast<unsigned long long>(ariaSpoiled.first),
                    static_cast<unsigned long long>(ariaSpoiled.second));
        failed |= !oursRight;
        if (oursRight) {
            bestOurs = std::max(bestOurs, oursRate);
        }
        if (ariaRight) {
            bestAria = std::max(bestAria, ariaRate);
        }
    }
    std::printf("best of %d: corvid %.1f MB/s (%.0f%% of %.1f configured, %.0f%% of %.1f "
                "measured), aria2c %.1f MB/s with a right file\n",
                rounds, bestOurs, 100 * bestOurs / nominal, nominal, 100 * bestOurs / measured,
                measured, bestAria);
    return failed ? 1 : 0;
}
