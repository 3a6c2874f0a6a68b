#include "DurationLength.h"
#include "platform/support/SlotTable.h"

#include <CoreServices/Multiprocessing.h>

#include <bit>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <type_traits>

namespace {

struct Semaphore {
    std::mutex mMutex;
    std::condition_variable mRaised;
    MPSemaphoreCount mMaximum = 0;
    MPSemaphoreCount mUnits = 0;
    // Threads in a wait. A unit for each of them may lie in the semaphore above the maximum, until
    // its thread has woken up and taken it.
    MPSemaphoreCount mWaiters = 0;
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
    std::unique_lock lock(found->mMutex);
    const auto hasUnit = [found] { return found->mUnits != 0; };
    ++found->mWaiters;
    if (timeout == kDurationForever) {
        found->mRaised.wait(lock, hasUnit);
    } else {
        found->mRaised.wait_for(lock, CoreServices::LengthOf(timeout), hasUnit);
    }
    --found->mWaiters;
    // Also a unit that arrived with the deadline: it was given to a waiter.
    if (!hasUnit()) {
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
        const std::lock_guard lock(found->mMutex);
        if (found->mUnits >= found->mMaximum &&
            found->mUnits - found->mMaximum >= found->mWaiters) {
            return kMPInsufficientResourcesErr;
        }
        ++found->mUnits;
    }
    // Outside the mutex, which the waiter needs at once.
    found->mRaised.notify_one();
    return noErr;
}
