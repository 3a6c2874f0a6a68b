#pragma once

#include "runtime/sync/NyEvent.h"

#include <pthread.h>

#include <atomic>
#include <cstdint>

// The platform's objects behind a NyEvent, which alone uses them.
struct NyEventPlatformData {
    NyEventPlatformData();
    ~NyEventPlatformData();
    NyEventPlatformData(const NyEventPlatformData&) = delete;
    NyEventPlatformData& operator=(const NyEventPlatformData&) = delete;

    pthread_cond_t mCondition{};
    pthread_condattr_t mConditionAttributes{};
    pthread_mutex_t mMutex{};
    // The result of the last platform call that built or destroyed the record; each call overwrites
    // the result before it. If it is not 0, the event is inert. Only the constructor and the
    // destructor write it.
    std::int32_t mStatus = 0;
    NyEvent::tResetPolicy mResetPolicy = NyEvent::kManualReset;
    // Written under `mMutex` only. Atomic because `Signal` and `Wait` also read it without.
    std::atomic<NyEvent::tState> mState{NyEvent::kNotSignaled};
};
