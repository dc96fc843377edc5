#include "bench/soak/soak_harness.h"

#include <asio.hpp>
#include <map>
#include <memory>
#include <random>
#include <set>

#include "engine/core/node.h"

namespace corvid::soak {

using namespace gnutella;
using Steady = std::chrono::steady_clock;

const char* HostileName(Hostile kind) {
    switch (kind) {
    case Hostile::PushStorm:
        return "push storm";
    case Hostile::BrokenGgep:
        return "broken GGEP";
    case Hostile::LeafQueryFlood:
        return "leaf query flood";
    case Hostile::PingFlood:
        return "ping flood";
    case Hostile::HugeQrpTable:
        return "huge QRP table";
    case Hostile::MaxSizeMessages:
        return "max-size messages";
    case Hostile::Slowloris:
        return "slowloris";
    case Hostile::UltrapeerQueryFlood:
        return "UP query flood";
    }
    return "?";
}

const char* ExpectedReason(Hostile kind) {
    switch (kind) {
    case Hostile::PushStorm:
        return "Push flood";
    case Hostile::BrokenGgep:
        return "Broken GGEP";
    case Hostile::LeafQueryFlood:
        return "Query flood";
    case Hostile::PingFlood:
        return "Ping flood";
    case Hostile::HugeQrpTable:
        return "Query routing table too big";
    case Hostile::MaxSizeMessages:
        return "Oversized messages";
    case Hostile::Slowloris:
        return "Handshake timeout";
    case Hostile::UltrapeerQueryFlood:
        return "Query flood";
    }
    return "?";
}

namespace {

constexpr const char* kWords[] = {"amber", "birch", "cedar", "delta",  "ember",
                                  "fjord", "grove", "heron", "indigo", "juniper"};
constexpr int kWordCount = 10;
constexpr int kFilesPerSharer = 4;

Endpoint ToEndpoint(const asio::ip::tcp::endpoint& ep) {
    return {ep.address().to_v4().to_uint(), ep.port()};
}

asio::ip::tcp::endpoint ToAsio(const Endpoint& ep) {
    return {asio::ip::address_v4(ep.ip), ep.port};
}

class Harness;

// A well-behaved servent: a real Node that shares files or searches.
struct GoodPeer : ServentObserver {
    Harness* harness = nullptr;
    InMemoryFileIndex files;
    std::unique_ptr<Node> node;
    std::unique_ptr<asio::steady_timer> search_timer;
    std::map<Guid, Steady::time_point> searches;
    std::set<Guid> answered;
    bool linked = false;

    void OnPeerOpened(const PeerInfo& peer) override;
    void OnPeerDropped(const PeerInfo& peer, std::string_view reason) override;
    void OnSearchHit(const Guid& search, const QueryHit& hit) override;
};

class HostileClient;

class Harness {
public:
    explicit Harness(const SoakOptions& options)
        : options_(options), started_(Steady::now()), deadline_(started_ + options.duration),
          end_timer_(io_), rng_(20261123) {}

    SoakResult Run() {
        StartGoodPeers();
        for (int i = 0; i < options_.hostile; ++i)
            StartHostile(static_cast<Hostile>(i % kHostileKinds), i);
        end_timer_.expires_at(deadline_);
        end_timer_.async_wait([this](const asio::error_code&) { Finish(); });
        io_.run();
        for (auto& peer : good_) {
            result_.searches += peer->searches.size();
            result_.searches_answered += peer->answered.size();
        }
        return std::move(result_);
    }

    double Seconds() const {
        return std::chrono::duration<double>(Steady::now() - started_).count();
    }
    bool stopping() const { return stopping_; }
    const SoakOptions& options() const { return options_; }
    asio::io_context& io() { return io_; }
    std::mt19937_64& rng() { return rng_; }
    SoakResult& result() { return result_; }

    void StartHostile(Hostile kind, int client);
    // A hostile session ended: come back after a pause while there is time to be dropped again.
    void HostileEnded(Hostile kind, int client);

private:
    // Each good servent listens and calls from an address of its own in 127/8, as servents on
    // the real network do: the ultrapeer counts unfinished handshakes per address.
    NodeOptions GoodOptions(NodeMode mode, int index) const {
        NodeOptions o;
        o.bind_address = asio::ip::address_v4(0x7F020000u + static_cast<std::uint32_t>(index) + 1u);
        o.source_address = o.bind_address;
        o.servent.network.node_mode = mode;
        o.servent.network.peer_max_count = 1;
        o.servent.network.ultrapeer_max_count = 1;
        o.servent.network.ultrapeer_min_count = 1;
        o.servent.network.leaf_peer_max_count = 0;
        o.servent.allow_private_addresses = true;
        o.udp = false;
        return o;
    }

    void StartGoodPeers() {
        int total =
            options_.sharing_leaves + options_.searching_leaves + options_.searching_ultrapeers;
        for (int i = 0; i < total; ++i) {
            bool sharer = i < options_.sharing_leaves;
            bool ultrapeer = i >= options_.sharing_leaves + options_.searching_leaves;
            auto peer = std::make_unique<GoodPeer>();
            peer->harness = this;
            if (sharer)
                for (int f = 0; f < kFilesPerSharer; ++f)
                    peer->files.Add(std::string("soak ") + kWords[i % kWordCount] + " take " +
                                        std::to_string(i) + "-" + std::to_string(f) + ".mp3",
                                    1000000 + static_cast<std::uint64_t>(f), "");
            peer->node = std::make_unique<Node>(
                io_, GoodOptions(ultrapeer ? NodeMode::UltraPeer : NodeMode::LeafPeer, i),
                peer->files, 500 + static_cast<std::uint64_t>(i));
            peer->node->servent().SetObserver(peer.get());
            if (peer->node->Start())
                continue;
            peer->node->servent().ConnectTo(options_.target);
            if (!sharer) {
                peer->search_timer = std::make_unique<asio::steady_timer>(io_);
                // Spread over the interval so the ultrapeer sees a steady trickle.
                auto phase = options_.search_interval * (i % 16) / 16;
                ScheduleSearch(*peer, started_ + options_.warm_up + phase);
            }
            good_.push_back(std::move(peer));
        }
    }

    void ScheduleSearch(GoodPeer& peer, Steady::time_point at) {
        if (at >= deadline_)
            return;
        peer.search_timer->expires_at(at);
        peer.search_timer->async_wait([this, &peer, at](const asio::error_code& ec) {
            if (ec || stopping_)
                return;
            if (peer.linked) {
                auto word = kWords[std::uniform_int_distribution<int>(0, kWordCount - 1)(rng_)];
                peer.searches.emplace(peer.node->servent().StartSearch(word), Steady::now());
            }
            ScheduleSearch(peer, at + options_.search_interval);
        });
    }

    void Finish();

    asio::io_context io_;
    SoakOptions options_;
    Steady::time_point started_;
    Steady::time_point deadline_;
    asio::steady_timer end_timer_;
    std::mt19937_64 rng_;
    SoakResult result_;
    std::vector<std::unique_ptr<GoodPeer>> good_;
    std::vector<std::weak_ptr<HostileClient>> hostile_;
    std::vector<std::unique_ptr<asio::steady_timer>> comebacks_;
    std::map<int, std::uint16_t> client_sessions_;
    bool stopping_ = false;

    friend class HostileClient;
};

void GoodPeer::OnPeerOpened(const PeerInfo& peer) {
    if (peer.remote == harness->options().target && !linked) {
        linked = true;
        ++harness->result().good_connected;
    }
}

void GoodPeer::OnPeerDropped(const PeerInfo& peer, std::string_view reason) {
    if (peer.remote == harness->options().target && linked && !harness->stopping()) {
        linked = false;
        ++harness->result().good_links_lost;
        harness->result().good_loss_reasons.emplace_back(reason);
    }
}

void GoodPeer::OnSearchHit(const Guid& search, const QueryHit& hit) {
    auto started = searches.find(search);
    if (started == searches.end() || harness->stopping())
        return;
    if (answered.insert(search).second)
        harness->result().first_hit_seconds.push_back(
            std::chrono::duration<double>(Steady::now() - started->second).count());
    harness->result().results += hit.results.size();
}

// One hostile session: connect, (mostly) handshake, then abuse until the ultrapeer hangs up.
class HostileClient : public std::enable_shared_from_this<HostileClient> {
public:
    HostileClient(Harness& harness, Hostile kind, std::size_t session)
        : harness_(harness), kind_(kind), session_(session), socket_(harness.io()),
          timer_(harness.io()) {}

    // Each client calls from an address of its own in 127/8, so the rest its address earns falls
    // on it alone, and each of its sessions from a port of its own, so the ultrapeer's log names
    // every session unmistakably.
    void Start(std::uint16_t port) {
        asio::error_code ec;
        socket_.open(asio::ip::tcp::v4(), ec);
        // A port of an earlier run may still be waiting out its close.
        if (!ec)
            socket_.set_option(asio::socket_base::reuse_address(true), ec);
        if (!ec)
            socket_.bind({asio::ip::address_v4(0x7F010000u +
                                               static_cast<std::uint32_t>(session().client) + 1u),
                          port},
                         ec);
        if (ec) {
            End();
            return;
        }
        socket_.async_connect(
            ToAsio(harness_.options().target),
            [self = shared_from_this()](const asio::error_code& ec) { self->OnConnected(ec); });
    }

    void Stop() {
        done_ = true;
        asio::error_code ignored;
        socket_.close(ignored);
        timer_.cancel();
    }

private:
    HostileSession& session() { return harness_.result().hostile[session_]; }

    void OnConnected(const asio::error_code& ec) {
        if (ec) {
            End();
            return;
        }
        asio::error_code ignored;
        session().local = ToEndpoint(socket_.local_endpoint(ignored));
        ReadLoop();
        if (kind_ == Hostile::Slowloris) {
            session().misbehaving = harness_.Seconds();
            Write("GNUTELLA CONNECT/0.6\r\nUser-Agent: ");
            Dribble();
            return;
        }
        bool ultrapeer = kind_ == Hostile::BrokenGgep || kind_ == Hostile::UltrapeerQueryFlood;
        Write(std::string("GNUTELLA CONNECT/0.6\r\nUser-Agent: Hostile/1.0\r\nX-Ultrapeer: ") +
              (ultrapeer ? "True" : "False") + "\r\nX-Query-Routing: 0.1\r\n\r\n");
    }

    // Reads whatever comes: the handshake answer first, then messages, thrown away.
    void ReadLoop() {
        socket_.async_read_some(asio::buffer(buffer_), [self = shared_from_this()](
                                                           const asio::error_code& ec,
                                                           std::size_t n) { self->OnRead(ec, n); });
    }

    void OnRead(const asio::error_code& ec, std::size_t n) {
        if (ec) {
            if (!done_)
                session().closed = harness_.Seconds();
            End();
            return;
        }
        if (kind_ != Hostile::Slowloris && !session().accepted && !done_) {
            answer_.append(buffer_.data(), n);
            if (answer_.size() > 16384) {
                End();
                return;
            }
            if (answer_.find("\r\n\r\n") != std::string::npos) {
                session().answer = answer_.substr(0, answer_.find("\r\n"));
                if (!answer_.starts_with("GNUTELLA/0.6 200")) {
                    session().closed = harness_.Seconds();
                    End();
                    return;
                }
                session().accepted = true;
                Write("GNUTELLA/0.6 200 OK\r\n\r\n");
                session().misbehaving = harness_.Seconds();
                Abuse();
            }
        }
        ReadLoop();
    }

    void Write(std::string text) { Write(Bytes(text.begin(), text.end())); }

    void Write(Bytes bytes) {
        auto data = std::make_shared<Bytes>(std::move(bytes));
        asio::async_write(
            socket_, asio::buffer(*data),
            [self = shared_from_this(), data](const asio::error_code&, std::size_t) {});
    }

    Bytes Frame(PayloadType type, std::uint8_t ttl, ByteView payload) {
        return SerializeMessage(MakeMessage(Guid::Random(harness_.rng()), type, ttl, payload));
    }

    // One batch of abuse, then the next after a pause, until the link goes or the run ends.
    void Abuse() {
        if (done_)
            return;
        Bytes batch;
        std::chrono::milliseconds pause{0};
        auto add = [&](const Bytes& message) { PutBytes(batch, message); };
        switch (kind_) {
        case Hostile::PushStorm:
            for (int i = 0; i < 50; ++i)
                add(Frame(PayloadType::Push, 3,
                          SerializePush({Guid::Random(harness_.rng()), 1, 0x7F000001, 6346})));
            pause = std::chrono::milliseconds(10);
            break;
        case Hostile::BrokenGgep:
            for (int i = 0; i < 10; ++i) {
                Query q;
                q.text = "broken " + std::to_string(sent_++);
                Bytes payload = SerializeQuery(q);
                payload.insert(payload.end(), {kGgepMagic, 0x00, 0x42});
                add(Frame(PayloadType::Query, 3, payload));
            }
            pause = std::chrono::milliseconds(100);
            break;
        case Hostile::LeafQueryFlood:
            for (int i = 0; i < 20; ++i) {
                Query q;
                q.text = "flood " + std::to_string(sent_++);
                add(Frame(PayloadType::Query, 3, SerializeQuery(q)));
            }
            pause = std::chrono::milliseconds(20);
            break;
        case Hostile::PingFlood:
            add(Frame(PayloadType::Ping, 1, {}));
            pause = std::chrono::milliseconds(1);
            break;
        case Hostile::HugeQrpTable:
            // Once is enough: nobody needs to be told twice.
            Write(Frame(PayloadType::RouteTable, 1, Bytes{0x00, 0x00, 0x00, 0x00, 0x80, 7}));
            return;
        case Hostile::MaxSizeMessages: {
            Query q;
            q.text = kWords[sent_ % kWordCount];
            Bytes payload = SerializeQuery(q);
            payload.resize(kMaxPayload, 'x');
            add(Frame(sent_++ % 2 ? PayloadType::Ping : PayloadType::Query, 3, payload));
            pause = std::chrono::milliseconds(50);
            break;
        }
        case Hostile::Slowloris:
            return;
        case Hostile::UltrapeerQueryFlood:
            for (int i = 0; i < 100; ++i) {
                Query q;
                q.text = "relay " + std::to_string(sent_++);
                add(Frame(PayloadType::Query, 3, SerializeQuery(q)));
            }
            pause = std::chrono::milliseconds(10);
            break;
        }
        Write(std::move(batch));
        timer_.expires_after(pause);
        timer_.async_wait([self = shared_from_this()](const asio::error_code& ec) {
            if (!ec)
                self->Abuse();
        });
    }

    // A header that never ends, one letter a second.
    void Dribble() {
        timer_.expires_after(std::chrono::seconds(1));
        timer_.async_wait([self = shared_from_this()](const asio::error_code& ec) {
            if (ec || self->done_)
                return;
            self->Write("a");
            self->Dribble();
        });
    }

    void End() {
        if (done_)
            return;
        Stop();
        harness_.HostileEnded(kind_, session().client);
    }

    Harness& harness_;
    Hostile kind_;
    std::size_t session_;
    asio::ip::tcp::socket socket_;
    asio::steady_timer timer_;
    std::array<char, 65536> buffer_{};
    std::string answer_;
    int sent_ = 0;
    bool done_ = false;
};

void Harness::StartHostile(Hostile kind, int client) {
    if (stopping_)
        return;
    HostileSession session;
    session.kind = kind;
    session.client = client;
    result_.hostile.push_back(session);
    auto hostile = std::make_shared<HostileClient>(*this, kind, result_.hostile.size() - 1);
    hostile_.push_back(hostile);
    hostile->Start(static_cast<std::uint16_t>(20000 + client_sessions_[client]++));
}

void Harness::HostileEnded(Hostile kind, int client) {
    if (stopping_ || Steady::now() + options_.hostile_pause + options_.hostile_margin >= deadline_)
        return;
    auto timer = std::make_unique<asio::steady_timer>(io_, options_.hostile_pause);
    timer->async_wait([this, kind, client](const asio::error_code& ec) {
        if (!ec)
            StartHostile(kind, client);
    });
    comebacks_.push_back(std::move(timer));
}

void Harness::Finish() {
    stopping_ = true;
    for (auto& weak : hostile_)
        if (auto client = weak.lock())
            client->Stop();
    for (auto& timer : comebacks_)
        timer->cancel();
    for (auto& peer : good_) {
        if (peer->search_timer)
            peer->search_timer->cancel();
        peer->node->Stop();
    }
    // Byes and closes go out from the handlers just queued; then the run is over.
    end_timer_.expires_after(std::chrono::milliseconds(200));
    end_timer_.async_wait([this](const asio::error_code&) { io_.stop(); });
}

} // namespace

SoakResult RunSoak(const SoakOptions& options) {
    return Harness(options).Run();
}

} // namespace corvid::soak
