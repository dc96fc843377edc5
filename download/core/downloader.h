#pragma once

#include <array>
#include <asio/io_context.hpp>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace corvid::download {

// The events a download reports, with the numbers its callers know them by.
enum class EventCode : int {
    Stopped = 0, // the transfer has ended, whatever the reason; always the last event
    Started = 1,
    InvalidSource = 2, // the source is dropped for good
    WaitingToRetry = 3,
    Connecting = 4,    // text: "host:port"
    ResolveFailed = 5, // text: the host name
    Connected = 6,
    ConnectFailed = 7,
    RequestSent = 9,     // text: the request, lines ending in "\r\n"
    HeaderReceived = 11, // text: the response head, lines ending in "\r\n"
    ReceivingData = 12,
    Received = 13,   // number: bytes received from the source in this run
    Redirected = 14, // text: the new URL
    FileName = 15,   // text: the name the server gave (Content-Disposition)
    FileLength = 16, // words: length low, length high, bytes already on disk (capped)
    TimedOut = 17,
    Progress = 18,
    HttpError = 19, // number: the HTTP status, or one of the DownloadError values
    Disconnected = 20,
    NoValidSource = 21,
    UserAborted = 22,
    Succeeded = 23,
};

// Numbers carried by HttpError that are not HTTP statuses.
enum DownloadError : int {
    kErrorSha1Mismatch = 900, // the finished file does not hash to the URN's SHA1
    kErrorWriteFailed = 901,  // the partial file could not be written
    kErrorProtocol = 902,     // a response this library cannot read (the event before says why)
};

struct DownloadEvent {
    EventCode code = EventCode::Stopped;
    std::uint32_t sourceId = 0; // 0 for the download's own events
    std::string text;
    std::int64_t number = 0;
    std::array<std::uint32_t, 3> words{};
};

using EventHandler = std::function<void(const DownloadEvent&)>;

enum class InfoCode : int {
    Transferring = 0,     // 1 while the download runs
    Speed = 1,            // bytes per second, smoothed over about two seconds
    SourcesTotal = 2,     // every source accepted
    SourcesReceiving = 3, // receiving data now
    SourcesFailed = 4,    // given up: invalid, or out of attempts
    SourcesPending = 5,   // connecting, asking, idle between ranges or waiting to retry
    Percent = 6,          // 0-100, -1 while the length is unknown
};

struct DownloadOptions {
    // Where the partial file and its range map live until the download is complete; empty means
    // the target path itself, with the range map beside it.
    std::string temporaryFolder;
    std::chrono::milliseconds retryDelay{5000};
    std::chrono::milliseconds maxRetryDelay{60000}; // a server's Retry-After is capped at this
    std::chrono::milliseconds connectTimeout{20000};
    std::chrono::milliseconds ioTimeout{30000}; // silence allowed while waiting for bytes
    // A server that took a request and has not begun its answer is given up on sooner: the
    // lesser of this and ioTimeout.
    std::chrono::milliseconds headTimeout{5000};
    // A source silent this long may see the rest of its range taken over by an idle source.
    std::chrono::milliseconds stallTime{2000};
    std::chrono::milliseconds tick{250}; // progress reports, speed, time-outs, map saves
    std::chrono::milliseconds progressInterval{1000};
    std::chrono::milliseconds mapSaveInterval{1000};
    int maxAttempts = 8; // failures in a row before a source is given up; each waits twice as long
    int maxRedirects = 5;
    std::uint64_t minRequest = 256 * 1024;
    std::uint64_t maxRequest = 64ull * 1024 * 1024;
    double requestSeconds = 2.0; // a request asks for about this long of the source's speed
    std::size_t readBuffer = 256 * 1024;
    std::size_t maxHeadBytes = 16 * 1024;
    std::string userAgent = "Corvid/0.1";
};

struct DownloadPaths {
    std::string target;  // where the finished file ends up
    std::string partial; // where it is written meanwhile
    std::string rangeMap;
};

DownloadPaths MakeDownloadPaths(const std::string& target, const std::string& temporaryFolder);

class DownloadSession;

// One file fetched from many HTTP sources. All the work runs on the io_context it is given (run it
// on one thread); the public operations may be called from any thread, including from inside the
// event handler, which is called on the io_context's thread.
class Download {
public:
    Download(asio::io_context& context, std::string targetPath, DownloadOptions options = {});
    ~Download();
    Download(const Download&) = delete;
    Download& operator=(const Download&) = delete;

    // A source id (never 0), or 0 when the URL is refused: not http, malformed, naming another
    // file's SHA1 than the sources before it, or added after the download ended.
    std::uint32_t addSource(std::string_view url);
    // Starts once; later calls do nothing and return false.
    bool start(EventHandler handler);
    // The user's stop: UserAborted, then Stopped.
    void stop();
    // Ends the transfer quietly (Stopped only), keeping the partial file and its map for later.
    void close();
    // Ends the transfer and forgets it: the range map goes, and a partial file kept in the
    // temporary folder too. The target path itself is left to its owner.
    void forget();
    std::int32_t info(InfoCode code) const;
    const DownloadPaths& paths() const { return paths_; }

private:
    asio::io_context& context_;
    DownloadPaths paths_;
    std::shared_ptr<DownloadSession> session_;
};

} // namespace corvid::download
