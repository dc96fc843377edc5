// Two nodes on loopback: A shares a folder through the file index and serves it, B searches,
// fetches a file by its N2R address and browses A. What B learns is written into the engine's
// texts and read back by the plug-in's own readers.
#include "../library/temp_folder.h"
#include "download/core/download_runner.h"
#include "engine/core/node.h"
#include "engine/sharing/browse_host.h"
#include "engine/sharing/engine_text_sources.h"
#include "engine/sharing/library_share_index.h"
#include "engine/sharing/push_giv.h"
#include "engine/sharing/upload_server.h"
#include "http_client.h"
#include "library/sha1.h"
#include "plugin_readers.h"
#include "search/search_result_reader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <iterator>
#include <set>
#include <thread>

namespace corvid::gnutella {
namespace {

using namespace std::chrono_literals;
using library::Sha1Of;
using library::ToBase32;

// Bounds every wait on the other thread, so a broken exchange fails instead of hanging.
constexpr auto kPatience = 30s;

class Collector : public ServentObserver {
public:
    void OnPeerOpened(const PeerInfo&) override { opened.set_value(); }
    void OnSearchHit(const Guid&, const QueryHit& hit) override {
        hits.push_back(hit);
        std::set<std::string> names;
        for (const auto& h : hits) {
            for (const auto& result : h.results) {
                names.insert(result.name);
            }
        }
        if (names.size() == wanted && !done) {
            done = true;
            found.set_value();
        }
    }

    std::promise<void> opened;
    std::promise<void> found;
    std::vector<QueryHit> hits;
    std::size_t wanted = 0;
    bool done = false;
};

// A answers the pushes addressed to it.
class PushAnswerer : public ServentObserver {
public:
    std::function<void(const Push&)> onPush;
    void OnPushRequest(const Push& push) override { onPush(push); }
};

class EndToEnd : public ::testing::Test {
protected:
    EndToEnd() {
        video_ = testing::RandomBytes(700 * 1024 + 3, 21);
        shared_.Write("Holiday Video.avi", video_);
        shared_.Write("music/holiday song.mp3", testing::RandomBytes(5000, 22));
        shared_.Write("music/notes.txt", "not about holidays");
        files_.SetSharedFolders({shared_.path()});
        EXPECT_TRUE(files_.WaitForWalk());
        while (files_.HashNext()) {
        }
    }

    ~EndToEnd() override {
        if (thread_.joinable()) {
            OnIo([this] {
                a_->Stop();
                b_->Stop();
                server_->Close();
            });
            work_.reset();
            thread_.join();
        }
    }

    template <typename Fn> void OnIo(Fn fn) {
        std::promise<void> done;
        asio::post(io_, [&] {
            fn();
            done.set_value();
        });
        ASSERT_EQ(done.get_future().wait_for(kPatience), std::future_status::ready);
    }

    void StartNodes() {
        NodeOptions options;
        options.servent.allow_private_addresses = true;
        options.servent.advertise_browse_host = true;
        options.servent.network.node_mode = NodeMode::UltraPeer;
        a_ = std::make_unique<Node>(io_, options, shareIndex_, 1);
        options.servent.network.node_mode = NodeMode::LeafPeer;
        b_ = std::make_unique<Node>(io_, options, emptyIndex_, 2);
        ASSERT_FALSE(a_->Start());
        ASSERT_FALSE(b_->Start());
        server_ = std::make_unique<UploadServer>(io_, files_, registry_);
        server_->SetBrowseSource([this] {
            const Bytes stream = BrowseHitStream(
                files_.Files(), {a_->endpoint(), a_->servent().servent_guid(), 1000, false});
            return std::string(stream.begin(), stream.end());
        });
        a_->SetForeignConnectionHandler([this](asio::ip::tcp::socket socket, Bytes first) {
            server_->Adopt(std::move(socket), std::string(first.begin(), first.end()));
        });
        b_->servent().SetObserver(&collector_);
        answerer_.onPush = [this](const Push& push) {
            AnswerPush(io_, push, a_->servent().servent_guid(), files_, *server_);
        };
        a_->servent().SetObserver(&answerer_);
        b_->SetForeignConnectionHandler([this](asio::ip::tcp::socket socket, Bytes first) {
            givs_.Offer(std::move(socket), std::string(first.begin(), first.end()));
        });
        thread_ = std::thread([this] { io_.run(); });
        OnIo([this] { b_->servent().ConnectTo(a_->endpoint()); });
        ASSERT_EQ(collector_.opened.get_future().wait_for(kPatience), std::future_status::ready);
    }

    testing::TempFolder shared_;
    std::string video_;
    library::FileIndex files_;
    LibraryShareIndex shareIndex_{files_};
    InMemoryFileIndex emptyIndex_;
    UploadRegistry registry_{4};
    asio::io_context io_;
    asio::executor_work_guard<asio::io_context::executor_type> work_ = asio::make_work_guard(io_);
    std::unique_ptr<Node> a_;
    std::unique_ptr<Node> b_;
    std::unique_ptr<UploadServer> server_;
    Collector collector_;
    PushAnswerer answerer_;
    GivWaiters givs_{io_};
    std::thread thread_;
    asio::io_context clientIo_;
};

TEST_F(EndToEnd, SearchFetchAndBrowseBetweenTwoNodes) {
    StartNodes();

    // B's search finds A's two holiday files, not the notes.
    collector_.wanted = 2;
    OnIo([this] { b_->servent().StartSearch("holiday"); });
    ASSERT_EQ(collector_.found.get_future().wait_for(kPatience), std::future_status::ready);
    std::vector<HitResult> results;
    QueryHit firstHit;
    OnIo([&] {
        firstHit = collector_.hits.front();
        for (const auto& hit : collector_.hits) {
            results.insert(results.end(), hit.results.begin(), hit.results.end());
        }
    });
    const auto video = std::find_if(results.begin(), results.end(), [](const HitResult& r) {
        return r.name == "Holiday Video.avi";
    });
    ASSERT_NE(video, results.end());
    EXPECT_EQ(video->sha1, ToBase32(Sha1Of(video_)));
    EXPECT_EQ(video->size, video_.size());
    for (const auto& result : results) {
        EXPECT_NE(result.name, "notes.txt");
    }

    // A plain HTTP fetch of the N2R address the plug-in would build from the hit.
    const asio::ip::tcp::endpoint at(asio::ip::address_v4(firstHit.ip), firstHit.port);
    ASSERT_TRUE(at.address().is_loopback());
    testing::HttpClient client(clientIo_, at);
    const auto [head, body] = client.Get("/uri-res/N2R?urn:sha1:" + video->sha1);
    EXPECT_EQ(testing::HttpClient::Status(head), 200) << head;
    EXPECT_EQ(ToBase32(Sha1Of(body)), video->sha1);

    // The download library fetches it too, from the URL the download page builds, and reports
    // success only once the file hashes to the URN.
    testing::TempFolder downloads;
    const std::string target = (downloads.path() / "Holiday Video.avi").string();
    std::promise<std::vector<download::EventCode>> downloadEnded;
    std::vector<download::EventCode> downloadEvents;
    download::DownloadRunner runner(target, download::DownloadOptions{});
    runner.addSource("http://127.0.0.1:" + std::to_string(firstHit.port) +
                     "/uri-res/N2R?urn:sha1:" + video->sha1);
    ASSERT_TRUE(runner.start([&](const download::DownloadEvent& event) {
        if (event.sourceId == 0) {
            downloadEvents.push_back(event.code);
        }
        if (event.code == download::EventCode::Stopped) {
            downloadEnded.set_value(downloadEvents);
        }
    }));
    auto ended = downloadEnded.get_future();
    ASSERT_EQ(ended.wait_for(kPatience), std::future_status::ready);
    const auto events = ended.get();
    EXPECT_NE(std::find(events.begin(), events.end(), download::EventCode::Succeeded),
              events.end());
    runner.finish(download::DownloadRunner::Finish::Close);
    std::ifstream fetched(target, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(fetched), {}), video_);

    // B browses A: every shared file, each with its hash.
    std::promise<std::pair<std::vector<QueryHit>, std::string>> browsed;
    OnIo([&] {
        BrowseClient::Start(io_, a_->endpoint(),
                            [&](const std::vector<QueryHit>& hits, const std::string& error) {
                                browsed.set_value({hits, error});
                            });
    });
    auto browse = browsed.get_future();
    ASSERT_EQ(browse.wait_for(kPatience), std::future_status::ready);
    const auto [browseHits, browseError] = browse.get();
    EXPECT_EQ(browseError, "");
    std::set<std::pair<std::string, std::string>> listed;
    for (const auto& hit : browseHits) {
        for (const auto& result : hit.results) {
            listed.insert({result.name, result.sha1});
        }
    }
    std::set<std::pair<std::string, std::string>> shared;
    for (const auto& file : files_.Files()) {
        shared.insert({file.name, file.sha1});
    }
    EXPECT_EQ(listed, shared);

    // The texts the engine would hand the plug-in, read back by the plug-in's readers.
    const ResultHost host = ResultHostOf(firstHit, "holiday", "All");
    const auto files = ResultFilesOf(firstHit);
    std::vector<ParsedResult> read;
    ReadResultFiles(SearchResultText(host, files),
                    [&](ParsedResult& result) { read.push_back(result); });
    ASSERT_EQ(read.size(), firstHit.results.size());
    for (std::size_t i = 0; i < read.size(); ++i) {
        EXPECT_EQ(read[i].source.name, firstHit.results[i].name);
        EXPECT_EQ(read[i].sha1, firstHit.results[i].sha1);
        EXPECT_EQ(read[i].source.fileIndex, static_cast<std::int32_t>(firstHit.results[i].index));
        EXPECT_EQ(read[i].source.size, static_cast<std::int32_t>(firstHit.results[i].size));
        EXPECT_EQ(read[i].source.host, "127.0.0.1");
        EXPECT_EQ(read[i].source.port, firstHit.port);
        EXPECT_EQ(read[i].source.nodeId, firstHit.servent.ToHex());
        EXPECT_EQ(read[i].source.vendorCode, "CRVD");
        EXPECT_EQ(read[i].source.push, 0);
    }

    std::vector<HostRecord> hostRecords;
    OnIo([&] {
        for (const auto& peer : b_->servent().Peers()) {
            hostRecords.push_back(HostRecordOf(peer, 1000, 2000));
        }
    });
    ASSERT_EQ(hostRecords.size(), 1u);
    const auto hosts = testing::ReadHosts(HostInfoText(hostRecords));
    ASSERT_EQ(hosts.size(), 1u);
    EXPECT_EQ(hosts[0].node, a_->endpoint().ToString());
    EXPECT_EQ(hosts[0].type, "Ultrapeer");
    EXPECT_EQ(hosts[0].agent, hostRecords[0].userAgent);
    EXPECT_EQ(hosts[0].handshake, "1000");
}

TEST_F(EndToEnd, APushIsAnsweredWithAGivConnectionThatServesTheFile) {
    StartNodes();
    collector_.wanted = 1;
    OnIo([this] { b_->servent().StartSearch("song"); });
    ASSERT_EQ(collector_.found.get_future().wait_for(kPatience), std::future_status::ready);
    QueryHit hit;
    OnIo([&] { hit = collector_.hits.front(); });
    const HitResult song = hit.results.at(0);

    std::promise<std::pair<asio::ip::tcp::socket, std::string>> given;
    OnIo([&] {
        givs_.Expect(hit.servent, song.index, [&](asio::ip::tcp::socket socket, std::string rest) {
            given.set_value({std::move(socket), std::move(rest)});
        });
        ASSERT_TRUE(b_->servent().SendPush(hit.servent, song.index));
    });
    auto connection = given.get_future();
    ASSERT_EQ(connection.wait_for(kPatience), std::future_status::ready);
    auto [socket, rest] = connection.get();
    EXPECT_EQ(rest, "");
    EXPECT_EQ(givs_.waiting(), 0u);

    // The downloader now asks over the connection the GIV came in on.
    const std::string request = "GET /get/" + std::to_string(song.index) +
                                "/holiday%20song.mp3 HTTP/1.1\r\nConnection: close\r\n\r\n";
    asio::write(socket, asio::buffer(request));
    std::string answer;
    asio::error_code error;
    asio::read(socket, asio::dynamic_buffer(answer), error);
    const std::size_t bodyAt = answer.find("\r\n\r\n");
    ASSERT_NE(bodyAt, std::string::npos);
    EXPECT_EQ(testing::HttpClient::Status(answer), 200);
    EXPECT_EQ(ToBase32(Sha1Of(answer.substr(bodyAt + 4))), song.sha1);
    OnIo([&] { socket.close(); });
}

TEST_F(EndToEnd, ARunningUploadIsListedAndCanBeStopped) {
    StartNodes();
    server_->SetSpeedLimit(8192); // slow enough to still be running while it is looked at
    testing::HttpClient client(clientIo_, {asio::ip::make_address("127.0.0.1"), a_->port()});
    client.Send("GET /uri-res/N2R?urn:sha1:" + ToBase32(Sha1Of(video_)) +
                " HTTP/1.1\r\nUser-Agent: Tester/1.0\r\n\r\n");
    ASSERT_EQ(testing::HttpClient::Status(client.ReadHead()), 200);

    const auto uploads = testing::ReadUploads(UploadInfoText(registry_.List()));
    ASSERT_EQ(uploads.size(), 1u);
    EXPECT_EQ(uploads[0].fileName, "Holiday Video.avi");
    EXPECT_EQ(uploads[0].fileSize, video_.size());
    EXPECT_EQ(uploads[0].ip, "127.0.0.1");
    EXPECT_EQ(uploads[0].description, "Tester/1.0");
    EXPECT_GT(uploads[0].port, 0);

    EXPECT_TRUE(registry_.Stop(uploads[0].id));
    EXPECT_LT(client.ReadToEnd().size(), video_.size());
    EXPECT_TRUE(testing::ReadUploads(UploadInfoText(registry_.List())).empty());
}

} // namespace
} // namespace corvid::gnutella
