#include "engine/sharing/push_relay.h"

#include "engine/sharing/session_list.h"
#include "engine/sharing/upload_protocol.h"
#include "platform/ascii.h"
#include "platform/listen.h"

#include <array>
#include <charconv>

namespace corvid::gnutella {
namespace {

constexpr std::string_view kPrefix = "/push/";
constexpr std::size_t kMaxProxies = 8;
constexpr std::size_t kReadChunk = 16 * 1024;
constexpr auto kProxyTimeout = std::chrono::seconds(10);
// Only Download.dll on this machine talks to the relay, a few connections a source; more than
// this is some other local program, and it gets no more.
constexpr std::size_t kMaxRelaySessions = 256;

std::string_view NextSegment(std::string_view& rest) {
    const std::size_t slash = rest.find('/');
    const std::string_view segment = rest.substr(0, slash);
    rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash + 1);
    return segment;
}

// The request head again, asking for another target. Strings here are built by appending:
// GCC's restrict check misreads long chains of string additions.
std::string Rewrite(const HttpRequest& request, std::string_view target) {
    std::string head = request.method;
    head.append(" ").append(target).append(" HTTP/1.");
    head.append(std::to_string(request.minorVersion)).append("\r\n");
    for (const auto& [name, value] : request.headers) {
        head.append(name).append(": ").append(value).append("\r\n");
    }
    return head.append("\r\n");
}

} // namespace

std::string PushRelayPath(const PushRelayTarget& target) {
    std::string proxies;
    for (const auto& proxy : target.proxies) {
        if (!proxies.empty()) {
            proxies.append(",");
        }
        proxies.append(proxy.ToString());
    }
    std::string_view file = target.target;
    if (!file.empty() && file.front() == '/') {
        file.remove_prefix(1);
    }
    std::string path(kPrefix);
    path.append(target.servent.ToHex()).append("/").append(std::to_string(target.index));
    path.append("/").append(proxies.empty() ? "-" : proxies).append("/").append(file);
    return path;
}

std::optional<PushRelayTarget> ParsePushRelayPath(std::string_view path) {
    if (!path.starts_with(kPrefix)) {
        return std::nullopt;
    }
    path.remove_prefix(kPrefix.size());
    PushRelayTarget out;
    const std::string_view guid = NextSegment(path);
    if (guid.size() != 32) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < 16; ++i) {
        const int high = HexDigit(guid[2 * i]);
        const int low = HexDigit(guid[2 * i + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        out.servent.bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    const std::string_view index = NextSegment(path);
    const auto [end, error] = std::from_chars(index.data(), index.data() + index.size(), out.index);
    if (index.empty() || error != std::errc() || end != index.data() + index.size()) {
        return std::nullopt;
    }
    std::string_view proxies = NextSegment(path);
    if (proxies != "-") {
        while (!proxies.empty()) {
            const std::size_t comma = proxies.find(',');
            const auto proxy = ParseEndpoint(proxies.substr(0, comma));
            if (!proxy || !proxy->IsValid() || out.proxies.size() == kMaxProxies) {
                return std::nullopt;
            }
            out.proxies.push_back(*proxy);
            proxies.remove_prefix(comma == std::string_view::npos ? proxies.size() : comma + 1);
        }
    }
    out.target = "/" + std::string(path);
    // Only what a servent's upload side serves is passed on, so the relay cannot be used to send
    // anything else down a pushed connection.
    if (!out.target.starts_with("/get/") && !out.target.starts_with("/uri-res/")) {
        return std::nullopt;
    }
    for (char c : out.target) {
        if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7F) {
            return std::nullopt;
        }
    }
    return out;
}

std::optional<PushRelayTarget> PushTargetOf(const QueryHit& hit, const HitResult& result,
                                            bool privateAddressesAreReachable) {
    const bool dialable =
        !hit.flags.firewalled && (privateAddressesAreReachable || hit.endpoint().IsRoutable());
    if (dialable || hit.servent == Guid{} || result.sha1.empty()) {
        return std::nullopt;
    }
    PushRelayTarget target;
    target.servent = hit.servent;
    target.index = result.index;
    for (const auto& proxy : hit.push_proxies) {
        if (proxy.IsValid() && target.proxies.size() < kMaxProxies) {
            target.proxies.push_back(proxy);
        }
    }
    target.target = "/uri-res/N2R?urn:sha1:" + result.sha1;
    return target;
}

std::string PushProxyRequest(const Guid& servent, std::uint32_t index, const Endpoint& self) {
    std::string request = "GET /gnutella/push-proxy?ServerId=";
    request.append(Base32Encode(servent.bytes)).append("&file=").append(std::to_string(index));
    request.append(" HTTP/1.1\r\nX-Node: ").append(self.ToString());
    return request.append("\r\nConnection: close\r\n\r\n");
}

void SendPushThroughProxies(asio::io_context& io, const PushRelayTarget& target,
                            const Endpoint& self) {
    for (const auto& proxy : target.proxies) {
        auto socket = std::make_shared<asio::ip::tcp::socket>(io);
        auto timer = std::make_shared<asio::steady_timer>(io, kProxyTimeout);
        auto request =
            std::make_shared<std::string>(PushProxyRequest(target.servent, target.index, self));
        timer->async_wait([socket](const asio::error_code& error) {
            if (!error) {
                asio::error_code ignored;
                socket->close(ignored);
            }
        });
        socket->async_connect(
            {asio::ip::address_v4(proxy.ip), proxy.port},
            [socket, timer, request](const asio::error_code& error) {
                if (error) {
                    timer->cancel();
                    return;
                }
                // The answer (202, 410, 400) changes nothing: the GIV comes or the wait ends.
                asio::async_write(*socket, asio::buffer(*request),
                                  [socket, timer, request](const asio::error_code&, std::size_t) {
                                      timer->cancel();
                                      asio::error_code ignored;
                                      socket->shutdown(asio::ip::tcp::socket::shutdown_send,
                                                       ignored);
                                  });
            });
    }
}

namespace {
class RelaySession;
} // namespace

struct PushRelay::State {
    asio::io_context& io;
    GivWaiters& givs;
    PushSender sender;
    Options options;
    SessionList<RelaySession> sessions;
    bool closed = false;

    State(asio::io_context& context, GivWaiters& waiters, PushSender send, Options opts)
        : io(context), givs(waiters), sender(std::move(send)), options(opts) {}
};

namespace {

// One downloader connection: its first request makes the Push, the GIV connection that answers
// carries it and every later request on the same connection; answers flow back untouched.
class RelaySession : public std::enable_shared_from_this<RelaySession> {
public:
    RelaySession(std::shared_ptr<PushRelay::State> state, asio::ip::tcp::socket client)
        : state_(std::move(state)), client_(std::move(client)), peer_(state_->io),
          timer_(state_->io) {}

    void Start() {
        Arm(state_->options.idleTimeout);
        ReadClient();
    }

    void Abort() {
        if (waiting_) {
            state_->givs.Forget(target_.servent, target_.index);
            waiting_ = false;
        }
        asio::error_code ignored;
        client_.close(ignored);
        peer_.close(ignored);
        timer_.cancel();
    }

private:
    void Arm(std::chrono::seconds after) {
        timer_.expires_after(after);
        // The wait holds the session alive while nothing else does (waiting for the GIV).
        timer_.async_wait([self = shared_from_this()](const asio::error_code& error) {
            if (error) {
                return;
            }
            if (self->waiting_) {
                self->state_->givs.Forget(self->target_.servent, self->target_.index);
                self->waiting_ = false;
                self->Refuse(503);
            } else {
                self->Abort();
            }
        });
    }

    void ReadClient() {
        client_.async_read_some(
            asio::buffer(clientBytes_),
            [self = shared_from_this()](const asio::error_code& error, std::size_t got) {
                if (error) {
                    self->Abort();
                    return;
                }
                self->fromClient_.append(self->clientBytes_.data(), got);
                self->TakeRequests();
            });
    }

    // Passes on every whole request that has arrived; the first one starts the push.
    void TakeRequests() {
        while (true) {
            const HeadParse parse = ParseRequestHead(fromClient_);
            if (parse.status == HeadStatus::Incomplete) {
                if (fromClient_.size() >= kMaxRequestHead) {
                    Refuse(400);
                    return;
                }
                if (!waiting_) {
                    ReadClient();
                }
                return;
            }
            const auto target = parse.status == HeadStatus::Complete
                                    ? ParsePushRelayPath(parse.request.target)
                                    : std::nullopt;
            const bool sameFile = !connected_ || (target && target->servent == target_.servent &&
                                                  target->index == target_.index);
            if (!target || !sameFile ||
                RequestBodyOf(parse.request).kind != RequestBody::Kind::None) {
                Refuse(400);
                return;
            }
            fromClient_.erase(0, parse.consumed);
            const std::string head = Rewrite(parse.request, target->target);
            if (!connected_) {
                target_ = *target;
                firstHead_ = head;
                Push();
                return;
            }
            Arm(state_->options.idleTimeout);
            ToPeer(head);
        }
    }

    void Push() {
        waiting_ = true;
        std::weak_ptr<RelaySession> weak = weak_from_this();
        state_->givs.Expect(target_.servent, target_.index,
                            [weak](asio::ip::tcp::socket socket, std::string) {
                                if (auto self = weak.lock()) {
                                    self->OnGiv(std::move(socket));
                                }
                            });
        if (!state_->sender(target_)) {
            state_->givs.Forget(target_.servent, target_.index);
            waiting_ = false;
            Refuse(503);
            return;
        }
        Arm(state_->options.givTimeout);
    }

    void OnGiv(asio::ip::tcp::socket socket) {
        waiting_ = false;
        connected_ = true;
        peer_ = std::move(socket);
        Arm(state_->options.idleTimeout);
        ToPeer(firstHead_);
        ReadPeer();
        TakeRequests();
    }

    // Requests are small and the downloader waits for each answer, so they are written one at a
    // time in order through a short queue.
    void ToPeer(std::string head) {
        toPeer_.push_back(std::move(head));
        if (toPeer_.size() == 1) {
            WritePeer();
        }
    }

    void WritePeer() {
        asio::async_write(peer_, asio::buffer(toPeer_.front()),
                          [self = shared_from_this()](const asio::error_code& error, std::size_t) {
                              if (error) {
                                  self->Abort();
                                  return;
                              }
                              self->toPeer_.pop_front();
                              if (!self->toPeer_.empty()) {
                                  self->WritePeer();
                              }
                          });
    }

    void ReadPeer() {
        peer_.async_read_some(
            asio::buffer(peerBytes_),
            [self = shared_from_this()](const asio::error_code& error, std::size_t got) {
                if (error) {
                    // The host is done; so is the downloader's connection, once written out.
                    asio::error_code ignored;
                    self->client_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
                    self->Abort();
                    return;
                }
                self->Arm(self->state_->options.idleTimeout);
                asio::async_write(self->client_, asio::buffer(self->peerBytes_.data(), got),
                                  [self](const asio::error_code& writeError, std::size_t) {
                                      if (writeError) {
                                          self->Abort();
                                          return;
                                      }
                                      self->ReadPeer();
                                  });
            });
    }

    void Refuse(int status) {
        waiting_ = false;
        std::string reply = status == 503
                                ? "HTTP/1.1 503 Service Unavailable\r\nRetry-After: " +
                                      std::to_string(state_->options.retryAfterSeconds) + "\r\n"
                                : "HTTP/1.1 400 Bad Request\r\n";
        reply += "Content-Length: 0\r\nConnection: close\r\n\r\n";
        auto text = std::make_shared<std::string>(std::move(reply));
        asio::async_write(client_, asio::buffer(*text),
                          [self = shared_from_this(), text](const asio::error_code&, std::size_t) {
                              self->Abort();
                          });
    }

    std::shared_ptr<PushRelay::State> state_;
    asio::ip::tcp::socket client_;
    asio::ip::tcp::socket peer_;
    asio::steady_timer timer_;
    std::array<char, 4096> clientBytes_{};
    std::array<char, kReadChunk> peerBytes_{};
    std::string fromClient_;
    std::list<std::string> toPeer_;
    PushRelayTarget target_;
    std::string firstHead_;
    bool waiting_ = false;
    bool connected_ = false;
};

} // namespace

PushRelay::PushRelay(asio::io_context& io, GivWaiters& givs, PushSender sender, Options options)
    : state_(std::make_shared<State>(io, givs, std::move(sender), options)) {}

PushRelay::~PushRelay() {
    Close();
}

asio::ip::tcp::endpoint PushRelay::Listen(std::uint16_t port) {
    acceptor_ = std::make_unique<asio::ip::tcp::acceptor>(state_->io);
    if (auto ec = OpenListener(*acceptor_, {asio::ip::address_v4::loopback(), port}))
        throw std::system_error(ec);
    port_ = acceptor_->local_endpoint().port();
    Accept();
    return acceptor_->local_endpoint();
}

std::string PushRelay::Url(const PushRelayTarget& target) const {
    std::string url = "http://127.0.0.1:";
    return url.append(std::to_string(port_)).append(PushRelayPath(target));
}

void PushRelay::Accept() {
    acceptor_->async_accept(
        [this, state = state_](const asio::error_code& error, asio::ip::tcp::socket socket) {
            if (error || state->closed) {
                return;
            }
            auto session = std::make_shared<RelaySession>(state, std::move(socket));
            if (state->sessions.Add(session, kMaxRelaySessions)) {
                session->Start();
            }
            Accept();
        });
}

void PushRelay::Close() {
    state_->closed = true;
    if (acceptor_) {
        asio::error_code ignored;
        acceptor_->close(ignored);
    }
    state_->sessions.AbortAll();
}

} // namespace corvid::gnutella
