#include "engine/sharing/upload_server.h"

#include "engine/sharing/session_list.h"

#include <zlib.h>

#include "platform/http_chunked.h"
#include "platform/listen.h"

#include <array>
#include <fstream>
#include <optional>

namespace corvid::gnutella {
namespace {

constexpr std::size_t kMaxSessions = 64;
constexpr std::size_t kChunk = 64 * 1024;
constexpr auto kIdleTimeout = std::chrono::seconds(60);
constexpr std::size_t kMaxDescription = 64;

class Session;

} // namespace

struct UploadServer::State {
    asio::io_context& io;
    const library::FileIndex& index;
    UploadRegistry& registry;
    UploadSettings settings;
    AltLocations alternates;
    TokenBucket bucket;
    BrowseSource browse;
    SessionList<Session> sessions;
    bool closed = false;

    State(asio::io_context& context, const library::FileIndex& files, UploadRegistry& uploads,
          UploadSettings options)
        : io(context), index(files), registry(uploads), settings(std::move(options)) {}
};

namespace {

class Session : public std::enable_shared_from_this<Session> {
public:
    Session(std::shared_ptr<UploadServer::State> state, asio::ip::tcp::socket socket,
            std::string alreadyRead)
        : state_(std::move(state)), socket_(std::move(socket)), timer_(state_->io),
          buffer_(std::move(alreadyRead)) {
        asio::error_code error;
        const auto remote = socket_.remote_endpoint(error);
        if (!error) {
            peerIp_ = remote.address().to_string();
            peerPort_ = remote.port();
        }
    }

    void Start() { NextRequest(); }

    void Abort() {
        EndUpload();
        asio::error_code ignored;
        socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
        socket_.close(ignored);
        timer_.cancel();
    }

private:
    void NextRequest() {
        if (pending_) {
            switch (SkipBody()) {
            case Skip::More:
                ReadMore();
                return;
            case Skip::Broken:
                pending_.reset();
                Reply(RefusalReply(400, false, state_->settings));
                return;
            case Skip::Done:
                break;
            }
            HttpRequest request = std::move(*pending_);
            pending_.reset();
            Handle(request);
            return;
        }
        const HeadParse parse = ParseRequestHead(buffer_);
        if (parse.status == HeadStatus::Complete) {
            buffer_.erase(0, parse.consumed);
            const RequestBody body = RequestBodyOf(parse.request);
            if (body.kind == RequestBody::Kind::None) {
                Handle(parse.request);
                return;
            }
            if (body.kind == RequestBody::Kind::Unsupported || body.length > kMaxRequestBody) {
                Reply(RefusalReply(400, false, state_->settings));
                return;
            }
            pending_ = parse.request;
            bodyLeft_ = body.length;
            bodySkipped_ = 0;
            if (body.kind == RequestBody::Kind::Chunked) {
                chunks_.emplace();
            } else {
                chunks_.reset();
            }
            NextRequest();
            return;
        }
        if (parse.status == HeadStatus::Invalid) {
            Reply(RefusalReply(400, false, state_->settings));
            return;
        }
        ReadMore();
    }

    enum class Skip { Done, More, Broken };

    // Reads past the body of the pending request in what has arrived so far.
    Skip SkipBody() {
        if (!chunks_) {
            const std::size_t take =
                static_cast<std::size_t>(std::min<std::uint64_t>(bodyLeft_, buffer_.size()));
            buffer_.erase(0, take);
            bodyLeft_ -= take;
            return bodyLeft_ == 0 ? Skip::Done : Skip::More;
        }
        std::string_view input = buffer_;
        Skip result = Skip::More;
        while (result == Skip::More && !input.empty()) {
            const auto step = chunks_->Feed(input);
            input.remove_prefix(step.consumed);
            bodySkipped_ += step.data.size();
            if (step.status == ChunkedDecoder::Status::Done) {
                result = Skip::Done;
            } else if (step.status == ChunkedDecoder::Status::Error ||
                       bodySkipped_ > kMaxRequestBody) {
                result = Skip::Broken;
            } else if (step.status == ChunkedDecoder::Status::NeedMore) {
                break;
            }
        }
        buffer_.erase(0, buffer_.size() - input.size());
        return result;
    }

    void ReadMore() {
        timer_.expires_after(kIdleTimeout);
        timer_.async_wait([self = shared_from_this()](const asio::error_code& error) {
            if (!error) {
                self->Abort();
            }
        });
        socket_.async_read_some(
            asio::buffer(readBuffer_),
            [self = shared_from_this()](const asio::error_code& error, std::size_t got) {
                self->timer_.cancel();
                if (error) {
                    self->Abort();
                    return;
                }
                self->buffer_.append(self->readBuffer_.data(), got);
                self->NextRequest();
            });
    }

    void Handle(const HttpRequest& request) {
        UploadReply reply =
            DecideUpload(request, state_->index, state_->alternates, peerIp_, state_->settings);
        if (reply.body == UploadReply::Body::Browse && !state_->browse) {
            reply = RefusalReply(406, reply.keepAlive, state_->settings);
        }
        if (reply.body == UploadReply::Body::File) {
            BeginUpload(request, reply);
        }
        Reply(std::move(reply));
    }

    // Opens the file and takes a slot, or turns the reply into the refusal that fits.
    void BeginUpload(const HttpRequest& request, UploadReply& reply) {
        file_.open(reply.file->path, std::ios::binary);
        file_.seekg(static_cast<std::streamoff>(reply.range.first));
        if (!file_) {
            file_ = std::ifstream();
            reply = RefusalReply(404, reply.keepAlive, state_->settings);
            return;
        }
        UploadRegistry::Start start;
        start.fileName = reply.file->name;
        start.fileSize = reply.file->size;
        start.length = reply.range.length();
        start.ip = peerIp_;
        start.port = peerPort_;
        if (const std::string* agent = request.Header("User-Agent")) {
            start.description = agent->substr(0, kMaxDescription);
        }
        std::weak_ptr<Session> weak = weak_from_this();
        auto& io = state_->io;
        uploadId_ =
            state_->registry.Begin(std::move(start), TokenBucket::Clock::now(), [weak, &io] {
                asio::post(io, [weak] {
                    if (auto self = weak.lock()) {
                        self->Abort();
                    }
                });
            });
        if (!uploadId_) {
            file_ = std::ifstream();
            reply = BusyReply(state_->settings);
        }
    }

    void Reply(UploadReply reply) {
        reply_ = std::move(reply);
        remaining_ = reply_.body == UploadReply::Body::File ? reply_.range.length() : 0;
        sent_ = 0;
        outgoing_ = reply_.head;
        if (reply_.body == UploadReply::Body::Browse) {
            std::string hits = state_->browse();
            outgoing_ += reply_.deflate ? Deflate(hits) : hits;
        }
        asio::async_write(socket_, asio::buffer(outgoing_),
                          [self = shared_from_this()](const asio::error_code& error, std::size_t) {
                              if (error) {
                                  self->Abort();
                                  return;
                              }
                              self->SendFile();
                          });
    }

    void SendFile() {
        if (remaining_ == 0) {
            Finished();
            return;
        }
        const auto now = TokenBucket::Clock::now();
        const std::uint64_t want = std::min<std::uint64_t>(remaining_, kChunk);
        const std::uint64_t granted = state_->bucket.Take(want, now);
        if (granted == 0) {
            timer_.expires_after(state_->bucket.Delay(want, now));
            timer_.async_wait([self = shared_from_this()](const asio::error_code& error) {
                if (!error) {
                    self->SendFile();
                }
            });
            return;
        }
        outgoing_.resize(granted);
        file_.read(outgoing_.data(), static_cast<std::streamsize>(granted));
        if (static_cast<std::uint64_t>(file_.gcount()) != granted) {
            Abort(); // the file shrank underneath us: the peer must not get a short body
            return;
        }
        asio::async_write(
            socket_, asio::buffer(outgoing_),
            [self = shared_from_this()](const asio::error_code& error, std::size_t written) {
                if (error) {
                    self->Abort();
                    return;
                }
                self->sent_ += written;
                self->remaining_ -= written;
                if (self->uploadId_) {
                    self->state_->registry.Progress(*self->uploadId_, self->sent_,
                                                    TokenBucket::Clock::now());
                }
                self->SendFile();
            });
    }

    void Finished() {
        EndUpload();
        if (reply_.keepAlive && socket_.is_open()) {
            NextRequest();
            return;
        }
        asio::error_code ignored;
        socket_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
        socket_.close(ignored);
    }

    void EndUpload() {
        if (uploadId_) {
            state_->registry.End(*uploadId_);
            uploadId_.reset();
        }
        file_ = std::ifstream();
    }

    std::shared_ptr<UploadServer::State> state_;
    asio::ip::tcp::socket socket_;
    asio::steady_timer timer_;
    std::string buffer_;
    std::array<char, 4096> readBuffer_{};
    std::string peerIp_;
    std::int32_t peerPort_ = 0;
    UploadReply reply_;
    std::string outgoing_;
    std::ifstream file_;
    std::optional<std::int32_t> uploadId_;
    std::uint64_t remaining_ = 0;
    std::uint64_t sent_ = 0;
    // A request whose body is still being read past, and how.
    std::optional<HttpRequest> pending_;
    std::optional<ChunkedDecoder> chunks_;
    std::uint64_t bodyLeft_ = 0;
    std::uint64_t bodySkipped_ = 0;
};

} // namespace

std::string Deflate(std::string_view bytes) {
    z_stream stream{};
    if (deflateInit(&stream, Z_DEFAULT_COMPRESSION) != Z_OK) {
        return {};
    }
    std::string out(deflateBound(&stream, static_cast<uLong>(bytes.size())), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    const int result = deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return result == Z_STREAM_END ? out : std::string();
}

UploadServer::UploadServer(asio::io_context& io, const library::FileIndex& index,
                           UploadRegistry& registry, UploadSettings settings)
    : io_(io), state_(std::make_shared<State>(io, index, registry, std::move(settings))) {}

UploadServer::~UploadServer() {
    Close();
}

void UploadServer::SetBrowseSource(BrowseSource source) {
    state_->browse = std::move(source);
}

asio::ip::tcp::endpoint UploadServer::Listen(const asio::ip::tcp::endpoint& endpoint) {
    acceptor_ = std::make_unique<asio::ip::tcp::acceptor>(io_);
    if (auto ec = OpenListener(*acceptor_, endpoint))
        throw std::system_error(ec);
    Accept();
    return acceptor_->local_endpoint();
}

void UploadServer::Accept() {
    acceptor_->async_accept(
        [this, state = state_](const asio::error_code& error, asio::ip::tcp::socket socket) {
            if (error || state->closed) {
                return;
            }
            Adopt(std::move(socket), {});
            Accept();
        });
}

void UploadServer::Adopt(asio::ip::tcp::socket socket, std::string alreadyRead) {
    if (state_->closed) {
        return;
    }
    auto session = std::make_shared<Session>(state_, std::move(socket), std::move(alreadyRead));
    if (state_->sessions.Add(session, kMaxSessions)) {
        session->Start();
    }
}

void UploadServer::SetSpeedLimit(std::uint64_t bytesPerSecond) {
    asio::post(io_, [state = state_, bytesPerSecond] {
        state->bucket.SetRate(bytesPerSecond, TokenBucket::Clock::now());
    });
}

void UploadServer::Close() {
    state_->closed = true;
    if (acceptor_) {
        asio::error_code ignored;
        acceptor_->close(ignored);
    }
    state_->sessions.AbortAll();
}

} // namespace corvid::gnutella
