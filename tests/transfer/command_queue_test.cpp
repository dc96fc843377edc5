#include "transfer/command_queue.h"

#include <gtest/gtest.h>

#include <thread>

namespace corvid::transfer {
namespace {

TEST(CommandQueue, TheHeadStaysUntilPopped) {
    CommandQueue queue;
    Command head;
    EXPECT_FALSE(queue.ReadHead(head));
    queue.PopFront(); // nothing to pop: no harm
    queue.Post(kCmdStop);
    queue.Post(kCmdRestart, AltSourceRecord{7, "u"});
    ASSERT_TRUE(queue.ReadHead(head));
    EXPECT_EQ(head.code, kCmdStop);
    queue.Post(kCmdDelete);
    ASSERT_TRUE(queue.ReadHead(head));
    EXPECT_EQ(head.code, kCmdStop);
    EXPECT_EQ(queue.Count(), 3u);
    queue.PopFront();
    ASSERT_TRUE(queue.WaitForHead(head));
    EXPECT_EQ(head.code, kCmdRestart);
    EXPECT_EQ(std::get<AltSourceRecord>(head.argument).url, "u");
    queue.PopFront();
    queue.PopFront();
    EXPECT_EQ(queue.Count(), 0u);
    EXPECT_TRUE(queue.WaitUntilEmpty(std::chrono::milliseconds(0)));
}

TEST(CommandQueue, AWaitingWorkerWakesForAPost) {
    CommandQueue queue;
    Command seen;
    bool hadHead = false;
    std::thread worker([&] { hadHead = queue.WaitForHead(seen); });
    queue.Post(kCmdUpdateRow);
    worker.join();
    // Either the post came first or the signal woke the wait: the head is read in both cases.
    EXPECT_TRUE(hadHead);
    EXPECT_EQ(seen.code, kCmdUpdateRow);
}

TEST(CommandQueue, OneSignalMayStandForPostsAlreadyTaken) {
    CommandQueue queue;
    queue.Post(kCmdUpdateRow);
    queue.PopFront();
    Command head;
    // The signal of the post is still pending; the wake-up finds the queue empty.
    EXPECT_FALSE(queue.WaitForHead(head));
}

} // namespace
} // namespace corvid::transfer
