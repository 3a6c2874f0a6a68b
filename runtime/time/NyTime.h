// Time values. NyTime and NyTimeOfDay are plain values without locking; nothing here blocks,
// allocates or reports an error.
#pragma once

#include <cstdint>

// A time in microseconds, or infinity.
//
// As a moment it counts from the Unix epoch (UTC) on the wall clock, so that setting the clock
// shows in the difference of two moments. As an interval it is a length. There is no arithmetic
// here: users subtract the microseconds of two finite values themselves.
//
//     NyTime limit;
//     limit.Set(NyTime::kMicroseconds, 250000);
//     event.Wait(limit); // for up to a quarter of a second
struct NyTime {
    // What `Set` makes of the value. The underlying type is fixed, so that a selector outside the
    // list is an ordinary value; `Set` treats it as kZero.
    enum tNySpecialTime : std::int32_t {
        kZero = 0,         // 0 microseconds; the argument is ignored
        kInfinite = 1,     // no limit; the argument is ignored
        kNow = 2,          // the present moment; the argument is ignored
        kMicroseconds = 3, // the argument, in microseconds
    };

    // Stores the kind and the value. The stored kind is kZero (finite) or kInfinite.
    void Set(tNySpecialTime kind, long long value);

    // Stores the present moment, or zero (finite) when the clock cannot be read.
    void SetToCurrentTime();

    std::int32_t mSpecial = kZero;  // kZero: finite; kInfinite: no limit; never another value
    std::int64_t mMicroseconds = 0; // 0 when infinite
};

using tNySpecialTime = NyTime::tNySpecialTime;

// A local time in calendar fields.
struct NyTimeOfDay {
    std::int32_t mSecond = 0;  // 0..60
    std::int32_t mMinute = 0;  // 0..59
    std::int32_t mHour = 0;    // 0..23
    std::int32_t mDay = 0;     // 1..31
    std::int32_t mMonth = 0;   // 0..11, January is 0
    std::int32_t mYear = 0;    // years since 1900
    std::int32_t mWeekDay = 0; // 0..6, Sunday is 0
    std::int32_t mYearDay = 0; // 0..365
    std::int32_t mIsDST = 0;   // 1 while daylight saving time is in force, else 0
};

// Gives the calendar fields of wall-clock moments, in the time zone that the environment variable
// `TZ` names at the call. Any thread may call it, while no thread changes the environment.
//
//     NyTimeOfDay now;
//     NyClockTime::GetTime(now); // at a quarter past nine: now.mHour is 9, now.mMinute is 15
class NyClockTime {
public:
    // The present moment.
    static void GetTime(NyTimeOfDay& out);

    // The moment `seconds` after the Unix epoch. Only the low 32 bits count, as a signed number.
    static void GetTime(NyTimeOfDay& out, long long seconds);
};
