// Browse host, both sides: the hit stream a node answers "GET /" with, and the reading of such a
// stream from another node (HTTP head, optional deflate, framed Query Hit messages).
#pragma once

#include "engine/core/descriptor.h"
#include "engine/core/zstream.h"
#include "library/file_index.h"
#include "platform/http_chunked.h"

#include <asio.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace corvid::gnutella {

struct BrowseIdentity {
    Endpoint self;
    Guid servent;
    std::uint32_t speedKbps = 0;
    bool firewalled = false;
};

// Every shared file as whole Query Hit messages, each within the usual size limits.
Bytes BrowseHitStream(const std::vector<library::SharedFile>& files, const BrowseIdentity& who);

// Reads a browse answer as it arrives: the HTTP head, then the body, unchunked and inflated when
// the head says so, cut into messages. Never holds more than one partial message and the head.
class BrowseReader {
public:
    // Done: a chunked answer's last chunk has arrived. A plain one runs to the close.
    enum class State { Head, Body, Done, Failed };

    // False once the answer is found to be something other than a hit stream.
    bool Feed(ByteView bytes);
    State state() const { return state_; }
    int status() const { return status_; }
    const std::vector<QueryHit>& hits() const { return hits_; }
    std::string error() const { return error_; }
    // Whether what arrived so far is a whole answer, were the connection to end now.
    bool Complete() const;

private:
    bool FeedBody(ByteView bytes);
    bool FeedPayload(ByteView bytes);
    bool Fail(std::string why);

    State state_ = State::Head;
    std::string head_;
    int status_ = 0;
    std::unique_ptr<Inflater> inflater_;
    std::optional<ChunkedDecoder> chunked_;
    DescriptorFramer framer_;
    std::vector<QueryHit> hits_;
    std::string error_;
};

std::string BrowseRequest(const Endpoint& host);

// Asks one host for its shared files; done gets the hits (or an error text) once the host has
// closed the connection or failed.
class BrowseClient : public std::enable_shared_from_this<BrowseClient> {
public:
    using Done = std::function<void(const std::vector<QueryHit>& hits, const std::string& error)>;

    static void Start(asio::io_context& io, const Endpoint& host, Done done);

private:
    BrowseClient(asio::io_context& io, Endpoint host, Done done);
    void Read();
    void Finish(const std::string& error);

    asio::ip::tcp::socket socket_;
    asio::steady_timer timer_;
    Endpoint host_;
    Done done_;
    std::string request_;
    std::array<std::uint8_t, 16384> buffer_{};
    BrowseReader reader_;
    bool finished_ = false;
};

} // namespace corvid::gnutella
