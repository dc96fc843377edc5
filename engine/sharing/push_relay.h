// Downloads from firewalled hosts for a downloader that only speaks HTTP to addresses: the engine
// listens on a loopback port, and a source URL naming that port, the firewalled servent and the
// file ("http://127.0.0.1:<relay>/push/<servent>/<index>/<proxies>/<target>") makes the engine
// send a Push, take the GIV connection that answers it and relay the downloader's requests over
// it. The downloader sees an ordinary HTTP server.
#pragma once

#include "engine/core/descriptor.h"
#include "engine/sharing/push_giv.h"

#include <asio.hpp>

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace corvid::gnutella {

struct PushRelayTarget {
    Guid servent;
    std::uint32_t index = 0;
    std::vector<Endpoint> proxies; // push proxies of the hit, when it named any
    std::string target;            // what to ask the pushed host for, starting with '/'
};

// "/push/<32 hex>/<index>/<ip:port,...|->/<target without its leading '/'>"
std::string PushRelayPath(const PushRelayTarget& target);
// Nothing unless the path is one PushRelayPath could have written with a target the upload side
// of a servent serves ("/get/..." or "/uri-res/...").
std::optional<PushRelayTarget> ParsePushRelayPath(std::string_view path);

// Where a file of a hit must be fetched through a Push: the host says it is firewalled, or it
// gave an address nobody outside its own network can dial (unless the caller lives on such a
// network itself). Nothing when the host can be dialled, or when the hit names no servent or no
// SHA1 to ask for. The target asks for the file by its SHA1.
std::optional<PushRelayTarget> PushTargetOf(const QueryHit& hit, const HitResult& result,
                                            bool privateAddressesAreReachable);

// "GET /gnutella/push-proxy?ServerId=<base32 GUID>&file=<index> HTTP/1.1" with X-Node: what a
// push proxy is asked to pass on as a Push to the servent it shields.
std::string PushProxyRequest(const Guid& servent, std::uint32_t index, const Endpoint& self);

class PushRelay {
public:
    // Sends a Push for the file towards the servent: routed through the link that carried its hit,
    // or through its push proxies. False when there is no way to reach it at all.
    using PushSender = std::function<bool(const PushRelayTarget& target)>;

    struct Options {
        std::chrono::seconds givTimeout{30};
        std::chrono::seconds idleTimeout{60};
        unsigned retryAfterSeconds = 60;
    };

    PushRelay(asio::io_context& io, GivWaiters& givs, PushSender sender, Options options);
    PushRelay(asio::io_context& io, GivWaiters& givs, PushSender sender)
        : PushRelay(io, givs, std::move(sender), Options{}) {}
    ~PushRelay();
    PushRelay(const PushRelay&) = delete;
    PushRelay& operator=(const PushRelay&) = delete;

    // Listens on 127.0.0.1 only: nobody but this machine's downloader may make us push.
    asio::ip::tcp::endpoint Listen(std::uint16_t port = 0);
    std::uint16_t port() const { return port_; }
    // The source URL a download page gives the downloader for a file of a firewalled host.
    std::string Url(const PushRelayTarget& target) const;
    void Close();

    struct State;

private:
    void Accept();

    std::shared_ptr<State> state_;
    std::unique_ptr<asio::ip::tcp::acceptor> acceptor_;
    std::uint16_t port_ = 0;
};

// Asks each push proxy in turn (fire and forget) to pass a Push on; self is where the GIV should
// come to.
void SendPushThroughProxies(asio::io_context& io, const PushRelayTarget& target,
                            const Endpoint& self);

} // namespace corvid::gnutella
