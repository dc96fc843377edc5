#pragma once

#include <asio.hpp>

#include <string>

namespace corvid::testing {

// A blocking HTTP client for tests: one connection, responses read by Content-Length.
class HttpClient {
public:
    HttpClient(asio::io_context& io, const asio::ip::tcp::endpoint& server) : socket_(io) {
        socket_.connect(server);
    }

    void Send(const std::string& bytes) { asio::write(socket_, asio::buffer(bytes)); }

    // The next response head, or empty when the server closed first.
    std::string ReadHead() {
        asio::error_code error;
        const std::size_t size =
            asio::read_until(socket_, asio::dynamic_buffer(pending_), "\r\n\r\n", error);
        if (error) {
            return {};
        }
        std::string head = pending_.substr(0, size);
        pending_.erase(0, size);
        return head;
    }

    std::string ReadBody(std::size_t length) {
        asio::error_code error;
        if (pending_.size() < length) {
            asio::read(socket_, asio::dynamic_buffer(pending_),
                       asio::transfer_exactly(length - pending_.size()), error);
        }
        std::string body = pending_.substr(0, length);
        pending_.erase(0, body.size());
        return body;
    }

    // Everything until the server closes the connection.
    std::string ReadToEnd() {
        asio::error_code error;
        asio::read(socket_, asio::dynamic_buffer(pending_), error);
        std::string rest;
        rest.swap(pending_);
        return rest;
    }

    // Whether the server has closed the connection (blocks until it says something or closes).
    bool Closed() {
        char byte;
        asio::error_code error;
        socket_.read_some(asio::buffer(&byte, 1), error);
        return error == asio::error::eof || error == asio::error::connection_reset;
    }

    static std::size_t ContentLength(const std::string& head) {
        const auto at = head.find("Content-Length: ");
        return at == std::string::npos ? 0 : std::stoul(head.substr(at + 16));
    }

    static int Status(const std::string& head) {
        return head.size() > 12 ? std::stoi(head.substr(9, 3)) : 0;
    }

    // A request and its response on this connection.
    std::pair<std::string, std::string> Get(const std::string& target,
                                            const std::string& headers = {}) {
        Send("GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + headers + "\r\n");
        std::string head = ReadHead();
        std::string body = ReadBody(ContentLength(head));
        return {head, body};
    }

private:
    asio::ip::tcp::socket socket_;
    std::string pending_;
};

} // namespace corvid::testing
