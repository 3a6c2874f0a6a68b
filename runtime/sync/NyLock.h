#pragma once

#include "runtime/sync/NyMutex.h"

#include <cstdint>
#include <string>

// A named object that owns one recursive mutex. Taken through a NyLockGuard, or through `mMutex`.
class NyLock {
public:
    NyLock(); // named "NyLock", its mutex "unnamed"
    explicit NyLock(const char* name);
    virtual ~NyLock();
    NyLock(const NyLock&) = delete;
    NyLock& operator=(const NyLock&) = delete;

    const std::string& GetName() const { return mName; }

private:
    std::string mName;

public:
    NyMutex mMutex;
};

// Holds a NyLock for a scope. Belongs to one thread; the lock must outlive it. Every wait is
// without limit.
class NyLockGuard {
public:
    NyLockGuard(NyLock& lock, bool lockNow);
    ~NyLockGuard();
    NyLockGuard(const NyLockGuard&) = delete;
    NyLockGuard& operator=(const NyLockGuard&) = delete;

    // Counts a hold; the first one takes the lock and may block.
    void Lock() {
        if (++mCount == 1) {
            mLock->mMutex.Lock(kNoLimit);
        }
    }

    // Counts a hold off; the last one releases the lock. The count is not tested first: without a
    // hold it goes below zero, and the destructor then unlocks once.
    void Unlock() {
        if (mLock != nullptr && --mCount == 0) {
            mLock->mMutex.Unlock();
        }
    }

private:
    static constexpr unsigned int kNoLimit = 0xFFFFFFFF;

    int32_t mCount = 0; // how many times this guard holds the lock
    NyLock* mLock;
};
