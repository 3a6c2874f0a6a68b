#include "midiserver/replay/LatencyDistribution.h"

#include <gtest/gtest.h>

namespace MidiServer {
namespace {

using std::chrono::nanoseconds;

TEST(LatencyDistributionTest, IsZeroWhenNothingWasAdded) {
    const LatencyDistribution::Percentiles summary = LatencyDistribution().Summary();

    EXPECT_EQ(summary.count, 0U);
    EXPECT_EQ(summary.p50, nanoseconds(0));
    EXPECT_EQ(summary.max, nanoseconds(0));
}

TEST(LatencyDistributionTest, GivesTheOneValueForEveryPercentile) {
    LatencyDistribution distribution;
    distribution.Add(nanoseconds(7));
    const LatencyDistribution::Percentiles summary = distribution.Summary();

    EXPECT_EQ(summary.p50, nanoseconds(7));
    EXPECT_EQ(summary.p99, nanoseconds(7));
    EXPECT_EQ(summary.max, nanoseconds(7));
}

TEST(LatencyDistributionTest, RanksValuesThatCameInAnyOrder) {
    LatencyDistribution distribution;
    for (int value = 200; value >= 1; --value) {
        distribution.Add(nanoseconds(value));
    }
    const LatencyDistribution::Percentiles summary = distribution.Summary();

    EXPECT_EQ(summary.count, 200U);
    EXPECT_EQ(summary.p50, nanoseconds(100));
    EXPECT_EQ(summary.p90, nanoseconds(180));
    EXPECT_EQ(summary.p99, nanoseconds(198));
    EXPECT_EQ(summary.max, nanoseconds(200));
    EXPECT_EQ(summary.total, nanoseconds(20100));
}

TEST(LatencyDistributionTest, CountsNegativeValuesAsZero) {
    LatencyDistribution distribution;
    distribution.Add(nanoseconds(-5));

    EXPECT_EQ(distribution.Summary().max, nanoseconds(0));
    EXPECT_EQ(distribution.Count(), 1U);
}

} // namespace
} // namespace MidiServer
