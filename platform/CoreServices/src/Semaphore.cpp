#include "DurationLength.h"
#include "platform/support/Mutex.h"
#include "platform/support/SlotTable.h"

#include <CoreServices/Multiprocessing.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace {

using Clock = std::chrono::steady_clock;

// The units in a semaphore or, below zero, the threads that wait for one. No wider than
// MPSemaphoreCount, so that it is atomic without a lock on 32-bit platforms too.
using Count = std::make_signed_t<MPSemaphoreCount>;

Count CountOf(MPSemaphoreCount value) {
    constexpr Count kMost = std::numeric_limits<Count>::max();
    return value > MPSemaphoreCount{kMost} ? kMost : static_cast<Count>(value);
}

// Most calls need the count alone. A thread that finds no unit takes one off the count all the same
// and then waits for a wake-up, which whoever adds one to a negative count owes it. So at every
// moment
//
//     threads that wait = what the count is below zero by + wake-ups owed or given
//
// A thread that gives up waiting therefore adds its one back while the count is negative. If it is
// not, each thread that waits has a wake-up to come, this one too, and it waits for that: for no
// longer than the signal that is under way takes to give it.
//
// Ordering: a signal adds to the count with release, and a wait that finds a unit takes it with
// acquire. As the count is changed by read-modify-writes alone, that wait sees what was done before
// each of the signals that the count holds. The mutex orders a wake-up and the thread that takes
// it.
class Semaphore {
public:
    // Begins a life; nobody else knows of the semaphore yet.
    void Begin(MPSemaphoreCount maximum, MPSemaphoreCount initial) {
        mMaximum = CountOf(maximum);
        mCount.store(CountOf(initial), std::memory_order_relaxed);
    }

    // Returns false when the semaphore is full.
    bool Signal() {
        Count count = mCount.load(std::memory_order_relaxed);
        do {
            // Never so below zero: a thread that waits is given its unit even at a maximum of 0.
            if (count >= mMaximum) {
                return false;
            }
        } while (!mCount.compare_exchange_weak(count, count + 1, std::memory_order_release,
                                               std::memory_order_relaxed));
        if (count < 0) {
            {
                const MutexLock lock(mMutex);
                ++mWakeUps;
            }
            // Outside the mutex, which the waiter needs at once.
            mWoken.NotifyOne();
        }
        return true;
    }

    // Returns false on time-out.
    bool Wait(Duration timeout) {
        Count count = mCount.load(std::memory_order_relaxed);
        while (count > 0) {
            if (mCount.compare_exchange_weak(count, count - 1, std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
                return true;
            }
        }
        if (timeout == kDurationImmediate) {
            return false;
        }
        const bool isForever = timeout == kDurationForever;
        const Clock::time_point deadline =
            isForever ? Clock::time_point() : Clock::now() + CoreServices::LengthOf(timeout);
        // A unit that has come meanwhile is taken by this.
        if (mCount.fetch_sub(1, std::memory_order_acquire) > 0) {
            return true;
        }
        const MutexLock lock(mMutex);
        bool isInTime = true;
        while (mWakeUps == 0 && isInTime) {
            if (isForever) {
                mWoken.Wait(mMutex);
            } else {
                isInTime = mWoken.WaitUntil(mMutex, deadline);
            }
        }
        if (mWakeUps == 0 && GiveUp()) {
            return false;
        }
        // In time after all; the thread that signals is about to take the mutex.
        while (mWakeUps == 0) {
            mWoken.Wait(mMutex);
        }
        --mWakeUps;
        return true;
    }

private:
    // Undoes this thread's count as one that waits. Returns false if its wake-up is on its way.
    bool GiveUp() {
        Count count = mCount.load(std::memory_order_relaxed);
        while (count < 0) {
            if (mCount.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) {
                return true;
            }
        }
        return false;
    }

    std::atomic<Count> mCount{0};
    Count mMaximum = 0;
    Mutex mMutex;
    ConditionVariable mWoken;
    MPSemaphoreCount mWakeUps QUORVEL_GUARDED_BY(mMutex) = 0;
};

using Semaphores = SlotTable<Semaphore, std::uintptr_t, 20>;

// Exists before any code has run, and has nothing to destroy: a thread may still use a semaphore
// while the process ends.
constinit Semaphores sSemaphores;
static_assert(std::is_trivially_destructible_v<Semaphores>);

Semaphore* FindSemaphore(MPSemaphoreID identifier) {
    return sSemaphores.Find(std::bit_cast<std::uintptr_t>(identifier));
}

} // namespace

OSStatus MPCreateSemaphore(MPSemaphoreCount maximumValue, MPSemaphoreCount initialValue,
                           MPSemaphoreID* semaphore) {
    if (semaphore == nullptr || initialValue > maximumValue) {
        return paramErr;
    }
    *semaphore = std::bit_cast<MPSemaphoreID>(sSemaphores.Add(
        [maximumValue, initialValue](Semaphore& added, std::uintptr_t /*identifier*/) {
            added.Begin(maximumValue, initialValue);
        }));
    return *semaphore == nullptr ? OSStatus{kMPInsufficientResourcesErr} : OSStatus{noErr};
}

OSStatus MPDeleteSemaphore(MPSemaphoreID semaphore) {
    return sSemaphores.Remove(std::bit_cast<std::uintptr_t>(semaphore)) ? OSStatus{noErr}
                                                                        : OSStatus{kMPInvalidIDErr};
}

OSStatus MPWaitOnSemaphore(MPSemaphoreID semaphore, Duration timeout) {
    Semaphore* const found = FindSemaphore(semaphore);
    if (found == nullptr) {
        return kMPInvalidIDErr;
    }
    return found->Wait(timeout) ? OSStatus{noErr} : OSStatus{kMPTimeoutErr};
}

OSStatus MPSignalSemaphore(MPSemaphoreID semaphore) {
    Semaphore* const found = FindSemaphore(semaphore);
    if (found == nullptr) {
        return kMPInvalidIDErr;
    }
    return found->Signal() ? OSStatus{noErr} : OSStatus{kMPInsufficientResourcesErr};
}
