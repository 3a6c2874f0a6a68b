#pragma once

#include <semaphore.h>

#include <atomic>
#include <chrono>

namespace MidiServer {

// Wakes one sleeping thread. Signals that come while it is awake, however many, end its next wait
// at once, so none is missed:
//
//     while (running) {         // the thread
//         signal.WaitUntil(due);
//         TakeWhatThereIs();
//     }
//     LeaveSomething();         // any other
//     signal.Raise();
//
// What was written before Raise is visible to the thread when its wait ends.
class WakeUpSignal {
public:
    WakeUpSignal() { sem_init(&mSemaphore, 0, 0); }
    ~WakeUpSignal() { sem_destroy(&mSemaphore); }
    WakeUpSignal(const WakeUpSignal&) = delete;
    WakeUpSignal& operator=(const WakeUpSignal&) = delete;

    // Any thread may call; it neither blocks nor allocates. It makes a system call only if the
    // thread sleeps and no other signal has woken it.
    void Raise() noexcept {
        // Acquire and release on both sides: a raise that finds the signal raised leaves the work
        // to the wait that will take the signal, which then sees what this thread wrote as well.
        if (!mRaised.exchange(true, std::memory_order_acq_rel)) {
            sem_post(&mSemaphore);
        }
    }

    // Sleeps until a signal comes or has come, or until the time; time_point::max() means forever.
    // Returns whether it took a signal. It may return false early. One thread calls.
    bool WaitUntil(std::chrono::steady_clock::time_point time) noexcept {
        if (!TakeUntil(time)) {
            return false;
        }
        mRaised.exchange(false, std::memory_order_acq_rel);
        return true;
    }

private:
    bool TakeUntil(std::chrono::steady_clock::time_point time) noexcept {
        if (time == std::chrono::steady_clock::time_point::max()) {
            return sem_wait(&mSemaphore) == 0;
        }
        const auto sinceStart = time.time_since_epoch();
        const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceStart);
        timespec until{};
        until.tv_sec = static_cast<time_t>(seconds.count());
        until.tv_nsec = static_cast<long>(std::chrono::nanoseconds(sinceStart - seconds).count());
        return sem_clockwait(&mSemaphore, CLOCK_MONOTONIC, &until) == 0;
    }

    sem_t mSemaphore; // at most 1: posted only by the raise that set mRaised
    std::atomic<bool> mRaised{false};
};

} // namespace MidiServer
