#pragma once

#include <chrono>

namespace MidiServer {

// Decides how long a port waits for a receiver that has no room. One that reads gets the time that
// it needs; one that does not read, or far too slowly, must not delay the port's other receivers.
//
//     if (!room && patience.Waits(now, freeCells)) {
//         TryAgainLater();
//     }
//
// It waits as long as the receiver goes on making room, kNoProgress for each step, and kAllowance
// in all, which passing time gives back at a twentieth of its own speed. A receiver that was given
// up is waited for again once it has had room.
class Patience {
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::milliseconds kNoProgress{100};
    static constexpr std::chrono::milliseconds kAllowance{1000};
    static constexpr int kRegainDivisor = 20;
    // What a single try counts at most: while a whole machine stands still, nobody can read.
    static constexpr std::chrono::milliseconds kLongestTry{5};

    // The receiver lacks room and has this much. Returns whether to wait and try again.
    bool Waits(Time now, unsigned freeCells);
    // The receiver has room.
    void HasRoom();

private:
    enum class State { kReady, kWaiting, kGivenUp };

    State mState = State::kReady;
    std::chrono::nanoseconds mAllowance = kAllowance;
    std::chrono::nanoseconds mWithoutProgress{0};
    Time mAsOf; // the last try
    unsigned mFree = 0;
};

} // namespace MidiServer
