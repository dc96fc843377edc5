// Download.dll as the plug-in meets it: loaded by name, its seven exports looked up by their
// plain names, one file fetched from a server inside this program, the events in order.
#include <windows.h>

#include <condition_variable>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <io.h>
#include <mutex>
#include <thread>

#include "download/dll/download_api.h"
#include "tests/download/test_support.h"

namespace corvid::download::testing {
namespace {

struct Exports {
    decltype(&CreateDownloadObject) create = nullptr;
    decltype(&AddDownloadSource) addSource = nullptr;
    decltype(&::Download) download = nullptr;
    decltype(&GetDownloadInfo) info = nullptr;
    decltype(&StopDownload) stop = nullptr;
    decltype(&CloseDownloadObject) close = nullptr;
    decltype(&DeleteDownloadObject) remove = nullptr;
};

class DownloadDll : public ::testing::Test {
protected:
    void SetUp() override {
        module_ = LoadLibraryA("Download.dll");
        ASSERT_NE(module_, nullptr);
        auto find = [this](auto& slot, const char* name) {
            slot = reinterpret_cast<std::remove_reference_t<decltype(slot)>>(
                reinterpret_cast<void*>(GetProcAddress(module_, name)));
            EXPECT_NE(slot, nullptr) << name;
        };
        find(api_.create, "CreateDownloadObject");
        find(api_.addSource, "AddDownloadSource");
        find(api_.download, "Download");
        find(api_.info, "GetDownloadInfo");
        find(api_.stop, "StopDownload");
        find(api_.close, "CloseDownloadObject");
        find(api_.remove, "DeleteDownloadObject");
    }
    void TearDown() override {
        if (module_ != nullptr) {
            FreeLibrary(module_);
        }
    }

    HMODULE module_ = nullptr;
    Exports api_;
};

// What the callback saw, filled on the library's thread.
struct Seen {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::pair<std::uint32_t, int>> events; // (source, code)
    std::uint32_t length = 0;
    std::vector<std::string> requests;
    bool stopped = false;
};

int DOWNLOAD_CALL OnEvent(void* context, uint32_t, uint32_t source, int32_t event,
                          intptr_t argument) {
    auto& seen = *static_cast<Seen*>(context);
    std::lock_guard guard(seen.lock);
    seen.events.emplace_back(source, event);
    if (event == DOWNLOAD_EVENT_FILE_LENGTH) {
        seen.length = reinterpret_cast<const uint32_t*>(argument)[0];
    } else if (event == DOWNLOAD_EVENT_REQUEST_SENT) {
        seen.requests.emplace_back(reinterpret_cast<const char*>(argument));
    } else if (event == DOWNLOAD_EVENT_STOPPED) {
        seen.stopped = true;
    }
    seen.changed.notify_all();
    return 1;
}

TEST_F(DownloadDll, FetchesAFileFromALoopbackServerAndReportsInOrder) {
    const std::string content = RandomBytes(700 * 1024 + 5, 9);
    asio::io_context context;
    auto work = asio::make_work_guard(context);
    FaultServer server(
        context, [&](const HttpRequest& request, int) { return Reply::Range(content, request); });
    std::thread serverThread([&] { context.run(); });

    TempDir dir;
    const std::string target = dir.file("file.bin");
    Seen seen;
    const uint32_t handle = api_.create(target.c_str());
    ASSERT_NE(handle, 0u);
    EXPECT_EQ(api_.addSource(handle, "ftp://nowhere/file"), 0u);
    const uint32_t source =
        api_.addSource(handle, server.url("/uri-res/N2R?" + Sha1Urn(content)).c_str());
    ASSERT_NE(source, 0u);
    EXPECT_EQ(api_.info(handle, 0, DOWNLOAD_INFO_PERCENT), -1) << "length not known yet";
    ASSERT_EQ(api_.download(handle, &OnEvent, &seen), 1);
    {
        std::unique_lock guard(seen.lock);
        ASSERT_TRUE(
            seen.changed.wait_for(guard, std::chrono::seconds(60), [&] { return seen.stopped; }));
    }
    EXPECT_EQ(api_.info(handle, 0, DOWNLOAD_INFO_PERCENT), 100);
    EXPECT_EQ(api_.info(handle, 0, DOWNLOAD_INFO_SOURCES), 1);
    api_.remove(handle);
    EXPECT_EQ(api_.info(handle, 0, DOWNLOAD_INFO_PERCENT), -1) << "the handle is gone";

    asio::post(context, [&] { context.stop(); });
    serverThread.join();

    EXPECT_EQ(ReadWholeFile(target), content);
    EXPECT_EQ(seen.length, content.size());
    ASSERT_FALSE(seen.requests.empty());
    EXPECT_EQ(seen.requests.front().rfind("GET /uri-res/N2R?urn:sha1:", 0), 0u);

    // The source's first events come in connection order; the download's own frame the rest.
    std::vector<int> sourceCodes;
    for (const auto& [id, code] : seen.events) {
        if (id == source && sourceCodes.size() < 5) {
            sourceCodes.push_back(code);
        }
    }
    EXPECT_EQ(sourceCodes,
              (std::vector<int>{DOWNLOAD_EVENT_CONNECTING, DOWNLOAD_EVENT_CONNECTED,
                                DOWNLOAD_EVENT_REQUEST_SENT, DOWNLOAD_EVENT_HEADER_RECEIVED,
                                DOWNLOAD_EVENT_RECEIVING}));
    ASSERT_GE(seen.events.size(), 3u);
    EXPECT_EQ(seen.events.front(), (std::pair<uint32_t, int>{0, DOWNLOAD_EVENT_STARTED}));
    EXPECT_EQ(seen.events[seen.events.size() - 2],
              (std::pair<uint32_t, int>{0, DOWNLOAD_EVENT_SUCCEEDED}));
    EXPECT_EQ(seen.events.back(), (std::pair<uint32_t, int>{0, DOWNLOAD_EVENT_STOPPED}));
}

TEST_F(DownloadDll, UnknownHandlesAreHarmless) {
    EXPECT_EQ(api_.create(nullptr), 0u);
    EXPECT_EQ(api_.addSource(12345, "http://a/b"), 0u);
    EXPECT_EQ(api_.download(12345, &OnEvent, nullptr), 0);
    EXPECT_EQ(api_.info(12345, 0, DOWNLOAD_INFO_SPEED), -1);
    api_.stop(12345);
    api_.close(12345);
    api_.remove(12345);
}

TEST_F(DownloadDll, DownloadWithoutSourcesEndsWithNoValidSource) {
    TempDir dir;
    Seen seen;
    const uint32_t handle = api_.create(dir.file("x").c_str());
    ASSERT_EQ(api_.download(handle, &OnEvent, &seen), 1);
    {
        std::unique_lock guard(seen.lock);
        ASSERT_TRUE(
            seen.changed.wait_for(guard, std::chrono::seconds(60), [&] { return seen.stopped; }));
    }
    api_.close(handle);
    EXPECT_EQ(seen.events,
              (std::vector<std::pair<uint32_t, int>>{{0, DOWNLOAD_EVENT_STARTED},
                                                     {0, DOWNLOAD_EVENT_NO_VALID_SOURCE},
                                                     {0, DOWNLOAD_EVENT_STOPPED}}));
}

} // namespace
} // namespace corvid::download::testing

int main(int argc, char** argv) {
    _setmode(_fileno(stdout), _O_BINARY);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
