#include "fakes.h"

#include <gtest/gtest.h>

namespace corvid::transfer::testing {
namespace {

constexpr const char* kSha1 = "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X";
constexpr const char* kOtherSha1 = "AAAAWY2RI5WZCTEP6MJKR5CAFGP7FQ5X";

std::string Describe(const std::vector<SavedDownload>& list) {
    std::string text;
    for (const auto& saved : list) {
        text += saved.sha1 + "|" + saved.localPath + "|" + std::to_string(saved.state) + "|" +
                std::to_string(saved.progress) + "\n";
        for (const auto& s : saved.sources)
            text += " " + s.name + "|" + s.host + "|" + std::to_string(s.port) + "|" +
                    std::to_string(s.fileIndex) + "|" + std::to_string(s.size) + "|" +
                    std::to_string(s.speed) + "|" + s.type + "|" + s.vendorCode + "|" +
                    std::to_string(s.browsable) + "|" + s.nodeId + "|" + s.info + "|" +
                    std::to_string(s.push) + "\n";
    }
    return text;
}

SavedDownload Saved(std::string sha1, std::int32_t state,
                    std::string path = "C:\\Corvid\\download\\song.mp3") {
    SavedDownload saved;
    saved.sha1 = std::move(sha1);
    saved.localPath = std::move(path);
    saved.state = state;
    saved.progress = 40;
    saved.sources = {Hit("song.mp3", "10.0.0.1"), Hit("song.mp3", "10.0.0.2", 6347)};
    return saved;
}

TEST(DownloadListFile, WhatIsWrittenReadsBackUnchanged) {
    auto tricky = Saved(kSha1, kItemDownloading);
    tricky.sources[0].name = "a \"quoted\" <name> & more\r\n\ttabbed  ";
    tricky.sources[1].info = "&amp; stays literal";
    const std::vector<SavedDownload> list = {
        tricky, Saved(kOtherSha1, kItemCompleted, "C:\\Corvid\\download\\b.mp3")};
    EXPECT_EQ(Describe(ReadDownloadList(WriteDownloadList(list))), Describe(list));
    EXPECT_TRUE(ReadDownloadList(WriteDownloadList({})).empty());
}

TEST(DownloadListFile, UntrustworthyRecordsAreDropped) {
    const auto good = Saved(kSha1, kItemStopped);
    auto badSha1 = Saved("../../x", kItemStopped);
    auto badState = Saved(kOtherSha1, 3);
    auto noSources = Saved("B" + std::string(kOtherSha1 + 1), kItemStopped);
    noSources.sources.clear();
    auto repeat = Saved(kSha1, kItemCompleted);
    std::vector<SavedDownload> list = {good, badSha1, badState, noSources, repeat};
    for (const char* path : {"C:\\Corvid\\..\\Windows\\x.dll", "relative\\x", "\\\\host\\share\\x",
                             "C:\\Corvid\\download\\con", "C:\\Corvid\\a:stream", ""}) {
        auto badPath = Saved("C" + std::string(kOtherSha1 + 1), kItemStopped, path);
        list.push_back(badPath);
    }
    EXPECT_EQ(Describe(ReadDownloadList(WriteDownloadList(list))), Describe({good}));

    for (const char* garbage :
         {"", "<downloads", "<downloads><download sha1=\"", "\xff\xfe<x/>",
          "<downloads><download sha1=\"ABC\" path=\"C:\\x\" state=\"5\"><source/></download>"}) {
        const auto read = ReadDownloadList(garbage);
        EXPECT_LE(read.size(), 1u) << garbage;
    }
}

TEST(DownloadListFile, PlainLocalPaths) {
    EXPECT_TRUE(IsPlainLocalPath("C:\\Corvid\\download\\song (2).mp3"));
    EXPECT_TRUE(IsPlainLocalPath("/home/user/download/song.mp3"));
    EXPECT_FALSE(IsPlainLocalPath("C:\\Corvid\\download\\"));
    EXPECT_FALSE(IsPlainLocalPath("C:\\Corvid\\.\\song.mp3"));
    EXPECT_FALSE(IsPlainLocalPath("C:/Corvid/song.mp3"));
    EXPECT_FALSE(IsPlainLocalPath("C:\\Corvid\\song.mp3 "));
}

class RestoreTest : public PageFixture, public ::testing::Test {
protected:
    std::shared_ptr<DownloadItem> Only() {
        const auto items = page.Items();
        return items.size() == 1 ? items.front() : nullptr;
    }
};

TEST_F(RestoreTest, ARunningItemResumesOnItsOwnFile) {
    ASSERT_TRUE(page.Restore(Saved(kSha1, kItemDownloading), true));
    const auto item = Only();
    ASSERT_TRUE(item);
    EXPECT_EQ(item->state, kItemCreated);
    const auto object = engine.Get(item->handle);
    EXPECT_EQ(object.path, "C:\\Corvid\\download\\song.mp3");
    EXPECT_TRUE(object.downloading);
    EXPECT_EQ(object.sources.size(), 2u);
    EXPECT_EQ(list.Cell(*item, 33008), "multiple(2)");
    EXPECT_EQ(engine.Fire(item->handle, 0, 1), 1);
    EXPECT_EQ(item->state, kItemDownloading);

    // The snapshot carries it on to the next run, and the same SHA1 is not restored twice.
    const auto snapshot = page.Snapshot();
    ASSERT_EQ(snapshot.size(), 1u);
    EXPECT_EQ(snapshot[0].state, kItemDownloading);
    EXPECT_EQ(snapshot[0].sources.size(), 2u);
    EXPECT_FALSE(page.Restore(Saved(kSha1, kItemDownloading), true));

    page.BeginClosing();
    page.CloseEngineObjects();
    EXPECT_TRUE(engine.Get(item->handle).closed);
    EXPECT_FALSE(engine.Get(item->handle).deleted) << "the range map stays for the next run";
}

TEST_F(RestoreTest, WithoutAutomaticResumeARunningItemComesBackStopped) {
    ASSERT_TRUE(page.Restore(Saved(kSha1, kItemDownloading), false));
    const auto item = Only();
    EXPECT_EQ(item->state, kItemStopped);
    EXPECT_TRUE(engine.objects.empty());
    EXPECT_EQ(list.Cell(*item, 33024), "Stopped");
    EXPECT_EQ(list.Cell(*item, 33023), "40%");
    page.RequestRestart(item);
    page.RunQueuedCommands();
    EXPECT_EQ(item->state, kItemDownloading);
    EXPECT_EQ(engine.Get(item->handle).path, item->localPath);
}

TEST_F(RestoreTest, FinishedAndStarvedItemsComeBackAsTheyWere) {
    ASSERT_TRUE(page.Restore(Saved(kSha1, kItemCompleted), true));
    ASSERT_TRUE(page.Restore(Saved(kOtherSha1, kItemNeedsSources, "C:\\d\\b.mp3"), true));
    EXPECT_TRUE(engine.objects.empty());
    const auto items = page.Items();
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(list.Cell(*items[0], 33024), "Completed");
    EXPECT_EQ(list.Cell(*items[0], 33023), "100%");
    EXPECT_EQ(list.Cell(*items[1], 33024), "More sources needed");
    EXPECT_EQ(page.Sha1sNeedingSources(), std::vector<std::string>{kOtherSha1});
}

TEST_F(RestoreTest, SourcesFoundForAStarvedItemRestartIt) {
    ASSERT_TRUE(page.Restore(Saved(kSha1, kItemNeedsSources), true));
    const auto item = Only();
    // Known hosts, other sizes and hostile addresses are not taken.
    EXPECT_FALSE(page.OfferFoundSource(kSha1, Hit("song.mp3", "10.0.0.1")));
    EXPECT_FALSE(page.OfferFoundSource(kSha1, Hit("song.mp3", "10.0.0.9", 6346, 99)));
    EXPECT_FALSE(page.OfferFoundSource(kSha1, Hit("song.mp3", "10.0.0.9/x?", 6346)));
    EXPECT_FALSE(page.OfferFoundSource(kOtherSha1, Hit("song.mp3", "10.0.0.9")));
    EXPECT_EQ(page.Queue().Count(), 0u);

    EXPECT_TRUE(page.OfferFoundSource(kSha1, Hit("song.mp3", "10.0.0.9", 6350)));
    page.RunQueuedCommands();
    EXPECT_EQ(item->state, kItemDownloading);
    const auto object = engine.Get(item->handle);
    ASSERT_EQ(object.sources.size(), 3u);
    EXPECT_EQ(object.sources.rbegin()->second,
              "http://10.0.0.9:6350/uri-res/N2R?urn:sha1:" + std::string(kSha1));
    // A running item takes new hits the ordinary way, not as found sources.
    EXPECT_FALSE(page.OfferFoundSource(kSha1, Hit("song.mp3", "10.0.0.10")));
}

} // namespace
} // namespace corvid::transfer::testing
