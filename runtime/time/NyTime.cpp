#include "runtime/time/NyTime.h"

#include <sys/time.h>

#include <ctime>

void NyTime::Set(tNySpecialTime kind, long long value) {
    switch (kind) {
    case kInfinite:
        mSpecial = kInfinite;
        mMicroseconds = 0;
        return;
    case kNow:
        SetToCurrentTime();
        return;
    case kMicroseconds:
        mSpecial = kZero;
        mMicroseconds = value;
        return;
    case kZero:
        break;
    }
    mSpecial = kZero;
    mMicroseconds = 0;
}

void NyTime::SetToCurrentTime() {
    mSpecial = kZero;
    mMicroseconds = 0;
    timeval now{};
    if (gettimeofday(&now, nullptr) == 0) {
        mMicroseconds = static_cast<std::int64_t>(now.tv_sec) * 1000000 +
                        static_cast<std::int64_t>(now.tv_usec);
    }
}

void NyClockTime::GetTime(NyTimeOfDay& out) {
    GetTime(out, static_cast<long long>(std::time(nullptr)));
}

void NyClockTime::GetTime(NyTimeOfDay& out, long long seconds) {
    const time_t moment = static_cast<std::int32_t>(seconds);
    tm fields{};
    // localtime() would do both in one step, but all threads share its buffer.
    tzset();
    localtime_r(&moment, &fields);
    out.mSecond = fields.tm_sec;
    out.mMinute = fields.tm_min;
    out.mHour = fields.tm_hour;
    out.mDay = fields.tm_mday;
    out.mMonth = fields.tm_mon;
    out.mYear = fields.tm_year;
    out.mWeekDay = fields.tm_wday;
    out.mYearDay = fields.tm_yday;
    out.mIsDST = fields.tm_isdst > 0 ? 1 : 0;
}
