#include "DurationLength.h"
#include "platform/support/SlotTable.h"

#include <CoreServices/Multiprocessing.h>

#include <pthread.h>

#include <bit>
#include <cstdint>
#include <memory>
#include <mutex>
#include <type_traits>

namespace {

struct Region {
    std::recursive_timed_mutex mMutex;
};

using Regions = SlotTable<Region, std::uintptr_t, 20>;

// Exists before any code has run, and has nothing to destroy: a thread may still use a region while
// the process ends.
constinit Regions sRegions;
static_assert(std::is_trivially_destructible_v<Regions>);

Region* FindRegion(MPCriticalRegionID identifier) {
    return sRegions.Find(std::bit_cast<std::uintptr_t>(identifier));
}

} // namespace

OSStatus MPCreateCriticalRegion(MPCriticalRegionID* criticalRegion) {
    if (criticalRegion == nullptr) {
        return paramErr;
    }
    // A mutex of its own for every life: the last one may have ended with the region held.
    *criticalRegion = std::bit_cast<MPCriticalRegionID>(sRegions.Add(
        [](Region& region, std::uintptr_t /*identifier*/) { std::construct_at(&region.mMutex); }));
    return *criticalRegion == nullptr ? OSStatus{kMPInsufficientResourcesErr} : OSStatus{noErr};
}

OSStatus MPDeleteCriticalRegion(MPCriticalRegionID criticalRegion) {
    return sRegions.Remove(std::bit_cast<std::uintptr_t>(criticalRegion))
               ? OSStatus{noErr}
               : OSStatus{kMPInvalidIDErr};
}

OSStatus MPEnterCriticalRegion(MPCriticalRegionID criticalRegion, Duration timeout) {
    Region* const region = FindRegion(criticalRegion);
    if (region == nullptr) {
        return kMPInvalidIDErr;
    }
    if (timeout == kDurationForever) {
        region->mMutex.lock();
        return noErr;
    }
    return region->mMutex.try_lock_for(CoreServices::LengthOf(timeout)) ? OSStatus{noErr}
                                                                        : OSStatus{kMPTimeoutErr};
}

OSStatus MPExitCriticalRegion(MPCriticalRegionID criticalRegion) {
    Region* const region = FindRegion(criticalRegion);
    if (region == nullptr) {
        return kMPInvalidIDErr;
    }
    // Not the class's own unlock, which does not tell a thread that it is not in the region.
    return pthread_mutex_unlock(region->mMutex.native_handle()) == 0
               ? OSStatus{noErr}
               : OSStatus{kMPInsufficientResourcesErr};
}
