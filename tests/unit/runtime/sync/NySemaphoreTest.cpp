#include "runtime/sync/NySemaphore.h"

#include "tests/unit/runtime/sync/PlatformCalls.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <tuple>
#include <vector>

namespace {

constexpr unsigned int kForever = 0xFFFFFFFF;

TEST(NySemaphoreTest, IsCalledUnnamed) {
    EXPECT_EQ(NySemaphore(0, 1).GetName(), "unnamed");
}

TEST(NySemaphoreTest, HoldsItsInitialUnits) {
    NySemaphore semaphore(2, 5);
    EXPECT_TRUE(semaphore.Wait(0));
    EXPECT_TRUE(semaphore.Wait(kForever));
    EXPECT_FALSE(semaphore.Wait(0));
    EXPECT_FALSE(semaphore.Wait(10));
}

TEST(NySemaphoreTest, RefusesToRiseAboveItsMaximum) {
    NySemaphore semaphore(0, 1);
    EXPECT_TRUE(semaphore.Raise());
    EXPECT_FALSE(semaphore.Raise());
    EXPECT_TRUE(semaphore.Wait(0));
    EXPECT_FALSE(semaphore.Wait(0));
}

TEST(NySemaphoreTest, WakesAWaiterAndShowsItWhatWasDoneBefore) {
    NySemaphore semaphore(0, 1);
    int written = 0; // plain: the semaphore orders it
    auto waiter = std::async(std::launch::async, [&semaphore, &written] {
        return semaphore.Wait(kForever) ? written : -1;
    });
    EXPECT_EQ(waiter.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    written = 42;
    EXPECT_TRUE(semaphore.Raise());
    EXPECT_EQ(waiter.get(), 42);
}

TEST(NySemaphoreTest, FailsWaitsAndPassesRaisesOnceDestroyed) {
    NySemaphore semaphore(1, 1);
    semaphore.destroy();
    EXPECT_FALSE(semaphore.Wait(0));
    EXPECT_FALSE(semaphore.Wait(kForever));
    EXPECT_TRUE(semaphore.Raise());
    EXPECT_TRUE(semaphore.Raise());
    semaphore.destroy();
    EXPECT_TRUE(semaphore.Raise());
}

TEST(NySemaphoreTest, CanBeCreatedAnew) {
    NySemaphore semaphore(0, 1);
    EXPECT_TRUE(semaphore.Create(3, 3));
    EXPECT_FALSE(semaphore.Raise());
    EXPECT_TRUE(semaphore.Wait(0));
    semaphore.destroy();
    EXPECT_TRUE(semaphore.Create(1, 1));
    EXPECT_TRUE(semaphore.Wait(0));
    EXPECT_FALSE(semaphore.Wait(0));
}

TEST(NySemaphoreTest, IsMissingWhenThePlatformMadeNone) {
    PlatformCalls::Scope platform;
    int deletions = 0;
    platform->mDeleteSemaphore = [&deletions](MPSemaphoreID semaphore) {
        ++deletions;
        return __real_MPDeleteSemaphore(semaphore);
    };
    {
        NySemaphore semaphore(1, 1);
        platform->mCreateSemaphore = [](MPSemaphoreCount, MPSemaphoreCount, MPSemaphoreID*) {
            return OSStatus{kMPInsufficientResourcesErr};
        };
        EXPECT_FALSE(semaphore.Create(1, 1));
        EXPECT_EQ(deletions, 1); // the one it had
        EXPECT_FALSE(semaphore.Wait(0));
        EXPECT_TRUE(semaphore.Raise());
        NySemaphore never(1, 1);
        EXPECT_FALSE(never.Wait(kForever));
        EXPECT_TRUE(never.Raise());
    }
    EXPECT_EQ(deletions, 1);
}

TEST(NySemaphoreTest, PassesItsArgumentsOn) {
    PlatformCalls::Scope platform;
    std::vector<std::tuple<MPSemaphoreCount, MPSemaphoreCount>> created;
    platform->mCreateSemaphore = [&created](MPSemaphoreCount maximum, MPSemaphoreCount initial,
                                            MPSemaphoreID* semaphore) {
        created.emplace_back(maximum, initial);
        return __real_MPCreateSemaphore(maximum, initial, semaphore);
    };
    std::vector<Duration> durations;
    platform->mWaitOnSemaphore = [&durations](MPSemaphoreID, Duration timeout) {
        durations.push_back(timeout);
        return OSStatus{noErr};
    };
    NySemaphore semaphore(3, 9);
    for (const unsigned int timeout : {0U, 5U, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        EXPECT_TRUE(semaphore.Wait(timeout));
    }
    EXPECT_EQ(created, (std::vector<std::tuple<MPSemaphoreCount, MPSemaphoreCount>>{{9, 3}}));
    EXPECT_EQ(durations, (std::vector<Duration>{0, 5, -2147483647 - 1, -2, 0x7FFFFFFF}));
}

TEST(NySemaphoreTest, FailsWithAnyFailureOfThePlatform) {
    PlatformCalls::Scope platform;
    NySemaphore semaphore(1, 2);
    for (const OSStatus status : {kMPTimeoutErr, kMPDeletedErr, kMPInvalidIDErr}) {
        platform->mWaitOnSemaphore = [status](MPSemaphoreID, Duration) { return status; };
        platform->mSignalSemaphore = [status](MPSemaphoreID) { return status; };
        EXPECT_FALSE(semaphore.Wait(0));
        EXPECT_FALSE(semaphore.Raise());
    }
}

} // namespace
