#include "engine/core/node.h"

#include <fstream>
#include <sstream>

namespace corvid::gnutella {

namespace {
constexpr std::string_view kGnutellaGreeting = "GNUTELLA";
constexpr std::size_t kReadChunk = 16384;
constexpr std::size_t kSniffLimit = 4096;
} // namespace

struct Node::Link {
    explicit Link(asio::ip::tcp::socket s) : socket(std::move(s)) {}

    asio::ip::tcp::socket socket;
    PeerId id = 0;
    std::array<std::uint8_t, kReadChunk> buffer{};
    std::deque<Bytes> queue;
    std::size_t queued = 0;
    bool writing = false;
    bool closing = false; // no more reads are delivered; close once the queue is written
    bool shut = false;
    LinkTraffic traffic;
};

Node::Node(asio::io_context& io, NodeOptions options, const SharedFileIndex& index,
           std::uint64_t seed)
    : io_(io), options_(std::move(options)), acceptor_(io), tick_timer_(io) {
    ServentTransport& transport = *this;
    servent_ = std::make_unique<Servent>(
        options_.servent, index, transport, [] { return Clock::now(); }, seed);
}

Node::~Node() {
    *alive_ = false;
    Stop();
}

Endpoint Node::endpoint() const {
    return {options_.bind_address.to_uint(), port_};
}

std::error_code Node::Start() {
    asio::error_code ec;
    asio::ip::tcp::endpoint at(options_.bind_address, options_.port);
    acceptor_.open(at.protocol(), ec);
    if (!ec)
        acceptor_.set_option(asio::socket_base::reuse_address(true), ec);
    if (!ec)
        acceptor_.bind(at, ec);
    if (!ec)
        acceptor_.listen(asio::socket_base::max_listen_connections, ec);
    if (ec)
        return ec;
    port_ = acceptor_.local_endpoint().port();
    servent_->SetListen(endpoint());
    if (!options_.host_cache_file.empty()) {
        std::ifstream in(options_.host_cache_file);
        std::stringstream text;
        text << in.rdbuf();
        servent_->hosts().Load(text.str());
    }
    Accept();
    ScheduleTick();
    asio::post(io_, [this, alive = alive_] {
        if (*alive && !stopped_)
            servent_->Tick();
    });
    return {};
}

void Node::Stop() {
    if (stopped_)
        return;
    stopped_ = true;
    servent_->Shutdown();
    asio::error_code ignored;
    acceptor_.close(ignored);
    tick_timer_.cancel();
    SaveHostCache();
    std::vector<std::shared_ptr<Link>> idle;
    for (auto& [id, link] : links_)
        if (!link->writing)
            idle.push_back(link);
    for (auto& link : idle)
        Shut(link);
}

void Node::SaveHostCache() {
    if (options_.host_cache_file.empty())
        return;
    std::ofstream out(options_.host_cache_file, std::ios::trunc);
    out << servent_->hosts().Serialize();
}

std::optional<LinkTraffic> Node::traffic(PeerId peer) const {
    auto it = links_.find(peer);
    if (it == links_.end())
        return std::nullopt;
    return it->second->traffic;
}

std::size_t Node::queued_bytes() const {
    std::size_t total = 0;
    for (const auto& [id, link] : links_)
        total += link->queued;
    return total;
}

void Node::ScheduleTick() {
    tick_timer_.expires_after(options_.tick_interval);
    tick_timer_.async_wait([this, alive = alive_](const asio::error_code& ec) {
        if (ec || !*alive || stopped_)
            return;
        servent_->Tick();
        ScheduleTick();
    });
}

void Node::Accept() {
    acceptor_.async_accept(
        [this, alive = alive_](const asio::error_code& ec, asio::ip::tcp::socket socket) {
            if (!*alive || stopped_)
                return;
            if (!ec) {
                auto timer = std::make_shared<asio::steady_timer>(io_, options_.sniff_timeout);
                auto sock = std::make_shared<asio::ip::tcp::socket>(std::move(socket));
                timer->async_wait([sock](const asio::error_code& wait_ec) {
                    if (!wait_ec) {
                        asio::error_code ignored;
                        sock->close(ignored);
                    }
                });
                Sniff(sock, std::make_shared<Bytes>(), timer);
            }
            Accept();
        });
}

// Reads until the first bytes tell a Gnutella handshake from anything else.
void Node::Sniff(std::shared_ptr<asio::ip::tcp::socket> socket, std::shared_ptr<Bytes> seen,
                 std::shared_ptr<asio::steady_timer> timer) {
    auto buffer = std::make_shared<std::array<std::uint8_t, 512>>();
    socket->async_read_some(
        asio::buffer(*buffer), [this, alive = alive_, socket, seen, timer,
                                buffer](const asio::error_code& ec, std::size_t n) {
            if (!*alive || stopped_ || ec)
                return;
            seen->insert(seen->end(), buffer->begin(),
                         buffer->begin() + static_cast<std::ptrdiff_t>(n));
            std::string_view text = AsText(*seen);
            std::size_t compare = std::min(text.size(), kGnutellaGreeting.size());
            bool gnutella_so_far = text.substr(0, compare) == kGnutellaGreeting.substr(0, compare);
            if (gnutella_so_far && text.size() < kGnutellaGreeting.size()) {
                Sniff(socket, seen, timer);
                return;
            }
            timer->cancel();
            asio::error_code remote_ec;
            auto remote = socket->remote_endpoint(remote_ec);
            if (remote_ec)
                return;
            if (gnutella_so_far) {
                Adopt(std::move(*socket),
                      Endpoint{remote.address().to_v4().to_uint(), remote.port()}, *seen);
            } else if (foreign_handler_ && seen->size() <= kSniffLimit) {
                foreign_handler_(std::move(*socket), std::move(*seen));
            }
        });
}

void Node::Adopt(asio::ip::tcp::socket socket, const Endpoint& remote, ByteView first_bytes) {
    asio::error_code ignored;
    socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    auto link = std::make_shared<Link>(std::move(socket));
    link->id = next_peer_++;
    links_[link->id] = link;
    servent_->Accepted(link->id, remote);
    servent_->Received(link->id, first_bytes);
    if (!link->closing)
        Read(link);
}

void Node::Read(std::shared_ptr<Link> link) {
    link->socket.async_read_some(
        asio::buffer(link->buffer),
        [this, alive = alive_, link](const asio::error_code& ec, std::size_t n) {
            if (!*alive || link->closing)
                return;
            if (ec) {
                link->closing = true;
                Shut(link);
                servent_->Lost(link->id);
                return;
            }
            link->traffic.bytes_in += n;
            link->traffic.last_activity = std::chrono::steady_clock::now();
            servent_->Received(link->id, ByteView(link->buffer.data(), n));
            if (!link->closing)
                Read(link);
        });
}

void Node::Send(PeerId peer, Bytes bytes) {
    auto it = links_.find(peer);
    if (it == links_.end() || it->second->shut)
        return;
    auto link = it->second;
    if (link->queued + bytes.size() > options_.max_queued_bytes) {
        // Too slow to keep up: let it go, but tell the servent from a fresh handler since it may
        // be walking its peers right now.
        if (!link->closing) {
            link->closing = true;
            link->queue.clear();
            link->queued = 0;
            if (!link->writing)
                Shut(link);
            asio::post(io_, [this, alive = alive_, id = peer] {
                if (*alive)
                    servent_->Lost(id);
            });
        }
        return;
    }
    link->queued += bytes.size();
    link->queue.push_back(std::move(bytes));
    if (!link->writing)
        Write(link);
}

void Node::Write(std::shared_ptr<Link> link) {
    if (link->queue.empty()) {
        if (link->closing)
            Shut(link);
        return;
    }
    link->writing = true;
    auto batch = std::make_shared<std::vector<Bytes>>();
    while (!link->queue.empty() && batch->size() < 64) {
        batch->push_back(std::move(link->queue.front()));
        link->queue.pop_front();
    }
    std::vector<asio::const_buffer> buffers;
    for (const auto& b : *batch)
        buffers.push_back(asio::buffer(b));
    asio::async_write(link->socket, buffers,
                      [this, alive = alive_, link, batch](const asio::error_code& ec, std::size_t) {
                          if (!*alive)
                              return;
                          link->writing = false;
                          std::size_t written = 0;
                          for (const auto& b : *batch)
                              written += b.size();
                          link->queued -= std::min(link->queued, written);
                          link->traffic.bytes_out += written;
                          link->traffic.last_activity = std::chrono::steady_clock::now();
                          if (ec) {
                              bool was_closing = link->closing;
                              link->closing = true;
                              Shut(link);
                              if (!was_closing)
                                  servent_->Lost(link->id);
                              return;
                          }
                          Write(link);
                      });
}

void Node::Close(PeerId peer) {
    auto it = links_.find(peer);
    if (it == links_.end())
        return;
    auto link = it->second;
    link->closing = true;
    if (!link->writing)
        Write(link);
}

void Node::Shut(const std::shared_ptr<Link>& link) {
    if (link->shut)
        return;
    link->shut = true;
    asio::error_code ignored;
    link->socket.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
    link->socket.close(ignored);
    links_.erase(link->id);
}

void Node::Dial(const Endpoint& host) {
    auto socket = std::make_shared<asio::ip::tcp::socket>(io_);
    auto timer = std::make_shared<asio::steady_timer>(io_, options_.dial_timeout);
    timer->async_wait([socket](const asio::error_code& ec) {
        if (!ec) {
            asio::error_code ignored;
            socket->close(ignored);
        }
    });
    asio::ip::tcp::endpoint to(asio::ip::address_v4(host.ip), host.port);
    socket->async_connect(to,
                          [this, alive = alive_, socket, timer, host](const asio::error_code& ec) {
                              if (!*alive)
                                  return;
                              timer->cancel();
                              if (stopped_)
                                  return;
                              if (ec) {
                                  servent_->DialFailed(host);
                                  return;
                              }
                              // Register the link before the servent speaks, so its first words
                              // have somewhere to go.
                              auto link = std::make_shared<Link>(std::move(*socket));
                              asio::error_code ignored;
                              link->socket.set_option(asio::ip::tcp::no_delay(true), ignored);
                              link->id = next_peer_++;
                              links_[link->id] = link;
                              servent_->Connected(link->id, host);
                              if (!link->closing)
                                  Read(link);
                          });
}

} // namespace corvid::gnutella
