#include "../library/temp_folder.h"
#include "engine/sharing/upload_server.h"
#include "http_client.h"
#include "library/sha1.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <future>
#include <thread>

namespace corvid::gnutella {
namespace {

using library::Sha1Of;
using library::ToBase32;
using testing::HttpClient;

std::string Inflate(const std::string& compressed) {
    z_stream stream{};
    inflateInit(&stream);
    std::string out(1 << 20, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
    stream.avail_in = static_cast<uInt>(compressed.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    inflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    inflateEnd(&stream);
    return out;
}

class UploadServerTest : public ::testing::Test {
protected:
    UploadServerTest() {
        big_ = testing::RandomBytes(3 << 20, 11);
        shared_.Write("big file.bin", big_);
        shared_.Write("small.txt", "small file");
        outside_.Write("secret.txt", "top secret");
        index_.SetSharedFolders({shared_.path()});
        EXPECT_TRUE(index_.WaitForWalk());
        while (index_.HashNext()) {
        }
        endpoint_ = server_.Listen({asio::ip::make_address("127.0.0.1"), 0});
        server_.SetBrowseSource([] { return std::string("pretend these are query hits"); });
        thread_ = std::thread([this] { io_.run(); });
    }

    ~UploadServerTest() override {
        asio::post(io_, [this] { server_.Close(); });
        work_.reset();
        thread_.join();
    }

    // Runs fn on the server's thread and waits for it.
    template <typename Fn> void OnServerThread(Fn fn) {
        std::promise<void> done;
        asio::post(io_, [&] {
            fn();
            done.set_value();
        });
        done.get_future().wait();
    }

    std::string N2R(const std::string& contents) {
        return "/uri-res/N2R?urn:sha1:" + ToBase32(Sha1Of(contents));
    }

    testing::TempFolder shared_;
    testing::TempFolder outside_;
    std::string big_;
    library::FileIndex index_;
    UploadRegistry registry_{1};
    asio::io_context io_;
    asio::executor_work_guard<asio::io_context::executor_type> work_ = asio::make_work_guard(io_);
    UploadServer server_{io_, index_, registry_};
    asio::ip::tcp::endpoint endpoint_;
    std::thread thread_;
    asio::io_context clientIo_;
};

TEST_F(UploadServerTest, ServesAWholeFileWhoseSha1MatchesItsUrn) {
    HttpClient client(clientIo_, endpoint_);
    const auto [head, body] = client.Get(N2R(big_));
    EXPECT_EQ(HttpClient::Status(head), 200);
    EXPECT_NE(head.find("X-Gnutella-Content-URN: urn:sha1:" + ToBase32(Sha1Of(big_))),
              std::string::npos);
    EXPECT_EQ(body.size(), big_.size());
    EXPECT_EQ(Sha1Of(body), Sha1Of(big_));
}

TEST_F(UploadServerTest, SeveralRangesTravelOverOneKeptAliveConnection) {
    HttpClient client(clientIo_, endpoint_);
    const auto [head1, body1] = client.Get(N2R(big_), "Range: bytes=0-1023\r\n");
    EXPECT_EQ(HttpClient::Status(head1), 206);
    EXPECT_NE(head1.find("Content-Range: bytes 0-1023/" + std::to_string(big_.size())),
              std::string::npos);
    EXPECT_EQ(body1, big_.substr(0, 1024));

    const auto [head2, body2] = client.Get(N2R(big_), "Range: bytes=2000000-\r\n");
    EXPECT_EQ(HttpClient::Status(head2), 206);
    EXPECT_EQ(body2, big_.substr(2000000));

    // Two requests written at once are answered in order.
    client.Send("GET /get/2/small.txt HTTP/1.1\r\nRange: bytes=6-\r\n\r\n"
                "GET " +
                N2R("small file") + " HTTP/1.1\r\nConnection: close\r\n\r\n");
    const std::string head3 = client.ReadHead();
    EXPECT_EQ(client.ReadBody(HttpClient::ContentLength(head3)), "file");
    const std::string head4 = client.ReadHead();
    EXPECT_EQ(client.ReadBody(HttpClient::ContentLength(head4)), "small file");
    EXPECT_NE(head4.find("Connection: close"), std::string::npos);
    EXPECT_TRUE(client.Closed());
}

TEST_F(UploadServerTest, RequestBodiesInChunksOrByLengthAreReadPastOnAKeptAliveConnection) {
    HttpClient client(clientIo_, endpoint_);
    // The chunked body holds what would read as a request of its own, were it not skipped.
    client.Send("GET /get/2/small.txt HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n"
                "1c;x=y\r\nGET /../secret HTTP/1.1\r\n\r\n\r\n0\r\nTrailer: t\r\n\r\n"
                "GET /get/2/small.txt HTTP/1.1\r\nContent-Length: 5\r\nRange: bytes=0-4\r\n\r\n"
                "GET /"
                "GET " +
                N2R("small file") + " HTTP/1.1\r\nConnection: close\r\n\r\n");
    for (const char* expected : {"small file", "small", "small file"}) {
        const std::string head = client.ReadHead();
        EXPECT_LT(HttpClient::Status(head), 300) << head;
        EXPECT_EQ(client.ReadBody(HttpClient::ContentLength(head)), expected);
    }
    EXPECT_TRUE(client.Closed());

    // A broken chunk or a coding we cannot read is refused, and the connection ends.
    for (const char* request :
         {"GET /get/2/small.txt HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\n",
          "GET /get/2/small.txt HTTP/1.1\r\nTransfer-Encoding: gzip\r\n\r\n",
          "GET /get/2/small.txt HTTP/1.1\r\nContent-Length: 99999999\r\n\r\n"}) {
        HttpClient refused(clientIo_, endpoint_);
        refused.Send(request);
        EXPECT_EQ(HttpClient::Status(refused.ReadHead()), 400) << request;
        refused.ReadToEnd();
        EXPECT_TRUE(refused.Closed());
    }
}

TEST_F(UploadServerTest, ABusyServerAnswers503UntilItsSlotIsFreedByStoppingTheUpload) {
    server_.SetSpeedLimit(4096); // keeps the first upload running while the test looks at it
    HttpClient first(clientIo_, endpoint_);
    first.Send("GET " + N2R(big_) + " HTTP/1.1\r\n\r\n");
    EXPECT_EQ(HttpClient::Status(first.ReadHead()), 200);

    const auto uploads = registry_.List();
    ASSERT_EQ(uploads.size(), 1u);
    EXPECT_EQ(uploads[0].fileName, "big file.bin");
    EXPECT_EQ(uploads[0].ip, "127.0.0.1");

    HttpClient second(clientIo_, endpoint_);
    const auto [busy, nothing] = second.Get(N2R("small file"));
    EXPECT_EQ(HttpClient::Status(busy), 503);
    EXPECT_NE(busy.find("Retry-After: "), std::string::npos);
    EXPECT_TRUE(second.Closed());

    EXPECT_TRUE(registry_.Stop(uploads[0].id));
    const std::string partial = first.ReadToEnd();
    EXPECT_LT(partial.size(), big_.size());

    server_.SetSpeedLimit(0);
    HttpClient third(clientIo_, endpoint_);
    const auto [head, body] = third.Get(N2R("small file"));
    EXPECT_EQ(HttpClient::Status(head), 200);
    EXPECT_EQ(body, "small file");
}

TEST_F(UploadServerTest, PathEscapesOverTheWireGetNothingButRefusals) {
    const std::string outside = outside_.path().string();
    const std::string attempts[] = {
        "GET /../secret.txt HTTP/1.1\r\n\r\n",
        "GET /get/1/..%2f..%2f" + outside.substr(1) + "%2fsecret.txt HTTP/1.1\r\n\r\n",
        "GET " + outside + "/secret.txt HTTP/1.1\r\n\r\n",
        "GET /get/1/" + outside + "/secret.txt HTTP/1.1\r\n\r\n",
        "GET " + N2R("top secret") + " HTTP/1.1\r\n\r\n",
        "GET /get/1/../secret.txt\r\n\r\n",
        "GET /get/1/%2e%2e/secret.txt HTTP/1.1\r\n\r\n",
        "GARBAGE\r\n\r\n",
        std::string("GET /get/1/a\0b HTTP/1.1\r\n\r\n", 27),
    };
    for (const std::string& request : attempts) {
        HttpClient client(clientIo_, endpoint_);
        client.Send(request);
        const std::string head = client.ReadHead();
        const int status = HttpClient::Status(head);
        EXPECT_TRUE(status == 400 || status == 404) << request << " -> " << head;
        const std::string rest = client.ReadBody(HttpClient::ContentLength(head));
        EXPECT_EQ(rest.find("top secret"), std::string::npos) << request;
    }
}

TEST_F(UploadServerTest, BrowseSendsTheHitStreamDeflatedWhenAsked) {
    HttpClient client(clientIo_, endpoint_);
    client.Send("GET / HTTP/1.1\r\nAccept: text/html, application/x-gnutella-packets\r\n"
                "Accept-Encoding: deflate\r\nConnection: close\r\n\r\n");
    const std::string head = client.ReadHead();
    EXPECT_EQ(HttpClient::Status(head), 200);
    EXPECT_NE(head.find("Content-Encoding: deflate"), std::string::npos);
    EXPECT_EQ(Inflate(client.ReadToEnd()), "pretend these are query hits");

    HttpClient plain(clientIo_, endpoint_);
    plain.Send("GET / HTTP/1.1\r\nAccept: application/x-gnutella-packets\r\n\r\n");
    plain.ReadHead();
    EXPECT_EQ(plain.ReadToEnd(), "pretend these are query hits");
}

TEST_F(UploadServerTest, AConnectionHandedOverWithItsFirstBytesIsServed) {
    asio::ip::tcp::acceptor front(io_, {asio::ip::make_address("127.0.0.1"), 0});
    std::promise<void> adopted;
    OnServerThread([&] {
        front.async_accept([&](const asio::error_code& error, asio::ip::tcp::socket socket) {
            ASSERT_FALSE(error);
            // The node read "GET " to tell HTTP from Gnutella before handing it over.
            std::string first(4, '\0');
            asio::read(socket, asio::buffer(first));
            server_.Adopt(std::move(socket), first);
            adopted.set_value();
        });
    });
    HttpClient client(clientIo_, front.local_endpoint());
    client.Send("GET " + N2R("small file") + " HTTP/1.1\r\n\r\n");
    const auto head = client.ReadHead();
    EXPECT_EQ(HttpClient::Status(head), 200);
    EXPECT_EQ(client.ReadBody(HttpClient::ContentLength(head)), "small file");
    adopted.get_future().wait();
    OnServerThread([&] { front.close(); });
}

} // namespace
} // namespace corvid::gnutella
