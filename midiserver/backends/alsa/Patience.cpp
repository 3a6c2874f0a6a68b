#include "midiserver/backends/alsa/Patience.h"

#include <algorithm>

namespace MidiServer {

bool Patience::Waits(Time now, unsigned freeCells) {
    if (mState == State::kGivenUp) {
        return false;
    }
    const std::chrono::nanoseconds passed = now - mAsOf;
    mAsOf = now;
    if (mState == State::kReady) {
        mState = State::kWaiting;
        // Only what can be missing, as the first time is long past.
        mAllowance +=
            std::min<std::chrono::nanoseconds>(passed / kRegainDivisor, kAllowance - mAllowance);
        mWithoutProgress = std::chrono::nanoseconds::zero();
    } else {
        const auto counted = std::min<std::chrono::nanoseconds>(passed, kLongestTry);
        mAllowance -= counted;
        mWithoutProgress += counted;
        if (freeCells > mFree) {
            mWithoutProgress = std::chrono::nanoseconds::zero();
        }
    }
    mFree = freeCells;
    if (mWithoutProgress >= kNoProgress || mAllowance <= std::chrono::nanoseconds::zero()) {
        mState = State::kGivenUp;
    }
    return mState == State::kWaiting;
}

void Patience::HasRoom() {
    mState = State::kReady;
}

} // namespace MidiServer
