// Push and GIV: a firewalled node answers a routed Push by connecting out and saying "GIV", and
// then serves an ordinary GET on that connection; a downloader waiting for such a connection
// takes it when the GIV names the file and servent it asked for.
#pragma once

#include "engine/core/descriptor.h"
#include "engine/sharing/upload_server.h"
#include "library/file_index.h"

#include <asio.hpp>

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace corvid::gnutella {

struct Giv {
    std::uint32_t index = 0;
    Guid servent;
    std::string name;
};

// "GIV <index>:<32 lower-case hex of the servent GUID>/<name>\n\n"
std::string FormatGiv(const Giv& giv);

enum class GivStatus { Incomplete, Complete, Invalid };
struct GivParse {
    GivStatus status = GivStatus::Incomplete;
    std::size_t consumed = 0;
    Giv giv;
};
// Reads a GIV line (ended by LF, CRLF, and the blank line after it) from the start of bytes.
GivParse ParseGiv(std::string_view bytes);

// Answers Push requests addressed to this servent: connects to the requester, says GIV and hands
// the connection to the upload server, which then serves whatever the requester GETs.
void AnswerPush(asio::io_context& io, const Push& push, const Guid& self,
                const library::FileIndex& files, UploadServer& server);

// Downloads waiting for a GIV. Runs on the io_context's thread.
class GivWaiters {
public:
    // The connection, with whatever followed the GIV in the bytes read so far.
    using Taker = std::function<void(asio::ip::tcp::socket socket, std::string rest)>;

    explicit GivWaiters(asio::io_context& io) : io_(io) {}

    void Expect(const Guid& servent, std::uint32_t index, Taker taker);
    void Forget(const Guid& servent, std::uint32_t index);
    std::size_t waiting() const { return waiting_.size(); }

    // A connection that began with "GIV"; first holds the bytes read from it so far.
    void Offer(asio::ip::tcp::socket socket, std::string first);

private:
    asio::io_context& io_;
    std::map<std::pair<Guid, std::uint32_t>, Taker> waiting_;
};

} // namespace corvid::gnutella
