// The servent on real sockets: one listening port, outgoing dials, per-link write queues and
// the upkeep timer. Everything Gnutella is decided by Servent; this layer only moves bytes.
#pragma once

#include <array>
#include <asio.hpp>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>

#include "engine/core/bootstrap.h"
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
    // Incoming connections that have not finished their handshake, or not yet said what they
    // speak. A servent calls a host once and a downloader opens a few connections to one source,
    // each finished within a round trip or two, so eight at once from one address is plenty. In
    // all, an ultrapeer whose leaves come back together after a restart has a couple of hundred
    // in flight; more than 256 is a crowd holding sockets open. The excess is closed at once.
    int max_unfinished_per_address = 8;
    int max_unfinished = 256;
    // Where outgoing connections leave from; unset, the system chooses.
    std::optional<asio::ip::address_v4> source_address;
    std::chrono::seconds dial_timeout{10};
    std::string host_cache_file; // empty: nothing kept across runs
    std::chrono::seconds host_cache_save_interval{300};
    // Where to look when the host cache has nobody left to dial; each cache is asked at most
    // once per cache_interval. Empty: no bootstrapping beyond the host cache.
    std::vector<BootstrapCache> caches;
    std::chrono::minutes cache_interval{60};
    std::chrono::seconds cache_timeout{20};
    // A UDP socket on the Gnutella port: host-cache pings out, and answers to others' as an
    // ultrapeer.
    bool udp = true;
    int udp_answers_per_second = 20;
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
    // Hears of each incoming connection closed at once, and why.
    using RefusalHandler = std::function<void(const Endpoint& remote, std::string_view reason)>;

    Node(asio::io_context& io, NodeOptions options, const SharedFileIndex& index,
         std::uint64_t seed);
    ~Node() override;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    std::error_code Start();
    // Says Bye to every peer, stops listening and saves the host cache.
    void Stop();

    std::uint16_t port() const { return port_; }
    bool udp_open() const { return udp_.is_open(); }
    // The caches known now: the configured ones and those the web caches told us of.
    const std::vector<BootstrapCache>& caches() const { return options_.caches; }
    Endpoint endpoint() const;
    Servent& servent() { return *servent_; }
    void SetForeignConnectionHandler(ForeignConnectionHandler handler) {
        foreign_handler_ = std::move(handler);
    }
    void SetRefusalHandler(RefusalHandler handler) { refusal_handler_ = std::move(handler); }
    // Incoming connections that have not finished their handshake right now.
    int unfinished_connections() const { return unfinished_->total; }
    // Incoming connections closed at once for too many unfinished ones, so far.
    std::uint64_t refused_unfinished() const { return refused_unfinished_; }
    // Total bytes waiting in write queues: what slow readers cost us right now.
    std::size_t queued_bytes() const;
    // Nothing once the link is gone.
    std::optional<LinkTraffic> traffic(PeerId peer) const;

private:
    struct Link;
    struct UnfinishedCounts {
        std::map<std::uint32_t, int> by_address;
        int total = 0;
    };
    class UnfinishedPlace;

    void Send(PeerId peer, Bytes bytes) override;
    void Close(PeerId peer) override;
    void Dial(const Endpoint& host) override;
    void ConnectBack(const Endpoint& host) override;
    void HandshakeDone(PeerId peer) override;

    void Accept();
    // Why an incoming connection from this address must be closed at once, if it must.
    std::optional<std::string_view> Refusal(std::uint32_t ip) const;
    void Sniff(std::shared_ptr<asio::ip::tcp::socket> socket, std::shared_ptr<Bytes> seen,
               std::shared_ptr<asio::steady_timer> timer, std::shared_ptr<UnfinishedPlace> place);
    void Adopt(asio::ip::tcp::socket socket, const Endpoint& remote, ByteView first_bytes,
               std::shared_ptr<UnfinishedPlace> place);
    // A socket for an outgoing connection, leaving from the source address when one is set.
    std::shared_ptr<asio::ip::tcp::socket> OutgoingSocket();
    void Read(std::shared_ptr<Link> link);
    void Write(std::shared_ptr<Link> link);
    void Shut(const std::shared_ptr<Link>& link);
    void ScheduleTick();
    void SaveHostCache();
    void Bootstrap();
    void AskWebCache(const BootstrapCache& cache, bool update);
    void AskUdpHostCache(const BootstrapCache& cache);
    void ReceiveUdp();
    void OnDatagram(ByteView bytes, const asio::ip::udp::endpoint& from);
    void LearnHosts(const std::vector<Endpoint>& hosts);

    asio::io_context& io_;
    NodeOptions options_;
    asio::ip::tcp::acceptor acceptor_;
    asio::ip::udp::socket udp_;
    asio::ip::udp::endpoint udp_from_;
    std::array<std::uint8_t, 65536> udp_buffer_{};
    std::set<Guid> udp_pings_;
    std::map<BootstrapCache, Clock::time_point> cache_asked_;
    std::map<BootstrapCache, Clock::time_point> cache_updated_;
    bool web_cache_busy_ = false;
    Clock::time_point udp_answer_second_{};
    int udp_answers_ = 0;
    Clock::time_point last_save_{};
    asio::steady_timer tick_timer_;
    std::unique_ptr<Servent> servent_;
    std::unordered_map<PeerId, std::shared_ptr<Link>> links_;
    ForeignConnectionHandler foreign_handler_;
    RefusalHandler refusal_handler_;
    // Shared with the places that count in it, which may outlive the node in queued handlers.
    std::shared_ptr<UnfinishedCounts> unfinished_ = std::make_shared<UnfinishedCounts>();
    std::uint64_t refused_unfinished_ = 0;
    std::uint16_t port_ = 0;
    PeerId next_peer_ = 1;
    bool stopped_ = false;
    // Handlers still queued when the node goes away check this before touching it.
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace corvid::gnutella
