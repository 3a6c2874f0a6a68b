#include "DurationLength.h"
#include "platform/support/Mutex.h"
#include "platform/support/SlotTable.h"

#include <CoreServices/Multiprocessing.h>

#include <bit>
#include <chrono>
#include <cstdint>
#include <type_traits>

namespace {

using Clock = std::chrono::steady_clock;

// The state is under one mutex, which costs no system call as long as nobody else holds it; nor
// does a signal that nobody waits for. Each unit goes to whoever comes first: to a thread that
// waits or, if one comes between, to that. A thread that gives up does so with the mutex held, so
// that it either takes a unit that has come in time after all, or is no longer counted when the
// next signal asks whether there is room.
class Semaphore {
public:
    // Begins a life; nobody else knows of the semaphore yet.
    void Begin(MPSemaphoreCount maximum, MPSemaphoreCount initial) {
        const MutexLock lock(mMutex);
        mMaximum = maximum;
        mUnits = initial;
    }

    // Returns false when the semaphore is full.
    bool Signal() {
        bool isAwaited = false;
        {
            const MutexLock lock(mMutex);
            // A thread that waits is given its unit even at a maximum of 0.
            if (mUnits >= mMaximum && mUnits >= mWaiting) {
                return false;
            }
            ++mUnits;
            isAwaited = mWaiting > 0;
        }
        // Outside the mutex, which the waiter needs at once. All are woken, because the condition
        // variables of glibc before 2.41 can lose the wake-up of a single one among several.
        if (isAwaited) {
            mSignalled.NotifyAll();
        }
        return true;
    }

    // Returns false on time-out.
    bool Wait(Duration timeout) {
        const MutexLock lock(mMutex);
        if (mUnits == 0 && timeout != kDurationImmediate) {
            WaitForUnit(timeout);
        }
        if (mUnits == 0) {
            return false;
        }
        --mUnits;
        return true;
    }

private:
    // Returns when there is a unit, or on time-out.
    void WaitForUnit(Duration timeout) QUORVEL_REQUIRES(mMutex) {
        ++mWaiting;
        if (timeout == kDurationForever) {
            while (mUnits == 0) {
                mSignalled.Wait(mMutex);
            }
        } else {
            const Clock::time_point deadline = Clock::now() + CoreServices::LengthOf(timeout);
            while (mUnits == 0 && mSignalled.WaitUntil(mMutex, deadline)) {
            }
        }
        --mWaiting;
    }

    Mutex mMutex;
    ConditionVariable mSignalled;
    MPSemaphoreCount mMaximum QUORVEL_GUARDED_BY(mMutex) = 0;
    MPSemaphoreCount mUnits QUORVEL_GUARDED_BY(mMutex) = 0;
    MPSemaphoreCount mWaiting QUORVEL_GUARDED_BY(mMutex) = 0;
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
