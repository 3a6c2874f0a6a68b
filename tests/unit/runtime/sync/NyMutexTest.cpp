#include "runtime/sync/NyMutex.h"

#include "tests/unit/runtime/sync/PlatformCalls.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr unsigned int kForever = 0xFFFFFFFF;

bool LockElsewhere(NyMutex& mutex, unsigned int timeoutMs) {
    return std::async(std::launch::async,
                      [&mutex, timeoutMs] {
                          const bool locked = mutex.Lock(timeoutMs);
                          if (locked) {
                              mutex.Unlock();
                          }
                          return locked;
                      })
        .get();
}

TEST(NyMutexTest, IsCalledUnnamedUnlessNamed) {
    EXPECT_EQ(NyMutex().GetName(), "unnamed");
    EXPECT_EQ(NyMutex("rings").GetName(), "rings");
}

TEST(NyMutexTest, IsRecursiveAndFreeAfterAsManyUnlocks) {
    NyMutex mutex;
    EXPECT_TRUE(mutex.Lock(kForever));
    EXPECT_TRUE(mutex.Lock(kForever));
    EXPECT_EQ(mutex.GetLockCount(), 2);
    mutex.Unlock();
    EXPECT_FALSE(LockElsewhere(mutex, 0));
    mutex.Unlock();
    EXPECT_EQ(mutex.GetLockCount(), 0);
    EXPECT_TRUE(LockElsewhere(mutex, 0));
}

TEST(NyMutexTest, RefusesAtOnceWhenPolledWhileHeldElsewhere) {
    NyMutex mutex;
    ASSERT_TRUE(mutex.Lock(kForever));
    EXPECT_FALSE(LockElsewhere(mutex, 0));
    EXPECT_EQ(mutex.GetLockCount(), 1);
    mutex.Unlock();
}

TEST(NyMutexTest, TimesOutAndLeavesTheCountAlone) {
    NyMutex mutex;
    ASSERT_TRUE(mutex.Lock(kForever));
    EXPECT_FALSE(LockElsewhere(mutex, 20));
    EXPECT_EQ(mutex.GetLockCount(), 1);
    mutex.Unlock();
}

TEST(NyMutexTest, PassesItsTimeoutOnAsADuration) {
    PlatformCalls::Scope platform;
    std::vector<Duration> durations;
    platform->mEnterCriticalRegion = [&durations](MPCriticalRegionID region, Duration timeout) {
        durations.push_back(timeout);
        return __real_MPEnterCriticalRegion(region, 0);
    };
    NyMutex mutex;
    for (const unsigned int timeout :
         {0U, 1U, 0x7FFFFFFEU, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        EXPECT_TRUE(mutex.Lock(timeout));
        mutex.Unlock();
    }
    // From 0x80000000 on they count microseconds; only the last one is forever.
    EXPECT_EQ(durations, (std::vector<Duration>{0, 1, 0x7FFFFFFE, 0x7FFFFFFF, -2147483647 - 1, -2,
                                                0x7FFFFFFF}));
}

TEST(NyMutexTest, TakesAnyFailureButATimeoutForSuccess) {
    PlatformCalls::Scope platform;
    NyMutex mutex;
    for (const OSStatus status :
         {OSStatus{kMPDeletedErr}, OSStatus{kMPInvalidIDErr}, OSStatus{1}}) {
        platform->mEnterCriticalRegion = [status](MPCriticalRegionID, Duration) { return status; };
        const int count = mutex.GetLockCount();
        EXPECT_TRUE(mutex.Lock(0));
        EXPECT_EQ(mutex.GetLockCount(), count + 1);
    }
    platform->mEnterCriticalRegion = [](MPCriticalRegionID, Duration) {
        return OSStatus{kMPTimeoutErr};
    };
    EXPECT_FALSE(mutex.Lock(kForever));
    EXPECT_EQ(mutex.GetLockCount(), 3);
}

TEST(NyMutexTest, IgnoresAFailureToExit) {
    NyMutex mutex;
    mutex.Unlock(); // not held: the platform refuses
    EXPECT_EQ(mutex.GetLockCount(), -1);
    EXPECT_TRUE(LockElsewhere(mutex, 0));
}

TEST(NyMutexTest, NeverBlocksWhenItsRegionCouldNotBeCreated) {
    PlatformCalls::Scope platform;
    int calls = 0;
    platform->mCreateCriticalRegion = [](MPCriticalRegionID*) {
        return OSStatus{kMPInsufficientResourcesErr};
    };
    platform->mEnterCriticalRegion = [&calls](MPCriticalRegionID, Duration) {
        ++calls;
        return OSStatus{kMPTimeoutErr};
    };
    platform->mExitCriticalRegion = platform->mDeleteCriticalRegion = [&calls](MPCriticalRegionID) {
        ++calls;
        return OSStatus{noErr};
    };
    {
        NyMutex mutex("degenerate");
        EXPECT_TRUE(mutex.Lock(kForever));
        EXPECT_TRUE(mutex.Lock(0));
        EXPECT_TRUE(LockElsewhere(mutex, 0));
        EXPECT_EQ(mutex.GetLockCount(), 0);
        mutex.Unlock();
        mutex.Unlock();
        EXPECT_EQ(mutex.GetLockCount(), 0);
    }
    EXPECT_EQ(calls, 0);
}

TEST(NyMutexTest, DeletesItsRegion) {
    PlatformCalls::Scope platform;
    std::vector<MPCriticalRegionID> created;
    std::vector<MPCriticalRegionID> deleted;
    platform->mCreateCriticalRegion = [&created](MPCriticalRegionID* region) {
        const OSStatus status = __real_MPCreateCriticalRegion(region);
        created.push_back(*region);
        return status;
    };
    platform->mDeleteCriticalRegion = [&deleted](MPCriticalRegionID region) {
        deleted.push_back(region);
        return __real_MPDeleteCriticalRegion(region);
    };
    std::make_unique<NyMutex>().reset();
    ASSERT_EQ(created.size(), 1U);
    EXPECT_EQ(created, deleted);
}

TEST(NyMutexTest, MakesTheWritesOfOneHolderVisibleToTheNext) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    NyMutex mutex;
    int counter = 0; // plain: the mutex alone protects it
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&mutex, &counter, t] {
            for (int i = 0; i < kRounds; ++i) {
                while (!mutex.Lock(t % 2 == 0 ? kForever : 1)) {
                }
                mutex.Lock(kForever);
                ++counter;
                mutex.Unlock();
                mutex.Unlock();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, kThreads * kRounds);
    EXPECT_EQ(mutex.GetLockCount(), 0);
}

} // namespace
