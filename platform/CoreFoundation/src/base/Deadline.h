#pragma once

#include <CoreFoundation/CFDate.h>

#include <algorithm>
#include <chrono>

// Ten years, in seconds: longer than anybody waits, and short enough for the clock.
inline constexpr CFTimeInterval kLongestWait = 10.0 * 365 * 24 * 3600;

// Returns the moment that many seconds from now. A time that is not positive, or none, is now; one
// beyond kLongestWait is taken for that.
//
//     const auto deadline = DeadlineAfter(0.5);
inline std::chrono::steady_clock::time_point DeadlineAfter(CFTimeInterval seconds) {
    using Clock = std::chrono::steady_clock;
    if (!(seconds > 0)) { // a NaN is no time
        return Clock::now();
    }
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(
                              std::chrono::duration<double>(std::min(seconds, kLongestWait)));
}
