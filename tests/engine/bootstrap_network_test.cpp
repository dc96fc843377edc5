// Nodes that know nobody find a loopback network by themselves: through a web cache served by a
// tiny HTTP server here, or through an ultrapeer answering UDP host-cache pings.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "engine/core/node.h"

namespace corvid::gnutella {
namespace {

template <typename Condition> bool RunUntil(asio::io_context& io, Condition done) {
    auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done()) {
        if (std::chrono::steady_clock::now() > give_up)
            return false;
        io.run_one_for(std::chrono::milliseconds(100));
    }
    return true;
}

NodeOptions Options(NodeMode mode) {
    NodeOptions options;
    options.servent.network.node_mode = mode;
    options.servent.network.peer_max_count = 2;
    options.servent.network.ultrapeer_min_count = 1;
    options.servent.allow_private_addresses = true;
    options.tick_interval = std::chrono::milliseconds(200);
    return options;
}

int Ultrapeers(Node& node) {
    int n = 0;
    for (const auto& p : node.servent().Peers())
        n += p.kind == PeerKind::Ultrapeer;
    return n;
}

// Answers every request with the same body, in chunks, and keeps the request lines it saw.
class TinyWebCache {
public:
    TinyWebCache(asio::io_context& io, std::string body) : acceptor_(io), body_(std::move(body)) {
        acceptor_.open(asio::ip::tcp::v4());
        acceptor_.bind({asio::ip::address_v4::loopback(), 0});
        acceptor_.listen();
        Accept();
    }

    std::string url() const {
        return "http://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port()) + "/gwc.php";
    }
    std::vector<std::string> requests;

private:
    void Accept() {
        acceptor_.async_accept([this](const asio::error_code& ec, asio::ip::tcp::socket socket) {
            if (ec)
                return;
            auto s = std::make_shared<asio::ip::tcp::socket>(std::move(socket));
            auto text = std::make_shared<std::string>();
            asio::async_read_until(
                *s, asio::dynamic_buffer(*text), "\r\n\r\n",
                [this, s, text](const asio::error_code& read_ec, std::size_t) {
                    if (read_ec)
                        return;
                    requests.push_back(text->substr(0, text->find("\r\n")));
                    char size[16];
                    std::snprintf(size, sizeof size, "%zx", body_.size());
                    auto answer = std::make_shared<std::string>(
                        "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n"
                        "Transfer-Encoding: chunked\r\nConnection: close\r\n\r\n" +
                        std::string(size) + "\r\n" + body_ + "\r\n0\r\n\r\n");
                    asio::async_write(*s, asio::buffer(*answer),
                                      [s, answer](const asio::error_code&, std::size_t) {
                                          asio::error_code ignored;
                                          s->shutdown(asio::ip::tcp::socket::shutdown_both,
                                                      ignored);
                                      });
                });
            Accept();
        });
    }

    asio::ip::tcp::acceptor acceptor_;
    std::string body_;
};

TEST(Bootstrap, ALeafWithNothingButAWebCacheReachesTheNetwork) {
    asio::io_context io;
    InMemoryFileIndex none;
    Node up1(io, Options(NodeMode::UltraPeer), none, 1);
    Node up2(io, Options(NodeMode::UltraPeer), none, 2);
    ASSERT_FALSE(up1.Start());
    ASSERT_FALSE(up2.Start());
    up2.servent().ConnectTo(up1.endpoint());
    ASSERT_TRUE(RunUntil(io, [&] { return Ultrapeers(up1) == 1; }));

    TinyWebCache cache(io, "I|pong|Tiny 1.0|gnutella\r\nH|" + up1.endpoint().ToString() +
                               "|30\r\nU|http://127.0.0.1:9/other.php|100\r\n");
    const auto folder =
        std::filesystem::temp_directory_path() / ("corvid-bootstrap-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    auto options = Options(NodeMode::LeafPeer);
    options.caches = {{BootstrapCache::Kind::WebCache, cache.url()}};
    options.host_cache_file = (folder / "hosts.txt").string();
    {
        Node leaf(io, options, none, 3);
        ASSERT_FALSE(leaf.Start());
        EXPECT_EQ(leaf.servent().hosts().size(), 0u);
        // The cache names one ultrapeer; that one's try-list names the other.
        ASSERT_TRUE(RunUntil(io, [&] { return Ultrapeers(leaf) == 2; }));
        ASSERT_EQ(cache.requests.size(), 1u) << "once per hour at most";
        EXPECT_EQ(cache.requests[0],
                  "GET /gwc.php?get=1&client=CRVD&version=0.1&net=gnutella HTTP/1.0");
        // The cache it was told of is kept for next time.
        EXPECT_EQ(leaf.caches().size(), 2u);
        leaf.Stop();
    }
    // The host cache kept across runs names the ultrapeers it was linked to.
    std::ifstream saved(options.host_cache_file);
    std::string text{std::istreambuf_iterator<char>(saved), {}};
    EXPECT_NE(text.find(up1.endpoint().ToString()), std::string::npos) << text;
    EXPECT_NE(text.find(up2.endpoint().ToString()), std::string::npos) << text;
    std::filesystem::remove_all(folder);
}

TEST(Bootstrap, AnUltrapeerAnswersUdpHostCachePingsWithHostsToDial) {
    asio::io_context io;
    InMemoryFileIndex none;
    Node up1(io, Options(NodeMode::UltraPeer), none, 1);
    Node up2(io, Options(NodeMode::UltraPeer), none, 2);
    ASSERT_FALSE(up1.Start());
    ASSERT_FALSE(up2.Start());
    ASSERT_TRUE(up1.udp_open());
    up2.servent().ConnectTo(up1.endpoint());
    ASSERT_TRUE(RunUntil(io, [&] { return Ultrapeers(up1) == 1; }));

    auto options = Options(NodeMode::LeafPeer);
    options.caches = {{BootstrapCache::Kind::UdpHostCache, up1.endpoint().ToString()}};
    Node leaf(io, options, none, 3);
    ASSERT_FALSE(leaf.Start());
    // The pong names up1 itself and, in "IPP", up2.
    ASSERT_TRUE(RunUntil(io, [&] { return Ultrapeers(leaf) == 2; }));

    // A pong nobody asked for teaches nothing.
    Node stranger(io, Options(NodeMode::LeafPeer), none, 4);
    ASSERT_FALSE(stranger.Start());
    asio::ip::udp::socket udp(io, {asio::ip::address_v4::loopback(), 0});
    Pong fake;
    fake.ip = 0x7F000001;
    fake.port = up1.port();
    Guid guid;
    guid.bytes[0] = 1;
    const Bytes datagram =
        SerializeMessage(MakeMessage(guid, PayloadType::Pong, 1, SerializePong(fake)));
    udp.send_to(asio::buffer(datagram), {asio::ip::address_v4::loopback(), stranger.port()});
    for (int i = 0; i < 10; ++i)
        io.run_one_for(std::chrono::milliseconds(20));
    EXPECT_EQ(stranger.servent().hosts().size(), 0u);
}

} // namespace
} // namespace corvid::gnutella
