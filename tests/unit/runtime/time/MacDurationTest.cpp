#include "runtime/time/MacDuration.h"

#include "runtime/time/NyTime.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>

namespace {

long DurationOf(std::int64_t microseconds) {
    NyTime time;
    time.Set(NyTime::kMicroseconds, microseconds);
    return ConvertNyTimeToMacDuration(time);
}

TEST(MacDurationTest, IsForeverForAnInfiniteTime) {
    NyTime time;
    time.Set(NyTime::kInfinite, 12345);
    EXPECT_EQ(ConvertNyTimeToMacDuration(time), 0x7FFFFFFF);
}

TEST(MacDurationTest, IsImmediateForZero) {
    NyTime time;
    time.Set(NyTime::kZero, 999);
    EXPECT_EQ(ConvertNyTimeToMacDuration(time), 0);
}

TEST(MacDurationTest, CountsShortIntervalsInNegativeMicroseconds) {
    EXPECT_EQ(DurationOf(1), -1);
    EXPECT_EQ(DurationOf(999999), -999999);
    EXPECT_EQ(DurationOf(2000000), -2000000);
    EXPECT_EQ(DurationOf(2147483647), -2147483647);
    EXPECT_EQ(DurationOf(2147483648), std::numeric_limits<std::int32_t>::min());
}

TEST(MacDurationTest, WrapsRoundFromTheFirstIntervalThatDoesNotFit) {
    EXPECT_EQ(DurationOf(2147483649), 2147483647);
    EXPECT_EQ(DurationOf(4294967296), 0);
    EXPECT_EQ(DurationOf(4294967297), -1);
    EXPECT_EQ(DurationOf(std::int64_t{262143} * 1000000), -149994944);
    EXPECT_EQ(DurationOf(std::int64_t{262143} * 1000000 + 999999), -150994943);
}

TEST(MacDurationTest, CountsLongIntervalsInMilliseconds) {
    EXPECT_EQ(DurationOf(262144000000), 262144000);
    EXPECT_EQ(DurationOf(262144001500), 262144001);
    EXPECT_EQ(DurationOf(262144999999), 262144999);
}

TEST(MacDurationTest, WrapsRoundInMillisecondsToo) {
    EXPECT_EQ(DurationOf(2147483647000), 2147483647);
    EXPECT_EQ(DurationOf(2147483648000), std::numeric_limits<std::int32_t>::min());
}

TEST(MacDurationTest, ReadsANegativeIntervalAsMilliseconds) {
    EXPECT_EQ(DurationOf(-5000), 5000);
    EXPECT_EQ(DurationOf(-1), 1);
    EXPECT_EQ(DurationOf(-1500000), 1500000);
}

TEST(MacDurationTest, LooksAtTheLow32BitsOfTheSecondsOnly) {
    constexpr std::int64_t kTurn = std::int64_t{1} << 32;
    EXPECT_EQ(DurationOf((kTurn + 2) * 1000000 + 7), -2000007);
    EXPECT_EQ(DurationOf((kTurn + 262144) * 1000000), 262144000);
    // The low half of this number of seconds is 300000; the rest is -1500 microseconds.
    EXPECT_EQ(DurationOf((300000 - kTurn) * 1000000 - 1500), 299999999);
}

// Against the same rules in 64-bit arithmetic, reduced at the end.
TEST(MacDurationTest, AgreesWithTheRulesOnRandomIntervals) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    for (int i = 0; i < 200000; ++i) {
        const auto shift = static_cast<int>(random() % 63);
        const auto value = static_cast<std::int64_t>(random()) >> shift;
        std::int64_t expected = 0;
        if (value != 0) {
            const std::int64_t seconds =
                static_cast<std::int32_t>(static_cast<std::uint32_t>(value / 1000000));
            const std::int64_t rest = value % 1000000;
            expected = seconds > 262143 ? seconds * 1000 + rest / 1000 : -seconds * 1000000 - rest;
        }
        ASSERT_EQ(DurationOf(value),
                  static_cast<std::int32_t>(static_cast<std::uint32_t>(expected)))
            << value;
    }
}

} // namespace
