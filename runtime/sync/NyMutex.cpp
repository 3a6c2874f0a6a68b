#include "runtime/sync/NyMutex.h"

#include <CoreServices/CoreServices.h>

namespace {
constexpr unsigned int kNoLimit = 0xFFFFFFFF;
} // namespace

struct NyMutex::PlatformData {
    MPCriticalRegionID mRegion = nullptr;
    OSStatus mStatus = noErr;
};

NyMutex::NyMutex() : NyMutex("unnamed") {}

NyMutex::NyMutex(const char* name) : mName(name), mPlatformData(std::make_unique<PlatformData>()) {
    mPlatformData->mStatus = MPCreateCriticalRegion(&mPlatformData->mRegion);
}

NyMutex::~NyMutex() {
    if (mPlatformData->mStatus == noErr) {
        MPDeleteCriticalRegion(mPlatformData->mRegion);
    }
}

bool NyMutex::Lock(unsigned int timeoutMs) {
    if (mPlatformData->mStatus != noErr) {
        return true;
    }
    const Duration timeout =
        timeoutMs == kNoLimit ? Duration{kDurationForever} : static_cast<Duration>(timeoutMs);
    if (MPEnterCriticalRegion(mPlatformData->mRegion, timeout) == kMPTimeoutErr) {
        return false;
    }
    ++mLockCount;
    return true;
}

void NyMutex::Unlock() {
    if (mPlatformData->mStatus != noErr) {
        return;
    }
    --mLockCount;
    MPExitCriticalRegion(mPlatformData->mRegion);
}
