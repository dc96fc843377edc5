// Whole downloads against nginx on several loopback ports.
#include <filesystem>
#include <gtest/gtest.h>

#include "tests/download/test_support.h"

namespace corvid::download::testing {
namespace {

class NginxSwarm : public ::testing::Test {
protected:
    void SetUp() override {
        content_ = RandomBytes(3 * 1024 * 1024 + 12345, 7);
        std::filesystem::create_directory(www_.file("www"));
        WriteWholeFile(www_.file("www/file.bin"), content_);
        nginx_ = std::make_unique<NginxServer>(www_.file("www"), 4);
        ASSERT_TRUE(nginx_->running()) << "nginx did not start";
    }

    std::string url(int port) const {
        return nginx_->url(port, "file.bin") + "?" + Sha1Urn(content_);
    }

    TempDir www_;
    TempDir downloads_;
    std::string content_;
    std::unique_ptr<NginxServer> nginx_;
    asio::io_context context_;
};

TEST_F(NginxSwarm, FetchesTheFileFromEverySourceAndChecksIt) {
    EventLog log;
    Download download(context_, downloads_.file("file.bin"), FastOptions());
    std::vector<std::uint32_t> ids;
    for (int i = 0; i < 4; ++i) {
        ids.push_back(download.addSource(url(i)));
        ASSERT_NE(ids.back(), 0u);
    }
    ASSERT_TRUE(download.start(log.handler()));
    ASSERT_TRUE(RunUntil(context_, [&] { return log.ended(); }));

    EXPECT_EQ(ReadWholeFile(downloads_.file("file.bin")), content_);
    const auto codes = log.codes();
    EXPECT_EQ(codes.front(), EventCode::Started);
    EXPECT_EQ(codes.back(), EventCode::Stopped);
    EXPECT_EQ(codes[codes.size() - 2], EventCode::Succeeded);
    EXPECT_EQ(log.count(EventCode::FileLength), 1u);
    for (std::uint32_t id : ids) {
        const auto mine = log.codesFor(id);
        EXPECT_NE(std::find(mine.begin(), mine.end(), EventCode::ReceivingData), mine.end())
            << "source " << id << " was never used";
    }
    EXPECT_EQ(download.info(InfoCode::Percent), 100);
    EXPECT_EQ(download.info(InfoCode::Transferring), 0);
    EXPECT_FALSE(std::filesystem::exists(download.paths().rangeMap)) << "no map after success";
}

TEST_F(NginxSwarm, ReportsRequestsAndHeadersAsTheyGo) {
    EventLog log;
    Download download(context_, downloads_.file("file.bin"), FastOptions());
    const std::uint32_t id = download.addSource(url(0));
    download.start(log.handler());
    ASSERT_TRUE(RunUntil(context_, [&] { return log.ended(); }));
    bool sawRequest = false;
    bool sawHeader = false;
    for (const auto& event : log.events()) {
        if (event.code == EventCode::RequestSent && event.sourceId == id) {
            sawRequest = true;
            EXPECT_EQ(event.text.rfind("GET /file.bin?urn:sha1:", 0), 0u) << event.text;
            EXPECT_NE(event.text.find("\r\nRange: bytes="), std::string::npos);
        }
        if (event.code == EventCode::HeaderReceived && event.sourceId == id) {
            sawHeader = true;
            EXPECT_EQ(event.text.rfind("HTTP/1.1 206", 0), 0u) << event.text;
            EXPECT_NE(event.text.find("Content-Range: bytes "), std::string::npos);
        }
    }
    EXPECT_TRUE(sawRequest);
    EXPECT_TRUE(sawHeader);
}

TEST_F(NginxSwarm, TemporaryFolderHoldsThePartialFileUntilTheEnd) {
    TempDir temporary;
    DownloadOptions options = FastOptions();
    options.temporaryFolder = temporary.path();
    EventLog log;
    Download download(context_, downloads_.file("file.bin"), options);
    download.addSource(url(1));
    download.addSource(url(2));
    download.start(log.handler());
    ASSERT_TRUE(RunUntil(context_, [&] { return log.ended(); }));
    EXPECT_TRUE(log.has(EventCode::Succeeded));
    EXPECT_EQ(ReadWholeFile(downloads_.file("file.bin")), content_);
    EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
}

TEST_F(NginxSwarm, MissingFileOnEveryServerEndsWithNoValidSource) {
    EventLog log;
    Download download(context_, downloads_.file("other.bin"), FastOptions());
    download.addSource(nginx_->url(0, "missing.bin"));
    download.addSource(nginx_->url(1, "missing.bin"));
    download.start(log.handler());
    ASSERT_TRUE(RunUntil(context_, [&] { return log.ended(); }));
    EXPECT_EQ(log.count(EventCode::InvalidSource), 2u);
    const auto codes = log.codes();
    EXPECT_EQ(codes[codes.size() - 2], EventCode::NoValidSource);
    EXPECT_FALSE(log.has(EventCode::Succeeded));
}

TEST_F(NginxSwarm, ResumedDownloadFetchesNoCompletedRangeAgain) {
    const std::string target = downloads_.file("file.bin");
    RangeSet before;
    {
        EventLog log;
        DownloadOptions options = FastOptions();
        Download download(context_, target, options);
        download.addSource(url(0));
        download.start(log.handler());
        // Close once a third of the file is in.
        ASSERT_TRUE(RunUntil(
            context_, [&] { return download.info(InfoCode::Percent) >= 33 || log.ended(); }));
        download.close();
        ASSERT_TRUE(RunUntil(context_, [&] { return log.ended(); }));
        EXPECT_FALSE(log.has(EventCode::Succeeded));
        const auto map = ParseRangeMap(ReadWholeFile(download.paths().rangeMap));
        ASSERT_TRUE(map) << "the range map survives the close";
        for (ByteSpan span : map->done) {
            before.add(span);
        }
        ASSERT_GT(before.total(), 0u);
    }
    const std::size_t requestsBefore = nginx_->rangesRequested().size();
    EventLog log;
    Download download(context_, target, FastOptions());
    for (int i = 0; i < 4; ++i) {
        download.addSource(url(i));
    }
    download.start(log.handler());
    ASSERT_TRUE(RunUntil(context_, [&] { return log.ended(); }));
    EXPECT_TRUE(log.has(EventCode::Succeeded));
    EXPECT_EQ(ReadWholeFile(target), content_);
    const auto ranges = nginx_->rangesRequested();
    ASSERT_GT(ranges.size(), requestsBefore);
    for (std::size_t i = requestsBefore; i < ranges.size(); ++i) {
        unsigned long long first = 0;
        unsigned long long last = 0;
        ASSERT_EQ(std::sscanf(ranges[i].c_str(), "bytes=%llu-%llu", &first, &last), 2) << ranges[i];
        EXPECT_FALSE(before.intersects({first, last + 1})) << "fetched again: " << ranges[i];
    }
}

} // namespace
} // namespace corvid::download::testing
