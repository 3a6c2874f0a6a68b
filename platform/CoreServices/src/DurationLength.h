#pragma once

#include <MacTypes.h>

#include <chrono>
#include <cstdint>

namespace CoreServices {

// How long a Duration is, never negative; kDurationForever is taken as its number of milliseconds.
constexpr std::chrono::nanoseconds LengthOf(Duration duration) {
    if (duration < 0) {
        return std::chrono::microseconds(-std::int64_t{duration});
    }
    return std::chrono::milliseconds(duration);
}

} // namespace CoreServices
