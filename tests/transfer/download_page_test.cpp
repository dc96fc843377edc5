#include "fakes.h"

#include <gtest/gtest.h>

namespace corvid::transfer::testing {
namespace {

constexpr const char* kSha1 = "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X";

class DownloadPageTest : public PageFixture, public ::testing::Test {
protected:
    std::shared_ptr<DownloadItem> Start(std::vector<ResultSource> sources,
                                        std::string sha1 = kSha1) {
        EXPECT_TRUE(page.StartDownload(Group(sha1, std::move(sources)), false));
        return page.FindBySha1(sha1);
    }
    std::shared_ptr<DownloadItem> StartOne() { return Start({Hit("song.mp3", "10.0.0.1")}); }
    void Post(std::int32_t command, const std::shared_ptr<DownloadItem>& item) {
        page.Queue().Post(command, item);
        page.RunQueuedCommands();
    }
    std::int32_t State(const std::shared_ptr<DownloadItem>& item) {
        std::lock_guard guard(item->lock);
        return item->state;
    }
};

TEST_F(DownloadPageTest, StartHandsEverySourceToTheEngineAndAddsTheRow) {
    engine.refusedUrls.insert("http://10.0.0.2:6347/uri-res/N2R?urn:sha1:" + std::string(kSha1));
    auto item = Start({Hit("song.mp3", "10.0.0.1"), Hit("other.mp3", "10.0.0.2", 6347),
                       Hit("x.mp3", "10.0.0.3", 80)});
    ASSERT_TRUE(item);
    EXPECT_EQ(item->localPath, "C:\\Corvid\\download\\song.mp3");
    EXPECT_EQ(item->state, kItemCreated);
    const auto object = engine.Get(item->handle);
    EXPECT_EQ(object.path, item->localPath);
    EXPECT_TRUE(object.downloading);
    // The refused source is skipped; the others are registered in order.
    ASSERT_EQ(item->sources.size(), 2u);
    EXPECT_EQ(item->sources[0]->url,
              "http://10.0.0.1:6346/uri-res/N2R?urn:sha1:" + std::string(kSha1));
    EXPECT_EQ(item->sources[1]->url,
              "http://10.0.0.3:80/uri-res/N2R?urn:sha1:" + std::string(kSha1));
    EXPECT_EQ(page.FindSource(item->handle, item->sources[1]->sourceId), item->sources[1]);

    EXPECT_EQ(list.Cell(*item, 33006), "song.mp3");
    EXPECT_EQ(list.Cell(*item, 33007), "1,234,567");
    EXPECT_EQ(list.Cell(*item, 33008), "multiple(3)");
    EXPECT_EQ(list.Cell(*item, 33009), "6346");
    EXPECT_EQ(list.Cell(*item, 33010), "7");
    EXPECT_EQ(list.Cell(*item, 33011), " ");
    EXPECT_EQ(list.Cell(*item, 33013), "CRVD");
    EXPECT_EQ(list.Cell(*item, 33014), "0");
    EXPECT_EQ(list.Cell(*item, 33015), kSha1);
    EXPECT_EQ(list.Cell(*item, 33019), "node");
    EXPECT_EQ(list.Cell(*item, 33023), "0");
    EXPECT_EQ(list.Cell(*item, 33024), "");
}

TEST_F(DownloadPageTest, OneSourceShowsItsHost) {
    auto item = StartOne();
    EXPECT_EQ(list.Cell(*item, 33008), "10.0.0.1");
}

TEST_F(DownloadPageTest, SameSha1TwiceShowsTheFileExistsDialogAndKeepsOneItem) {
    StartOne();
    EXPECT_FALSE(page.StartDownload(Group(kSha1, {Hit("again.mp3", "10.0.0.9")}), false));
    ASSERT_EQ(prompts.fileExists.size(), 1u);
    EXPECT_EQ(prompts.fileExists[0], "The file is already in downloading window:again.mp3");
    EXPECT_EQ(page.Items().size(), 1u);
    EXPECT_EQ(engine.objects.size(), 1u);
}

TEST_F(DownloadPageTest, RefusedObjectOrEmptyGroupStartsNothing) {
    engine.refuseCreate = true;
    EXPECT_FALSE(page.StartDownload(Group(kSha1, {Hit("a", "10.0.0.1")}), false));
    engine.refuseCreate = false;
    EXPECT_FALSE(page.StartDownload(Group(kSha1, {}), false));
    EXPECT_TRUE(page.Items().empty());
    EXPECT_TRUE(list.rows.empty());
    EXPECT_TRUE(prompts.fileExists.empty());
}

TEST_F(DownloadPageTest, EverySourceRefusedStillRunsAndGivesUpLater) {
    engine.refusedUrls.insert("http://10.0.0.1:6346/uri-res/N2R?urn:sha1:" + std::string(kSha1));
    auto item = StartOne();
    EXPECT_TRUE(item->sources.empty());
    EXPECT_EQ(engine.Fire(item->handle, 0, 21), 1);
    page.RunQueuedCommands();
    EXPECT_EQ(State(item), kItemNeedsSources);
    EXPECT_EQ(list.Cell(*item, 33024), "More sources needed");
}

TEST_F(DownloadPageTest, HostileHitsGiveNoSourceUrl) {
    auto item = Start({Hit("a", "10.0.0.1/x?y"), Hit("a", "10.0.0.2", 0),
                       Hit("a", "10.0.0.3", 70000), Hit("a", "10.0.0.4\r\nHost: evil")});
    EXPECT_TRUE(item->sources.empty());
    auto badSha = Start({Hit("b", "10.0.0.1")}, "ABC/../x");
    EXPECT_TRUE(badSha->sources.empty());
}

TEST_F(DownloadPageTest, StatusTextsFollowTheStateAndTheEngine) {
    auto item = StartOne();
    engine.info = {{0, 1}, {1, 2048}, {2, 22}, {3, 33}, {4, 44}, {5, 55}, {6, 42}};
    Post(kCmdUpdateRow, item);
    EXPECT_EQ(list.Cell(*item, 33014), "2,048");
    EXPECT_EQ(list.Cell(*item, 33023), "42%");
    EXPECT_EQ(list.Cell(*item, 33024), "Downloading(33/55/44/22)");

    engine.info = {{0, 0}, {1, -5}, {2, 9}, {6, -1}};
    Post(kCmdUpdateRow, item);
    EXPECT_EQ(list.Cell(*item, 33014), "0");
    EXPECT_EQ(list.Cell(*item, 33023), "0%");
    EXPECT_EQ(list.Cell(*item, 33024), "Stoppted(9)");

    engine.info = {{0, 1}, {1, 100}, {6, 80}};
    Post(kCmdUpdateRow, item);
    Post(kCmdStop, item);
    EXPECT_EQ(list.Cell(*item, 33024), "Stopped");
    // The closed object is not asked again; its last progress stays.
    EXPECT_EQ(list.Cell(*item, 33023), "80%");
    EXPECT_EQ(list.Cell(*item, 33014), "0");
}

TEST_F(DownloadPageTest, ItemStateTransitions) {
    auto item = StartOne();
    const auto first = item->handle;
    EXPECT_EQ(engine.Fire(first, 0, 1), 1);
    EXPECT_EQ(State(item), kItemDownloading);

    // Restart is refused while downloading.
    Post(kCmdRestart, item);
    EXPECT_EQ(item->handle, first);

    Post(kCmdStop, item);
    EXPECT_EQ(State(item), kItemStopped);
    EXPECT_TRUE(engine.Get(first).closed);
    EXPECT_FALSE(engine.Get(first).deleted);
    EXPECT_TRUE(item->sources.empty());
    EXPECT_FALSE(page.FindByHandle(first));
    EXPECT_EQ(page.Items().size(), 1u);
    // Giving up does not overwrite a stop, and the dead handle ignores events.
    Post(kCmdGiveUp, item);
    EXPECT_EQ(State(item), kItemStopped);
    EXPECT_EQ(engine.Fire(first, 0, 1), 0);
    EXPECT_EQ(State(item), kItemStopped);

    Post(kCmdRestart, item);
    EXPECT_EQ(State(item), kItemDownloading);
    EXPECT_NE(item->handle, first);
    EXPECT_EQ(engine.Get(item->handle).path, item->localPath);
    EXPECT_EQ(item->sources.size(), 1u);
    EXPECT_EQ(page.FindByHandle(item->handle), item);

    EXPECT_EQ(engine.Fire(item->handle, 0, 22), 1);
    EXPECT_EQ(State(item), kItemStopped);

    Post(kCmdRestart, item);
    engine.Fire(item->handle, 0, 21);
    page.RunQueuedCommands();
    EXPECT_EQ(State(item), kItemNeedsSources);

    Post(kCmdRestart, item);
    const auto last = item->handle;
    const std::uint32_t words[3] = {5000, 1, 2};
    engine.Fire(last, 0, 16, reinterpret_cast<std::uintptr_t>(words));
    EXPECT_EQ(item->fileLength[0], 5000u);
    engine.Fire(last, 0, 23);
    EXPECT_EQ(State(item), kItemDownloading) << "completion waits for the worker";
    page.RunQueuedCommands();
    EXPECT_EQ(State(item), kItemCompleted);
    EXPECT_EQ(item->fileLength[0], 0u);
    EXPECT_TRUE(engine.Get(last).deleted);
    EXPECT_EQ(list.Cell(*item, 33024), "Completed");
    EXPECT_EQ(list.Cell(*item, 33023), "100%");

    // Neither Restart nor Stop touches a completed item.
    Post(kCmdRestart, item);
    Post(kCmdStop, item);
    EXPECT_EQ(State(item), kItemCompleted);
    EXPECT_EQ(item->handle, last);
}

TEST_F(DownloadPageTest, RestartFromCreatedClosesTheFirstObject) {
    auto item = StartOne();
    const auto first = item->handle;
    Post(kCmdRestart, item);
    EXPECT_TRUE(engine.Get(first).closed);
    EXPECT_EQ(State(item), kItemDownloading);
    EXPECT_NE(item->handle, first);
}

TEST_F(DownloadPageTest, CompletionMovesAndSharesThroughTheLibrary) {
    library.present = true;
    library.shares = true;
    auto item = StartOne();
    library.keptAt[item->localPath] = "C:\\Corvid\\download\\kept.mp3";
    engine.Fire(item->handle, 0, 23);
    page.RunQueuedCommands();
    EXPECT_EQ(item->localPath, "C:\\Corvid\\download\\kept.mp3");
    EXPECT_EQ(library.shared, std::vector<std::string>{"C:\\Corvid\\download\\kept.mp3"});
}

TEST_F(DownloadPageTest, DeleteKeepsCompletedFilesAndRemovesPartialOnes) {
    auto done = Start({Hit("done.mp3", "10.0.0.1")}, "AAAA");
    auto partial = Start({Hit("partial.mp3", "10.0.0.1")}, "BBBB");
    auto stopped = Start({Hit("stopped.mp3", "10.0.0.1")}, "CCCC");
    engine.Fire(done->handle, 0, 23);
    page.RunQueuedCommands();
    Post(kCmdStop, stopped);

    prompts.answerYes = false;
    page.RequestDelete({done, partial, stopped});
    EXPECT_EQ(page.RunQueuedCommands(), 0u);
    prompts.answerYes = true;
    page.RequestDelete({done, partial, stopped});
    page.RunQueuedCommands();
    EXPECT_EQ(prompts.questions.back(),
              std::make_pair(std::string("Are you sure to delete all selected items?"),
                             std::string("Tarvo")));
    EXPECT_TRUE(page.Items().empty());
    EXPECT_TRUE(list.rows.empty());
    EXPECT_EQ(files.removed, (std::vector<std::string>{"C:\\Corvid\\download\\partial.mp3",
                                                       "C:\\Corvid\\download\\stopped.mp3"}));
    // Only the live object is stopped and deleted by Delete.
    EXPECT_TRUE(engine.Get(partial->handle).stopped);
    EXPECT_TRUE(engine.Get(partial->handle).deleted);
    EXPECT_FALSE(engine.Get(stopped->handle).deleted);
    EXPECT_FALSE(page.FindByHandle(partial->handle));

    page.RequestDelete({});
    EXPECT_EQ(prompts.questions.size(), 2u);
}

TEST_F(DownloadPageTest, ClearCommandsPickTheirStates) {
    auto done = Start({Hit("done", "10.0.0.1")}, "AAAA");
    auto stopped = Start({Hit("stopped", "10.0.0.1")}, "BBBB");
    auto needy = Start({Hit("needy", "10.0.0.1")}, "CCCC");
    auto running = Start({Hit("running", "10.0.0.1")}, "DDDD");
    engine.Fire(done->handle, 0, 23);
    engine.Fire(needy->handle, 0, 21);
    engine.Fire(running->handle, 0, 1);
    page.RunQueuedCommands();
    Post(kCmdStop, stopped);

    page.ClearStopped();
    page.RunQueuedCommands();
    EXPECT_EQ(prompts.questions.back().first, "Are you sure to clear all stopped items?");
    EXPECT_EQ(page.Items(), (std::vector<std::shared_ptr<DownloadItem>>{done, running}));

    page.ClearCompleted();
    page.RunQueuedCommands();
    EXPECT_EQ(prompts.questions.back().first, "Are you sure to clear all completed items?");
    EXPECT_EQ(page.Items(), std::vector<std::shared_ptr<DownloadItem>>{running});
    EXPECT_EQ(files.removed, (std::vector<std::string>{"C:\\Corvid\\download\\stopped",
                                                       "C:\\Corvid\\download\\needy"}));

    Post(kCmdDelete, running);
    const auto asked = prompts.questions.size();
    page.ClearCompleted();
    EXPECT_EQ(prompts.questions.size(), asked) << "an empty list asks nothing";
}

TEST_F(DownloadPageTest, RunAsksBeforeOpeningAnUnfinishedFile) {
    auto item = StartOne();
    prompts.answerYes = false;
    page.Run({item});
    EXPECT_EQ(
        prompts.questions.back(),
        std::make_pair("File is still downloading, are you sure run it now?\n" + item->localPath,
                       std::string("Downloading")));
    EXPECT_TRUE(files.played.empty());
    prompts.answerYes = true;
    page.Run({item});
    EXPECT_EQ(files.opened, std::vector<std::string>{item->localPath});

    engine.Fire(item->handle, 0, 23);
    page.RunQueuedCommands();
    files.theaterAccepts = true;
    const auto asked = prompts.questions.size();
    page.Run({item});
    EXPECT_EQ(prompts.questions.size(), asked);
    EXPECT_EQ(files.played.size(), 2u);
    EXPECT_EQ(files.opened.size(), 1u);
}

TEST_F(DownloadPageTest, UnknownHandlesSourcesAndClosingAreAnsweredWithoutChange) {
    auto item = StartOne();
    EXPECT_EQ(page.HandleEngineEvent(9999, 0, 1, 0), 0);
    EXPECT_EQ(engine.Fire(item->handle, 4242, 12), 1);
    EXPECT_EQ(item->sources[0]->log->Size(), 0u);
    EXPECT_EQ(DownloadPage::EngineCallback(nullptr, item->handle, 0, 1, 0), 0);

    page.BeginClosing();
    EXPECT_EQ(page.HandleEngineEvent(9999, 0, 1, 0), 1);
    EXPECT_EQ(engine.Fire(item->handle, 0, 1), 1);
    EXPECT_EQ(engine.Fire(item->handle, item->sources[0]->sourceId, 7), 1);
    EXPECT_EQ(State(item), kItemCreated);
    EXPECT_EQ(item->sources[0]->log->Size(), 0u);
    EXPECT_EQ(item->sources[0]->status, kSourceIdle);
}

TEST_F(DownloadPageTest, NewSearchHitsFeedARunningItem) {
    auto item = StartOne();
    EXPECT_TRUE(page.OfferSearchHit(kSha1, Hit("song.mp3", "10.0.0.5", 6350)));
    ASSERT_EQ(item->sources.size(), 2u);
    EXPECT_EQ(item->sources[1]->url,
              "http://10.0.0.5:6350/uri-res/N2R?urn:sha1:" + std::string(kSha1));
    EXPECT_EQ(item->group.sources.size(), 2u);
    // A known host, another size, another file or a stopped item gains nothing.
    EXPECT_FALSE(page.OfferSearchHit(kSha1, Hit("song.mp3", "10.0.0.5", 7000)));
    EXPECT_FALSE(page.OfferSearchHit(kSha1, Hit("song.mp3", "10.0.0.6", 6346, 99)));
    EXPECT_FALSE(page.OfferSearchHit("OTHER", Hit("song.mp3", "10.0.0.7")));
    page.RunQueuedCommands();
    Post(kCmdStop, item);
    EXPECT_FALSE(page.OfferSearchHit(kSha1, Hit("song.mp3", "10.0.0.8")));
    // Restart takes the grown group again.
    Post(kCmdRestart, item);
    EXPECT_EQ(item->sources.size(), 2u);
}

TEST_F(DownloadPageTest, TwoDownloadsNeverShareAFile) {
    files.existing.insert("C:\\Corvid\\download\\song.mp3");
    auto first = Start({Hit("song.mp3", "10.0.0.1")}, "AAAA");
    auto second = Start({Hit("SONG (2).mp3", "10.0.0.1")}, "BBBB");
    auto third = Start({Hit("..\\..\\song.mp3", "10.0.0.1")}, "CCCC");
    EXPECT_EQ(first->localPath, "C:\\Corvid\\download\\song (2).mp3");
    EXPECT_EQ(second->localPath, "C:\\Corvid\\download\\SONG (2) (2).mp3");
    EXPECT_EQ(third->localPath, "C:\\Corvid\\download\\.._.._song.mp3");
}

TEST_F(DownloadPageTest, ANewDownloadFolderTakesNewItemsAndLeavesListedOnesWhereTheyAre) {
    auto first = Start({Hit("song.mp3", "10.0.0.1")}, "AAAA");
    page.SetDownloadFolder("D:\\Music");
    auto second = Start({Hit("song.mp3", "10.0.0.2")}, "BBBB");
    EXPECT_EQ(first->localPath, "C:\\Corvid\\download\\song.mp3");
    EXPECT_EQ(engine.Get(first->handle).path, first->localPath);
    EXPECT_EQ(second->localPath, "D:\\Music\\song.mp3");
    EXPECT_EQ(engine.Get(second->handle).path, second->localPath);
}

} // namespace
} // namespace corvid::transfer::testing
