#include <CoreServices/CoreServices.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <limits>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

class SemaphoreTest : public testing::Test {
protected:
    void Make(MPSemaphoreCount maximum, MPSemaphoreCount initial) {
        ASSERT_EQ(MPCreateSemaphore(maximum, initial, &mSemaphore), noErr);
        ASSERT_NE(mSemaphore, nullptr);
    }
    void TearDown() override { MPDeleteSemaphore(mSemaphore); }

    MPSemaphoreID mSemaphore = nullptr;
};

TEST_F(SemaphoreTest, RefusesToCreateIntoNull) {
    EXPECT_EQ(MPCreateSemaphore(1, 0, nullptr), paramErr);
}

TEST_F(SemaphoreTest, RefusesAnInitialValueAboveTheMaximum) {
    EXPECT_EQ(MPCreateSemaphore(2, 3, &mSemaphore), paramErr);
    EXPECT_EQ(mSemaphore, nullptr);
}

TEST_F(SemaphoreTest, GivesOutItsInitialUnitsAndNoMore) {
    Make(5, 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationImmediate), noErr);
    }
    EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationImmediate), kMPTimeoutErr);
}

TEST_F(SemaphoreTest, RefusesASignalWhenFull) {
    Make(2, 1);
    EXPECT_EQ(MPSignalSemaphore(mSemaphore), noErr);
    EXPECT_EQ(MPSignalSemaphore(mSemaphore), kMPInsufficientResourcesErr);
    EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationImmediate), noErr);
    EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationImmediate), noErr);
    EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationImmediate), kMPTimeoutErr);
}

TEST_F(SemaphoreTest, CountsUpToTheLargestMaximum) {
    constexpr MPSemaphoreCount kMost = std::numeric_limits<MPSemaphoreCount>::max();
    Make(kMost, kMost - 1);
    EXPECT_EQ(MPSignalSemaphore(mSemaphore), noErr);
    EXPECT_EQ(MPSignalSemaphore(mSemaphore), kMPInsufficientResourcesErr);
}

TEST_F(SemaphoreTest, IsFullAtOnceWithAMaximumOfZero) {
    Make(0, 0);
    EXPECT_EQ(MPSignalSemaphore(mSemaphore), kMPInsufficientResourcesErr);
    EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationImmediate), kMPTimeoutErr);
}

TEST_F(SemaphoreTest, WaitsAtLeastThatLong) {
    Make(1, 0);
    auto start = Clock::now();
    EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, 30), kMPTimeoutErr);
    EXPECT_GE(Clock::now() - start, milliseconds(30));
    start = Clock::now();
    EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, -30000), kMPTimeoutErr);
    EXPECT_GE(Clock::now() - start, microseconds(30000));
}

TEST_F(SemaphoreTest, WakesAWaiter) {
    Make(1, 0);
    for (const Duration timeout :
         {Duration{kDurationForever}, Duration{600000}, std::numeric_limits<Duration>::min()}) {
        SCOPED_TRACE(timeout);
        auto waiter = std::async(
            std::launch::async, [this, timeout] { return MPWaitOnSemaphore(mSemaphore, timeout); });
        EXPECT_EQ(waiter.wait_for(milliseconds(20)), std::future_status::timeout);
        EXPECT_EQ(MPSignalSemaphore(mSemaphore), noErr);
        EXPECT_EQ(waiter.get(), noErr);
    }
}

TEST_F(SemaphoreTest, GivesSignalsToWaitersThoughTheyAreMoreThanTheMaximum) {
    Make(1, 0);
    constexpr int kWaiters = 4;
    std::vector<std::future<OSStatus>> waiters;
    for (int i = 0; i < kWaiters; ++i) {
        waiters.push_back(std::async(std::launch::async, [this] {
            return MPWaitOnSemaphore(mSemaphore, kDurationForever);
        }));
    }
    // A signal that finds the semaphore full shows that not all waiters have arrived yet.
    for (int given = 0; given < kWaiters;) {
        const OSStatus status = MPSignalSemaphore(mSemaphore);
        ASSERT_THAT(status, testing::AnyOf(OSStatus{noErr}, OSStatus{kMPInsufficientResourcesErr}));
        given += status == noErr ? 1 : 0;
        std::this_thread::yield();
    }
    for (auto& waiter : waiters) {
        EXPECT_EQ(waiter.get(), noErr);
    }
    EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationImmediate), kMPTimeoutErr);
}

TEST_F(SemaphoreTest, LosesAndInventsNoUnitUnderFullUse) {
    Make(1000000, 0);
    constexpr int kProducers = 2;
    constexpr int kRounds = 4000;
    std::atomic<int> taken{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kProducers; ++t) {
        threads.emplace_back([this] {
            for (int i = 0; i < kRounds; ++i) {
                EXPECT_EQ(MPSignalSemaphore(mSemaphore), noErr);
            }
        });
        threads.emplace_back([this, &taken, t] {
            while (taken < kProducers * kRounds) {
                if (MPWaitOnSemaphore(mSemaphore, t == 0 ? -50 : 1) == noErr) {
                    ++taken;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(taken, kProducers * kRounds);
    EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationImmediate), kMPTimeoutErr);
}

TEST_F(SemaphoreTest, AnswersIdentifiersThatNeverExisted) {
    for (const std::uintptr_t value :
         {std::uintptr_t{0}, std::uintptr_t{1}, std::uintptr_t{0xFFFFF},
          std::numeric_limits<std::uintptr_t>::max()}) {
        SCOPED_TRACE(value);
        auto* semaphore = reinterpret_cast<MPSemaphoreID>(value);
        EXPECT_EQ(MPWaitOnSemaphore(semaphore, kDurationForever), kMPInvalidIDErr);
        EXPECT_EQ(MPSignalSemaphore(semaphore), kMPInvalidIDErr);
        EXPECT_EQ(MPDeleteSemaphore(semaphore), kMPInvalidIDErr);
    }
}

TEST_F(SemaphoreTest, AnswersADeletedIdentifier) {
    Make(1, 1);
    EXPECT_EQ(MPDeleteSemaphore(mSemaphore), noErr);
    EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationForever), kMPInvalidIDErr);
    EXPECT_EQ(MPSignalSemaphore(mSemaphore), kMPInvalidIDErr);
    EXPECT_EQ(MPDeleteSemaphore(mSemaphore), kMPInvalidIDErr);
}

TEST_F(SemaphoreTest, StartsEveryLifeWithItsOwnUnitsAndMaximum) {
    for (MPSemaphoreCount i = 0; i < 5000; ++i) {
        MPSemaphoreID semaphore = nullptr;
        ASSERT_EQ(MPCreateSemaphore(1 + i % 3, i % 2, &semaphore), noErr);
        for (MPSemaphoreCount given = i % 2; given < 1 + i % 3; ++given) {
            ASSERT_EQ(MPSignalSemaphore(semaphore), noErr);
        }
        ASSERT_EQ(MPSignalSemaphore(semaphore), kMPInsufficientResourcesErr);
        ASSERT_EQ(MPDeleteSemaphore(semaphore), noErr);
    }
}

} // namespace
