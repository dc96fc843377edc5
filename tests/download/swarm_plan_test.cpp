#include "download/core/swarm_plan.h"

#include <gtest/gtest.h>

namespace corvid::download {
namespace {

TEST(SwarmPlan, HandsOutDisjointSpansFromTheFront) {
    SwarmPlan plan;
    plan.setLength(1000);
    EXPECT_EQ(plan.claimFree(1, 300), (ByteSpan{0, 300}));
    EXPECT_EQ(plan.claimFree(2, 300), (ByteSpan{300, 600}));
    plan.markDone({600, 700});
    EXPECT_EQ(plan.claimFree(3, 1000), (ByteSpan{700, 1000}));
    EXPECT_EQ(plan.claimFree(4, 10), std::nullopt);
    EXPECT_EQ(plan.freeBytes(), 0u);
}

TEST(SwarmPlan, ReleasedBytesGoBackToThePool) {
    SwarmPlan plan;
    plan.setLength(1000);
    plan.claimFree(1, 500);
    plan.recordWritten(1, {0, 200});
    plan.release(1);
    EXPECT_EQ(plan.done().total(), 200u);
    EXPECT_EQ(plan.claimFree(2, 1000), (ByteSpan{200, 1000}));
}

TEST(SwarmPlan, StealsTheBackHalfOfTheLargestClaim) {
    SwarmPlan plan;
    plan.setLength(1000);
    plan.claimFree(1, 200);
    plan.claimFree(2, 800);
    plan.recordWritten(1, {0, 200});
    EXPECT_FALSE(plan.claimOf(1)) << "a claim written to its end is gone";
    const auto unknown = [](std::uint32_t) { return 0.0; };
    const auto stolen = plan.steal(1, 50, 1000, 0, unknown);
    EXPECT_EQ(stolen, (ByteSpan{600, 1000}));
    EXPECT_EQ(plan.claimOf(2)->end, 600u);
    EXPECT_EQ(plan.steal(3, 250, 1000, 0, unknown), std::nullopt) << "too small to split";
}

TEST(SwarmPlan, SplitsASlowClaimSoBothPartsEndTogether) {
    SwarmPlan plan;
    plan.setLength(1200);
    plan.claimFree(1, 400); // 400 bytes at 100 B/s: 4 s
    plan.claimFree(2, 800); // 800 bytes at 100 B/s: 8 s, the one that ends last
    const auto speeds = [](std::uint32_t) { return 100.0; };
    // A thief three times as fast takes three quarters: both parts end after 2 s.
    EXPECT_EQ(plan.steal(3, 50, 1000, 300, speeds), (ByteSpan{600, 1200}));
    EXPECT_EQ(plan.claimOf(2)->end, 600u);
    EXPECT_EQ(plan.claimOf(1)->end, 400u) << "the claim that ends sooner is left alone";
}

TEST(SwarmPlan, TakesOverTheWholeClaimOfAStalledSource) {
    SwarmPlan plan;
    plan.setLength(100);
    plan.claimFree(1, 100);
    plan.recordWritten(1, {0, 30});
    EXPECT_EQ(plan.steal(2, 50, 1000, 10, [](std::uint32_t) { return 5.0; }), std::nullopt);
    EXPECT_EQ(
        plan.steal(2, 50, 1000, 10, [](std::uint32_t owner) { return owner == 1 ? -1.0 : 5.0; }),
        (ByteSpan{30, 100}));
    EXPECT_FALSE(plan.claimOf(1)) << "the stalled source holds nothing any more";
}

TEST(SwarmPlan, CompleteOnlyWhenEveryByteIsDone) {
    SwarmPlan plan;
    plan.markDone({0, 500});
    EXPECT_FALSE(plan.complete()) << "length unknown";
    plan.setLength(400);
    EXPECT_TRUE(plan.complete()) << "bytes beyond the length are cut off";
    EXPECT_EQ(plan.done().total(), 400u);
}

} // namespace
} // namespace corvid::download
