#include "runtime/time/MacDuration.h"

#include "runtime/time/NyTime.h"

#include <cstdint>

namespace {
constexpr long kForever = 0x7FFFFFFF;
constexpr std::int32_t kLastSecondInMicroseconds = 0x3FFFF;
} // namespace

long ConvertNyTimeToMacDuration(const NyTime& time) {
    if (time.mSpecial != NyTime::kZero) {
        return kForever;
    }
    if (time.mMicroseconds == 0) {
        return 0;
    }
    const auto seconds = static_cast<std::int32_t>(time.mMicroseconds / 1000000);
    const std::int64_t rest = time.mMicroseconds % 1000000;
    // The arithmetic is unsigned so that the wrap-around, which is intended, is defined.
    const auto factor = static_cast<std::uint32_t>(seconds);
    if (seconds > kLastSecondInMicroseconds) {
        return static_cast<std::int32_t>(factor * 1000U + static_cast<std::uint32_t>(rest / 1000));
    }
    return static_cast<std::int32_t>(0U - factor * 1000000U - static_cast<std::uint32_t>(rest));
}
