#include "runtime/sync/NyLock.h"

#include <gtest/gtest.h>

#include <future>

namespace {

bool IsFree(NyLock& lock) {
    return std::async(std::launch::async,
                      [&lock] {
                          const bool locked = lock.mMutex.Lock(0);
                          if (locked) {
                              lock.mMutex.Unlock();
                          }
                          return locked;
                      })
        .get();
}

TEST(NyLockTest, IsCalledNyLockAndItsMutexUnnamedByDefault) {
    const NyLock lock;
    EXPECT_EQ(lock.GetName(), "NyLock");
    EXPECT_EQ(lock.mMutex.GetName(), "unnamed");
}

TEST(NyLockTest, GivesItsNameToItsMutex) {
    const NyLock lock("rings");
    EXPECT_EQ(lock.GetName(), "rings");
    EXPECT_EQ(lock.mMutex.GetName(), "rings");
}

TEST(NyLockGuardTest, HoldsTheLockForItsScope) {
    NyLock lock;
    {
        const NyLockGuard guard(lock, true);
        EXPECT_FALSE(IsFree(lock));
    }
    EXPECT_TRUE(IsFree(lock));
    EXPECT_EQ(lock.mMutex.GetLockCount(), 0);
}

TEST(NyLockGuardTest, HoldsNothingWhenNotToldTo) {
    NyLock lock;
    {
        const NyLockGuard guard(lock, false);
        EXPECT_TRUE(IsFree(lock));
    }
    EXPECT_EQ(lock.mMutex.GetLockCount(), 0);
    EXPECT_TRUE(IsFree(lock));
}

TEST(NyLockGuardTest, UnlocksNothingThatAnOuterHolderHolds) {
    NyLock lock;
    const NyLockGuard outer(lock, true);
    { const NyLockGuard inner(lock, false); }
    EXPECT_EQ(lock.mMutex.GetLockCount(), 1);
    { const NyLockGuard inner(lock, true); }
    EXPECT_EQ(lock.mMutex.GetLockCount(), 1);
    EXPECT_FALSE(IsFree(lock));
}

TEST(NyLockGuardTest, DoesNotUnlockAgainAfterUnlock) {
    NyLock lock;
    const NyLockGuard outer(lock, true);
    {
        NyLockGuard guard(lock, true);
        guard.Unlock();
        EXPECT_EQ(lock.mMutex.GetLockCount(), 1);
    }
    EXPECT_EQ(lock.mMutex.GetLockCount(), 1);
}

TEST(NyLockGuardTest, LocksLaterAndAgain) {
    NyLock lock;
    {
        NyLockGuard guard(lock, false);
        guard.Lock();
        EXPECT_FALSE(IsFree(lock));
        guard.Unlock();
        EXPECT_TRUE(IsFree(lock));
        guard.Lock();
        EXPECT_FALSE(IsFree(lock));
    }
    EXPECT_TRUE(IsFree(lock));
}

TEST(NyLockGuardTest, TakesTheLockOnceHoweverOftenItIsCounted) {
    NyLock lock;
    {
        NyLockGuard guard(lock, true);
        guard.Lock();
        guard.Lock();
        EXPECT_EQ(lock.mMutex.GetLockCount(), 1);
        guard.Unlock();
        guard.Unlock();
        EXPECT_EQ(lock.mMutex.GetLockCount(), 1);
        guard.Lock();
    }
    EXPECT_EQ(lock.mMutex.GetLockCount(), 0);
    EXPECT_TRUE(IsFree(lock));
}

TEST(NyLockGuardTest, CountsBelowZeroWithoutATestAndThenUnlocksOnceAtTheEnd) {
    NyLock lock;
    ASSERT_TRUE(lock.mMutex.Lock(0xFFFFFFFF));
    {
        NyLockGuard guard(lock, false);
        guard.Unlock();
        EXPECT_EQ(lock.mMutex.GetLockCount(), 1);
    }
    EXPECT_EQ(lock.mMutex.GetLockCount(), 0);
    {
        NyLockGuard guard(lock, false);
        guard.Unlock();
        guard.Lock(); // back at 0: takes nothing
        EXPECT_TRUE(IsFree(lock));
    }
    EXPECT_EQ(lock.mMutex.GetLockCount(), 0);
}

} // namespace
