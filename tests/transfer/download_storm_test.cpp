// Engine events from several threads against user commands and the real worker thread. Built by
// the ThreadSanitizer preset as well; the native preset runs it under AddressSanitizer.

#include "fakes.h"
#include "transfer/engine_events.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>

namespace corvid::transfer::testing {
namespace {

constexpr int kItems = 100;
constexpr int kSourcesPerItem = 8;
constexpr int kEventThreads = 4;
constexpr int kEventsPerThread = 6000;

std::string Sha1Of(int index) {
    return "SHA" + std::to_string(index);
}

ResultGroup ItemGroup(int index) {
    std::vector<ResultSource> sources;
    for (int s = 0; s < kSourcesPerItem; ++s)
        sources.push_back(Hit("file" + std::to_string(index) + ".bin",
                              "10." + std::to_string(index) + ".0." + std::to_string(s)));
    return Group(Sha1Of(index), std::move(sources));
}

// Some live or dead engine object with one of its source ids (or an id it never gave).
std::pair<std::uint32_t, std::uint32_t> RandomTarget(FakeEngine& engine, std::mt19937& random) {
    std::lock_guard guard(engine.lock);
    auto object = engine.objects.begin();
    std::advance(object, random() % engine.objects.size());
    const auto& sources = object->second.sources;
    if (sources.empty() || random() % 16 == 0)
        return {object->first, 900000 + random() % 10};
    auto source = sources.begin();
    std::advance(source, random() % sources.size());
    return {object->first, source->first};
}

// Returns how many events an item took.
int FireRandomEvents(FakeEngine& engine, unsigned seed) {
    int taken = 0;
    std::mt19937 random(seed);
    // Every event but those that end a download (21, 22, 23): the final states must be the ones
    // the user asked for.
    std::vector<std::int32_t> codes;
    for (std::int32_t code = 0; code <= 21; ++code)
        if (code != 21)
            codes.push_back(code);
    codes.push_back(30);
    const std::uint32_t words[3] = {123456, 0, 0};
    for (int i = 0; i < kEventsPerThread; ++i) {
        const auto [handle, sourceId] = RandomTarget(engine, random);
        const auto code = codes[random() % codes.size()];
        std::string text;
        std::uintptr_t argument = random() % 100000;
        switch (code) {
        case 4:
        case 5:
        case 14:
        case 15:
            text = "10.1.2.3:6346";
            break;
        case 9:
            text = "GET /uri-res/N2R?urn:sha1:X HTTP/1.1\r\nRange: bytes=0-\r\n";
            break;
        case 11:
            text = "HTTP/1.1 206 Partial Content\r\nX-Alt: 10.200." + std::to_string(random() % 4) +
                   ".1, 10.201.0.1:6347\r\n";
            break;
        case 16:
            argument = reinterpret_cast<std::uintptr_t>(words);
            break;
        default:
            break;
        }
        if (!text.empty())
            argument = reinterpret_cast<std::uintptr_t>(text.c_str());
        taken += engine.Fire(handle, sourceId, code, argument) == 1;
    }
    return taken;
}

TEST(DownloadStorm, EventsCommandsAndTheWorkerAgreeOnTheEnd) {
    PageFixture fixture;
    auto& page = fixture.page;
    for (int i = 0; i < kItems; ++i)
        ASSERT_TRUE(page.StartDownload(ItemGroup(i), false));
    std::vector<std::shared_ptr<DownloadItem>> items;
    std::vector<std::uint32_t> firstHandles;
    for (int i = 0; i < kItems; ++i) {
        items.push_back(page.FindBySha1(Sha1Of(i)));
        firstHandles.push_back(items.back()->handle);
        ASSERT_EQ(items.back()->sources.size(), std::size_t{kSourcesPerItem});
    }

    {
        DownloadWorker worker(page);
        std::vector<std::thread> engineThreads;
        std::vector<int> taken(kEventThreads);
        for (int t = 0; t < kEventThreads; ++t)
            engineThreads.emplace_back(
                [&, t] { taken[t] = FireRandomEvents(fixture.engine, 1234u + t); });

        // The user: every fourth item deleted, stopped, stopped and restarted, or completed by
        // the engine; a few new downloads and pane changes in between.
        for (int i = 0; i < kItems; ++i) {
            const auto& item = items[i];
            switch (i % 4) {
            case 0:
                page.RequestDelete({item});
                break;
            case 1:
                page.RequestStop(item);
                break;
            case 2:
                page.RequestStop(item);
                page.RequestRestart(item);
                break;
            case 3:
                fixture.engine.Fire(firstHandles[i], 0, kEventSucceeded);
                break;
            }
            page.SetShownItem(items[(i * 7) % kItems]);
            page.SetDetailed(i % 3 == 0);
            if (i % 10 == 0) {
                ASSERT_TRUE(page.StartDownload(ItemGroup(kItems + i), false));
            }
        }
        for (auto& thread : engineThreads)
            thread.join();
        // Most events went to live items (the rest to dead handles or unknown sources).
        for (int t = 0; t < kEventThreads; ++t)
            EXPECT_GT(taken[t], kEventsPerThread / 10) << t;
        ASSERT_TRUE(page.Queue().WaitUntilEmpty(std::chrono::seconds(120)))
            << "the worker did not finish its commands: " << page.Queue().Count() << " left";
    }

    const auto remaining = page.Items();
    EXPECT_EQ(remaining.size(), std::size_t{kItems - kItems / 4 + kItems / 10});
    for (int i = 0; i < kItems; ++i) {
        const auto& item = items[i];
        std::lock_guard guard(item->lock);
        const auto listed = std::count(remaining.begin(), remaining.end(), item) == 1;
        const auto first = fixture.engine.Get(firstHandles[i]);
        const bool removed = std::count(fixture.files.removed.begin(), fixture.files.removed.end(),
                                        item->localPath) == 1;
        switch (i % 4) {
        case 0:
            EXPECT_FALSE(listed) << i;
            EXPECT_FALSE(fixture.list.HasRow(*item)) << i;
            EXPECT_TRUE(removed) << i;
            EXPECT_TRUE(first.stopped && first.deleted) << i;
            break;
        case 1:
            EXPECT_TRUE(listed) << i;
            EXPECT_EQ(item->state, kItemStopped) << i;
            EXPECT_TRUE(first.closed) << i;
            EXPECT_FALSE(page.FindByHandle(item->handle)) << i;
            EXPECT_TRUE(item->sources.empty()) << i;
            EXPECT_EQ(fixture.list.Cell(*item, kColumnStatus), "Stopped") << i;
            break;
        case 2:
            EXPECT_TRUE(listed) << i;
            EXPECT_EQ(item->state, kItemDownloading) << i;
            EXPECT_NE(item->handle, firstHandles[i]) << i;
            EXPECT_EQ(page.FindByHandle(item->handle), item) << i;
            EXPECT_GE(item->sources.size(), std::size_t{kSourcesPerItem}) << i;
            for (const auto& source : item->sources)
                EXPECT_EQ(page.FindSource(item->handle, source->sourceId), source) << i;
            break;
        case 3:
            EXPECT_TRUE(listed) << i;
            EXPECT_EQ(item->state, kItemCompleted) << i;
            EXPECT_TRUE(first.deleted) << i;
            EXPECT_FALSE(removed) << i;
            EXPECT_TRUE(item->sources.empty()) << i;
            EXPECT_EQ(fixture.list.Cell(*item, kColumnStatus), "Completed") << i;
            break;
        }
        if (!listed) {
            EXPECT_FALSE(page.FindByHandle(firstHandles[i])) << i;
        }
    }
    // Every source the page still knows belongs to a live item that lists it.
    for (const auto& item : remaining) {
        std::lock_guard guard(item->lock);
        if (page.FindByHandle(item->handle) != item)
            continue;
        for (const auto& source : item->sources)
            EXPECT_EQ(source->handle, item->handle);
    }
    EXPECT_EQ(fixture.list.rows.size(), remaining.size());
}

} // namespace
} // namespace corvid::transfer::testing
