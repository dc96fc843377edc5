#include "engine/sharing/token_bucket.h"
#include "engine/sharing/upload_registry.h"

#include <gtest/gtest.h>

namespace corvid::gnutella {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Three uploads that each send as fast as the bucket lets them, each waking when the bucket says
// its next piece would be granted, over simulated seconds.
std::uint64_t SendForSimulatedTime(TokenBucket& bucket, Clock::time_point start,
                                   Clock::duration span) {
    constexpr std::uint64_t kPiece = 64 * 1024;
    std::vector<Clock::time_point> wake(3, start);
    std::uint64_t total = 0;
    for (;;) {
        const auto next = std::min_element(wake.begin(), wake.end());
        const Clock::time_point now = *next;
        if (now >= start + span) {
            return total;
        }
        const std::uint64_t granted = bucket.Take(kPiece, now);
        total += granted;
        const auto delay = bucket.Delay(kPiece, now);
        // A real session loops at once after a grant (the write takes a moment) and waits when
        // refused.
        *next = now + std::max<Clock::duration>(delay, granted > 0 ? 1ms : 1us);
    }
}

TEST(TokenBucket, HoldsTheTotalRateWithinTenPercentOverSeconds) {
    const Clock::time_point start{};
    for (std::uint64_t rate : {30720u, 1000u, 1u << 20}) {
        TokenBucket bucket(rate, start);
        const std::uint64_t sent = SendForSimulatedTime(bucket, start, 5s);
        const double expected = 5.0 * static_cast<double>(rate);
        EXPECT_GT(static_cast<double>(sent), expected * 0.9) << rate;
        EXPECT_LT(static_cast<double>(sent), expected * 1.1) << rate;
    }
}

TEST(TokenBucket, NoLimitGrantsEverythingAndALimitCanChange) {
    const Clock::time_point start{};
    TokenBucket bucket(0, start);
    EXPECT_EQ(bucket.Take(1 << 30, start), 1u << 30);
    EXPECT_EQ(bucket.Delay(1 << 30, start), Clock::duration::zero());

    bucket.SetRate(10000, start);
    EXPECT_EQ(bucket.Take(5000, start), 0u) << "a new limit starts with an empty bucket";
    EXPECT_GT(bucket.Delay(5000, start), Clock::duration::zero());
    EXPECT_EQ(bucket.Take(5000, start + 1s), 2000u)
        << "never more than a fifth of a second's worth";
    EXPECT_EQ(bucket.Take(5000, start + 1s), 0u);
    EXPECT_EQ(bucket.Take(1000, start + 1100ms), 1000u);
    // Time that runs backwards (a clock handed in wrongly) grants nothing extra.
    EXPECT_EQ(bucket.Take(1000, start), 0u);

    bucket.SetRate(0, start + 2s);
    EXPECT_EQ(bucket.Take(123456, start + 2s), 123456u);
}

TEST(UploadRegistry, SlotsLimitTheRunningUploads) {
    UploadRegistry registry(2);
    const Clock::time_point now{};
    const auto first = registry.Begin({"a.mp3", 100, 100, "127.0.0.2", 5000, "agent"}, now, {});
    const auto second = registry.Begin({"b.mp3", 100, 100, "127.0.0.3", 5001, ""}, now, {});
    ASSERT_TRUE(first && second);
    EXPECT_NE(*first, *second);
    EXPECT_FALSE(registry.Begin({"c.mp3", 1, 1, "127.0.0.4", 1, ""}, now, {}).has_value());
    registry.End(*first);
    EXPECT_TRUE(registry.Begin({"c.mp3", 1, 1, "127.0.0.4", 1, ""}, now, {}).has_value());
    registry.SetSlots(3);
    EXPECT_TRUE(registry.Begin({"d.mp3", 1, 1, "127.0.0.4", 1, ""}, now, {}).has_value());
    EXPECT_EQ(registry.Count(), 3u);
}

TEST(UploadRegistry, StoppingByIdEndsThatUploadOnly) {
    UploadRegistry registry(4);
    const Clock::time_point now{};
    int stoppedA = 0;
    int stoppedB = 0;
    const auto a = registry.Begin({"a", 1, 1, "127.0.0.2", 1, ""}, now, [&] { ++stoppedA; });
    const auto b = registry.Begin({"b", 1, 1, "127.0.0.3", 1, ""}, now, [&] { ++stoppedB; });
    EXPECT_TRUE(registry.Stop(*a));
    EXPECT_FALSE(registry.Stop(*a));
    EXPECT_FALSE(registry.Stop(12345));
    EXPECT_EQ(stoppedA, 1);
    EXPECT_EQ(stoppedB, 0);
    ASSERT_EQ(registry.List().size(), 1u);
    EXPECT_EQ(registry.List()[0].id, *b);
    registry.StopAll();
    EXPECT_EQ(stoppedB, 1);
    EXPECT_EQ(registry.Count(), 0u);
}

TEST(UploadRegistry, ListsProgressAndSpeedOfEachUpload) {
    UploadRegistry registry(4);
    const Clock::time_point start{};
    const auto id =
        registry.Begin({"song.mp3", 5000, 4000, "127.0.0.2", 6346, "Agent/1"}, start, {});
    registry.Progress(*id, 1000, start + 1s);
    auto list = registry.List();
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].progress, 25);
    EXPECT_EQ(list[0].speed, 1000);
    EXPECT_EQ(list[0].fileName, "song.mp3");
    EXPECT_EQ(list[0].fileSize, 5000u);
    EXPECT_EQ(list[0].ip, "127.0.0.2");
    EXPECT_EQ(list[0].port, 6346);
    EXPECT_EQ(list[0].description, "Agent/1");

    registry.Progress(*id, 2000, start + 2s);
    registry.Progress(*id, 2500, start + 3s);
    registry.Progress(*id, 3000, start + 4s);
    list = registry.List();
    EXPECT_EQ(list[0].progress, 75);
    EXPECT_EQ(list[0].speed, 500) << "measured over the last span, not since the start";
}

} // namespace
} // namespace corvid::gnutella
