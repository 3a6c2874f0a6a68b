#pragma once

#include <MacTypes.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <ctime>

namespace CoreServices {

// The length of `duration` in nanoseconds, never negative.
uint64_t DurationToNanoseconds(Duration duration);

// A condition variable whose timed waits run on the monotonic clock, so that a set of the wall
// clock neither shortens nor stretches a wait.
class MonotonicCondition {
public:
    MonotonicCondition();
    MonotonicCondition(const MonotonicCondition&) = delete;
    MonotonicCondition& operator=(const MonotonicCondition&) = delete;

    void Signal() { pthread_cond_signal(&mCondition); }
    void Broadcast() { pthread_cond_broadcast(&mCondition); }

private:
    friend class Deadline;
    pthread_cond_t mCondition;
};

// The moment at which a wait that began at construction gives up.
class Deadline {
public:
    explicit Deadline(Duration timeout);

    // Both wait for a wake-up, perhaps a spurious one. False when the deadline has passed.
    bool Wait(MonotonicCondition& condition, pthread_mutex_t& mutex) const;
    // Returns at once when `wakeUps` has another value; whoever wakes changes it first.
    bool Wait(const std::atomic<uint32_t>& wakeUps, uint32_t value) const;

private:
    Duration mTimeout;
    timespec mMoment{};
};

// Wake one of the threads that wait for a change of `wakeUps`, or all of them.
void WakeOne(std::atomic<uint32_t>& wakeUps);
void WakeAll(std::atomic<uint32_t>& wakeUps);

} // namespace CoreServices
