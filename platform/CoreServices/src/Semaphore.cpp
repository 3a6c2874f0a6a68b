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

struct Semaphore {
    Mutex mMutex;
    ConditionVariable mRaised;
    MPSemaphoreCount mMaximum QUORVEL_GUARDED_BY(mMutex) = 0;
    MPSemaphoreCount mUnits QUORVEL_GUARDED_BY(mMutex) = 0;
    // Threads in a wait. A unit for each of them may lie in the semaphore above the maximum, until
    // its thread has woken up and taken it.
    MPSemaphoreCount mWaiters QUORVEL_GUARDED_BY(mMutex) = 0;
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
            const MutexLock lock(added.mMutex);
            added.mMaximum = maximumValue;
            added.mUnits = initialValue;
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
    const bool isForever = timeout == kDurationForever;
    const Clock::time_point deadline =
        isForever ? Clock::time_point() : Clock::now() + CoreServices::LengthOf(timeout);
    const MutexLock lock(found->mMutex);
    ++found->mWaiters;
    bool isInTime = true;
    while (found->mUnits == 0 && isInTime) {
        if (isForever) {
            found->mRaised.Wait(found->mMutex);
        } else {
            isInTime = found->mRaised.WaitUntil(found->mMutex, deadline);
        }
    }
    --found->mWaiters;
    // Also a unit that arrived with the deadline: it was given to a waiter.
    if (found->mUnits == 0) {
        return kMPTimeoutErr;
    }
    --found->mUnits;
    return noErr;
}

OSStatus MPSignalSemaphore(MPSemaphoreID semaphore) {
    Semaphore* const found = FindSemaphore(semaphore);
    if (found == nullptr) {
        return kMPInvalidIDErr;
    }
    {
        const MutexLock lock(found->mMutex);
        if (found->mUnits >= found->mMaximum &&
            found->mUnits - found->mMaximum >= found->mWaiters) {
            return kMPInsufficientResourcesErr;
        }
        ++found->mUnits;
    }
    // Outside the mutex, which the waiter needs at once.
    found->mRaised.NotifyOne();
    return noErr;
}
