#include "runtime/time/NyTime.h"

#include <gtest/gtest.h>

#include <sys/time.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>

namespace {

// Takes the place of the wall clock while set.
std::function<int(timeval*)> sClock;

} // namespace

extern "C" int __real_gettimeofday(timeval* time, void* zone);
extern "C" int __wrap_gettimeofday(timeval* time, void* zone);
int __wrap_gettimeofday(timeval* time, void* zone) {
    return sClock ? sClock(time) : __real_gettimeofday(time, zone);
}

namespace {

class NyTimeTest : public testing::Test {
protected:
    void TearDown() override { sClock = nullptr; }

    static void SetClock(time_t seconds, suseconds_t microseconds) {
        sClock = [seconds, microseconds](timeval* time) {
            time->tv_sec = seconds;
            time->tv_usec = microseconds;
            return 0;
        };
    }

    NyTime mTime;
};

TEST_F(NyTimeTest, IsBuiltAsZero) {
    EXPECT_EQ(mTime.mSpecial, 0);
    EXPECT_EQ(mTime.mMicroseconds, 0);
}

TEST_F(NyTimeTest, KeepsTheWidthsOfItsFields) {
    EXPECT_EQ(sizeof mTime.mSpecial, 4U);
    EXPECT_EQ(sizeof mTime.mMicroseconds, 8U);
    EXPECT_EQ(sizeof(NyTimeOfDay), 36U);
}

TEST_F(NyTimeTest, SetsZeroAndIgnoresTheValue) {
    mTime.Set(NyTime::kInfinite, 0);
    mTime.Set(NyTime::kZero, 999);
    EXPECT_EQ(mTime.mSpecial, 0);
    EXPECT_EQ(mTime.mMicroseconds, 0);
}

TEST_F(NyTimeTest, SetsInfiniteAndIgnoresTheValue) {
    mTime.Set(NyTime::kMicroseconds, 5);
    mTime.Set(NyTime::kInfinite, 12345);
    EXPECT_EQ(mTime.mSpecial, 1);
    EXPECT_EQ(mTime.mMicroseconds, 0);
}

TEST_F(NyTimeTest, SetsMicroseconds) {
    for (const long long value : {0LL, 1LL, -1LL, 9223372036854775807LL, -9223372036854775807LL}) {
        mTime.Set(NyTime::kInfinite, 0);
        mTime.Set(NyTime::kMicroseconds, value);
        EXPECT_EQ(mTime.mSpecial, 0);
        EXPECT_EQ(mTime.mMicroseconds, value);
    }
}

TEST_F(NyTimeTest, SetsNowAndIgnoresTheValue) {
    SetClock(1700000000, 123456);
    mTime.Set(NyTime::kInfinite, 0);
    mTime.Set(NyTime::kNow, 77);
    EXPECT_EQ(mTime.mSpecial, 0);
    EXPECT_EQ(mTime.mMicroseconds, 1700000000123456);
}

TEST_F(NyTimeTest, TreatsAnUndefinedSelectorAsZero) {
    for (const int selector : {7, 4, -1, 2147483647}) {
        SCOPED_TRACE(selector);
        mTime.Set(NyTime::kInfinite, 0);
        mTime.Set(static_cast<tNySpecialTime>(selector), 5);
        EXPECT_EQ(mTime.mSpecial, 0);
        EXPECT_EQ(mTime.mMicroseconds, 0);
    }
}

TEST_F(NyTimeTest, ReadsTheWallClock) {
    const auto before = static_cast<std::int64_t>(time(nullptr));
    mTime.SetToCurrentTime();
    const auto after = static_cast<std::int64_t>(time(nullptr));
    EXPECT_EQ(mTime.mSpecial, 0);
    // time() may lag a tick behind.
    EXPECT_GE(mTime.mMicroseconds, before * 1000000);
    EXPECT_LT(mTime.mMicroseconds, (after + 2) * 1000000);
}

TEST_F(NyTimeTest, ExtendsTheSignOfTheSeconds) {
    SetClock(-2, 999999);
    mTime.SetToCurrentTime();
    EXPECT_EQ(mTime.mMicroseconds, -1000001);
}

TEST_F(NyTimeTest, MultipliesTheSecondsIn64Bits) {
    SetClock(2147483647, 999999);
    mTime.SetToCurrentTime();
    EXPECT_EQ(mTime.mMicroseconds, 2147483647999999);
}

TEST_F(NyTimeTest, IsZeroWhenTheClockFails) {
    sClock = [](timeval* time) {
        time->tv_sec = 5;
        time->tv_usec = 5;
        return -1;
    };
    mTime.Set(NyTime::kInfinite, 0);
    mTime.SetToCurrentTime();
    EXPECT_EQ(mTime.mSpecial, 0);
    EXPECT_EQ(mTime.mMicroseconds, 0);
}

class NyClockTimeTest : public testing::Test {
protected:
    static void SetZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

    NyTimeOfDay mTime{-1, -1, -1, -1, -1, -1, -1, -1, -1};
};

TEST_F(NyClockTimeTest, BreaksAMomentIntoCalendarFields) {
    SetZone("UTC0");
    NyClockTime::GetTime(mTime, 951827696); // a leap day
    EXPECT_EQ(mTime.mSecond, 56);
    EXPECT_EQ(mTime.mMinute, 34);
    EXPECT_EQ(mTime.mHour, 12);
    EXPECT_EQ(mTime.mDay, 29);
    EXPECT_EQ(mTime.mMonth, 1);
    EXPECT_EQ(mTime.mYear, 100);
    EXPECT_EQ(mTime.mWeekDay, 2);
    EXPECT_EQ(mTime.mYearDay, 59);
    EXPECT_EQ(mTime.mIsDST, 0);
}

TEST_F(NyClockTimeTest, GivesLocalTimeWithTheDaylightFlag) {
    SetZone("CET-1CEST,M3.5.0,M10.5.0/3");
    NyClockTime::GetTime(mTime, 1720000000); // 3 July 2024, 09:46:40 UTC
    EXPECT_EQ(mTime.mHour, 11);
    EXPECT_EQ(mTime.mIsDST, 1);
    NyClockTime::GetTime(mTime, 1705000000); // 11 January 2024, 19:06:40 UTC
    EXPECT_EQ(mTime.mHour, 20);
    EXPECT_EQ(mTime.mIsDST, 0);
}

TEST_F(NyClockTimeTest, FollowsAChangeOfTheZone) {
    SetZone("UTC0");
    NyClockTime::GetTime(mTime, 1705000000);
    EXPECT_EQ(mTime.mHour, 19);
    setenv("TZ", "EAT-3", 1);
    NyClockTime::GetTime(mTime, 1705000000);
    EXPECT_EQ(mTime.mHour, 22);
}

TEST_F(NyClockTimeTest, UsesTheLow32BitsOnly) {
    SetZone("UTC0");
    NyClockTime::GetTime(mTime, (7LL << 32) + 86399);
    EXPECT_EQ(mTime.mYear, 70);
    EXPECT_EQ(mTime.mYearDay, 0);
    EXPECT_EQ(mTime.mHour, 23);
    EXPECT_EQ(mTime.mMinute, 59);
    EXPECT_EQ(mTime.mSecond, 59);
}

TEST_F(NyClockTimeTest, ReadsThe32BitsAsASignedNumber) {
    SetZone("UTC0");
    NyClockTime::GetTime(mTime, 0xFFFFFFFF);
    EXPECT_EQ(mTime.mYear, 69);
    EXPECT_EQ(mTime.mSecond, 59);
    NyClockTime::GetTime(mTime, 0x80000000);
    EXPECT_EQ(mTime.mYear, 1);
}

TEST_F(NyClockTimeTest, GivesThePresentMoment) {
    SetZone("UTC0");
    const time_t before = time(nullptr);
    NyClockTime::GetTime(mTime);
    const time_t after = time(nullptr);
    tm fields{};
    fields.tm_sec = mTime.mSecond;
    fields.tm_min = mTime.mMinute;
    fields.tm_hour = mTime.mHour;
    fields.tm_mday = mTime.mDay;
    fields.tm_mon = mTime.mMonth;
    fields.tm_year = mTime.mYear;
    const time_t read = timegm(&fields);
    EXPECT_LE(before, read);
    EXPECT_LE(read, after);
    EXPECT_EQ(mTime.mWeekDay, fields.tm_wday);
    EXPECT_EQ(mTime.mYearDay, fields.tm_yday);
}

} // namespace
