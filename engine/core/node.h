// The servent on real sockets: one listening port, outgoing dials, per-link write queues and
// the upkeep timer. Everything Gnutella is decided by Servent; this layer only moves bytes.
#pragma once

#include <asio.hpp>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "engine/core/servent.h"

namespace corvid::gnutella {

struct NodeOptions {
    ServentConfig servent;
    asio::ip::address_v4 bind_address = asio::ip::address_v4::loopback();
    std::uint16_t port = 0; // 0 picks a free port
    // A peer that lets this much pile up unread is too slow to keep.
    std::size_t max_queued_bytes = 4 * 1024 * 1024;
    std::chrono::milliseconds tick_interval{1000};
    std::chrono::seconds sniff_timeout{15};
    std::chrono::seconds dial_timeout{10};
    std::string host_cache_file; // empty: nothing kept across runs
};

// What one link has carried so far, for the hosts view.
struct LinkTraffic {
    std::uint64_t bytes_in = 0;
    std::uint64_t bytes_out = 0;
    std::chrono::steady_clock::time_point last_activity{};
};

class Node : private ServentTransport {
public:
    // Receives the connections whose first bytes were not "GNUTELLA" ("GET ", "HEAD ", "GIV "):
    // the socket and the bytes already read from it.
    using ForeignConnectionHandler = std::function<void(asio::ip::tcp::socket, Bytes first_bytes)>;

    Node(asio::io_context& io, NodeOptions options, const SharedFileIndex& index,
         std::uint64_t seed);
    ~Node() override;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    std::error_code Start();
    // Says Bye to every peer, stops listening and saves the host cache.
    void Stop();

    std::uint16_t port() const { return port_; }
    Endpoint endpoint() const;
    Servent& servent() { return *servent_; }
    void SetForeignConnectionHandler(ForeignConnectionHandler handler) {
        foreign_handler_ = std::move(handler);
    }
    // Total bytes waiting in write queues: what slow readers cost us right now.
    std::size_t queued_bytes() const;
    // Nothing once the link is gone.
    std::optional<LinkTraffic> traffic(PeerId peer) const;

private:
    struct Link;

    void Send(PeerId peer, Bytes bytes) override;
    void Close(PeerId peer) override;
    void Dial(const Endpoint& host) override;

    void Accept();
    void Sniff(std::shared_ptr<asio::ip::tcp::socket> socket, std::shared_ptr<Bytes> seen,
               std::shared_ptr<asio::steady_timer> timer);
    void Adopt(asio::ip::tcp::socket socket, const Endpoint& remote, ByteView first_bytes);
    void Read(std::shared_ptr<Link> link);
    void Write(std::shared_ptr<Link> link);
    void Shut(const std::shared_ptr<Link>& link);
    void ScheduleTick();
    void SaveHostCache();

    asio::io_context& io_;
    NodeOptions options_;
    asio::ip::tcp::acceptor acceptor_;
    asio::steady_timer tick_timer_;
    std::unique_ptr<Servent> servent_;
    std::unordered_map<PeerId, std::shared_ptr<Link>> links_;
    ForeignConnectionHandler foreign_handler_;
    std::uint16_t port_ = 0;
    PeerId next_peer_ = 1;
    bool stopped_ = false;
    // Handlers still queued when the node goes away check this before touching it.
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace corvid::gnutella
