#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "download/core/downloader.h"
#include "download/core/range_set.h"

namespace corvid::download::testing {

// A fresh folder under the system's temporary folder, removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::string RandomBytes(std::size_t size, std::uint32_t seed);
std::string Sha1Urn(const std::string& content);
std::string ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const std::string& content);

// Every event a download reported, in order. Safe to fill from another thread.
class EventLog {
public:
    EventHandler handler();
    std::vector<DownloadEvent> events() const;
    std::vector<EventCode> codes() const;
    std::vector<EventCode> codesFor(std::uint32_t source) const;
    bool has(EventCode code) const;
    std::size_t count(EventCode code) const;
    bool ended() const { return has(EventCode::Stopped); }

private:
    mutable std::mutex lock_;
    std::vector<DownloadEvent> events_;
};

// Runs the context until `done` holds; false when the generous time limit passed first.
bool RunUntil(asio::io_context& context, const std::function<bool()>& done,
              std::chrono::seconds limit = std::chrono::seconds(60));

// Short delays and time-outs so faults play out quickly; small requests so every source is used.
DownloadOptions FastOptions();

struct HttpRequest {
    std::string method;
    std::string target;
    std::optional<ByteSpan> range; // from "Range: bytes=a-b", end exclusive
    std::string head;
};

// What the fault server does with one request.
struct Reply {
    std::string head; // status line and headers, without the blank line
    std::string body;
    std::size_t sendBodyBytes = std::string::npos; // send only this much of the body...
    bool stallAfter = false; // ...then hold the connection open without a word
    bool close = false;      // close after sending
    std::string raw;         // when set: sent as it stands instead of head and body
    bool silent = false;     // takes the request and never answers, holding the connection

    static Reply Range(const std::string& content, const HttpRequest& request);
    static Reply Status(int status, const std::string& reason,
                        const std::string& extraHeaders = {});
};

// A loopback HTTP server on the given context whose answers a test scripts, request by request.
class FaultServer {
public:
    // number: how many requests this server has seen before this one, from 0.
    using Policy = std::function<Reply(const HttpRequest& request, int number)>;

    FaultServer(asio::io_context& context, Policy policy);
    ~FaultServer();
    std::uint16_t port() const { return port_; }
    std::string url(const std::string& target = "/file") const;
    std::vector<HttpRequest> requests() const { return requests_; }
    void setPolicy(Policy policy) { policy_ = std::move(policy); }

private:
    struct Connection;
    void accept();

    asio::io_context& context_;
    asio::ip::tcp::acceptor acceptor_;
    std::uint16_t port_ = 0;
    Policy policy_;
    std::vector<HttpRequest> requests_;
    std::vector<std::shared_ptr<Connection>> connections_;
};

#ifndef _WIN32
// nginx serving one folder on several loopback ports, started and stopped by the test.
class NginxServer {
public:
    // limitRates: bytes per second for each port's responses, 0 for none; missing ones are 0.
    NginxServer(const std::string& root, int ports,
                const std::vector<std::uint64_t>& limitRates = {});
    ~NginxServer();
    bool running() const { return pid_ > 0; }
    std::vector<std::uint16_t> ports() const { return ports_; }
    std::string url(int index, const std::string& name) const;
    // Every Range header nginx saw, from its access log ("-" for none).
    std::vector<std::string> rangesRequested() const;

private:
    TempDir dir_;
    std::vector<std::uint16_t> ports_;
    int pid_ = -1;
};
#endif

std::uint16_t FreeLoopbackPort();

} // namespace corvid::download::testing
