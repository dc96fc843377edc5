#include "fakes.h"

#include <gtest/gtest.h>

namespace corvid::transfer::testing {
namespace {

constexpr const char* kSha1 = "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X";

std::vector<std::pair<std::int32_t, std::string>> Lines(const DownloadSource& source) {
    std::vector<std::pair<std::int32_t, std::string>> lines;
    for (const auto& line : source.log->LinesFrom(0).lines)
        lines.push_back({line.kind, line.text});
    return lines;
}

std::vector<std::int32_t> QueuedCodes(CommandQueue& queue) {
    std::vector<std::int32_t> codes;
    Command head;
    while (queue.ReadHead(head)) {
        codes.push_back(head.code);
        queue.PopFront();
    }
    return codes;
}

class DownloadEventsTest : public PageFixture, public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(page.StartDownload(
            Group(kSha1, {Hit("a.mp3", "10.0.0.1"), Hit("a.mp3", "10.0.0.2")}), false));
        item = page.FindBySha1(kSha1);
        handle = item->handle;
        first = item->sources[0];
        second = item->sources[1];
    }
    int Fire(const std::shared_ptr<DownloadSource>& source, std::int32_t code,
             std::uintptr_t argument = 0) {
        return engine.Fire(handle, source->sourceId, code, argument);
    }
    std::shared_ptr<DownloadItem> item;
    std::uint32_t handle = 0;
    std::shared_ptr<DownloadSource> first, second;
};

TEST_F(DownloadEventsTest, ItemEventsAreLoggedOnEverySource) {
    const std::uint32_t words[3] = {4096, 0, 0};
    engine.Fire(handle, 0, 1);
    engine.Fire(handle, 0, 16, reinterpret_cast<std::uintptr_t>(words));
    engine.Fire(handle, 0, 18);
    engine.Fire(handle, 0, 0);
    const std::vector<std::pair<std::int32_t, std::string>> expected = {
        {kLogStatus, "Download start"},
        {kLogStatus, "Retrieve file length 4096 bytes"},
        {kLogStatus, "Download stopped."}};
    EXPECT_EQ(Lines(*first), expected);
    EXPECT_EQ(Lines(*second), expected);
    EXPECT_EQ(list.refreshes, 2);
    // Not shown in the pane: only the row update is queued.
    EXPECT_EQ(QueuedCodes(page.Queue()), std::vector<std::int32_t>{kCmdUpdateRow});
    for (const auto& line : first->log->LinesFrom(0).lines)
        EXPECT_EQ(line.time, clock.now);
}

TEST_F(DownloadEventsTest, SourceEventsSetStatusReceivedAndLog) {
    Fire(first, 4, reinterpret_cast<std::uintptr_t>("10.0.0.1:6346"));
    EXPECT_EQ(first->status, kSourceConnecting);
    Fire(first, 12);
    EXPECT_EQ(first->status, kSourceReceiving);
    Fire(first, 13, 1000);
    Fire(second, 13, 500);
    EXPECT_EQ(first->received, 1000);
    EXPECT_EQ(item->receivedTotal, 1500);
    Fire(first, 19, static_cast<std::uintptr_t>(-7));
    EXPECT_EQ(first->status, kSourceFailed);
    EXPECT_EQ(first->received, -1);
    EXPECT_EQ(item->receivedTotal, 500);
    Fire(first, 3);
    EXPECT_EQ(first->status, kSourceWaiting);
    Fire(first, 8);
    Fire(first, 4, 0); // a missing text reads as empty
    EXPECT_EQ(Lines(*first), (std::vector<std::pair<std::int32_t, std::string>>{
                                 {kLogStatus, "Connecting... [10.0.0.1:6346]"},
                                 {kLogStatus, "Receiving data..."},
                                 {kLogError, "Error occured: -7"},
                                 {kLogStatus, "Waiting 5 seconds to retry"},
                                 {kLogStatus, "Unknown state"},
                                 {kLogStatus, "Connecting... []"}}));
    EXPECT_TRUE(Lines(*second).empty());
    // Each logged source event asks for the detail view while the detail flag is clear.
    EXPECT_EQ(QueuedCodes(page.Queue()), std::vector<std::int32_t>(6, kCmdRefreshDetail));
}

TEST_F(DownloadEventsTest, RequestAndHeaderLinesKeepTheirKinds) {
    Fire(first, 9,
         reinterpret_cast<std::uintptr_t>("GET /uri-res/N2R HTTP/1.1\r\nRange: 0-\r\n\r\n"));
    Fire(first, 11, reinterpret_cast<std::uintptr_t>("HTTP/1.1 200 OK\r\nServer: X\r\n"));
    EXPECT_EQ(Lines(*first), (std::vector<std::pair<std::int32_t, std::string>>{
                                 {kLogStatus, "Send request"},
                                 {kLogRequestLine, "GET /uri-res/N2R HTTP/1.1"},
                                 {kLogRequestLine, "Range: 0-"},
                                 {kLogStatus, "Received http header"},
                                 {kLogResponseLine, "HTTP/1.1 200 OK"},
                                 {kLogResponseLine, "Server: X"}}));
    EXPECT_EQ(QueuedCodes(page.Queue()), std::vector<std::int32_t>{kCmdRebuildSources});
}

TEST_F(DownloadEventsTest, AltSourcesFromAHeaderBecomeSources) {
    const std::string header = "HTTP/1.1 206 Partial\r\nX-Alt: 10.0.0.7, 10.0.0.8:6347, "
                               "10.0.0.1:6346\r\n\r\n";
    Fire(first, 11, reinterpret_cast<std::uintptr_t>(header.c_str()));
    Fire(first, 11, reinterpret_cast<std::uintptr_t>(header.c_str()));
    page.RunQueuedCommands();
    ASSERT_EQ(item->sources.size(), 4u);
    EXPECT_EQ(item->sources[2]->url,
              "http://10.0.0.7:6346/uri-res/N2R?urn:sha1:" + std::string(kSha1));
    EXPECT_EQ(item->sources[3]->url,
              "http://10.0.0.8:6347/uri-res/N2R?urn:sha1:" + std::string(kSha1));
    EXPECT_EQ(page.FindSource(handle, item->sources[3]->sourceId), item->sources[3]);
    EXPECT_EQ(engine.Get(handle).sources.size(), 4u);
}

TEST_F(DownloadEventsTest, AltSourcesForAStoppedItemAreDropped) {
    const std::string header = "X-Alt: 10.0.0.7\r\n";
    Fire(first, 11, reinterpret_cast<std::uintptr_t>(header.c_str()));
    page.RequestStop(item); // runs behind the queued alternate source
    AltSourceRecord late{handle, "http://10.0.0.9:1/uri-res/N2R?urn:sha1:x"};
    page.RunQueuedCommands();
    page.AddAltSource(late);
    EXPECT_TRUE(item->sources.empty());
    EXPECT_EQ(engine.Get(handle).sources.size(), 3u);
}

TEST_F(DownloadEventsTest, TheShownItemDrivesThePane) {
    page.SetShownItem(item);
    Fire(first, 12);
    EXPECT_EQ(QueuedCodes(page.Queue()),
              (std::vector<std::int32_t>{kCmdRefreshDetail, kCmdUpdateSource}));
    Fire(first, 12); // the status does not change again
    EXPECT_EQ(QueuedCodes(page.Queue()), std::vector<std::int32_t>{kCmdRefreshDetail});

    page.SetDetailed(true);
    Fire(first, 13, 77);
    Fire(first, 6);
    EXPECT_TRUE(QueuedCodes(page.Queue()).empty());
    engine.Fire(handle, 0, 1);
    EXPECT_TRUE(QueuedCodes(page.Queue()).empty());
    EXPECT_EQ(pane.Take(), (std::vector<std::string>{"ShowReceived 77", "AppendLogLines"}));

    page.SetDetailed(false);
    Fire(second, 4, reinterpret_cast<std::uintptr_t>("x"));
    QueuedCodes(page.Queue());
    engine.Fire(handle, 0, 22);
    EXPECT_EQ(first->status, kSourceIdle);
    EXPECT_EQ(second->status, kSourceIdle);
    EXPECT_EQ(item->state, kItemStopped);
    EXPECT_EQ(QueuedCodes(page.Queue()),
              (std::vector<std::int32_t>{kCmdUpdateSource, kCmdUpdateSource, kCmdRefreshDetail}));
    EXPECT_EQ(Lines(*second).back(),
              std::make_pair(std::int32_t{kLogStatus}, std::string("User Abortted")));
}

TEST_F(DownloadEventsTest, WorkerCommandsReachThePane) {
    page.SetShownItem(item);
    page.Queue().Post(kCmdUpdateSource, first);
    page.Queue().Post(kCmdRefreshDetail, item);
    page.Queue().Post(kCmdForgetInPane, item);
    page.Queue().Post(kCmdForgetInPane, std::shared_ptr<DownloadItem>());
    page.Queue().Post(kCmdRebuildSources, item);
    page.Queue().Post(kCmdNone);
    page.Queue().Post(99);
    page.Queue().Post(kCmdStop, item);
    EXPECT_EQ(page.RunQueuedCommands(), 8u);
    EXPECT_EQ(pane.Take(), (std::vector<std::string>{
                               "UpdateSource " + std::to_string(first->sourceId), "RefreshDetail",
                               "ForgetItem", "RefreshDetail", "RebuildSources", "Clear"}));
    EXPECT_FALSE(page.ShownItem());
}

TEST_F(DownloadEventsTest, StartingWithShowNowShowsTheItem) {
    ASSERT_TRUE(page.StartDownload(Group("OTHER", {Hit("b", "10.0.0.3")}), true));
    EXPECT_EQ(page.ShownItem(), page.FindBySha1("OTHER"));
    page.RunQueuedCommands();
    EXPECT_EQ(pane.Take(), std::vector<std::string>{"RebuildSources"});
}

} // namespace
} // namespace corvid::transfer::testing
