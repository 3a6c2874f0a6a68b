#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ctime>
#include <limits>

namespace {

constexpr std::uint64_t kLast = std::numeric_limits<std::uint64_t>::max();

std::uint64_t Number(AbsoluteTime time) {
    return (static_cast<std::uint64_t>(time.hi) << 32) | time.lo;
}

AbsoluteTime Time(std::uint64_t number) {
    AbsoluteTime time;
    time.hi = static_cast<UInt32>(number >> 32);
    time.lo = static_cast<UInt32>(number);
    return time;
}

std::uint64_t MonotonicNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000 +
           static_cast<std::uint64_t>(now.tv_nsec);
}

TEST(UpTimeTest, CountsNanosecondsOfTheMonotonicClock) {
    const std::uint64_t before = MonotonicNanoseconds();
    const std::uint64_t now = Number(UpTime());
    const std::uint64_t after = MonotonicNanoseconds();
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
}

TEST(UpTimeTest, NeverGoesBack) {
    std::uint64_t last = Number(UpTime());
    for (int i = 0; i < 10000; ++i) {
        const std::uint64_t now = Number(UpTime());
        ASSERT_LE(last, now);
        last = now;
    }
}

TEST(UnsignedWideTest, LiesInMemoryAsTheNumberDoes) {
    const std::uint64_t number = 0x0123456789ABCDEF;
    AbsoluteTime time;
    std::memcpy(&time, &number, sizeof time);
    static_assert(sizeof time == sizeof number);
    EXPECT_EQ(time.hi, 0x01234567U);
    EXPECT_EQ(time.lo, 0x89ABCDEFU);
}

TEST(DurationArithmeticTest, TakesPositiveDurationsAsMilliseconds) {
    EXPECT_EQ(Number(AddDurationToAbsolute(1, Time(5))), 1000005U);
    EXPECT_EQ(Number(SubDurationFromAbsolute(1000, Time(5000000000))), 4000000000U);
}

TEST(DurationArithmeticTest, TakesNegativeDurationsAsMicroseconds) {
    EXPECT_EQ(Number(AddDurationToAbsolute(-1, Time(5))), 1005U);
    EXPECT_EQ(Number(SubDurationFromAbsolute(-2500, Time(5000000))), 2500000U);
}

TEST(DurationArithmeticTest, LeavesTheTimeAloneForZero) {
    EXPECT_EQ(Number(AddDurationToAbsolute(0, Time(77))), 77U);
    EXPECT_EQ(Number(SubDurationFromAbsolute(0, Time(77))), 77U);
}

TEST(DurationArithmeticTest, CarriesBetweenTheWords) {
    EXPECT_EQ(Number(AddDurationToAbsolute(-1, Time(0xFFFFFFFF))), 0x1000003E7U);
    EXPECT_EQ(Number(SubDurationFromAbsolute(-1, Time(0x100000000))), 0xFFFFFC18U);
}

TEST(DurationArithmeticTest, SaturatesAtZero) {
    EXPECT_EQ(Number(SubDurationFromAbsolute(1, Time(1000000))), 0U);
    EXPECT_EQ(Number(SubDurationFromAbsolute(1, Time(999999))), 0U);
    EXPECT_EQ(Number(SubDurationFromAbsolute(kDurationForever, Time(1))), 0U);
}

TEST(DurationArithmeticTest, SaturatesAtTheLastTime) {
    EXPECT_EQ(Number(AddDurationToAbsolute(1, Time(kLast - 1000000))), kLast);
    EXPECT_EQ(Number(AddDurationToAbsolute(1, Time(kLast - 999999))), kLast);
}

TEST(DurationArithmeticTest, ReachesTheExtremeDurations) {
    constexpr Duration kMost = std::numeric_limits<Duration>::min();
    EXPECT_EQ(Number(AddDurationToAbsolute(kMost, Time(0))), 2147483648000U);
    EXPECT_EQ(Number(AddDurationToAbsolute(kDurationForever, Time(0))), 2147483647000000U);
}

} // namespace
