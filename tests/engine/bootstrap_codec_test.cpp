// What bootstrapping reads from outside: the user's cache list, web cache answers in both
// versions, HTTP answers in chunks, and the UDP host-cache ping and pong.
#include <gtest/gtest.h>

#include "engine/core/bootstrap.h"

namespace corvid::gnutella {
namespace {

TEST(CacheList, ReadsBothKindsAndSkipsWhatIsNeither) {
    const auto caches = ParseCacheList("# caches to ask when nothing else is known\r\n"
                                       "gwc http://cache.example.org/gwc.php\n"
                                       "  GWC   http://10.0.0.1:8080/  \n"
                                       "uhc uhc.example.net:9999\n"
                                       "uhc 10.0.0.2:0\n"
                                       "gwc https://secure.example.org/\n"
                                       "gwc http://user@host/\n"
                                       "ftp ftp://x/\n"
                                       "gwc http://cache.example.org/gwc.php\n"
                                       "gwc\n");
    ASSERT_EQ(caches.size(), 3u);
    EXPECT_EQ(caches[0].kind, BootstrapCache::Kind::WebCache);
    EXPECT_EQ(caches[0].address, "http://cache.example.org/gwc.php");
    EXPECT_EQ(caches[1].address, "http://10.0.0.1:8080/");
    EXPECT_EQ(caches[2].kind, BootstrapCache::Kind::UdpHostCache);
    EXPECT_EQ(caches[2].address, "uhc.example.net:9999");

    auto url = ParseCacheUrl("http://Cache.Example.org:3558/g/gwc.php");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->host, "Cache.Example.org");
    EXPECT_EQ(url->port, 3558);
    EXPECT_EQ(url->path, "/g/gwc.php");
    for (const char* bad : {"http://host/a b", "http://host/?get=1", "http://:80/",
                            "http://h:99999/", "http://h\r\nX: y/", "file:///etc/passwd"})
        EXPECT_FALSE(ParseCacheUrl(bad)) << bad;
}

TEST(WebCache, RequestsAreV2GetAndUpdate) {
    auto url = *ParseCacheUrl("http://cache.example.org:8080/gwc.php");
    EXPECT_EQ(
        GwcGetRequest(url, "Corvid/0.1"),
        "GET /gwc.php?get=1&client=CRVD&version=0.1&net=gnutella HTTP/1.0\r\n"
        "Host: cache.example.org:8080\r\nUser-Agent: Corvid/0.1\r\nConnection: close\r\n\r\n");
    EXPECT_NE(GwcUpdateRequest(url, {0x01020304, 6346}, "Corvid/0.1")
                  .find("GET /gwc.php?update=1&ip=1.2.3.4:6346&client=CRVD&version=0.1&net="
                        "gnutella HTTP/1.0\r\n"),
              std::string::npos);
}

TEST(WebCache, AnswersOfBothVersionsAndTheirErrors) {
    auto v2 = ParseGwcAnswer("I|pong|Cache 1.0|gnutella\r\n"
                             "H|1.2.3.4:6346|120\r\n"
                             "h|5.6.7.8:1234|5|extra\r\n"
                             "H|999.1.1.1:1|1\r\n"
                             "H|1.2.3.4|1\r\n"
                             "U|http://other.example.org/cache.php|300\r\n"
                             "U|javascript:alert(1)|3\r\n");
    EXPECT_EQ(v2.hosts, (std::vector<Endpoint>{{0x01020304, 6346}, {0x05060708, 1234}}));
    EXPECT_EQ(v2.caches, std::vector<std::string>{"http://other.example.org/cache.php"});
    EXPECT_FALSE(v2.error);

    auto v1 = ParseGwcAnswer("1.2.3.4:6346\n10.0.0.9:6347\nnot a host\n");
    EXPECT_EQ(v1.hosts.size(), 2u);
    EXPECT_TRUE(ParseGwcAnswer("ERROR: Client not allowed\n").error);
    EXPECT_TRUE(ParseGwcAnswer("I|update|ERROR|too soon\n").error);

    std::string many;
    for (int i = 1; i < 200; ++i)
        many += "H|10.0.1." + std::to_string(i % 250 + 1) + ":6346|1\n";
    EXPECT_EQ(ParseGwcAnswer(many, 50).hosts.size(), 50u);
}

TEST(WebCache, HttpAnswersPlainOrChunked) {
    auto plain =
        ParseHttpAnswer("HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\nH|1.2.3.4:1|1\n");
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->status, 200);
    EXPECT_EQ(plain->body, "H|1.2.3.4:1|1\n");
    auto chunked = ParseHttpAnswer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                   "5\r\nH|1.2\r\n9\r\n.3.4:1|1\n\r\n0\r\n\r\n");
    ASSERT_TRUE(chunked);
    EXPECT_EQ(chunked->body, "H|1.2.3.4:1|1\n");
    EXPECT_FALSE(ParseHttpAnswer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"));
    EXPECT_FALSE(ParseHttpAnswer("SSH-2.0-OpenSSH\r\n\r\n"));
    EXPECT_FALSE(ParseHttpAnswer("HTTP/1.1 2x0 OK\r\n\r\n"));
    EXPECT_EQ(ParseHttpAnswer("HTTP/1.1 404 Not Found\n\n")->status, 404);
}

TEST(UdpHostCache, PingCarriesScpAndPongCarriesPackedHosts) {
    Guid guid;
    guid.bytes[3] = 9;
    const Message ping = UdpHostCachePing(guid);
    // The documents' layout: a Ping whose GGEP block holds "SCP".
    const Bytes wire = SerializeMessage(ping);
    ASSERT_EQ(wire.size(), kHeaderSize + ping.payload.size());
    EXPECT_EQ(wire[16], 0x00);
    EXPECT_EQ(ping.payload[0], 0xC3);
    EXPECT_TRUE(IsUdpHostCachePing(ping));
    EXPECT_FALSE(IsUdpHostCachePing(MakeMessage(guid, PayloadType::Ping, 1, {})));

    Pong own;
    own.ip = 0x7F000001;
    own.port = 6346;
    std::vector<Endpoint> hosts;
    for (std::uint16_t i = 1; i <= 12; ++i)
        hosts.push_back({0x0A000000u + i, static_cast<std::uint16_t>(7000 + i)});
    const Message pong = UdpHostCachePong(guid, own, hosts);
    EXPECT_EQ(pong.header.guid, guid);
    auto parsed = ParsePong(pong.payload);
    ASSERT_TRUE(parsed && parsed->ggep);
    const auto* ipp = parsed->ggep->Find("IPP");
    ASSERT_TRUE(ipp);
    ASSERT_EQ(ipp->data.size(), 60u) << "ten hosts of six bytes";
    EXPECT_EQ((Bytes{ipp->data.begin(), ipp->data.begin() + 6}),
              (Bytes{0x0A, 0x00, 0x00, 0x01, 0x59, 0x1B})); // 10.0.0.1:7001
    auto learned = HostsOfUdpPong(*parsed, 50);
    ASSERT_EQ(learned.size(), 11u);
    EXPECT_EQ(learned[0], (Endpoint{0x7F000001, 6346}));
    EXPECT_EQ(learned[1], hosts[0]);
}

} // namespace
} // namespace corvid::gnutella
