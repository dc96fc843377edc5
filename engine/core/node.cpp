#include "engine/core/node.h"

#include "platform/listen.h"

#include <fstream>
#include <sstream>

namespace corvid::gnutella {

namespace {
constexpr std::string_view kGnutellaGreeting = "GNUTELLA";
constexpr std::size_t kReadChunk = 16384;
constexpr std::size_t kSniffLimit = 4096;
constexpr std::size_t kMaxWebCacheAnswer = 64 * 1024;
constexpr std::size_t kMaxHostsPerAnswer = 50;
constexpr std::size_t kMaxKnownCaches = 40;
constexpr std::size_t kMaxPendingUdpPings = 64;
} // namespace

// An incoming connection's place in the counts of unfinished ones, given back once: when it is
// handed on, when its handshake is through, or when the last handler holding it goes.
class Node::UnfinishedPlace {
public:
    UnfinishedPlace(std::weak_ptr<UnfinishedCounts> counts, std::uint32_t ip)
        : counts_(std::move(counts)), ip_(ip) {
        if (auto c = counts_.lock()) {
            ++c->by_address[ip_];
            ++c->total;
        }
    }
    ~UnfinishedPlace() { Release(); }
    UnfinishedPlace(const UnfinishedPlace&) = delete;
    UnfinishedPlace& operator=(const UnfinishedPlace&) = delete;

    void Release() {
        auto c = counts_.lock();
        counts_.reset();
        if (!c)
            return;
        --c->total;
        if (auto it = c->by_address.find(ip_); it != c->by_address.end() && --it->second <= 0)
            c->by_address.erase(it);
    }

private:
    std::weak_ptr<UnfinishedCounts> counts_;
    std::uint32_t ip_;
};

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
    std::shared_ptr<UnfinishedPlace> unfinished; // an incoming link until its handshake is through
};

Node::Node(asio::io_context& io, NodeOptions options, const SharedFileIndex& index,
           std::uint64_t seed)
    : io_(io), options_(std::move(options)), acceptor_(io), udp_(io), tick_timer_(io) {
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
    if (auto ec = OpenListener(acceptor_, {options_.bind_address, options_.port}))
        return ec;
    port_ = acceptor_.local_endpoint().port();
    servent_->SetListen(endpoint());
    if (options_.udp) {
        // Without the UDP side the node still works; it only cannot ask UDP host caches.
        asio::error_code udp_ec;
        udp_.open(asio::ip::udp::v4(), udp_ec);
        if (!udp_ec)
            udp_.bind({options_.bind_address, port_}, udp_ec);
        if (udp_ec)
            udp_.close(udp_ec);
        else
            ReceiveUdp();
    }
    if (!options_.host_cache_file.empty()) {
        std::ifstream in(options_.host_cache_file);
        std::stringstream text;
        text << in.rdbuf();
        servent_->hosts().Load(text.str());
    }
    Accept();
    ScheduleTick();
    last_save_ = Clock::now();
    asio::post(io_, [this, alive = alive_] {
        if (*alive && !stopped_) {
            servent_->Tick();
            Bootstrap();
        }
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
    udp_.close(ignored);
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
    out << servent_->HostCacheText();
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
        Bootstrap();
        auto now = Clock::now();
        if (now - last_save_ >= options_.host_cache_save_interval) {
            last_save_ = now;
            SaveHostCache();
        }
        ScheduleTick();
    });
}

std::optional<std::string_view> Node::Refusal(std::uint32_t ip) const {
    if (unfinished_->total >= options_.max_unfinished)
        return "Too many unfinished connections";
    auto it = unfinished_->by_address.find(ip);
    if (it != unfinished_->by_address.end() && it->second >= options_.max_unfinished_per_address)
        return "Too many unfinished connections from this address";
    return std::nullopt;
}

void Node::Accept() {
    acceptor_.async_accept(
        [this, alive = alive_](const asio::error_code& ec, asio::ip::tcp::socket socket) {
            if (!*alive || stopped_)
                return;
            asio::error_code remote_ec;
            auto remote = socket.remote_endpoint(remote_ec);
            if (!ec && !remote_ec) {
                std::uint32_t ip = remote.address().to_v4().to_uint();
                if (auto why = Refusal(ip)) {
                    // Closed before a byte is read: the excess costs us nothing but the accept.
                    ++refused_unfinished_;
                    asio::error_code ignored;
                    socket.close(ignored);
                    if (refusal_handler_)
                        refusal_handler_(Endpoint{ip, remote.port()}, *why);
                } else {
                    auto place = std::make_shared<UnfinishedPlace>(unfinished_, ip);
                    auto timer = std::make_shared<asio::steady_timer>(io_, options_.sniff_timeout);
                    auto sock = std::make_shared<asio::ip::tcp::socket>(std::move(socket));
                    timer->async_wait([sock](const asio::error_code& wait_ec) {
                        if (!wait_ec) {
                            asio::error_code ignored;
                            sock->close(ignored);
                        }
                    });
                    Sniff(sock, std::make_shared<Bytes>(), timer, std::move(place));
                }
            }
            Accept();
        });
}

// Reads until the first bytes tell a Gnutella handshake from anything else.
void Node::Sniff(std::shared_ptr<asio::ip::tcp::socket> socket, std::shared_ptr<Bytes> seen,
                 std::shared_ptr<asio::steady_timer> timer,
                 std::shared_ptr<UnfinishedPlace> place) {
    auto buffer = std::make_shared<std::array<std::uint8_t, 512>>();
    socket->async_read_some(
        asio::buffer(*buffer), [this, alive = alive_, socket, seen, timer, buffer,
                                place](const asio::error_code& ec, std::size_t n) {
            if (!*alive || stopped_ || ec)
                return;
            seen->insert(seen->end(), buffer->begin(),
                         buffer->begin() + static_cast<std::ptrdiff_t>(n));
            std::string_view text = AsText(*seen);
            std::size_t compare = std::min(text.size(), kGnutellaGreeting.size());
            bool gnutella_so_far = text.substr(0, compare) == kGnutellaGreeting.substr(0, compare);
            if (gnutella_so_far && text.size() < kGnutellaGreeting.size()) {
                Sniff(socket, seen, timer, place);
                return;
            }
            timer->cancel();
            asio::error_code remote_ec;
            auto remote = socket->remote_endpoint(remote_ec);
            if (remote_ec)
                return;
            if (gnutella_so_far) {
                Adopt(std::move(*socket),
                      Endpoint{remote.address().to_v4().to_uint(), remote.port()}, *seen, place);
            } else if (foreign_handler_ && seen->size() <= kSniffLimit) {
                // Uploads and GIVs have their own limits where they are served.
                place->Release();
                foreign_handler_(std::move(*socket), std::move(*seen));
            }
        });
}

void Node::Adopt(asio::ip::tcp::socket socket, const Endpoint& remote, ByteView first_bytes,
                 std::shared_ptr<UnfinishedPlace> place) {
    asio::error_code ignored;
    socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    auto link = std::make_shared<Link>(std::move(socket));
    link->unfinished = std::move(place);
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
                    servent_->Lost(id, "Too slow to read");
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

void Node::HandshakeDone(PeerId peer) {
    if (auto it = links_.find(peer); it != links_.end())
        it->second->unfinished.reset();
}

void Node::Shut(const std::shared_ptr<Link>& link) {
    if (link->shut)
        return;
    link->shut = true;
    link->unfinished.reset();
    asio::error_code ignored;
    link->socket.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
    link->socket.close(ignored);
    links_.erase(link->id);
}

std::shared_ptr<asio::ip::tcp::socket> Node::OutgoingSocket() {
    auto socket = std::make_shared<asio::ip::tcp::socket>(io_);
    if (options_.source_address) {
        // Failing that, the connection leaves from wherever the system chooses.
        asio::error_code ec;
        socket->open(asio::ip::tcp::v4(), ec);
        if (!ec)
            socket->bind({*options_.source_address, 0}, ec);
        if (ec) {
            asio::error_code ignored;
            socket->close(ignored);
        }
    }
    return socket;
}

void Node::Dial(const Endpoint& host) {
    auto socket = OutgoingSocket();
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

void Node::LearnHosts(const std::vector<Endpoint>& hosts) {
    if (stopped_)
        return;
    for (const auto& host : hosts)
        if (host != endpoint())
            servent_->hosts().Add(host);
    // Dial now rather than at the next tick: the user is waiting for a connection.
    servent_->Tick();
}

// Asks the caches, in the order the list gives them, while nobody is left to dial: one UDP host
// cache and one web cache at a time, each at most once per interval. As an ultrapeer with
// links, tells one web cache per interval where we are.
void Node::Bootstrap() {
    if (stopped_ || options_.caches.empty())
        return;
    auto now = Clock::now();
    auto due = [&](const std::map<BootstrapCache, Clock::time_point>& asked,
                   const BootstrapCache& cache) {
        auto it = asked.find(cache);
        return it == asked.end() || now - it->second >= options_.cache_interval;
    };
    if (servent_->WantsHosts()) {
        bool udp_asked = false;
        for (const auto& cache : options_.caches) {
            if (!due(cache_asked_, cache))
                continue;
            if (cache.kind == BootstrapCache::Kind::UdpHostCache && udp_.is_open() && !udp_asked) {
                cache_asked_[cache] = now;
                udp_asked = true;
                AskUdpHostCache(cache);
            } else if (cache.kind == BootstrapCache::Kind::WebCache && !web_cache_busy_) {
                cache_asked_[cache] = now;
                AskWebCache(cache, false);
            }
        }
        return;
    }
    bool reachable = options_.servent.allow_private_addresses || endpoint().IsRoutable();
    if (!servent_->IsUltrapeer() || !reachable || web_cache_busy_)
        return;
    for (const auto& cache : options_.caches) {
        if (cache.kind == BootstrapCache::Kind::WebCache && due(cache_updated_, cache)) {
            cache_updated_[cache] = now;
            AskWebCache(cache, true);
            return;
        }
    }
}

void Node::AskWebCache(const BootstrapCache& cache, bool update) {
    auto url = ParseCacheUrl(cache.address);
    if (!url)
        return;
    struct Exchange {
        explicit Exchange(asio::io_context& io) : resolver(io), socket(io), timer(io) {}
        asio::ip::tcp::resolver resolver;
        asio::ip::tcp::socket socket;
        asio::steady_timer timer;
        std::string request;
        std::string answer;
        std::array<char, 4096> buffer{};
        bool done = false;
    };
    auto x = std::make_shared<Exchange>(io_);
    x->request = update ? GwcUpdateRequest(*url, endpoint(), options_.servent.user_agent)
                        : GwcGetRequest(*url, options_.servent.user_agent);
    web_cache_busy_ = true;
    auto finish = [this, alive = alive_, x, update](bool whole) {
        if (!*alive || x->done)
            return;
        x->done = true;
        web_cache_busy_ = false;
        asio::error_code ignored;
        x->timer.cancel();
        x->socket.close(ignored);
        x->resolver.cancel();
        if (!whole || update || stopped_)
            return;
        auto answer = ParseHttpAnswer(x->answer);
        if (!answer || answer->status != 200)
            return;
        auto gwc = ParseGwcAnswer(answer->body, kMaxHostsPerAnswer);
        for (const auto& other : gwc.caches) {
            BootstrapCache learned{BootstrapCache::Kind::WebCache, other};
            if (options_.caches.size() < kMaxKnownCaches &&
                std::find(options_.caches.begin(), options_.caches.end(), learned) ==
                    options_.caches.end())
                options_.caches.push_back(std::move(learned));
        }
        LearnHosts(gwc.hosts);
    };
    x->timer.expires_after(options_.cache_timeout);
    x->timer.async_wait([finish](const asio::error_code& ec) {
        if (!ec)
            finish(false);
    });
    auto read = std::make_shared<std::function<void()>>();
    *read = [x, finish, read] {
        x->socket.async_read_some(asio::buffer(x->buffer),
                                  [x, finish, read](const asio::error_code& ec, std::size_t n) {
                                      x->answer.append(x->buffer.data(), n);
                                      if (ec == asio::error::eof) {
                                          finish(true);
                                          *read = nullptr; // breaks the cycle the handler holds
                                      } else if (ec || x->answer.size() > kMaxWebCacheAnswer) {
                                          finish(false);
                                          *read = nullptr;
                                      } else {
                                          (*read)();
                                      }
                                  });
    };
    x->resolver.async_resolve(
        url->host, std::to_string(url->port),
        [x, finish, read](const asio::error_code& ec,
                          asio::ip::tcp::resolver::results_type results) {
            if (ec) {
                finish(false);
                *read = nullptr;
                return;
            }
            asio::async_connect(
                x->socket, results,
                [x, finish, read](const asio::error_code& connect_ec, const auto&) {
                    if (connect_ec) {
                        finish(false);
                        *read = nullptr;
                        return;
                    }
                    asio::async_write(
                        x->socket, asio::buffer(x->request),
                        [x, finish, read](const asio::error_code& write_ec, std::size_t) {
                            if (write_ec) {
                                finish(false);
                                *read = nullptr;
                                return;
                            }
                            (*read)();
                        });
                });
        });
}

void Node::AskUdpHostCache(const BootstrapCache& cache) {
    auto host = ParseHostAndPort(cache.address);
    if (!host)
        return;
    auto resolver = std::make_shared<asio::ip::udp::resolver>(io_);
    resolver->async_resolve(
        asio::ip::udp::v4(), host->host, std::to_string(host->port),
        [this, alive = alive_, resolver](const asio::error_code& ec,
                                         asio::ip::udp::resolver::results_type results) {
            if (ec || !*alive || stopped_ || results.empty() || !udp_.is_open())
                return;
            std::mt19937_64 rng(std::random_device{}());
            Guid guid = Guid::Random(rng);
            if (udp_pings_.size() >= kMaxPendingUdpPings)
                udp_pings_.erase(udp_pings_.begin());
            udp_pings_.insert(guid);
            auto datagram = std::make_shared<Bytes>(SerializeMessage(UdpHostCachePing(guid)));
            udp_.async_send_to(asio::buffer(*datagram), results.begin()->endpoint(),
                               [datagram](const asio::error_code&, std::size_t) {});
        });
}

void Node::ReceiveUdp() {
    udp_.async_receive_from(asio::buffer(udp_buffer_), udp_from_,
                            [this, alive = alive_](const asio::error_code& ec, std::size_t n) {
                                if (!*alive || stopped_ || ec == asio::error::operation_aborted)
                                    return;
                                if (!ec)
                                    OnDatagram(ByteView(udp_buffer_.data(), n), udp_from_);
                                if (udp_.is_open())
                                    ReceiveUdp();
                            });
}

// One datagram is one whole message; anything else is dropped.
void Node::OnDatagram(ByteView bytes, const asio::ip::udp::endpoint& from) {
    auto header = ParseHeader(bytes);
    if (!header || header->payload_length != bytes.size() - kHeaderSize || !from.address().is_v4())
        return;
    Message message;
    message.header = *header;
    message.payload.assign(bytes.begin() + kHeaderSize, bytes.end());
    if (message.type() == PayloadType::Pong) {
        if (udp_pings_.erase(message.header.guid) == 0)
            return; // nobody here asked for it
        if (auto pong = ParsePong(message.payload))
            LearnHosts(HostsOfUdpPong(*pong, kMaxHostsPerAnswer));
        return;
    }
    if (!IsUdpHostCachePing(message) || !servent_->IsUltrapeer())
        return;
    // Answers are few per second, so no one can turn us into a flood towards a third party.
    auto now = Clock::now();
    if (now - udp_answer_second_ >= std::chrono::seconds(1)) {
        udp_answer_second_ = now;
        udp_answers_ = 0;
    }
    if (++udp_answers_ > options_.udp_answers_per_second)
        return;
    auto datagram = std::make_shared<Bytes>(SerializeMessage(
        UdpHostCachePong(message.header.guid, servent_->OwnPong(), servent_->TryHosts())));
    udp_.async_send_to(asio::buffer(*datagram), from,
                       [datagram](const asio::error_code&, std::size_t) {});
}

void Node::ConnectBack(const Endpoint& host) {
    auto socket = OutgoingSocket();
    auto timer = std::make_shared<asio::steady_timer>(io_, options_.dial_timeout);
    timer->async_wait([socket](const asio::error_code& ec) {
        if (!ec) {
            asio::error_code ignored;
            socket->close(ignored);
        }
    });
    // Being reached is the whole message; the connection ends at once.
    socket->async_connect({asio::ip::address_v4(host.ip), host.port},
                          [socket, timer](const asio::error_code&) {
                              timer->cancel();
                              asio::error_code ignored;
                              socket->close(ignored);
                          });
}

} // namespace corvid::gnutella
