#pragma once

#include "runtime/sync/NyMutex.h"

#include <cstdint>
#include <string>

// A named object that owns one recursive mutex. It is taken through a NyLockGuard, or directly
// through `mMutex`.
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

// Holds a NyLock for a scope. A guard belongs to one thread, and its lock must outlive it. Every
// wait is without limit.
//
//     NyLockGuard guard(mLock, true); // takes the lock
//     mPending.push_back(item);
//     guard.Unlock(); // before the end of the scope, as what follows may take a while
//     Tell(listener);
class NyLockGuard {
public:
    // Takes the lock if `lockNow`.
    NyLockGuard(NyLock& lock, bool lockNow);
    ~NyLockGuard();
    NyLockGuard(const NyLockGuard&) = delete;
    NyLockGuard& operator=(const NyLockGuard&) = delete;

    // Counts one hold more. The first hold takes the lock and may block.
    void Lock() {
        if (++mCount == 1) {
            mLock->mMutex.Lock(kNoLimit);
        }
    }

    // Counts one hold less. The last hold releases the lock. The count is not checked first: if
    // there was no hold, it goes below zero, and the destructor then unlocks once.
    void Unlock() {
        if (mLock != nullptr && --mCount == 0) {
            mLock->mMutex.Unlock();
        }
    }

private:
    static constexpr unsigned int kNoLimit = 0xFFFFFFFF;

    std::int32_t mCount = 0; // how many times this guard holds the lock
    NyLock* mLock;
};
