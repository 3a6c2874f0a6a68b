#pragma once

#include <chrono>
#include <cstdint>

namespace MidiServer {

// A StallWatch notices that a driver forwards nothing any more. A driver stalls for good once a
// ring of its worker has overflowed, although it goes on taking what it is sent.
//
//     watch.Sent(now);
//     ...
//     if (now >= watch.Deadline()) { Restart(); }
//
// The caller supplies the times, which must not decrease. Not synchronised.
class StallWatch {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    explicit StallWatch(std::chrono::nanoseconds stallTime) : mStallTime(stallTime) {}

    // Says that a list went to the driver.
    void Sent(TimePoint now) {
        if (mOutstanding++ == 0) {
            mSince = now;
        }
    }
    // Says that lists came out of the driver, are known to be lost, or were refused.
    void Done(TimePoint now, std::uint64_t lists) {
        mOutstanding -= lists;
        mSince = now;
    }

    // When the driver will count as stalled if nothing more comes out of it; time_point::max() if
    // nothing is due from it.
    TimePoint Deadline() const {
        return mOutstanding == 0 ? TimePoint::max() : mSince + mStallTime;
    }

private:
    std::chrono::nanoseconds mStallTime;
    std::uint64_t mOutstanding = 0; // lists
    TimePoint mSince{};             // when one was sent after none, or when one came out last
};

} // namespace MidiServer
