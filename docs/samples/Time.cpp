#include "runtime/time/NyTime.h"

#include <gtest/gtest.h>

TEST(RuntimeSamples, Time) {
    NyTime begin;
    begin.SetToCurrentTime(); // microseconds since the epoch

    NyTime interval;
    interval.Set(NyTime::kMicroseconds, 250000);

    // Moments and intervals are plain numbers: users add and subtract them.
    NyTime deadline;
    deadline.Set(NyTime::kMicroseconds, begin.mMicroseconds + interval.mMicroseconds);
    EXPECT_EQ(deadline.mMicroseconds - begin.mMicroseconds, 250000);

    NyTime forever;
    forever.Set(NyTime::kInfinite, 0);
    EXPECT_EQ(forever.mSpecial, NyTime::kInfinite);

    NyTimeOfDay day;
    NyClockTime::GetTime(day); // local time, in calendar fields
    EXPECT_LE(day.mHour, 23);
}
