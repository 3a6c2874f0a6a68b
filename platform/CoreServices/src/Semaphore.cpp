#include "Deadline.h"
#include "ObjectTable.h"

#include <CoreServices/Multiprocessing.h>

#include <type_traits>

namespace {

using CoreServices::Deadline;

struct Semaphore : CoreServices::ObjectRecord {
    MPSemaphoreCount mMaximum = 0;
    MPSemaphoreCount mValue = 0;
    // Threads in a wait, and the units that were given to them but not yet picked up. A unit given
    // to a waiter does not pass through `mValue`, so that it does not count against the maximum.
    UInt32 mWaiters = 0;
    UInt32 mGranted = 0;

    void Reset() {
        mWaiters = 0;
        mGranted = 0;
    }
};

using Semaphores = CoreServices::ObjectTable<Semaphore>;

// Exists before any code has run, and has nothing to destroy: a thread may still use a semaphore
// while the process ends.
constinit Semaphores gSemaphores;
static_assert(std::is_trivially_destructible_v<Semaphores>);

} // namespace

OSStatus MPCreateSemaphore(MPSemaphoreCount maximumValue, MPSemaphoreCount initialValue,
                           MPSemaphoreID* semaphore) {
    if (semaphore == nullptr || initialValue > maximumValue) {
        return paramErr;
    }
    *semaphore = static_cast<MPSemaphoreID>(
        gSemaphores.Create([maximumValue, initialValue](Semaphore& record) {
            record.mMaximum = maximumValue;
            record.mValue = initialValue;
        }));
    return *semaphore == nullptr ? OSStatus{kMPInsufficientResourcesErr} : OSStatus{noErr};
}

OSStatus MPDeleteSemaphore(MPSemaphoreID semaphore) {
    return gSemaphores.Delete(semaphore) ? OSStatus{noErr} : OSStatus{kMPInvalidIDErr};
}

OSStatus MPWaitOnSemaphore(MPSemaphoreID semaphore, Duration timeout) {
    Semaphores::Locked record(gSemaphores, semaphore);
    if (!record) {
        return kMPInvalidIDErr;
    }
    if (record->mValue != 0) {
        --record->mValue;
        return noErr;
    }
    const Deadline deadline(timeout);
    ++record->mWaiters;
    bool inTime = true;
    do {
        inTime = record.Wait(deadline);
        if (!record.IsValid()) {
            // The counts are already those of the record's next life.
            return kMPDeletedErr;
        }
    } while (inTime && record->mGranted == 0);
    --record->mWaiters;
    // A unit that arrived with the deadline is taken: it was given to a waiter.
    if (record->mGranted == 0) {
        return kMPTimeoutErr;
    }
    --record->mGranted;
    return noErr;
}

OSStatus MPSignalSemaphore(MPSemaphoreID semaphore) {
    Semaphore* awaited = nullptr;
    {
        Semaphores::Locked record(gSemaphores, semaphore);
        if (!record) {
            return kMPInvalidIDErr;
        }
        if (record->mGranted < record->mWaiters) {
            ++record->mGranted;
            awaited = record.operator->();
        } else if (record->mValue == record->mMaximum) {
            return kMPInsufficientResourcesErr;
        } else {
            ++record->mValue;
        }
    }
    if (awaited != nullptr) {
        // Outside the mutex, which the waiter needs at once. Records stay for ever: should this one
        // have been deleted meanwhile, the signal wakes nobody or is a spurious wake-up.
        awaited->mCondition.Signal();
    }
    return noErr;
}
