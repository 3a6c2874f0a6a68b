#include "runtime/sync/NyLock.h"

NyLock::NyLock() : mName("NyLock") {}

NyLock::NyLock(const char* name) : mName(name), mMutex(name) {}

NyLock::~NyLock() = default;

NyLockGuard::NyLockGuard(NyLock& lock, bool lockNow) : mLock(&lock) {
    if (lockNow) {
        mCount = 1;
        mLock->mMutex.Lock(kNoLimit);
    }
}

NyLockGuard::~NyLockGuard() {
    if (mLock != nullptr && mCount != 0) {
        mLock->mMutex.Unlock();
    }
}
