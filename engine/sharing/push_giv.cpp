#include "engine/sharing/push_giv.h"
#include "platform/ascii.h"

#include <charconv>
#include <memory>

namespace corvid::gnutella {
namespace {

constexpr std::size_t kMaxGivLine = 4096;
constexpr auto kGivTimeout = std::chrono::seconds(20);

} // namespace

std::string FormatGiv(const Giv& giv) {
    return "GIV " + std::to_string(giv.index) + ":" + giv.servent.ToHex() + "/" + giv.name + "\n\n";
}

GivParse ParseGiv(std::string_view bytes) {
    GivParse parse;
    const std::string_view limited = bytes.substr(0, kMaxGivLine);
    const std::size_t lineEnd = limited.find('\n');
    if (lineEnd == std::string_view::npos) {
        parse.status = bytes.size() >= kMaxGivLine ? GivStatus::Invalid : GivStatus::Incomplete;
        return parse;
    }
    // The blank line that follows.
    std::size_t after = lineEnd + 1;
    if (after < limited.size() && limited[after] == '\r') {
        ++after;
    }
    if (after >= limited.size()) {
        parse.status = GivStatus::Incomplete;
        return parse;
    }
    parse.status = GivStatus::Invalid;
    if (limited[after] != '\n') {
        return parse;
    }
    std::string_view line = limited.substr(0, lineEnd);
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    if (!line.starts_with("GIV ")) {
        return parse;
    }
    line.remove_prefix(4);
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        return parse;
    }
    const auto [end, error] = std::from_chars(line.data(), line.data() + colon, parse.giv.index);
    if (error != std::errc() || end != line.data() + colon || colon == 0) {
        return parse;
    }
    line.remove_prefix(colon + 1);
    if (line.size() < 33 || line[32] != '/') {
        return parse;
    }
    for (std::size_t i = 0; i < 16; ++i) {
        const int high = HexDigit(line[2 * i]);
        const int low = HexDigit(line[2 * i + 1]);
        if (high < 0 || low < 0) {
            return parse;
        }
        parse.giv.servent.bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    parse.giv.name.assign(line.substr(33));
    parse.status = GivStatus::Complete;
    parse.consumed = after + 1;
    return parse;
}

void AnswerPush(asio::io_context& io, const Push& push, const Guid& self,
                const library::FileIndex& files, UploadServer& server) {
    if (push.servent != self || push.ip == 0 || push.port == 0) {
        return;
    }
    const auto file = files.FindByIndex(push.file_index);
    if (!file) {
        return;
    }
    auto socket = std::make_shared<asio::ip::tcp::socket>(io);
    auto giv = std::make_shared<std::string>(FormatGiv({push.file_index, self, file->name}));
    const asio::ip::tcp::endpoint requester(asio::ip::address_v4(push.ip), push.port);
    socket->async_connect(requester, [socket, giv, &server](const asio::error_code& error) {
        if (error) {
            return;
        }
        asio::async_write(*socket, asio::buffer(*giv),
                          [socket, giv, &server](const asio::error_code& writeError, std::size_t) {
                              if (!writeError) {
                                  server.Adopt(std::move(*socket), {});
                              }
                          });
    });
}

void GivWaiters::Expect(const Guid& servent, std::uint32_t index, Taker taker) {
    waiting_[{servent, index}] = std::move(taker);
}

void GivWaiters::Forget(const Guid& servent, std::uint32_t index) {
    waiting_.erase({servent, index});
}

namespace {

// Reads the rest of a GIV line, then hands the connection on or drops it.
class GivReader : public std::enable_shared_from_this<GivReader> {
public:
    GivReader(asio::io_context& io, asio::ip::tcp::socket socket, std::string first,
              std::function<void(std::shared_ptr<GivReader>, GivParse)> done)
        : socket_(std::move(socket)), timer_(io), bytes_(std::move(first)), done_(std::move(done)) {
    }

    void Start() {
        timer_.expires_after(kGivTimeout);
        timer_.async_wait([self = shared_from_this()](const asio::error_code& error) {
            if (!error) {
                asio::error_code ignored;
                self->socket_.close(ignored);
            }
        });
        Next();
    }

    asio::ip::tcp::socket& socket() { return socket_; }
    std::string& bytes() { return bytes_; }

private:
    void Next() {
        GivParse parse = ParseGiv(bytes_);
        if (parse.status != GivStatus::Incomplete) {
            timer_.cancel();
            done_(shared_from_this(), std::move(parse));
            return;
        }
        socket_.async_read_some(
            asio::buffer(buffer_),
            [self = shared_from_this()](const asio::error_code& error, std::size_t got) {
                if (error) {
                    self->timer_.cancel();
                    return;
                }
                self->bytes_.append(self->buffer_.data(), got);
                self->Next();
            });
    }

    asio::ip::tcp::socket socket_;
    asio::steady_timer timer_;
    std::string bytes_;
    std::array<char, 1024> buffer_{};
    std::function<void(std::shared_ptr<GivReader>, GivParse)> done_;
};

} // namespace

void GivWaiters::Offer(asio::ip::tcp::socket socket, std::string first) {
    auto reader = std::make_shared<GivReader>(
        io_, std::move(socket), std::move(first),
        [this](std::shared_ptr<GivReader> done, GivParse parse) {
            if (parse.status != GivStatus::Complete) {
                return; // the socket closes with the reader
            }
            const auto waiting = waiting_.find({parse.giv.servent, parse.giv.index});
            if (waiting == waiting_.end()) {
                return;
            }
            Taker taker = std::move(waiting->second);
            waiting_.erase(waiting);
            taker(std::move(done->socket()), done->bytes().substr(parse.consumed));
        });
    reader->Start();
}

} // namespace corvid::gnutella
