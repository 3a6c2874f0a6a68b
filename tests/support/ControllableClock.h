// Takes the place of UpTime, usleep and gettimeofday in the test program and in all modules that it
// loads. Without a ControllableClock all three are the real ones; while one exists, both clocks
// stand still but for what the test or a usleep moves them by. One at a time; any thread.
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

    // Every later reading of the wall clock moves it on by so much first.
    void StepWallTimeAtReadings(std::chrono::microseconds length);

    std::chrono::nanoseconds UpTime() const;

    // How often gettimeofday and usleep were called on this clock.
    std::uint64_t WallTimeReadings() const;
    std::uint64_t Sleeps() const;

    // Called in place of moving the clocks on when a thread calls usleep, on that thread. Null
    // brings the moving back.
    void OnSleep(std::function<void(std::chrono::microseconds)> handler);

    // What this thread's last call of UpTime returned.
    static std::chrono::nanoseconds LastUpTimeOfThisThread();
};

} // namespace TestSupport
