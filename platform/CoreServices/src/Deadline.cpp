#include "Deadline.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <limits>

namespace CoreServices {

namespace {
constexpr uint64_t kNanosecondsPerSecond = 1000000000;

// The kernel's call takes the word itself, and a moment with the kernel's own long.
static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));
static_assert(sizeof(timespec::tv_sec) == sizeof(long));

void Wake(std::atomic<uint32_t>& wakeUps, int count) {
    // Release: what the woken thread looks at is stored before.
    wakeUps.fetch_add(1, std::memory_order_release);
    syscall(SYS_futex, &wakeUps, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}
} // namespace

uint64_t DurationToNanoseconds(Duration duration) {
    if (duration < 0) {
        return static_cast<uint64_t>(-static_cast<int64_t>(duration)) * 1000;
    }
    return static_cast<uint64_t>(duration) * 1000000;
}

MonotonicCondition::MonotonicCondition() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&mCondition, &attributes);
    pthread_condattr_destroy(&attributes);
}

Deadline::Deadline(Duration timeout) : mTimeout(timeout) {
    if (timeout == kDurationImmediate || timeout == kDurationForever) {
        return;
    }
    clock_gettime(CLOCK_MONOTONIC, &mMoment);
    const uint64_t nanoseconds =
        static_cast<uint64_t>(mMoment.tv_nsec) + DurationToNanoseconds(timeout);
    const auto seconds = static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
    // The clock counts from the machine's start; only a 32-bit count of seconds could overflow.
    constexpr time_t kLastSecond = std::numeric_limits<time_t>::max();
    mMoment.tv_sec =
        mMoment.tv_sec > kLastSecond - seconds ? kLastSecond : mMoment.tv_sec + seconds;
    mMoment.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
}

bool Deadline::Wait(MonotonicCondition& condition, pthread_mutex_t& mutex) const {
    if (mTimeout == kDurationImmediate) {
        return false;
    }
    if (mTimeout == kDurationForever) {
        pthread_cond_wait(&condition.mCondition, &mutex);
        return true;
    }
    return pthread_cond_timedwait(&condition.mCondition, &mutex, &mMoment) != ETIMEDOUT;
}

bool Deadline::Wait(const std::atomic<uint32_t>& wakeUps, uint32_t value) const {
    if (mTimeout == kDurationImmediate) {
        return false;
    }
    const timespec* const moment = mTimeout == kDurationForever ? nullptr : &mMoment;
    return syscall(SYS_futex, &wakeUps, FUTEX_WAIT_BITSET_PRIVATE, value, moment, nullptr,
                   FUTEX_BITSET_MATCH_ANY) == 0 ||
           errno != ETIMEDOUT;
}

void WakeOne(std::atomic<uint32_t>& wakeUps) {
    Wake(wakeUps, 1);
}

void WakeAll(std::atomic<uint32_t>& wakeUps) {
    Wake(wakeUps, INT_MAX);
}

} // namespace CoreServices
