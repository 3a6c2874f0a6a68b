#include "Deadline.h"
#include "ObjectTable.h"

#include <CoreServices/Multiprocessing.h>
#include <pthread.h>

#include <atomic>

namespace {

using CoreServices::Deadline;

// A region is taken and left by one atomic step each while nobody waits for it. Whoever has to wait
// does so under the record's mutex, having said so in the state.
//
// The state is the generation that the region is in, so that a stale identifier never matches, and
// the two flags; 0 between two lives. Taking the region acquires and leaving it releases, which
// makes what was done within it visible to the next holder.
constexpr uintptr_t kHeld = 1;
constexpr uintptr_t kAwaited = 2; // set while threads wait; changed under the mutex
constexpr unsigned kFlagBits = 2;

// How often a held region is looked at again before the thread sleeps: for about as long as a
// short critical section takes, which is less than a sleep and a wake-up cost.
constexpr int kLooks = 100;

struct Region : CoreServices::ObjectRecord {
    std::atomic<uintptr_t> mState{0};
    // The thread that holds the region, zero when none does. Relaxed: a thread finds itself here
    // only where it wrote itself.
    std::atomic<pthread_t> mOwner{};
    UInt32 mDepth = 0;   // the holder's own
    UInt32 mWaiters = 0; // under the mutex

    void Begin() { mState.store(mGeneration << kFlagBits, std::memory_order_release); }
    void Reset() {
        mState.store(0, std::memory_order_release);
        mOwner.store(pthread_t{}, std::memory_order_relaxed);
        mWaiters = 0;
    }

    bool IsHeldByCaller() const {
        return pthread_equal(mOwner.load(std::memory_order_relaxed), pthread_self()) != 0;
    }
    void BecomeHolder() {
        mOwner.store(pthread_self(), std::memory_order_relaxed);
        mDepth = 1;
    }
    // Takes the region if it is free and its state, but for kAwaited, is `generation`'s.
    bool TryTake(uintptr_t freeState) {
        uintptr_t expected = mState.load(std::memory_order_relaxed);
        return (expected & ~kAwaited) == freeState &&
               mState.compare_exchange_strong(expected, expected | kHeld, std::memory_order_acquire,
                                              std::memory_order_relaxed);
    }
};

using Regions = CoreServices::ObjectTable<Region>;

// Never destroyed: a thread may still use a region while the process ends.
Regions& AllRegions() {
    static Regions* const regions = new Regions;
    return *regions;
}

// The record of an identifier; null for one that no region ever had, 0 being no generation.
Region* FindRegion(MPCriticalRegionID identifier) {
    return Regions::GenerationOf(identifier) == 0 ? nullptr : AllRegions().Find(identifier);
}

// Waits for a held region under its mutex.
OSStatus WaitAndTake(Regions::Locked& region, uintptr_t freeState, Duration timeout) {
    const Deadline deadline(timeout);
    ++region->mWaiters;
    bool taken = false;
    bool inTime = true;
    while (inTime) {
        // Said before the last look: a holder that leaves later sees it, and wakes us.
        region->mState.fetch_or(kAwaited, std::memory_order_relaxed);
        taken = region->TryTake(freeState);
        if (taken) {
            break;
        }
        inTime = region.Wait(deadline);
        if (!region.IsValid()) {
            // The counts are already those of the record's next life.
            return kMPDeletedErr;
        }
    }
    taken = taken || region->TryTake(freeState);
    if (--region->mWaiters == 0) {
        region->mState.fetch_and(~kAwaited, std::memory_order_relaxed);
    }
    if (!taken) {
        return kMPTimeoutErr;
    }
    region->BecomeHolder();
    return noErr;
}

} // namespace

OSStatus MPCreateCriticalRegion(MPCriticalRegionID* criticalRegion) {
    if (criticalRegion == nullptr) {
        return paramErr;
    }
    *criticalRegion = static_cast<MPCriticalRegionID>(
        AllRegions().Create([](Region& region) { region.Begin(); }));
    return *criticalRegion == nullptr ? OSStatus{kMPInsufficientResourcesErr} : OSStatus{noErr};
}

OSStatus MPDeleteCriticalRegion(MPCriticalRegionID criticalRegion) {
    return AllRegions().Delete(criticalRegion) ? OSStatus{noErr} : OSStatus{kMPInvalidIDErr};
}

OSStatus MPEnterCriticalRegion(MPCriticalRegionID criticalRegion, Duration timeout) {
    Region* const found = FindRegion(criticalRegion);
    if (found == nullptr) {
        return kMPInvalidIDErr;
    }
    const uintptr_t freeState = Regions::GenerationOf(criticalRegion) << kFlagBits;
    if (found->TryTake(freeState)) {
        found->BecomeHolder();
        return noErr;
    }
    const auto isAlive = [found, freeState] {
        return (found->mState.load(std::memory_order_relaxed) & ~(kHeld | kAwaited)) == freeState;
    };
    if (found->IsHeldByCaller() && isAlive()) {
        ++found->mDepth;
        return noErr;
    }
    for (int look = 0; timeout != kDurationImmediate && look < kLooks && isAlive(); ++look) {
        if (found->TryTake(freeState)) {
            found->BecomeHolder();
            return noErr;
        }
    }
    Regions::Locked region(AllRegions(), criticalRegion);
    return region ? WaitAndTake(region, freeState, timeout) : OSStatus{kMPInvalidIDErr};
}

OSStatus MPExitCriticalRegion(MPCriticalRegionID criticalRegion) {
    Region* const found = FindRegion(criticalRegion);
    if (found == nullptr) {
        return kMPInvalidIDErr;
    }
    const uintptr_t freeState = Regions::GenerationOf(criticalRegion) << kFlagBits;
    const uintptr_t state = found->mState.load(std::memory_order_relaxed);
    if ((state & ~(kHeld | kAwaited)) != freeState) {
        return kMPInvalidIDErr;
    }
    if (!found->IsHeldByCaller()) {
        return kMPInsufficientResourcesErr;
    }
    if (--found->mDepth != 0) {
        return noErr;
    }
    found->mOwner.store(pthread_t{}, std::memory_order_relaxed);
    uintptr_t held = freeState | kHeld;
    if (found->mState.compare_exchange_strong(held, freeState, std::memory_order_release,
                                              std::memory_order_relaxed)) {
        return noErr;
    }
    bool isAwaited = false;
    {
        Regions::Locked region(AllRegions(), criticalRegion);
        if (!region) {
            return kMPInvalidIDErr;
        }
        region->mState.fetch_and(~kHeld, std::memory_order_release);
        isAwaited = region->mWaiters != 0;
    }
    if (isAwaited) {
        // Outside the mutex, which the waiter needs at once. Records stay for ever: should this one
        // have been deleted meanwhile, the signal wakes nobody or is a spurious wake-up.
        found->mCondition.Signal();
    }
    return noErr;
}
