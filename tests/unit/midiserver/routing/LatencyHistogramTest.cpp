#include "midiserver/routing/LatencyHistogram.h"

#include "tests/support/TestSeed.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

namespace MidiServer {
namespace {

using std::chrono::nanoseconds;

TEST(LatencyHistogramTest, IsZeroWhenNothingWasAdded) {
    EXPECT_EQ(LatencyHistogram().Summary().count, 0U);
    EXPECT_EQ(LatencyHistogram().Summary().max, nanoseconds(0));
}

TEST(LatencyHistogramTest, TakesTheSmallestAndTheLargestDurationThereIs) {
    LatencyHistogram histogram;
    histogram.Add(nanoseconds(-1));
    EXPECT_EQ(histogram.Summary().max, nanoseconds(0));
    histogram.Add(nanoseconds::max());
    EXPECT_EQ(histogram.Summary().p50, nanoseconds(0));
    EXPECT_EQ(histogram.Summary().p99, nanoseconds::max());
}

TEST(LatencyHistogramTest, AgreesWithTheExactDistribution) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    LatencyHistogram histogram;
    LatencyDistribution exact;
    for (int i = 0; i < 20000; ++i) {
        const nanoseconds value(random() >> (24 + random() % 40));
        histogram.Add(value);
        exact.Add(value);
    }
    const LatencyDistribution::Percentiles rough = histogram.Summary();
    const LatencyDistribution::Percentiles right = exact.Summary();
    EXPECT_EQ(rough.count, right.count);
    EXPECT_EQ(rough.max, right.max);
    EXPECT_EQ(rough.total, right.total);
    for (const auto percentile :
         {&LatencyDistribution::Percentiles::p50, &LatencyDistribution::Percentiles::p90,
          &LatencyDistribution::Percentiles::p99}) {
        EXPECT_GE(rough.*percentile, right.*percentile);
        EXPECT_LE(rough.*percentile, right.*percentile + right.*percentile / 32);
    }
}

} // namespace
} // namespace MidiServer
