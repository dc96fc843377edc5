// Downloads from a firewalled host through the engine's loopback relay: the downloader asks an
// ordinary URL, the engine pushes, takes the GIV connection and carries the requests over it.
#include "../library/temp_folder.h"
#include "download/core/download_runner.h"
#include "engine/sharing/push_relay.h"
#include "engine/sharing/upload_server.h"
#include "http_client.h"
#include "library/sha1.h"

#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <iterator>
#include <thread>

namespace corvid::gnutella {
namespace {

using namespace std::chrono_literals;
using library::Sha1Of;
using library::ToBase32;

constexpr auto kPatience = 30s;

TEST(PushRelayPath, RoundTripsAndRefusesWhatItDidNotWrite) {
    PushRelayTarget target;
    for (std::uint8_t i = 0; i < 16; ++i) {
        target.servent.bytes[i] = static_cast<std::uint8_t>(i * 16 + 1);
    }
    target.index = 42;
    target.proxies = {{0x0A000001, 6346}, {0x7F000001, 1234}};
    target.target = "/uri-res/N2R?urn:sha1:QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X";
    const std::string path = PushRelayPath(target);
    EXPECT_EQ(path, "/push/01112131415161718191a1b1c1d1e1f1/42/10.0.0.1:6346,127.0.0.1:1234/"
                    "uri-res/N2R?urn:sha1:QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X");
    const auto back = ParsePushRelayPath(path);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->servent, target.servent);
    EXPECT_EQ(back->index, 42u);
    EXPECT_EQ(back->proxies, target.proxies);
    EXPECT_EQ(back->target, target.target);

    const std::string guid = "01112131415161718191a1b1c1d1e1f1";
    for (const std::string& bad :
         {std::string("/get/1/a"), "/push/" + guid.substr(2) + "/1/-/get/1/a",
          "/push/" + guid + "/x/-/get/1/a", "/push/" + guid + "/1/-/admin",
          "/push/" + guid + "/1/nohost/get/1/a", "/push/" + guid + "/1/-/get/1/a b",
          "/push/" + guid + "/99999999999/-/get/1/a",
          "/push/zz" + guid.substr(2) + "/1/-/get/1/a"}) {
        EXPECT_FALSE(ParsePushRelayPath(bad)) << bad;
    }
    EXPECT_EQ(PushProxyRequest(target.servent, 42, {0x7F000001, 6346}),
              "GET /gnutella/push-proxy?ServerId=AEISCMKBKFQXDAMRUGY4DUPB6E&file=42 HTTP/1.1\r\n"
              "X-Node: 127.0.0.1:6346\r\nConnection: close\r\n\r\n");
}

class PushRelayTest : public ::testing::Test {
protected:
    PushRelayTest() {
        video_ = testing::RandomBytes(300 * 1024 + 7, 5);
        shared_.Write("clip.avi", video_);
        files_.SetSharedFolders({shared_.path()});
        EXPECT_TRUE(files_.WaitForWalk());
        while (files_.HashNext()) {
        }
        self_.bytes[0] = 0x5A;
        // The firewalled host's side: a Push makes it connect to our GIV port.
        givListener_.listen();
        AcceptGiv();
        relay_ = std::make_unique<PushRelay>(
            io_, givs_,
            [this](const PushRelayTarget& target) -> bool {
                ++pushes_;
                if (!answerPushes_) {
                    return reachable_.load();
                }
                const Push push{target.servent, target.index, 0x7F000001,
                                givListener_.local_endpoint().port()};
                AnswerPush(io_, push, self_, files_, server_);
                return true;
            },
            PushRelay::Options{2s, 10s, 7});
        relay_->Listen();
        thread_ = std::thread([this] { io_.run(); });
    }

    ~PushRelayTest() override {
        std::promise<void> closed;
        asio::post(io_, [&] {
            relay_->Close();
            server_.Close();
            givListener_.close();
            closed.set_value();
        });
        closed.get_future().wait();
        work_.reset();
        thread_.join();
    }

    void AcceptGiv() {
        givListener_.async_accept(
            [this](const asio::error_code& error, asio::ip::tcp::socket socket) {
                if (error) {
                    return;
                }
                givs_.Offer(std::move(socket), {});
                AcceptGiv();
            });
    }

    std::string UrlFor(const std::string& target) {
        PushRelayTarget push;
        push.servent = self_;
        push.index = files_.Files().at(0).index;
        push.target = target;
        return relay_->Url(push);
    }

    testing::TempFolder shared_;
    std::string video_;
    library::FileIndex files_;
    UploadRegistry registry_{4};
    asio::io_context io_;
    asio::executor_work_guard<asio::io_context::executor_type> work_ = asio::make_work_guard(io_);
    UploadServer server_{io_, files_, registry_};
    GivWaiters givs_{io_};
    asio::ip::tcp::acceptor givListener_{io_, {asio::ip::address_v4::loopback(), 0}};
    Guid self_;
    std::atomic<int> pushes_{0};
    std::atomic<bool> answerPushes_{true};
    std::atomic<bool> reachable_{true};
    std::unique_ptr<PushRelay> relay_;
    std::thread thread_;
    asio::io_context clientIo_;
};

TEST_F(PushRelayTest, TheDownloaderFetchesAFirewalledFileThroughTheRelay) {
    const std::string sha1 = ToBase32(Sha1Of(video_));
    testing::TempFolder downloads;
    const std::string target = (downloads.path() / "clip.avi").string();
    std::promise<bool> ended;
    bool succeeded = false;
    download::DownloadOptions options;
    download::DownloadRunner runner(target, options);
    runner.addSource(UrlFor("/uri-res/N2R?urn:sha1:" + sha1));
    ASSERT_TRUE(runner.start([&](const download::DownloadEvent& event) {
        if (event.code == download::EventCode::Succeeded) {
            succeeded = true;
        }
        if (event.code == download::EventCode::Stopped) {
            ended.set_value(succeeded);
        }
    }));
    auto result = ended.get_future();
    ASSERT_EQ(result.wait_for(kPatience), std::future_status::ready);
    EXPECT_TRUE(result.get());
    runner.finish(download::DownloadRunner::Finish::Close);
    std::ifstream fetched(target, std::ios::binary);
    const std::string body{std::istreambuf_iterator<char>(fetched), {}};
    EXPECT_EQ(ToBase32(Sha1Of(body)), sha1);
    EXPECT_GE(pushes_.load(), 1);
}

TEST_F(PushRelayTest, SeveralRequestsTravelOverOnePushedConnection) {
    const std::string path =
        UrlFor("/get/" + std::to_string(files_.Files().at(0).index) + "/clip.avi");
    const std::string local = path.substr(path.find("/push/"));
    testing::HttpClient client(clientIo_, {asio::ip::address_v4::loopback(), relay_->port()});
    client.Send("GET " + local + " HTTP/1.1\r\nRange: bytes=0-99\r\n\r\n");
    const std::string head = client.ReadHead();
    EXPECT_EQ(testing::HttpClient::Status(head), 206) << head;
    EXPECT_EQ(client.ReadBody(testing::HttpClient::ContentLength(head)), video_.substr(0, 100));
    client.Send("GET " + local + " HTTP/1.1\r\nRange: bytes=1000-1099\r\n\r\n");
    const std::string second = client.ReadHead();
    EXPECT_EQ(testing::HttpClient::Status(second), 206) << second;
    EXPECT_EQ(client.ReadBody(100), video_.substr(1000, 100));
    EXPECT_EQ(pushes_.load(), 1) << "one push, one connection";

    // A request for another file on the same connection is not passed on.
    client.Send("GET /push/" + std::string(32, '0') + "/1/-/get/1/x HTTP/1.1\r\n\r\n");
    EXPECT_EQ(testing::HttpClient::Status(client.ReadHead()), 400);
}

TEST_F(PushRelayTest, AnUnreachableOrSilentHostIsBusyForNow) {
    const std::string path = UrlFor("/get/1/clip.avi");
    const std::string local = path.substr(path.find("/push/"));
    answerPushes_ = false;
    reachable_ = false;
    testing::HttpClient unreachable(clientIo_, {asio::ip::address_v4::loopback(), relay_->port()});
    unreachable.Send("GET " + local + " HTTP/1.1\r\n\r\n");
    const std::string head = unreachable.ReadHead();
    EXPECT_EQ(testing::HttpClient::Status(head), 503);
    EXPECT_NE(head.find("Retry-After: 7"), std::string::npos);

    // Pushed, but no GIV comes back within the wait.
    reachable_ = true;
    testing::HttpClient silent(clientIo_, {asio::ip::address_v4::loopback(), relay_->port()});
    silent.Send("GET " + local + " HTTP/1.1\r\n\r\n");
    EXPECT_EQ(testing::HttpClient::Status(silent.ReadHead()), 503);
    EXPECT_EQ(givs_.waiting(), 0u);

    testing::HttpClient hostile(clientIo_, {asio::ip::address_v4::loopback(), relay_->port()});
    hostile.Send("GET /etc/passwd HTTP/1.1\r\n\r\n");
    EXPECT_EQ(testing::HttpClient::Status(hostile.ReadHead()), 400);
}

} // namespace
} // namespace corvid::gnutella
