// A web cache on loopback for bootstrap tests: it names one host to every asker, with the
// GWebCache v2 answer a real cache gives, counts the askers, and runs on a thread of its own.
#pragma once

#include <asio.hpp>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace corvid::testing {

class LoopbackWebCache {
public:
    explicit LoopbackWebCache(std::string host) : host_(std::move(host)) {
        acceptor_.listen();
        Accept();
        thread_ = std::thread([this] { io_.run(); });
    }
    ~LoopbackWebCache() {
        asio::post(io_, [this] { acceptor_.close(); });
        work_.reset();
        thread_.join();
    }
    LoopbackWebCache(const LoopbackWebCache&) = delete;
    LoopbackWebCache& operator=(const LoopbackWebCache&) = delete;

    std::uint16_t port() const { return acceptor_.local_endpoint().port(); }
    int asked() const { return asked_.load(); }

private:
    void Accept() {
        acceptor_.async_accept([this](const asio::error_code& ec, asio::ip::tcp::socket socket) {
            if (ec)
                return;
            ++asked_;
            auto s = std::make_shared<asio::ip::tcp::socket>(std::move(socket));
            auto request = std::make_shared<std::string>();
            asio::async_read_until(
                *s, asio::dynamic_buffer(*request), "\r\n\r\n",
                [this, s, request](const asio::error_code& read_ec, std::size_t) {
                    if (read_ec)
                        return;
                    auto answer = std::make_shared<std::string>(
                        "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\nH|" + host_ +
                        "|10\r\n");
                    asio::async_write(*s, asio::buffer(*answer),
                                      [s, answer](const asio::error_code&, std::size_t) {
                                          asio::error_code ignored;
                                          s->close(ignored);
                                      });
                });
            Accept();
        });
    }

    std::string host_;
    std::atomic<int> asked_{0};
    asio::io_context io_;
    asio::executor_work_guard<asio::io_context::executor_type> work_ = asio::make_work_guard(io_);
    asio::ip::tcp::acceptor acceptor_{io_, {asio::ip::address_v4::loopback(), 0}};
    std::thread thread_;
};

} // namespace corvid::testing
