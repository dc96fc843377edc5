#include "download/core/downloader.h"

#include <algorithm>
#include <asio/connect.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>
#include <cctype>
#include <deque>
#include <filesystem>
#include <map>
#include <optional>
#include <span>

#include "download/core/file_io.h"
#include "download/core/http_response.h"
#include "download/core/range_set.h"
#include "download/core/sha1.h"
#include "download/core/swarm_plan.h"
#include "download/core/url.h"

namespace corvid::download {
namespace {

using Clock = std::chrono::steady_clock;
using asio::ip::tcp;

constexpr std::size_t kMaxRangeMapBytes = 64 * 1024 * 1024;
constexpr std::size_t kMaxFileNameLength = 255;

std::string FileNameOf(const std::string& path) {
    const std::size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The filename="..." of a Content-Disposition value, with anything unprintable dropped: it is
// only ever shown, never used as a path.
std::string DispositionFileName(std::string_view value) {
    const std::size_t at = value.find("filename=");
    if (at == std::string_view::npos) {
        return {};
    }
    value.remove_prefix(at + 9);
    if (!value.empty() && value.front() == '"') {
        value.remove_prefix(1);
        value = value.substr(0, value.find('"'));
    } else {
        value = value.substr(0, value.find(';'));
    }
    std::string name;
    for (char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F && name.size() < kMaxFileNameLength) {
            name.push_back(c);
        }
    }
    return name;
}

bool ContainsClose(std::string_view value) {
    std::string lower(value);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower.find("close") != std::string::npos;
}

std::int64_t ClampToInt32(std::uint64_t value) {
    return static_cast<std::int64_t>(std::min<std::uint64_t>(value, 0x7FFFFFFF));
}

} // namespace

DownloadPaths MakeDownloadPaths(const std::string& target, const std::string& temporaryFolder) {
    DownloadPaths paths;
    paths.target = target;
    if (temporaryFolder.empty()) {
        paths.partial = target;
    } else {
        std::string folder = temporaryFolder;
        if (folder.back() != '/' && folder.back() != '\\') {
            folder += '/';
        }
        paths.partial = folder + FileNameOf(target) + ".part";
    }
    paths.rangeMap = paths.partial + ".ranges";
    return paths;
}

// Everything that runs on the io_context. Handlers hold a shared pointer to it, so it lives until
// the last of them has run.
class DownloadSession : public std::enable_shared_from_this<DownloadSession> {
public:
    DownloadSession(asio::io_context& context, DownloadPaths paths, DownloadOptions options)
        : context_(context), paths_(std::move(paths)), options_(std::move(options)),
          ticker_(context) {}

    std::uint32_t addSource(std::string_view text);
    bool start(EventHandler handler);
    enum class Ending { UserAbort, Close, Forget };
    void end(Ending ending);
    std::int32_t info(InfoCode code) const;

private:
    enum class Phase {
        Idle, // not started yet
        Resolving,
        Connecting,
        Parked,     // connected, nothing to ask for right now
        Requesting, // request sent, waiting for the head
        Receiving,
        Waiting, // to retry
        Failed,  // given up
        Finished,
    };

    struct Source {
        Source(asio::io_context& context, std::uint32_t id, HttpUrl url)
            : id(id), url(std::move(url)), resolver(context), socket(context), retryTimer(context) {
        }
        std::uint32_t id;
        HttpUrl url;
        Phase phase = Phase::Idle;
        tcp::resolver resolver;
        tcp::socket socket;
        asio::steady_timer retryTimer;
        HttpResponseParser parser;
        std::vector<char> buffer;
        std::string request;
        unsigned generation = 0; // bumped whenever the connection is dropped: stale handlers see it
        int failures = 0;
        int redirects = 0;
        bool reused = false;  // the connection already carried a full response
        bool probing = false; // asking for the start of a file whose length is still unknown
        ByteSpan asked;
        std::uint64_t bodyOffset = 0; // file offset of the next body byte
        std::uint64_t received = 0;
        std::uint64_t receivedAtLastReport = 0;
        std::uint64_t bytesThisTick = 0;
        double speed = 0; // bytes per second
        bool contributed = false;
        Clock::time_point lastActivity;
        // While the finished file is cross-checked: fetching bytes already on disk to compare
        // them, either a piece of a suspect's or the span two sources disagree on.
        enum class Check { None, Piece, Dispute };
        Check check = Check::None;
        std::uint32_t checkWriter = 0;
        std::string fetched;
    };

    // Two sources that sent different bytes for the same span, waiting for a third to decide.
    struct Dispute {
        ByteSpan span;
        std::string challengerBytes; // what the challenger sent; the writer's are on disk
        std::uint32_t writer = 0;
        std::uint32_t challenger = 0;
        std::vector<std::uint32_t> asked;
        bool busy = false;
    };

    void emit(EventCode code, std::uint32_t source = 0, std::string text = {},
              std::int64_t number = 0);
    void openFiles();
    void begin();
    void connect(Source& source);
    void onResolved(Source& source, const asio::error_code& error,
                    tcp::resolver::results_type results);
    void onConnected(Source& source, const asio::error_code& error);
    void nextRequest(Source& source);
    void sendRequest(Source& source, ByteSpan span);
    void readMore(Source& source);
    void onRead(Source& source, const asio::error_code& error, std::size_t size);
    // Each returns false when the source's connection was dropped and reading must stop.
    bool onHead(Source& source);
    bool onBody(Source& source, std::string_view body);
    void onResponseDone(Source& source, bool leftover);
    void dropConnection(Source& source);
    void retryLater(Source& source, std::chrono::milliseconds delay);
    void giveUp(Source& source, bool invalid);
    void failed(Source& source, std::chrono::milliseconds delay = std::chrono::milliseconds{-1});
    void wakeParked();
    void learnLength(std::uint64_t length);
    void checkAlive();
    void finishSuccessfully();
    std::optional<bool> hashMatches();
    void complete();
    void failMismatch();
    bool startVerifying();
    void nextCheck(Source& source);
    void endCheck(Source& source);
    void abandonCheck(Source& source);
    void advanceChecks();
    void convict(std::uint32_t id);
    void release(Source& source);
    void fatal(std::uint32_t source, int error);
    void shutdown(Ending ending);
    void onTick();
    void saveMap();
    void publishCounters();
    std::uint64_t requestSize(const Source& source) const;
    bool running() const { return started_ && !ended_; }

    asio::io_context& context_;
    DownloadPaths paths_;
    DownloadOptions options_;
    asio::steady_timer ticker_;
    EventHandler handler_;

    // Set from any thread under the lock; read by the io_context thread.
    mutable std::mutex lock_;
    std::uint32_t nextId_ = 1;
    std::optional<Sha1Digest> sha1_;
    std::vector<std::pair<std::uint32_t, HttpUrl>> accepted_;
    bool started_ = false;
    bool ended_ = false;

    // The io_context thread only.
    bool begun_ = false;
    std::map<std::uint32_t, std::unique_ptr<Source>> sources_;
    SwarmPlan plan_;
    RandomAccessFile file_;
    std::uint64_t doneAtStart_ = 0;
    std::uint64_t bytesSinceSave_ = 0;
    Clock::time_point lastSave_;
    Clock::time_point lastProgress_;
    Clock::time_point lastTick_;
    double speed_ = 0;

    // Cross-checking after the finished file failed its SHA1. Without piece hashes, the only
    // witness against a source is another source: the bytes are fetched again from others and
    // compared, taking the writers' pieces in turn from the front of each one's bytes so that no
    // writer waits behind another's whole share, and a third source settles any disagreement.
    struct Piece {
        ByteSpan span;
        std::uint32_t writer = 0;
    };
    bool verifying_ = false;
    bool fixedSinceHash_ = false;
    std::map<std::uint32_t, RangeSet> wroteBy_; // 0: bytes on disk from an earlier run
    std::deque<Piece> pieces_;                  // not handed out yet
    std::optional<Dispute> dispute_;

    std::atomic<std::int32_t> transferring_{0};
    std::atomic<std::int32_t> speedInfo_{0};
    std::atomic<std::int32_t> receiving_{0};
    std::atomic<std::int32_t> failedCount_{0};
    std::atomic<std::int32_t> pending_{0};
    std::atomic<std::int32_t> total_{0};
    std::atomic<std::int32_t> percent_{-1};
};

std::uint32_t DownloadSession::addSource(std::string_view text) {
    auto url = ParseHttpUrl(text);
    if (!url) {
        return 0;
    }
    const auto urn = FindSha1Urn(text);
    std::uint32_t id = 0;
    {
        std::lock_guard guard(lock_);
        if (ended_) {
            return 0;
        }
        if (urn) {
            if (sha1_ && *sha1_ != *urn) {
                return 0;
            }
            sha1_ = urn;
        }
        for (const auto& [existing, existingUrl] : accepted_) {
            if (existingUrl.text() == url->text()) {
                return existing;
            }
        }
        id = nextId_++;
        accepted_.emplace_back(id, *url);
        total_ = static_cast<std::int32_t>(accepted_.size());
        if (!started_) {
            return id;
        }
    }
    asio::post(context_, [self = shared_from_this(), id, url = *url]() {
        // Before begin() has run, begin() takes the source from the accepted list itself.
        if (!self->running() || !self->begun_ || self->sources_.count(id) > 0) {
            return;
        }
        auto& source =
            *self->sources_.emplace(id, std::make_unique<Source>(self->context_, id, url))
                 .first->second;
        self->connect(source);
        self->publishCounters();
    });
    return id;
}

bool DownloadSession::start(EventHandler handler) {
    std::lock_guard guard(lock_);
    if (started_ || ended_) {
        return false;
    }
    handler_ = std::move(handler);
    started_ = true;
    asio::post(context_, [self = shared_from_this()]() { self->begin(); });
    return true;
}

void DownloadSession::end(Ending ending) {
    {
        std::lock_guard guard(lock_);
        if (!started_) {
            // Never ran: nothing is open, so forgetting can happen right here.
            ended_ = true;
            if (ending == Ending::Forget) {
                std::error_code error;
                std::filesystem::remove(paths_.rangeMap, error);
                if (paths_.partial != paths_.target) {
                    std::filesystem::remove(paths_.partial, error);
                }
            }
            return;
        }
    }
    asio::post(context_, [self = shared_from_this(), ending]() { self->shutdown(ending); });
}

std::int32_t DownloadSession::info(InfoCode code) const {
    switch (code) {
    case InfoCode::Transferring:
        return transferring_;
    case InfoCode::Speed:
        return speedInfo_;
    case InfoCode::SourcesTotal:
        return total_;
    case InfoCode::SourcesReceiving:
        return receiving_;
    case InfoCode::SourcesFailed:
        return failedCount_;
    case InfoCode::SourcesPending:
        return pending_;
    case InfoCode::Percent:
        return percent_;
    }
    return -1;
}

void DownloadSession::emit(EventCode code, std::uint32_t source, std::string text,
                           std::int64_t number) {
    if (!handler_) {
        return;
    }
    DownloadEvent event;
    event.code = code;
    event.sourceId = source;
    event.text = std::move(text);
    event.number = number;
    handler_(event);
}

void DownloadSession::openFiles() {
    std::optional<Sha1Digest> sha1;
    {
        std::lock_guard guard(lock_);
        sha1 = sha1_;
    }
    const bool opened = file_.open(paths_.partial);
    if (!opened) {
        return;
    }
    // A range map is only believed when it names the same file and the bytes it lists are there.
    const auto text = ReadSmallFile(paths_.rangeMap, kMaxRangeMapBytes);
    const auto record = text ? ParseRangeMap(*text) : std::nullopt;
    const auto onDisk = file_.size();
    if (record && onDisk && (!sha1 || !record->sha1 || *record->sha1 == *sha1)) {
        plan_.setLength(record->length);
        for (ByteSpan span : record->done) {
            plan_.markDone({span.begin, std::min(span.end, *onDisk)});
            wroteBy_[0].add({span.begin, std::min(span.end, *onDisk)});
        }
    }
    doneAtStart_ = plan_.done().total();
}

void DownloadSession::begin() {
    if (ended_) {
        return;
    }
    begun_ = true;
    transferring_ = 1;
    emit(EventCode::Started);
    openFiles();
    if (!file_.isOpen()) {
        fatal(0, kErrorWriteFailed);
        return;
    }
    if (plan_.length()) {
        learnLength(*plan_.length());
        if (ended_) {
            return;
        }
    }
    lastSave_ = lastProgress_ = lastTick_ = Clock::now();
    std::vector<std::pair<std::uint32_t, HttpUrl>> accepted;
    {
        std::lock_guard guard(lock_);
        accepted = accepted_;
    }
    for (auto& [id, url] : accepted) {
        sources_.emplace(id, std::make_unique<Source>(context_, id, url));
    }
    for (auto& [id, source] : sources_) {
        connect(*source);
        if (ended_) {
            return;
        }
    }
    publishCounters();
    checkAlive();
    if (!ended_) {
        onTick();
    }
}

void DownloadSession::connect(Source& source) {
    ++source.generation;
    source.phase = Phase::Resolving;
    source.reused = false;
    source.lastActivity = Clock::now();
    emit(EventCode::Connecting, source.id, source.url.host + ":" + std::to_string(source.url.port));
    if (ended_) {
        return;
    }
    source.resolver.async_resolve(
        source.url.host, std::to_string(source.url.port),
        [self = shared_from_this(), &source, generation = source.generation](
            const asio::error_code& error, tcp::resolver::results_type results) {
            if (source.generation == generation && self->running()) {
                self->onResolved(source, error, std::move(results));
            }
        });
}

void DownloadSession::onResolved(Source& source, const asio::error_code& error,
                                 tcp::resolver::results_type results) {
    if (error || results.empty()) {
        emit(EventCode::ResolveFailed, source.id, source.url.host);
        failed(source);
        return;
    }
    source.phase = Phase::Connecting;
    source.lastActivity = Clock::now();
    asio::async_connect(source.socket, results,
                        [self = shared_from_this(), &source, generation = source.generation](
                            const asio::error_code& error, const tcp::endpoint&) {
                            if (source.generation == generation && self->running()) {
                                self->onConnected(source, error);
                            }
                        });
}

void DownloadSession::onConnected(Source& source, const asio::error_code& error) {
    if (error) {
        emit(EventCode::ConnectFailed, source.id);
        failed(source);
        return;
    }
    asio::error_code ignored;
    source.socket.set_option(tcp::no_delay(true), ignored);
    emit(EventCode::Connected, source.id);
    if (ended_) {
        return;
    }
    nextRequest(source);
}

std::uint64_t DownloadSession::requestSize(const Source& source) const {
    std::size_t live = 0;
    for (const auto& [id, other] : sources_) {
        live += other->phase != Phase::Failed && other->phase != Phase::Finished;
    }
    // Enough for about requestSeconds at the source's speed, but the free bytes are shared out
    // so that the last requests end together.
    std::uint64_t size = static_cast<std::uint64_t>(source.speed * options_.requestSeconds);
    size = std::clamp(size, options_.minRequest, options_.maxRequest);
    const std::uint64_t share = plan_.freeBytes() / std::max<std::size_t>(live, 1);
    return std::max(options_.minRequest, std::min(size, share));
}

void DownloadSession::nextRequest(Source& source) {
    if (verifying_) {
        nextCheck(source);
        return;
    }
    if (plan_.complete()) {
        source.phase = Phase::Finished;
        return;
    }
    if (!plan_.length()) {
        const auto prober = std::find_if(sources_.begin(), sources_.end(),
                                         [](auto& entry) { return entry.second->probing; });
        if (prober != sources_.end()) {
            Source& other = *prober->second;
            if (Clock::now() - other.lastActivity <= options_.stallTime) {
                source.phase = Phase::Parked;
                publishCounters();
                return;
            }
            // The first to ask has said nothing yet: someone else asks, and should the first
            // answer after all, the length is learnt from it just the same.
            other.probing = false;
            plan_.release(other.id);
        }
        source.probing = true;
        const ByteSpan span{0, options_.minRequest};
        plan_.claimExact(source.id, span);
        sendRequest(source, span);
        return;
    }
    auto span = plan_.claimFree(source.id, requestSize(source));
    if (!span) {
        const auto now = Clock::now();
        span = plan_.steal(source.id, options_.minRequest / 2, options_.maxRequest, source.speed,
                           [this, now](std::uint32_t owner) {
                               const auto it = sources_.find(owner);
                               if (it == sources_.end() ||
                                   now - it->second->lastActivity > options_.stallTime) {
                                   return -1.0;
                               }
                               return it->second->speed;
                           });
    }
    if (!span) {
        source.phase = Phase::Parked;
        publishCounters();
        return;
    }
    sendRequest(source, *span);
}

void DownloadSession::sendRequest(Source& source, ByteSpan span) {
    source.asked = span;
    source.parser = HttpResponseParser({options_.maxHeadBytes, 64});
    source.request = "GET " + source.url.target + " HTTP/1.1\r\nHost: " + source.url.hostHeader() +
                     "\r\nUser-Agent: " + options_.userAgent +
                     "\r\nRange: bytes=" + std::to_string(span.begin) + "-" +
                     std::to_string(span.end - 1) + "\r\nConnection: Keep-Alive\r\n\r\n";
    source.phase = Phase::Requesting;
    source.lastActivity = Clock::now();
    publishCounters();
    emit(EventCode::RequestSent, source.id, source.request);
    if (ended_) {
        return;
    }
    asio::async_write(source.socket, asio::buffer(source.request),
                      [self = shared_from_this(), &source,
                       generation = source.generation](const asio::error_code& error, std::size_t) {
                          if (source.generation != generation || !self->running()) {
                              return;
                          }
                          if (error) {
                              self->emit(EventCode::Disconnected, source.id);
                              self->failed(source);
                              return;
                          }
                          self->readMore(source);
                      });
}

void DownloadSession::readMore(Source& source) {
    if (source.buffer.size() != options_.readBuffer) {
        source.buffer.resize(options_.readBuffer);
    }
    source.socket.async_read_some(
        asio::buffer(source.buffer),
        [self = shared_from_this(), &source,
         generation = source.generation](const asio::error_code& error, std::size_t size) {
            if (source.generation == generation && self->running()) {
                self->onRead(source, error, size);
            }
        });
}

void DownloadSession::onRead(Source& source, const asio::error_code& error, std::size_t size) {
    // While the head is awaited the clock runs from the request, so a server dripping a head
    // byte by byte still times out.
    if (source.phase == Phase::Receiving) {
        source.lastActivity = Clock::now();
    }
    if (error) {
        const bool framedByClose = source.parser.finish() == HttpResponseParser::Step::Done;
        if (framedByClose && source.parser.head().status != 0) {
            onResponseDone(source, false);
            return;
        }
        const bool nothingYet = source.phase == Phase::Requesting && source.reused;
        emit(EventCode::Disconnected, source.id);
        if (ended_) {
            return;
        }
        if (nothingYet) {
            // The server closed an idle keep-alive connection: open another at once.
            release(source);
            dropConnection(source);
            connect(source);
            return;
        }
        failed(source);
        return;
    }
    std::string_view input(source.buffer.data(), size);
    while (true) {
        const auto result = source.parser.feed(input);
        input.remove_prefix(result.consumed);
        switch (result.step) {
        case HttpResponseParser::Step::NeedMore:
            readMore(source);
            return;
        case HttpResponseParser::Step::Head:
            if (!onHead(source)) {
                return;
            }
            break;
        case HttpResponseParser::Step::Body:
            if (!onBody(source, result.body)) {
                return;
            }
            break;
        case HttpResponseParser::Step::Done:
            onResponseDone(source, !input.empty());
            return;
        case HttpResponseParser::Step::Error:
            emit(EventCode::HttpError, source.id, Describe(source.parser.error()), kErrorProtocol);
            if (!ended_) {
                giveUp(source, true);
            }
            return;
        }
        if (ended_) {
            return;
        }
    }
}

bool DownloadSession::onHead(Source& source) {
    const HttpResponseHead& head = source.parser.head();
    source.lastActivity = Clock::now();
    emit(EventCode::HeaderReceived, source.id, head.text);
    if (ended_) {
        return false;
    }
    const int status = head.status;
    if (status >= 300 && status < 400 && head.find("Location")) {
        const auto target = ResolveLocation(source.url, *head.find("Location"));
        if (!target || ++source.redirects > options_.maxRedirects) {
            giveUp(source, true);
            return false;
        }
        source.url = *target;
        emit(EventCode::Redirected, source.id, target->text());
        if (ended_) {
            return false;
        }
        release(source);
        dropConnection(source);
        connect(source);
        return false;
    }
    if (status == 404 || status == 410) {
        giveUp(source, true);
        return false;
    }
    if (status == 416) {
        // Asked beyond the end: the length in "bytes */N" is still worth learning.
        const auto range = head.find("Content-Range")
                               ? ParseContentRange(*head.find("Content-Range"))
                               : std::nullopt;
        if (range && range->total && !plan_.length() && source.probing) {
            source.probing = false;
            release(source);
            learnLength(*range->total);
            if (ended_) {
                return false;
            }
            dropConnection(source);
            connect(source);
            return false;
        }
        giveUp(source, true);
        return false;
    }
    if (status != 200 && status != 206) {
        std::chrono::milliseconds delay{-1};
        if (const auto retryAfter = head.find("Retry-After")) {
            if (const auto seconds = ParseRetryAfterSeconds(*retryAfter)) {
                delay = std::chrono::milliseconds(std::int64_t{*seconds} * 1000);
            }
        }
        emit(EventCode::HttpError, source.id, {}, status);
        if (!ended_) {
            failed(source, delay);
        }
        return false;
    }

    const auto contentLength =
        head.find("Content-Length") ? ParseDecimal(*head.find("Content-Length")) : std::nullopt;
    ByteSpan body;
    std::optional<std::uint64_t> total;
    if (status == 206) {
        const auto range = head.find("Content-Range")
                               ? ParseContentRange(*head.find("Content-Range"))
                               : std::nullopt;
        if (!range || !range->satisfied || range->first != source.asked.begin ||
            (contentLength && *contentLength != range->last - range->first + 1)) {
            giveUp(source, true);
            return false;
        }
        body = {range->first, range->last + 1};
        total = range->total;
    } else if (source.parser.chunked() && plan_.length()) {
        // Chunks say nothing of the size; a whole file we already know the size of will do.
        body = {0, *plan_.length()};
    } else {
        if (!contentLength || source.parser.chunked()) {
            giveUp(source, true);
            return false;
        }
        body = {0, *contentLength};
        total = contentLength;
    }
    if (total) {
        if (plan_.length() && *plan_.length() != *total) {
            giveUp(source, true);
            return false;
        }
        if (!plan_.length()) {
            learnLength(*total);
            if (ended_) {
                return false;
            }
        }
    }
    if (plan_.length() && body.end > *plan_.length()) {
        giveUp(source, true);
        return false;
    }
    source.probing = false;
    source.bodyOffset = body.begin;
    if (const auto disposition = head.find("Content-Disposition")) {
        const std::string name = DispositionFileName(*disposition);
        if (!name.empty()) {
            emit(EventCode::FileName, source.id, name);
        }
    }
    source.phase = Phase::Receiving;
    publishCounters();
    emit(EventCode::ReceivingData, source.id);
    return !ended_;
}

bool DownloadSession::onBody(Source& source, std::string_view body) {
    const std::uint64_t offset = source.bodyOffset;
    source.bodyOffset += body.size();
    source.received += body.size();
    source.bytesThisTick += body.size();
    if (source.check != Source::Check::None) {
        // Only the asked bytes count, wherever the server's answer began.
        const std::uint64_t want = source.asked.begin + source.fetched.size();
        if (source.bodyOffset > want && offset <= want && want < source.asked.end) {
            const std::uint64_t until = std::min(source.bodyOffset, source.asked.end);
            source.fetched.append(body.substr(static_cast<std::size_t>(want - offset),
                                              static_cast<std::size_t>(until - want)));
        }
        const bool bodyEnds = source.parser.bodyRemaining() && *source.parser.bodyRemaining() == 0;
        if (source.fetched.size() == source.asked.size() && !bodyEnds) {
            // The rest of the answer is not needed: rather than drain it, start afresh.
            endCheck(source);
            if (!ended_ && source.phase != Phase::Failed) {
                dropConnection(source);
                connect(source);
            }
            return false;
        }
        return true;
    }
    const auto claim = plan_.claimOf(source.id);
    if (claim && source.bodyOffset > claim->next && offset <= claim->next) {
        const std::uint64_t begin = claim->next;
        const std::uint64_t end = std::min(source.bodyOffset, claim->end);
        const char* data = body.data() + (begin - offset);
        if (!file_.writeAt(begin, data, static_cast<std::size_t>(end - begin))) {
            fatal(source.id, kErrorWriteFailed);
            return false;
        }
        source.contributed = true;
        wroteBy_[source.id].add({begin, end});
        bytesSinceSave_ += end - begin;
        plan_.recordWritten(source.id, {begin, end});
        if (plan_.complete()) {
            finishSuccessfully();
            return false;
        }
    }
    const auto left = plan_.claimOf(source.id);
    const bool bodyEnds = source.parser.bodyRemaining() && *source.parser.bodyRemaining() == 0;
    if (!left && !bodyEnds) {
        // The rest of this response is someone else's now (or never was ours): rather than
        // drain it, open a fresh connection for the next range.
        dropConnection(source);
        source.failures = 0;
        connect(source);
        return false;
    }
    return true;
}

void DownloadSession::onResponseDone(Source& source, bool leftover) {
    source.failures = 0;
    source.redirects = 0;
    if (source.received > source.receivedAtLastReport) {
        source.receivedAtLastReport = source.received;
        emit(EventCode::Received, source.id, {}, ClampToInt32(source.received));
        if (ended_) {
            return;
        }
    }
    if (source.check != Source::Check::None) {
        endCheck(source);
        if (ended_ || source.phase == Phase::Failed) {
            return;
        }
    }
    // A claim still open means the server sent less than it was asked for: ask again.
    const HttpResponseHead& head = source.parser.head();
    const auto connection = head.find("Connection");
    const bool http10 = head.text.compare(0, 8, "HTTP/1.0") == 0;
    const bool closing = leftover || (connection ? ContainsClose(*connection) : http10);
    if (closing || !source.parser.bodyDelimited()) {
        dropConnection(source);
        connect(source);
        return;
    }
    source.reused = true;
    nextRequest(source);
}

void DownloadSession::dropConnection(Source& source) {
    ++source.generation;
    asio::error_code ignored;
    source.resolver.cancel();
    source.socket.shutdown(tcp::socket::shutdown_both, ignored);
    source.socket.close(ignored);
    source.retryTimer.cancel();
    source.probing = false;
}

void DownloadSession::failed(Source& source, std::chrono::milliseconds delay) {
    release(source);
    dropConnection(source);
    if (++source.failures >= options_.maxAttempts) {
        giveUp(source, false);
        return;
    }
    if (delay.count() < 0) {
        delay = options_.retryDelay * (1 << std::min(source.failures - 1, 10));
    }
    delay = std::min(std::max(delay, options_.retryDelay),
                     std::max(options_.maxRetryDelay, options_.retryDelay));
    retryLater(source, delay);
}

void DownloadSession::retryLater(Source& source, std::chrono::milliseconds delay) {
    source.phase = Phase::Waiting;
    publishCounters();
    emit(EventCode::WaitingToRetry, source.id);
    if (ended_) {
        return;
    }
    wakeParked();
    source.retryTimer.expires_after(delay);
    source.retryTimer.async_wait([self = shared_from_this(), &source,
                                  generation = source.generation](const asio::error_code& error) {
        if (!error && source.generation == generation && self->running()) {
            self->connect(source);
        }
    });
}

void DownloadSession::giveUp(Source& source, bool invalid) {
    release(source);
    dropConnection(source);
    source.phase = Phase::Failed;
    publishCounters();
    if (invalid) {
        emit(EventCode::InvalidSource, source.id);
        if (ended_) {
            return;
        }
    }
    wakeParked();
    checkAlive();
}

void DownloadSession::wakeParked() {
    for (auto& [id, source] : sources_) {
        if (ended_) {
            return;
        }
        if (source->phase == Phase::Parked) {
            nextRequest(*source);
        }
    }
}

void DownloadSession::learnLength(std::uint64_t length) {
    plan_.setLength(length);
    DownloadEvent event;
    event.code = EventCode::FileLength;
    event.words = {
        static_cast<std::uint32_t>(length), static_cast<std::uint32_t>(length >> 32),
        static_cast<std::uint32_t>(std::min<std::uint64_t>(plan_.done().total(), 0xFFFFFFFFu))};
    if (handler_) {
        handler_(event);
    }
    if (ended_) {
        return;
    }
    publishCounters();
    if (plan_.complete()) {
        finishSuccessfully();
        return;
    }
    wakeParked();
}

void DownloadSession::checkAlive() {
    if (ended_) {
        return;
    }
    const bool anyAlive = std::any_of(sources_.begin(), sources_.end(), [](auto& entry) {
        return entry.second->phase != Phase::Failed;
    });
    if (!anyAlive) {
        saveMap();
        emit(EventCode::NoValidSource);
        shutdown(Ending::Close);
    }
}

void DownloadSession::finishSuccessfully() {
    if (!file_.truncate(*plan_.length())) {
        fatal(0, kErrorWriteFailed);
        return;
    }
    const auto matches = hashMatches();
    if (!matches) {
        fatal(0, kErrorWriteFailed);
        return;
    }
    if (*matches) {
        complete();
    } else if (!startVerifying()) {
        failMismatch();
    }
}

std::optional<bool> DownloadSession::hashMatches() {
    std::optional<Sha1Digest> expected;
    {
        std::lock_guard guard(lock_);
        expected = sha1_;
    }
    if (!expected) {
        return true;
    }
    const std::uint64_t length = *plan_.length();
    Sha1 hasher;
    std::vector<char> buffer(1 << 20);
    for (std::uint64_t offset = 0; offset < length;) {
        const auto got = file_.readAt(
            offset, buffer.data(),
            static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), length - offset)));
        if (!got || *got == 0) {
            return std::nullopt;
        }
        hasher.Update(std::span(reinterpret_cast<const std::uint8_t*>(buffer.data()), *got));
        offset += *got;
    }
    return hasher.Finish() == *expected;
}

void DownloadSession::complete() {
    for (auto& [id, source] : sources_) {
        if (source->socket.is_open()) {
            dropConnection(*source);
            source->phase = Phase::Finished;
            emit(EventCode::Disconnected, source->id);
        }
        source->phase = Phase::Finished;
    }
    file_.close();
    std::error_code error;
    if (paths_.partial != paths_.target) {
        std::filesystem::rename(paths_.partial, paths_.target, error);
        if (error) {
            std::filesystem::copy_file(paths_.partial, paths_.target,
                                       std::filesystem::copy_options::overwrite_existing, error);
            if (!error) {
                std::filesystem::remove(paths_.partial, error);
            }
        }
        if (error) {
            fatal(0, kErrorWriteFailed);
            return;
        }
    }
    std::filesystem::remove(paths_.rangeMap, error);
    percent_ = 100;
    emit(EventCode::Succeeded);
    shutdown(Ending::Close);
}

void DownloadSession::failMismatch() {
    // Nobody could be shown to have lied: every source that wrote into the file is blamed, and
    // the bytes are thrown away.
    for (auto& [id, source] : sources_) {
        dropConnection(*source);
        if (source->contributed && source->phase != Phase::Failed) {
            emit(EventCode::HttpError, id, "SHA1 mismatch", kErrorSha1Mismatch);
            emit(EventCode::InvalidSource, id);
            source->phase = Phase::Failed;
        }
    }
    file_.close();
    std::error_code ignored;
    std::filesystem::remove(paths_.rangeMap, ignored);
    emit(EventCode::NoValidSource);
    shutdown(Ending::Close);
}

bool DownloadSession::startVerifying() {
    // Someone must fetch each writer's bytes again, and a third settle a disagreement.
    const auto live = std::count_if(sources_.begin(), sources_.end(), [](auto& entry) {
        return entry.second->phase != Phase::Failed;
    });
    if (live < 3 || wroteBy_.empty()) {
        return false;
    }
    verifying_ = true;
    const std::uint64_t size =
        std::clamp<std::uint64_t>(1 << 20, options_.minRequest, options_.maxRequest);
    std::vector<std::deque<Piece>> byWriter;
    for (const auto& [writer, spans] : wroteBy_) {
        auto& pieces = byWriter.emplace_back();
        for (ByteSpan span : spans.spans()) {
            for (std::uint64_t at = span.begin; at < span.end; at += size) {
                pieces.push_back({{at, std::min(span.end, at + size)}, writer});
            }
        }
    }
    for (bool more = true; more;) {
        more = false;
        for (auto& pieces : byWriter) {
            if (!pieces.empty()) {
                pieces_.push_back(pieces.front());
                pieces.pop_front();
                more = true;
            }
        }
    }
    for (auto& [id, source] : sources_) {
        // Idle connections carry on; one cut off in the middle of a response starts afresh.
        if (source->phase == Phase::Parked || source->phase == Phase::Finished) {
            nextRequest(*source);
        } else if (source->phase == Phase::Receiving) {
            dropConnection(*source);
            connect(*source);
        }
        if (ended_) {
            return true;
        }
    }
    return true;
}

void DownloadSession::nextCheck(Source& source) {
    if (dispute_ && !dispute_->busy &&
        std::find(dispute_->asked.begin(), dispute_->asked.end(), source.id) ==
            dispute_->asked.end()) {
        dispute_->busy = true;
        dispute_->asked.push_back(source.id);
        source.check = Source::Check::Dispute;
        sendRequest(source, dispute_->span);
        return;
    }
    const auto piece = std::find_if(pieces_.begin(), pieces_.end(),
                                    [&](const Piece& p) { return p.writer != source.id; });
    if (piece != pieces_.end()) {
        const Piece taken = *piece;
        pieces_.erase(piece);
        source.check = Source::Check::Piece;
        source.checkWriter = taken.writer;
        sendRequest(source, taken.span);
        return;
    }
    // Nothing left to hand out: a check held by a source gone quiet is taken off it.
    const auto now = Clock::now();
    for (auto& [id, other] : sources_) {
        if (other->check != Source::Check::None && other.get() != &source &&
            now - other->lastActivity > options_.stallTime) {
            emit(EventCode::TimedOut, id);
            if (ended_) {
                return;
            }
            failed(*other);
            // Failing it wakes parked sources, this one among them perhaps.
            if (!ended_ && source.check == Source::Check::None) {
                nextCheck(source);
            }
            return;
        }
    }
    source.phase = Phase::Parked;
    publishCounters();
}

void DownloadSession::endCheck(Source& source) {
    const auto kind = source.check;
    const ByteSpan span = source.asked;
    std::string theirs = std::move(source.fetched);
    source.check = Source::Check::None;
    source.fetched.clear();
    std::string ours(static_cast<std::size_t>(span.size()), '\0');
    const auto got = file_.readAt(span.begin, ours.data(), ours.size());
    if (theirs.size() != ours.size() || !got || *got != ours.size()) {
        // Answered short: the work goes back for someone to do.
        source.check = kind;
        source.fetched.clear();
        abandonCheck(source);
        advanceChecks();
        return;
    }
    if (kind == Source::Check::Piece) {
        const auto first = std::mismatch(ours.begin(), ours.end(), theirs.begin());
        if (first.first != ours.end()) {
            if (dispute_) {
                // One disagreement at a time: this piece waits for the one being settled.
                pieces_.push_back({span, source.checkWriter});
            } else {
                const auto last = std::mismatch(ours.rbegin(), ours.rend(), theirs.rbegin());
                const auto from = static_cast<std::size_t>(first.first - ours.begin());
                const auto to = ours.size() - static_cast<std::size_t>(last.first - ours.rbegin());
                dispute_ = Dispute{{span.begin + from, span.begin + to},
                                   theirs.substr(from, to - from),
                                   source.checkWriter,
                                   source.id,
                                   {source.checkWriter, source.id},
                                   false};
                wakeParked();
                if (ended_) {
                    return;
                }
            }
        }
        advanceChecks();
        return;
    }
    Dispute& dispute = *dispute_;
    dispute.busy = false;
    if (theirs == dispute.challengerBytes) {
        // Two against the writer: its bytes are replaced by theirs.
        if (!file_.writeAt(dispute.span.begin, theirs.data(), theirs.size())) {
            fatal(source.id, kErrorWriteFailed);
            return;
        }
        fixedSinceHash_ = true;
        const std::uint32_t writer = dispute.writer;
        dispute_.reset();
        convict(writer);
    } else if (theirs == ours) {
        const std::uint32_t challenger = dispute.challenger;
        dispute_.reset();
        convict(challenger);
    }
    // Agreeing with neither, this source is one more voice: another is asked.
    if (!ended_) {
        advanceChecks();
    }
}

void DownloadSession::abandonCheck(Source& source) {
    if (source.check == Source::Check::Piece) {
        pieces_.push_front({source.asked, source.checkWriter});
    } else if (source.check == Source::Check::Dispute && dispute_) {
        dispute_->busy = false;
        std::erase(dispute_->asked, source.id);
    }
    source.check = Source::Check::None;
    source.fetched.clear();
}

void DownloadSession::advanceChecks() {
    if (!verifying_ || ended_) {
        return;
    }
    if (fixedSinceHash_) {
        fixedSinceHash_ = false;
        const auto matches = hashMatches();
        if (!matches) {
            fatal(0, kErrorWriteFailed);
            return;
        }
        if (*matches) {
            complete();
            return;
        }
    }
    const bool inFlight = std::any_of(sources_.begin(), sources_.end(), [](auto& entry) {
        return entry.second->check != Source::Check::None;
    });
    if (inFlight) {
        return;
    }
    if (pieces_.empty() && !dispute_) {
        failMismatch();
        return;
    }
    // Nothing under way: the waiting work must have someone left who may do it.
    const auto canDo = [&](std::uint32_t id) {
        if (dispute_) {
            return std::find(dispute_->asked.begin(), dispute_->asked.end(), id) ==
                   dispute_->asked.end();
        }
        return std::any_of(pieces_.begin(), pieces_.end(),
                           [id](const Piece& piece) { return piece.writer != id; });
    };
    const bool someone = std::any_of(sources_.begin(), sources_.end(), [&](auto& entry) {
        return entry.second->phase != Phase::Failed && canDo(entry.first);
    });
    if (!someone) {
        failMismatch();
    }
}

void DownloadSession::convict(std::uint32_t id) {
    const auto it = sources_.find(id);
    if (it == sources_.end() || it->second->phase == Phase::Failed) {
        return;
    }
    Source& source = *it->second;
    abandonCheck(source);
    dropConnection(source);
    source.phase = Phase::Failed;
    publishCounters();
    emit(EventCode::HttpError, id, "wrong bytes", kErrorSha1Mismatch);
    if (!ended_) {
        emit(EventCode::InvalidSource, id);
    }
}

void DownloadSession::release(Source& source) {
    plan_.release(source.id);
    abandonCheck(source);
}

void DownloadSession::fatal(std::uint32_t source, int error) {
    emit(EventCode::HttpError, source, {}, error);
    shutdown(Ending::Close);
}

void DownloadSession::shutdown(Ending ending) {
    if (ended_) {
        return;
    }
    {
        std::lock_guard guard(lock_);
        ended_ = true;
    }
    asio::error_code ignored;
    ticker_.cancel();
    for (auto& [id, source] : sources_) {
        dropConnection(*source);
    }
    if (file_.isOpen()) {
        saveMap();
        file_.close();
    }
    if (ending == Ending::Forget) {
        std::error_code error;
        std::filesystem::remove(paths_.rangeMap, error);
        if (paths_.partial != paths_.target) {
            std::filesystem::remove(paths_.partial, error);
        }
    }
    transferring_ = 0;
    speedInfo_ = 0;
    receiving_ = 0;
    pending_ = 0;
    if (ending == Ending::UserAbort) {
        emit(EventCode::UserAborted);
    }
    emit(EventCode::Stopped);
    handler_ = nullptr;
}

void DownloadSession::saveMap() {
    if (!plan_.length()) {
        return;
    }
    RangeMapRecord record;
    record.length = *plan_.length();
    {
        std::lock_guard guard(lock_);
        record.sha1 = sha1_;
    }
    record.done = plan_.done().spans();
    WriteFileAtomically(paths_.rangeMap, FormatRangeMap(record));
    bytesSinceSave_ = 0;
    lastSave_ = Clock::now();
}

void DownloadSession::onTick() {
    const auto now = Clock::now();
    const double seconds = std::max(1e-3, std::chrono::duration<double>(now - lastTick_).count());
    lastTick_ = now;
    std::uint64_t bytes = 0;
    // Smoothed over about two seconds whatever the tick.
    const double weight = std::min(1.0, seconds / 2.0);
    for (auto& [id, source] : sources_) {
        bytes += source->bytesThisTick;
        source->speed +=
            weight * (static_cast<double>(source->bytesThisTick) / seconds - source->speed);
        source->bytesThisTick = 0;
    }
    speed_ += weight * (static_cast<double>(bytes) / seconds - speed_);
    speedInfo_ = static_cast<std::int32_t>(std::min(speed_, 2147483647.0));

    for (auto& [id, source] : sources_) {
        const Phase phase = source->phase;
        const bool waitingForBytes = phase == Phase::Resolving || phase == Phase::Connecting ||
                                     phase == Phase::Requesting || phase == Phase::Receiving;
        const auto limit =
            phase == Phase::Resolving || phase == Phase::Connecting ? options_.connectTimeout
            : phase == Phase::Requesting ? std::min(options_.headTimeout, options_.ioTimeout)
                                         : options_.ioTimeout;
        if (waitingForBytes && now - source->lastActivity > limit) {
            emit(EventCode::TimedOut, id);
            if (ended_) {
                return;
            }
            failed(*source);
            if (ended_) {
                return;
            }
        }
    }
    // Sources with nothing to do look again: a quiet source's range may be theirs to take now.
    wakeParked();
    advanceChecks();
    if (ended_) {
        return;
    }
    publishCounters();
    // Saved before the progress report, so whoever sees the report knows the map holds it.
    if (bytesSinceSave_ > 0 && now - lastSave_ >= options_.mapSaveInterval) {
        saveMap();
    }
    if (now - lastProgress_ >= options_.progressInterval) {
        lastProgress_ = now;
        for (auto& [id, source] : sources_) {
            if (source->received > source->receivedAtLastReport) {
                source->receivedAtLastReport = source->received;
                emit(EventCode::Received, id, {}, ClampToInt32(source->received));
                if (ended_) {
                    return;
                }
            }
        }
        emit(EventCode::Progress);
        if (ended_) {
            return;
        }
    }
    ticker_.expires_after(options_.tick);
    ticker_.async_wait([self = shared_from_this()](const asio::error_code& error) {
        if (!error && self->running()) {
            self->onTick();
        }
    });
}

void DownloadSession::publishCounters() {
    std::int32_t receiving = 0;
    std::int32_t failed = 0;
    std::int32_t pending = 0;
    for (const auto& [id, source] : sources_) {
        switch (source->phase) {
        case Phase::Receiving:
            ++receiving;
            break;
        case Phase::Failed:
            ++failed;
            break;
        case Phase::Finished:
        case Phase::Idle:
            break;
        default:
            ++pending;
        }
    }
    receiving_ = receiving;
    failedCount_ = failed;
    pending_ = pending;
    if (plan_.length()) {
        const std::uint64_t length = *plan_.length();
        percent_ =
            length == 0 ? 100 : static_cast<std::int32_t>(plan_.done().total() * 100 / length);
    }
}

Download::Download(asio::io_context& context, std::string targetPath, DownloadOptions options)
    : context_(context), paths_(MakeDownloadPaths(targetPath, options.temporaryFolder)),
      session_(std::make_shared<DownloadSession>(context, paths_, std::move(options))) {}

Download::~Download() {
    session_->end(DownloadSession::Ending::Close);
}

std::uint32_t Download::addSource(std::string_view url) {
    return session_->addSource(url);
}
bool Download::start(EventHandler handler) {
    return session_->start(std::move(handler));
}
void Download::stop() {
    session_->end(DownloadSession::Ending::UserAbort);
}
void Download::close() {
    session_->end(DownloadSession::Ending::Close);
}
void Download::forget() {
    session_->end(DownloadSession::Ending::Forget);
}
std::int32_t Download::info(InfoCode code) const {
    return session_->info(code);
}

} // namespace corvid::download
