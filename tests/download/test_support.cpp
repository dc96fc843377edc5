#include "tests/download/test_support.h"

#include <asio/read_until.hpp>
#include <asio/streambuf.hpp>
#include <asio/write.hpp>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "download/core/http_response.h"
#include "download/core/sha1.h"

namespace corvid::download::testing {

TempDir::TempDir() {
    std::random_device seed;
    std::mt19937_64 random(seed());
    const auto base = std::filesystem::temp_directory_path();
    for (;;) {
        const auto candidate = base / ("corvid-download-" + std::to_string(random()));
        if (std::filesystem::create_directory(candidate)) {
            path_ = candidate.string();
            break;
        }
    }
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string RandomBytes(std::size_t size, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) {
        c = static_cast<char>(random());
    }
    return bytes;
}

std::string Sha1Urn(const std::string& content) {
    return "urn:sha1:" + library::ToBase32(library::Sha1Of(content));
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void WriteWholeFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
}

EventHandler EventLog::handler() {
    return [this](const DownloadEvent& event) {
        std::lock_guard guard(lock_);
        events_.push_back(event);
    };
}

std::vector<DownloadEvent> EventLog::events() const {
    std::lock_guard guard(lock_);
    return events_;
}

std::vector<EventCode> EventLog::codes() const {
    std::vector<EventCode> codes;
    for (const auto& event : events()) {
        codes.push_back(event.code);
    }
    return codes;
}

std::vector<EventCode> EventLog::codesFor(std::uint32_t source) const {
    std::vector<EventCode> codes;
    for (const auto& event : events()) {
        if (event.sourceId == source) {
            codes.push_back(event.code);
        }
    }
    return codes;
}

bool EventLog::has(EventCode code) const {
    return count(code) > 0;
}

std::size_t EventLog::count(EventCode code) const {
    std::lock_guard guard(lock_);
    return static_cast<std::size_t>(std::count_if(
        events_.begin(), events_.end(), [code](const auto& event) { return event.code == code; }));
}

bool RunUntil(asio::io_context& context, const std::function<bool()>& done,
              std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    auto guard = asio::make_work_guard(context);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        context.restart();
        context.run_one_for(std::chrono::milliseconds(50));
    }
    return true;
}

DownloadOptions FastOptions() {
    DownloadOptions options;
    options.retryDelay = std::chrono::milliseconds(5);
    options.maxRetryDelay = std::chrono::milliseconds(20);
    options.connectTimeout = std::chrono::milliseconds(5000);
    options.ioTimeout = std::chrono::milliseconds(5000);
    options.stallTime = std::chrono::milliseconds(100);
    options.tick = std::chrono::milliseconds(10);
    options.progressInterval = std::chrono::milliseconds(50);
    options.mapSaveInterval = std::chrono::milliseconds(0);
    options.minRequest = 16 * 1024;
    options.maxRequest = 64 * 1024;
    options.maxAttempts = 4;
    return options;
}

Reply Reply::Range(const std::string& content, const HttpRequest& request) {
    Reply reply;
    ByteSpan span{0, content.size()};
    if (request.range) {
        span = {request.range->begin, std::min<std::uint64_t>(request.range->end, content.size())};
    }
    if (span.begin >= content.size()) {
        reply.head = "HTTP/1.1 416 Range Not Satisfiable\r\nContent-Range: bytes */" +
                     std::to_string(content.size()) + "\r\nContent-Length: 0";
        return reply;
    }
    reply.body = content.substr(span.begin, span.size());
    reply.head = "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " +
                 std::to_string(span.begin) + "-" + std::to_string(span.end - 1) + "/" +
                 std::to_string(content.size()) +
                 "\r\nContent-Length: " + std::to_string(reply.body.size());
    return reply;
}

Reply Reply::Status(int status, const std::string& reason, const std::string& extraHeaders) {
    Reply reply;
    reply.head = "HTTP/1.1 " + std::to_string(status) + " " + reason + "\r\nContent-Length: 0" +
                 extraHeaders;
    return reply;
}

struct FaultServer::Connection : std::enable_shared_from_this<Connection> {
    Connection(FaultServer& server, asio::ip::tcp::socket socket)
        : server(server), socket(std::move(socket)) {}

    void readRequest() {
        asio::async_read_until(
            socket, input, "\r\n\r\n",
            [self = shared_from_this()](const asio::error_code& error, std::size_t size) {
                if (!error) {
                    self->answer(size);
                }
            });
    }

    void answer(std::size_t size) {
        std::string head(asio::buffers_begin(input.data()),
                         asio::buffers_begin(input.data()) + static_cast<std::ptrdiff_t>(size));
        input.consume(size);
        HttpRequest request;
        request.head = head;
        std::istringstream lines(head);
        std::string version;
        lines >> request.method >> request.target >> version;
        const std::size_t range = head.find("Range: bytes=");
        if (range != std::string::npos) {
            const std::size_t dash = head.find('-', range);
            const std::uint64_t first = std::stoull(head.substr(range + 13, dash - range - 13));
            const std::uint64_t last = std::stoull(head.substr(dash + 1));
            request.range = ByteSpan{first, last + 1};
        }
        const int number = static_cast<int>(server.requests_.size());
        server.requests_.push_back(request);
        const Reply reply = server.policy_(request, number);
        if (reply.silent) {
            return;
        }
        if (!reply.raw.empty()) {
            output = reply.raw;
        } else {
            output = reply.head + "\r\n\r\n" +
                     reply.body.substr(0, std::min(reply.sendBodyBytes, reply.body.size()));
        }
        const bool stall = reply.stallAfter;
        const bool close =
            reply.close || !reply.raw.empty() || reply.sendBodyBytes < reply.body.size();
        asio::async_write(
            socket, asio::buffer(output),
            [self = shared_from_this(), stall, close](const asio::error_code& error, std::size_t) {
                if (error || stall) {
                    return; // a stalled connection stays open, silent
                }
                if (close) {
                    asio::error_code ignored;
                    self->socket.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
                    self->socket.close(ignored);
                    return;
                }
                self->readRequest();
            });
    }

    FaultServer& server;
    asio::ip::tcp::socket socket;
    asio::streambuf input{64 * 1024};
    std::string output;
};

FaultServer::FaultServer(asio::io_context& context, Policy policy)
    : context_(context),
      acceptor_(context, asio::ip::tcp::endpoint(asio::ip::make_address("127.0.0.1"), 0)),
      port_(acceptor_.local_endpoint().port()), policy_(std::move(policy)) {
    accept();
}

FaultServer::~FaultServer() {
    asio::error_code ignored;
    acceptor_.close(ignored);
    for (auto& connection : connections_) {
        connection->socket.close(ignored);
    }
}

std::string FaultServer::url(const std::string& target) const {
    return "http://127.0.0.1:" + std::to_string(port_) + target;
}

void FaultServer::accept() {
    acceptor_.async_accept([this](const asio::error_code& error, asio::ip::tcp::socket socket) {
        if (error) {
            return;
        }
        auto connection = std::make_shared<Connection>(*this, std::move(socket));
        connections_.push_back(connection);
        connection->readRequest();
        accept();
    });
}

std::uint16_t FreeLoopbackPort() {
    asio::io_context context;
    asio::ip::tcp::acceptor acceptor(
        context, asio::ip::tcp::endpoint(asio::ip::make_address("127.0.0.1"), 0));
    return acceptor.local_endpoint().port();
}

} // namespace corvid::download::testing
