#include "Deadline.h"
#include "ObjectTable.h"

#include <CoreServices/Multiprocessing.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>

namespace {

using CoreServices::Deadline;

// A region is taken and left by one atomic step each while nobody waits for it. Whoever has to wait
// does so under the record's mutex, having said so in the state.
//
// All that a caller decides by is in that one word, so that each decision holds at one moment
// whatever other threads do, a deletion and the record's next life included:
//   bit 0         threads wait; changed under the mutex
//   bit 1         the region exists
//   bits 2 to 17  how often the holder has entered
//   bits 18 to 39 the thread that holds the region, 0 when none does
//   bits 40 to 63 the generation of the identifier, its low bits on a 64-bit host
// A record that is in no life has a word of 0. Taking the region acquires and leaving it releases,
// which makes what was done within it visible to the next holder.
constexpr uint64_t kAwaited = 1;
constexpr uint64_t kExists = 2;
constexpr uint64_t kOnce = 4;
constexpr uint64_t kDepthMask = uint64_t{0xFFFF} << 2;
constexpr unsigned kThreadShift = 18;
constexpr uint64_t kThreadMask = uint64_t{0x3FFFFF} << kThreadShift;
constexpr unsigned kGenerationShift = 40;

// How often a held region is looked at again before the thread sleeps: for about as long as a
// short critical section takes, which is less than a sleep and a wake-up cost.
constexpr int kLooks = 100;

// The calling thread, as a region's word holds it. The kernel never gives out more than 22 bits,
// and no number twice at a time.
uint64_t CallingThread() {
    thread_local const uint64_t thread = static_cast<uint64_t>(gettid()) << kThreadShift;
    return thread;
}

struct Region : CoreServices::ObjectRecord {
    std::atomic<uint64_t> mState{0};
    UInt32 mWaiters = 0; // under the mutex

    void Begin(uint64_t freeState) { mState.store(freeState, std::memory_order_release); }
    void Reset() {
        mState.store(0, std::memory_order_release);
        mWaiters = 0;
    }

    // Takes the region for the caller if it is free and in the life that `freeState` names.
    bool TryTake(uint64_t freeState) {
        uint64_t expected = mState.load(std::memory_order_relaxed);
        return (expected & ~kAwaited) == freeState &&
               mState.compare_exchange_strong(expected, expected | CallingThread() | kOnce,
                                              std::memory_order_acquire, std::memory_order_relaxed);
    }
};

// The word of a region of that generation which nobody holds and nobody waits for.
uint64_t FreeState(uintptr_t generation) {
    return (uint64_t{generation} << kGenerationShift) | kExists;
}

// Whether a word belongs to the life that `freeState` names.
bool IsOfLife(uint64_t state, uint64_t freeState) {
    return (state & ~(kAwaited | kDepthMask | kThreadMask)) == freeState;
}

bool IsHeldByCaller(uint64_t state) {
    return (state & kThreadMask) == CallingThread();
}

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
OSStatus WaitAndTake(Regions::Locked& region, uint64_t freeState, Duration timeout) {
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
    return noErr;
}

} // namespace

OSStatus MPCreateCriticalRegion(MPCriticalRegionID* criticalRegion) {
    if (criticalRegion == nullptr) {
        return paramErr;
    }
    *criticalRegion = static_cast<MPCriticalRegionID>(
        AllRegions().Create([](Region& region) { region.Begin(FreeState(region.mGeneration)); }));
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
    const uint64_t freeState = FreeState(Regions::GenerationOf(criticalRegion));
    if (found->TryTake(freeState)) {
        return noErr;
    }
    // Fails only where a waiter arrives or the region is deleted: nobody else enters or leaves.
    uint64_t state = found->mState.load(std::memory_order_relaxed);
    while (IsOfLife(state, freeState) && IsHeldByCaller(state)) {
        if ((state & kDepthMask) == kDepthMask) {
            return kMPInsufficientResourcesErr;
        }
        if (found->mState.compare_exchange_weak(state, state + kOnce, std::memory_order_relaxed)) {
            return noErr;
        }
    }
    for (int look = 0; timeout != kDurationImmediate && look < kLooks; ++look) {
        if (found->TryTake(freeState)) {
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
    const uint64_t freeState = FreeState(Regions::GenerationOf(criticalRegion));
    uint64_t state = found->mState.load(std::memory_order_relaxed);
    for (;;) {
        if (!IsOfLife(state, freeState)) {
            return kMPInvalidIDErr;
        }
        if (!IsHeldByCaller(state)) {
            return kMPInsufficientResourcesErr;
        }
        const bool isLast = (state & kDepthMask) == kOnce;
        if (isLast && (state & kAwaited) != 0) {
            break;
        }
        const uint64_t left = isLast ? freeState : state - kOnce;
        if (found->mState.compare_exchange_weak(state, left, std::memory_order_release,
                                                std::memory_order_relaxed)) {
            return noErr;
        }
    }
    {
        // Under the mutex, so that no waiter is between its look at the state and its sleep.
        Regions::Locked region(AllRegions(), criticalRegion);
        if (!region) {
            return kMPInvalidIDErr;
        }
        region->mState.fetch_and(~(kThreadMask | kDepthMask), std::memory_order_release);
        if (region->mWaiters == 0) {
            return noErr;
        }
    }
    // Outside the mutex, which the waiter needs at once. Records stay for ever: should this one
    // have been deleted meanwhile, the signal wakes nobody or is a spurious wake-up.
    found->mCondition.Signal();
    return noErr;
}
