#include "runtime/sync/NySemaphore.h"

#include <CoreServices/CoreServices.h>

namespace {
constexpr unsigned int kNoLimit = 0xFFFFFFFF;
} // namespace

struct NySemaphore::Holder {
    MPSemaphoreID mID = nullptr; // null: there is no semaphore
};

NySemaphore::NySemaphore(int initial, int maximum)
    : mName("unnamed"), mSemaphore(std::make_unique<Holder>()) {
    Create(initial, maximum);
}

NySemaphore::~NySemaphore() {
    destroy();
}

bool NySemaphore::Create(int initial, int maximum) {
    destroy();
    return MPCreateSemaphore(static_cast<MPSemaphoreCount>(maximum),
                             static_cast<MPSemaphoreCount>(initial), &mSemaphore->mID) == noErr;
}

bool NySemaphore::Wait(unsigned int timeoutMs) {
    if (mSemaphore->mID == nullptr) {
        return false;
    }
    const Duration timeout =
        timeoutMs == kNoLimit ? Duration{kDurationForever} : static_cast<Duration>(timeoutMs);
    return MPWaitOnSemaphore(mSemaphore->mID, timeout) == noErr;
}

bool NySemaphore::Raise() {
    return mSemaphore->mID == nullptr || MPSignalSemaphore(mSemaphore->mID) == noErr;
}

void NySemaphore::destroy() {
    if (mSemaphore->mID != nullptr) {
        MPDeleteSemaphore(mSemaphore->mID);
        mSemaphore->mID = nullptr;
    }
}
