#pragma once

#include "engine/sharing/token_bucket.h"
#include "engine/sharing/upload_protocol.h"
#include "engine/sharing/upload_registry.h"
#include "library/file_index.h"

#include <asio.hpp>

#include <functional>
#include <list>
#include <memory>
#include <string>

namespace corvid::gnutella {

// Serves the files of the index over HTTP: N2R and /get/ requests with ranges and keep-alive,
// the browse-host listing, upload slots and the total speed limit. Runs on the io_context it is
// given; SetSpeedLimit and the registry may be used from other threads, everything else belongs to
// the io_context's thread. The index and the registry must outlive the io_context's work.
class UploadServer {
public:
    // Whole Query Hit messages (headers included) describing every shared file.
    using BrowseSource = std::function<std::string()>;

    UploadServer(asio::io_context& io, const library::FileIndex& index, UploadRegistry& registry,
                 UploadSettings settings = {});
    ~UploadServer();
    UploadServer(const UploadServer&) = delete;
    UploadServer& operator=(const UploadServer&) = delete;

    void SetBrowseSource(BrowseSource source);

    // A listener of the server's own, for running without a node in front of it.
    asio::ip::tcp::endpoint Listen(const asio::ip::tcp::endpoint& endpoint);
    // A connection the node's listener took in and found to be HTTP, with what it read of it.
    void Adopt(asio::ip::tcp::socket socket, std::string alreadyRead);

    // Bytes per second over all uploads together; 0 for no limit.
    void SetSpeedLimit(std::uint64_t bytesPerSecond);
    // Stops listening and ends every connection (also done on destruction).
    void Close();

    struct State;

private:
    void Accept();

    asio::io_context& io_;
    std::shared_ptr<State> state_;
    std::unique_ptr<asio::ip::tcp::acceptor> acceptor_;
};

// zlib's deflate of a whole buffer, the way Gnutella links compress.
std::string Deflate(std::string_view bytes);

} // namespace corvid::gnutella
