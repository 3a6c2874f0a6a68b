#pragma once

#include "runtime/sync/NyEvent.h"

#include <pthread.h>

#include <atomic>
#include <cstdint>

// The platform's objects behind a NyEvent.
struct NyEventPlatformData {
    NyEventPlatformData();
    ~NyEventPlatformData();
    NyEventPlatformData(const NyEventPlatformData&) = delete;
    NyEventPlatformData& operator=(const NyEventPlatformData&) = delete;

    pthread_cond_t mCondition{};
    pthread_condattr_t mConditionAttributes{};
    pthread_mutex_t mMutex{};
    // Result of the last platform call made to build or destroy the record, earlier ones are
    // overwritten; not 0: the event is inert. Written by constructor and destructor only.
    int32_t mStatus = 0;
    NyEvent::tResetPolicy mResetPolicy = NyEvent::kManualReset;
    // Written under `mMutex` only. Atomic for the one read that `Signal` makes outside of it.
    std::atomic<NyEvent::tState> mState{NyEvent::kNotSignaled};
};
