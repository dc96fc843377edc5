#pragma once

// The one way our servers take a TCP port: open, bind, listen.

#include <asio.hpp>

#include <system_error>

namespace corvid {

// Leaves `acceptor` listening at `at`, or closed with the reason it could not.
inline std::error_code OpenListener(asio::ip::tcp::acceptor& acceptor,
                                    const asio::ip::tcp::endpoint& at) {
    asio::error_code ec;
    acceptor.open(at.protocol(), ec);
    if (!ec) {
#ifdef _WIN32
        // Windows lets a second SO_REUSEADDR socket take a port someone listens on, and another
        // program could then take our connections; an exclusive port makes a taken one fail here
        // instead, so the caller can choose another.
        acceptor.set_option(
            asio::detail::socket_option::boolean<SOL_SOCKET, SO_EXCLUSIVEADDRUSE>(true), ec);
#else
        // Elsewhere it only lets a restart take the port back from connections in TIME_WAIT.
        acceptor.set_option(asio::socket_base::reuse_address(true), ec);
#endif
    }
    if (!ec)
        acceptor.bind(at, ec);
    if (!ec)
        acceptor.listen(asio::socket_base::max_listen_connections, ec);
    if (ec) {
        asio::error_code ignored;
        acceptor.close(ignored);
    }
    return ec;
}

} // namespace corvid
