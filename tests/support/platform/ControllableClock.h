// Takes the place of UpTime, usleep and gettimeofday in the test program and in all modules that it
// loads. Without a ControllableClock all three are the real ones. While one exists, both clocks
// stand still, and only the test or a usleep moves them on. A program has one at a time; any thread
// may call.
//
//     ControllableClock clock;
//     clock.Advance(std::chrono::seconds(1)); // both clocks
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace TestSupport {

class ControllableClock {
public:
    // The moments at which the clocks stop.
    static constexpr std::chrono::nanoseconds kFirstUpTime = std::chrono::hours(1);
    static constexpr std::chrono::microseconds kFirstWallTime = std::chrono::seconds(1'000'000'000);

    ControllableClock();
    ~ControllableClock();
    ControllableClock(const ControllableClock&) = delete;
    ControllableClock& operator=(const ControllableClock&) = delete;

    void Advance(std::chrono::nanoseconds length); // both clocks
    void AdvanceWallTime(std::chrono::microseconds length);

    // Makes every later reading of the wall clock move it on by `length` first.
    void StepWallTimeAtReadings(std::chrono::microseconds length);

    std::chrono::nanoseconds UpTime() const;

    // How often gettimeofday and usleep were called on this clock.
    std::uint64_t WallTimeReadings() const;
    std::uint64_t Sleeps() const;

    // Makes usleep call the handler, on the thread that sleeps, instead of moving the clocks on.
    // With null, usleep moves them on again.
    void OnSleep(std::function<void(std::chrono::microseconds)> handler);

    // Returns the result of this thread's last call of UpTime.
    static std::chrono::nanoseconds LastUpTimeOfThisThread();
};

} // namespace TestSupport
