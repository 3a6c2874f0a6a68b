#include "DurationLength.h"

#include <CoreServices/DriverServices.h>

#include <cstdint>
#include <ctime>
#include <limits>

namespace {

std::uint64_t ToNumber(AbsoluteTime time) {
    return (static_cast<std::uint64_t>(time.hi) << 32) | time.lo;
}

AbsoluteTime FromNumber(std::uint64_t number) {
    AbsoluteTime time;
    time.hi = static_cast<UInt32>(number >> 32);
    time.lo = static_cast<UInt32>(number);
    return time;
}

// In host ticks.
std::uint64_t TicksOf(Duration duration) {
    return static_cast<std::uint64_t>(CoreServices::LengthOf(duration).count());
}

} // namespace

AbsoluteTime UpTime() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return FromNumber(static_cast<std::uint64_t>(now.tv_sec) * 1000000000 +
                      static_cast<std::uint64_t>(now.tv_nsec));
}

AbsoluteTime AddDurationToAbsolute(Duration duration, AbsoluteTime absoluteTime) {
    const std::uint64_t time = ToNumber(absoluteTime);
    const std::uint64_t length = TicksOf(duration);
    constexpr std::uint64_t kLast = std::numeric_limits<std::uint64_t>::max();
    return FromNumber(time > kLast - length ? kLast : time + length);
}

AbsoluteTime SubDurationFromAbsolute(Duration duration, AbsoluteTime absoluteTime) {
    const std::uint64_t time = ToNumber(absoluteTime);
    const std::uint64_t length = TicksOf(duration);
    return FromNumber(time < length ? 0 : time - length);
}
