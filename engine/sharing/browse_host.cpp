#include "engine/sharing/browse_host.h"

#include "engine/sharing/upload_protocol.h"
#include "platform/ascii.h"

#include <algorithm>

namespace corvid::gnutella {
namespace {

constexpr std::size_t kResultsPerBrowseHit = 100;
constexpr std::size_t kBrowseHitBudget = 32 * 1024;
constexpr std::size_t kMaxBrowseHits = 100000;
constexpr auto kBrowseTimeout = std::chrono::seconds(60);

} // namespace

Bytes BrowseHitStream(const std::vector<library::SharedFile>& files, const BrowseIdentity& who) {
    QueryHit hit;
    hit.port = who.self.port;
    hit.ip = who.self.ip;
    hit.speed = who.speedKbps;
    hit.vendor = "CRVD";
    hit.flags.firewalled = who.firewalled;
    hit.servent = who.servent;
    hit.ggep.emplace();
    hit.ggep->extensions.push_back({"BH", {}, false, false});

    Bytes stream;
    std::size_t budget = 0;
    std::uint64_t sequence = 0;
    auto flush = [&] {
        if (hit.results.empty()) {
            return;
        }
        // A browse answer answers no query; each message still wants a GUID of its own.
        Guid guid = who.servent;
        ++sequence;
        for (int i = 0; i < 8; ++i) {
            guid.bytes[i] ^= static_cast<std::uint8_t>(sequence >> (8 * i));
        }
        const Bytes message =
            SerializeMessage(MakeMessage(guid, PayloadType::QueryHit, 1, SerializeQueryHit(hit)));
        stream.insert(stream.end(), message.begin(), message.end());
        hit.results.clear();
        budget = 0;
    };
    for (const auto& file : files) {
        const std::size_t cost = 10 + file.name.size() + 9 + file.sha1.size();
        if (hit.results.size() == kResultsPerBrowseHit || budget + cost > kBrowseHitBudget) {
            flush();
        }
        budget += cost;
        hit.results.push_back({file.index, file.size, file.name, file.sha1, "", {}});
    }
    flush();
    return stream;
}

bool BrowseReader::Fail(std::string why) {
    state_ = State::Failed;
    error_ = std::move(why);
    return false;
}

namespace {

// The value of the first header of that name in a response head (names without regard to case).
std::optional<std::string_view> HeadValue(std::string_view head, std::string_view name) {
    std::size_t at = head.find('\n');
    while (at != std::string_view::npos && at < head.size()) {
        const std::size_t next = head.find('\n', at + 1);
        std::string_view line = head.substr(
            at + 1, next == std::string_view::npos ? std::string_view::npos : next - at - 1);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        const std::size_t colon = line.find(':');
        if (colon != std::string_view::npos && EqualsIgnoreCase(line.substr(0, colon), name)) {
            return TrimBlanks(line.substr(colon + 1));
        }
        at = next;
    }
    return std::nullopt;
}

bool Contains(std::string_view value, std::string_view word) {
    return ToLowerAscii(value).find(word) != std::string::npos;
}

} // namespace

bool BrowseReader::Feed(ByteView bytes) {
    if (state_ == State::Failed) {
        return false;
    }
    if (state_ == State::Done) {
        return true;
    }
    if (state_ == State::Body) {
        return FeedBody(bytes);
    }
    const std::size_t before = head_.size();
    head_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    std::size_t end = head_.find("\r\n\r\n");
    std::size_t terminator = 4;
    if (const std::size_t bare = head_.find("\n\n"); bare != std::string::npos && bare < end) {
        end = bare;
        terminator = 2;
    }
    if (end == std::string::npos) {
        return head_.size() < kMaxRequestHead || Fail("the answer's head is too long");
    }
    const std::string head = head_.substr(0, end);
    if (head.size() < 12 || head.compare(0, 7, "HTTP/1.") != 0) {
        return Fail("not an HTTP answer");
    }
    status_ = std::atoi(head.c_str() + 9);
    if (status_ != 200) {
        return Fail("the host answered " + std::to_string(status_));
    }
    const auto type = HeadValue(head, "Content-Type");
    if (!type || !Contains(*type, "application/x-gnutella-packets")) {
        return Fail("the host does not offer its files as Gnutella packets");
    }
    if (const auto encoding = HeadValue(head, "Content-Encoding")) {
        if (Contains(*encoding, "deflate")) {
            inflater_ = std::make_unique<Inflater>();
        } else if (!EqualsIgnoreCase(*encoding, "identity")) {
            return Fail("the answer is compressed in a way we cannot read");
        }
    }
    // An HTTP/1.1 answer may come in chunks around the (deflated) stream.
    if (const auto transfer = HeadValue(head, "Transfer-Encoding")) {
        if (EqualsIgnoreCase(*transfer, "chunked")) {
            chunked_.emplace();
        } else if (!EqualsIgnoreCase(*transfer, "identity")) {
            return Fail("the answer's transfer encoding is not one we read");
        }
    }
    state_ = State::Body;
    const std::size_t bodyStart = end + terminator;
    const std::size_t consumedHere = bodyStart - before;
    head_.clear();
    return consumedHere >= bytes.size() || FeedBody(bytes.subspan(consumedHere));
}

bool BrowseReader::FeedBody(ByteView bytes) {
    if (!chunked_) {
        return FeedPayload(bytes);
    }
    std::string_view input = AsText(bytes);
    while (!input.empty()) {
        const auto step = chunked_->Feed(input);
        input.remove_prefix(step.consumed);
        switch (step.status) {
        case ChunkedDecoder::Status::Data:
            if (!FeedPayload(AsBytes(step.data))) {
                return false;
            }
            break;
        case ChunkedDecoder::Status::Done:
            if (framer_.buffered() != 0) {
                return Fail("the answer ends inside a message");
            }
            state_ = State::Done;
            return true;
        case ChunkedDecoder::Status::Error:
            return Fail(std::string("the chunked answer is broken: ") + chunked_->error());
        case ChunkedDecoder::Status::NeedMore:
            return true;
        }
    }
    return true;
}

bool BrowseReader::FeedPayload(ByteView bytes) {
    auto frame = [this](ByteView plain) {
        const auto status = framer_.Feed(plain, [this](Message&& message) {
            if (message.type() != PayloadType::QueryHit || hits_.size() >= kMaxBrowseHits) {
                return;
            }
            if (auto hit = ParseQueryHit(message.payload)) {
                hits_.push_back(std::move(*hit));
            }
        });
        return status == DescriptorFramer::Status::Ok;
    };
    if (!inflater_) {
        return frame(bytes) || Fail("a message in the stream is too large");
    }
    return inflater_->Decompress(bytes, frame) || Fail("the compressed stream is broken");
}

bool BrowseReader::Complete() const {
    return state_ == State::Done || (state_ == State::Body && !chunked_ && framer_.buffered() == 0);
}

std::string BrowseRequest(const Endpoint& host) {
    return "GET / HTTP/1.1\r\nHost: " + host.ToString() +
           "\r\nUser-Agent: Corvid/0.1\r\nAccept: text/html, application/x-gnutella-packets\r\n"
           "Accept-Encoding: deflate\r\nConnection: close\r\n\r\n";
}

void BrowseClient::Start(asio::io_context& io, const Endpoint& host, Done done) {
    std::shared_ptr<BrowseClient> client(new BrowseClient(io, host, std::move(done)));
    client->timer_.expires_after(kBrowseTimeout);
    client->timer_.async_wait([client](const asio::error_code& error) {
        if (!error) {
            client->Finish("the host took too long");
        }
    });
    const asio::ip::tcp::endpoint remote(asio::ip::address_v4(host.ip), host.port);
    client->socket_.async_connect(remote, [client](const asio::error_code& error) {
        if (error) {
            client->Finish("cannot connect: " + error.message());
            return;
        }
        asio::async_write(client->socket_, asio::buffer(client->request_),
                          [client](const asio::error_code& writeError, std::size_t) {
                              if (writeError) {
                                  client->Finish("cannot send: " + writeError.message());
                                  return;
                              }
                              client->Read();
                          });
    });
}

BrowseClient::BrowseClient(asio::io_context& io, Endpoint host, Done done)
    : socket_(io), timer_(io), host_(host), done_(std::move(done)), request_(BrowseRequest(host)) {}

void BrowseClient::Read() {
    socket_.async_read_some(
        asio::buffer(buffer_),
        [self = shared_from_this()](const asio::error_code& error, std::size_t got) {
            if (got > 0 && !self->reader_.Feed(ByteView(self->buffer_.data(), got))) {
                self->Finish(self->reader_.error());
                return;
            }
            if (self->reader_.state() == BrowseReader::State::Done) {
                self->Finish("");
                return;
            }
            if (error == asio::error::eof) {
                self->Finish(self->reader_.Complete() ? "" : "the host closed early");
                return;
            }
            if (error) {
                self->Finish(error.message());
                return;
            }
            self->Read();
        });
}

void BrowseClient::Finish(const std::string& error) {
    if (finished_) {
        return;
    }
    finished_ = true;
    timer_.cancel();
    asio::error_code ignored;
    socket_.close(ignored);
    done_(reader_.hits(), error);
}

} // namespace corvid::gnutella
