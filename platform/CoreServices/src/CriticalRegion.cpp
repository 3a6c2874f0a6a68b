#include "Deadline.h"
#include "ObjectTable.h"

#include <CoreServices/Multiprocessing.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <type_traits>

namespace {

using CoreServices::Deadline;

// A region is taken and left by one atomic step each, without the record's mutex. Whoever has to
// wait says so in the state, and the holder that finds it said wakes one thread as it leaves.
//
// All that a caller decides by is in that one word, so that each decision holds at one moment
// whatever other threads do, a deletion and the record's next life included:
//   bit 0         threads may wait: set by each before it sleeps, cleared by the holder that
//   leaves,
//                 so never set in a region that is free
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
// and no number twice at a time. Asked for at every step, so it lies where the thread's own
// register leads, without a call.
[[gnu::tls_model("initial-exec")]] constinit thread_local uint64_t sCallingThread = 0;

uint64_t CallingThread() {
    if (sCallingThread == 0) {
        sCallingThread = static_cast<uint64_t>(gettid()) << kThreadShift;
    }
    return sCallingThread;
}

struct Region : CoreServices::ObjectRecord {
    std::atomic<uint64_t> mState{0};
    std::atomic<uint32_t> mWakeUps{0};

    void Begin(uint64_t freeState) { mState.store(freeState, std::memory_order_release); }
    void Reset() {
        mState.store(0, std::memory_order_release);
        CoreServices::WakeAll(mWakeUps);
    }

    // Takes the region for the caller if it is free and in the life that `freeState` names. Looks
    // first, as a failed attempt to store would disturb the holder.
    bool TryTake(uint64_t freeState) {
        uint64_t expected = freeState;
        return mState.load(std::memory_order_relaxed) == freeState &&
               mState.compare_exchange_strong(expected, freeState | CallingThread() | kOnce,
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

// Exists before any code has run, and has nothing to destroy: a thread may still use a region while
// the process ends.
constinit Regions gRegions;
static_assert(std::is_trivially_destructible_v<Regions>);

// The record of an identifier; null for one that no region ever had, 0 being no generation.
Region* FindRegion(MPCriticalRegionID identifier) {
    return Regions::GenerationOf(identifier) == 0 ? nullptr : gRegions.Find(identifier);
}

// Takes the region if it is free, with `flag` in its state. Else sees to it that the holder wakes
// a thread as it leaves, and returns kMPTimeoutErr; kMPDeletedErr when the region is gone.
OSStatus TakeOrAwait(Region& region, uint64_t freeState, uint64_t flag) {
    uint64_t state = region.mState.load(std::memory_order_relaxed);
    while (IsOfLife(state, freeState)) {
        if ((state & kThreadMask) == 0) {
            if (region.mState.compare_exchange_weak(state, state | CallingThread() | kOnce | flag,
                                                    std::memory_order_acquire,
                                                    std::memory_order_relaxed)) {
                return noErr;
            }
        } else if ((state & kAwaited) != 0 ||
                   region.mState.compare_exchange_weak(state, state | kAwaited,
                                                       std::memory_order_relaxed)) {
            return kMPTimeoutErr;
        }
    }
    return kMPDeletedErr;
}

// Waits for a held region and takes it.
OSStatus WaitAndTake(Region& region, uint64_t freeState, Duration timeout) {
    const Deadline deadline(timeout);
    uint64_t flag = 0;
    for (bool inTime = true;;) {
        // Acquire: read before the state is flagged, so the wake-up that this brings changes it.
        const uint32_t wakeUps = region.mWakeUps.load(std::memory_order_acquire);
        // Also by a thread that gives up: the wake-up that it had may have been meant for another,
        // of whom the thread that took the region instead knows nothing.
        const OSStatus status = TakeOrAwait(region, freeState, flag);
        if (status != kMPTimeoutErr || !inTime) {
            return status;
        }
        inTime = deadline.Wait(region.mWakeUps, wakeUps);
        // The holder that wakes one thread clears the flag for all that wait.
        flag = kAwaited;
    }
}

} // namespace

OSStatus MPCreateCriticalRegion(MPCriticalRegionID* criticalRegion) {
    if (criticalRegion == nullptr) {
        return paramErr;
    }
    *criticalRegion = static_cast<MPCriticalRegionID>(
        gRegions.Create([](Region& region) { region.Begin(FreeState(region.mGeneration)); }));
    return *criticalRegion == nullptr ? OSStatus{kMPInsufficientResourcesErr} : OSStatus{noErr};
}

OSStatus MPDeleteCriticalRegion(MPCriticalRegionID criticalRegion) {
    return gRegions.Delete(criticalRegion) ? OSStatus{noErr} : OSStatus{kMPInvalidIDErr};
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
    uint64_t state = found->mState.load(std::memory_order_relaxed);
    if (!IsOfLife(state, freeState)) {
        return kMPInvalidIDErr;
    }
    // Fails only where a waiter arrives or the region is deleted: nobody else enters or leaves.
    while (IsOfLife(state, freeState) && IsHeldByCaller(state)) {
        if ((state & kDepthMask) == kDepthMask) {
            return kMPInsufficientResourcesErr;
        }
        if (found->mState.compare_exchange_weak(state, state + kOnce, std::memory_order_relaxed)) {
            return noErr;
        }
    }
    if (timeout == kDurationImmediate) {
        return kMPTimeoutErr;
    }
    for (int look = 0; look < kLooks; ++look) {
        if (found->TryTake(freeState)) {
            return noErr;
        }
    }
    return WaitAndTake(*found, freeState, timeout);
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
        const uint64_t left = isLast ? freeState : state - kOnce;
        if (found->mState.compare_exchange_weak(state, left, std::memory_order_release,
                                                std::memory_order_relaxed)) {
            if (isLast && (state & kAwaited) != 0) {
                // Records stay for ever: should this one have been deleted meanwhile, the wake-up
                // wakes nobody or is a spurious one.
                CoreServices::WakeOne(found->mWakeUps);
            }
            return noErr;
        }
    }
}
