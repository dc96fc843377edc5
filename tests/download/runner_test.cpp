// A download on its own thread, as Download.dll runs it; built for ThreadSanitizer too.
#include <condition_variable>
#include <gtest/gtest.h>
#include <thread>

#include "download/core/download_runner.h"
#include "tests/download/test_support.h"

namespace corvid::download::testing {
namespace {

// The fault server on a thread of its own, so the test thread is free to wait.
class ServerThread {
public:
    explicit ServerThread(FaultServer::Policy policy)
        : work_(asio::make_work_guard(context_)), server_(context_, std::move(policy)),
          thread_([this] { context_.run(); }) {}
    ~ServerThread() {
        asio::post(context_, [this] { context_.stop(); });
        thread_.join();
    }
    std::string url(const std::string& target) const { return server_.url(target); }

private:
    asio::io_context context_;
    asio::executor_work_guard<asio::io_context::executor_type> work_;
    FaultServer server_;
    std::thread thread_;
};

class WaitableLog {
public:
    EventHandler handler(std::function<void(const DownloadEvent&)> also = {}) {
        return [this, also](const DownloadEvent& event) {
            if (also) {
                also(event);
            }
            // Notified under the lock: once a waiter has seen the last event, this handler
            // touches the log no more, even on a thread nobody waits for.
            std::lock_guard guard(lock_);
            codes_.push_back(event.code);
            changed_.notify_all();
        };
    }
    bool waitFor(EventCode code) {
        std::unique_lock guard(lock_);
        return changed_.wait_for(guard, std::chrono::seconds(60), [&] {
            return std::find(codes_.begin(), codes_.end(), code) != codes_.end();
        });
    }
    std::vector<EventCode> codes() {
        std::lock_guard guard(lock_);
        return codes_;
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<EventCode> codes_;
};

TEST(DownloadRunner, DownloadsOnItsOwnThread) {
    const std::string content = RandomBytes(300 * 1024, 3);
    ServerThread server(
        [&](const HttpRequest& request, int) { return Reply::Range(content, request); });
    TempDir dir;
    WaitableLog log;
    DownloadRunner runner(dir.file("f"), FastOptions());
    EXPECT_NE(runner.addSource(server.url("/f?" + Sha1Urn(content))), 0u);
    EXPECT_NE(runner.addSource(server.url("/g")), 0u);
    ASSERT_TRUE(runner.start(log.handler()));
    EXPECT_FALSE(runner.start(log.handler())) << "starts once";
    ASSERT_TRUE(log.waitFor(EventCode::Stopped));
    runner.finish(DownloadRunner::Finish::Close);
    const auto codes = log.codes();
    EXPECT_EQ(codes.front(), EventCode::Started);
    EXPECT_EQ(codes[codes.size() - 2], EventCode::Succeeded);
    EXPECT_EQ(ReadWholeFile(dir.file("f")), content);
    EXPECT_EQ(runner.info(InfoCode::Percent), 100);
}

TEST(DownloadRunner, FinishFromInsideAnEventDoesNotWaitForItself) {
    const std::string content = RandomBytes(100 * 1024, 4);
    ServerThread server(
        [&](const HttpRequest& request, int) { return Reply::Range(content, request); });
    TempDir dir;
    WaitableLog log;
    auto runner = std::make_unique<DownloadRunner>(dir.file("f"), FastOptions());
    runner->addSource(server.url("/f"));
    DownloadRunner* raw = runner.get();
    ASSERT_TRUE(runner->start(log.handler([raw](const DownloadEvent& event) {
        if (event.code == EventCode::ReceivingData) {
            raw->finish(DownloadRunner::Finish::Close);
        }
    })));
    ASSERT_TRUE(log.waitFor(EventCode::Stopped));
    runner.reset();
    const auto codes = log.codes();
    EXPECT_EQ(std::count(codes.begin(), codes.end(), EventCode::Stopped), 1);
    EXPECT_EQ(codes.back(), EventCode::Stopped);
}

TEST(DownloadRunner, StopAndFinishRacingTheTransferAreSafe) {
    const std::string content = RandomBytes(200 * 1024, 5);
    ServerThread server(
        [&](const HttpRequest& request, int) { return Reply::Range(content, request); });
    for (int round = 0; round < 5; ++round) {
        TempDir dir;
        WaitableLog log;
        DownloadRunner runner(dir.file("f"), FastOptions());
        runner.addSource(server.url("/f"));
        runner.addSource(server.url("/g"));
        runner.start(log.handler());
        runner.addSource(server.url("/h"));
        runner.stop();
        runner.finish(round % 2 ? DownloadRunner::Finish::Forget : DownloadRunner::Finish::Close);
        EXPECT_EQ(runner.info(InfoCode::Transferring), 0);
    }
}

} // namespace
} // namespace corvid::download::testing
