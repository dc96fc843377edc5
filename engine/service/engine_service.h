// The whole engine of one process: the servent, the upload server with browse host and push, the
// loopback relay through which the downloader fetches files of firewalled hosts, and the searches
// and browses the user runs, over one shared file index. It runs on a network thread
// of its own between Start and Stop; the caller's thread asks it questions (answered by the
// network thread while the caller waits) and hears from it through EngineListener, always on the
// network thread. This is what the engine's COM face wraps.
#pragma once

#include "engine/core/node.h"
#include "engine/sharing/upload_registry.h"
#include "library/file_index.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace corvid::engine {

struct EngineOptions {
    gnutella::NetworkSettings network;
    bool behind_firewall = true;
    // A second port that serves uploads only (0: none); the Gnutella port serves them anyway.
    std::uint16_t upload_port = 0;
    // Dialled at start as if the user had asked for each (private addresses included).
    std::vector<gnutella::Endpoint> bootstrap;
    // Lets private addresses learnt from peers into the host cache: loopback test networks only.
    bool allow_private_addresses = false;
    std::string host_cache_file;
    // Asked when nobody is left to dial.
    std::vector<gnutella::BootstrapCache> caches;
    // The editable cache list that ships beside the engine's binary: read at start, when the host
    // cache knows fewer than kFewKnownHosts hosts, and asked after the caches above. Empty: none.
    std::string shipped_cache_list;
    std::string user_agent = "Corvid/0.1";
    // The tick counter the hosts view reads (milliseconds, 32-bit, wrapping).
    std::function<std::uint32_t()> tick;
    // The total upload limit in bytes per second (0: none), asked about once a second.
    std::function<std::uint64_t()> upload_limit;
};

// Fewer hosts than this in the host cache, and the shipped cache list is read at start.
inline constexpr std::size_t kFewKnownHosts = 20;

// The caches the node asks, in order: those named in the options, then the shipped list's when
// the host cache file holds fewer than kFewKnownHosts hosts worth dialling.
std::vector<gnutella::BootstrapCache> BootstrapCachesFor(const EngineOptions& options);

// Applies CORVID_ENGINE_BOOTSTRAP, which test networks and demos set (nothing: the variable is not
// set). Unset or empty changes nothing. "none": the engine finds nobody by itself: no shipped
// cache list, and no host cache read or written, so a test run never dials what an earlier one
// left behind (hosts the user's NetWork.ini names are still dialled). Otherwise a list separated
// by commas of hosts ("a.b.c.d:port", dialled at start) and caches ("gwc <url>",
// "uhc <host>:<port>"), which stand in for the shipped list.
void ApplyBootstrapVariable(EngineOptions& options, std::optional<std::string_view> value);

// Told on the network thread; must not call back into the service.
class EngineListener {
public:
    virtual ~EngineListener() = default;
    // The number of open Gnutella links changed.
    virtual void OnNodeCount(int count) = 0;
    virtual void OnStatus(const std::string& text, int code) = 0;
    // One "searchresult" text: one answering host of a search or of a browse.
    virtual void OnSearchResult(std::uint32_t search, const std::string& text) = 0;
};

// Status codes of OnStatus.
enum StatusCode : int {
    kStatusListening = 1,
    kStatusPortTaken = 2,
    kStatusDialling = 3,
    kStatusBrowseFailed = 4,
    kStatusUploadPortTaken = 5,
    kStatusLinkOpened = 6,
    kStatusLinkClosed = 7,
};

// "a.b.c.d:port", optionally behind "http://" and before a "/": the user's way of naming a host.
std::optional<gnutella::Endpoint> ParseUserAddress(std::string_view text);

// A byte count for people: "512 B", "12.3 KB", "4.0 MB", "1.2 GB".
std::string FormatTraffic(std::uint64_t bytes);

// The engine's reading of "Config\NetWork.ini": the servent's keys, BehindFirewall, UploadPort,
// and the optional "Hosts" list (a.b.c.d:port separated by commas) dialled at start.
struct EngineIni {
    gnutella::NetworkSettings network;
    bool behind_firewall = true;
    std::uint16_t upload_port = 0;
    std::vector<gnutella::Endpoint> hosts;
};
EngineIni ParseEngineIni(std::string_view text);

class EngineService {
public:
    EngineService(library::FileIndex& files, EngineListener& listener);
    ~EngineService();
    EngineService(const EngineService&) = delete;
    EngineService& operator=(const EngineService&) = delete;

    // Listens on the configured port (on a free one when it is taken) and dials the bootstrap
    // hosts. An error when nothing could listen at all. A running service is stopped first.
    std::error_code Start(EngineOptions options);
    // Leaves the network. When it returns the network thread is gone and the listener hears
    // nothing more.
    void Stop();
    bool running() const { return running_ != nullptr; }

    int NodeCount() const;
    std::uint16_t port() const;
    std::string HostsText();
    std::string InfoText();

    // False when the service is not running.
    bool ConnectNode(const gnutella::Endpoint& host);
    // False when no link has that id.
    bool DisconnectNode(gnutella::PeerId id);
    // A changed "Config\NetWork.ini" for the running service: the link counts apply at once. The
    // port, the node mode, the firewall flag and the upload port shape how the node listens and
    // what it is, so they wait for the next Start. True when nothing waits; false when something
    // does or the service is not running.
    bool ApplySettings(const EngineOptions& options);

    // Sends a query; its hits come back as OnSearchResult(search, ...). A restart is another
    // StartSearch with the same id: answers to every query of the id keep coming.
    bool StartSearch(std::uint32_t search, std::string keywords, std::string type,
                     std::vector<std::string> sha1s);
    // Asks one host for its files; each hit message comes back as a text of type "BrowseHost".
    bool Browse(std::uint32_t search, const gnutella::Endpoint& host);
    // No more answers for the id.
    void StopSearch(std::uint32_t search);

    gnutella::UploadRegistry& uploads() { return uploads_; }
    std::string UploadsText() const;

private:
    struct Running;

    template <typename Result, typename Work> Result Ask(Result fallback, Work work);

    library::FileIndex& files_;
    EngineListener& listener_;
    gnutella::UploadRegistry uploads_;
    std::unique_ptr<Running> running_;
    std::uint16_t relay_port_ = 0;
};

} // namespace corvid::engine
