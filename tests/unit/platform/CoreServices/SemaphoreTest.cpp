#include "tests/support/TestSeed.h"

#include <CoreServices/CoreServices.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <limits>
#include <random>
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
    EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationImmediate), noErr);
    EXPECT_EQ(MPSignalSemaphore(mSemaphore), noErr);
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

// Waits that give up race with the signals that would have ended them. Whatever the outcome, the
// books are right afterwards: the units left are those given and not taken, and there is room for
// as many as the maximum leaves.
TEST_F(SemaphoreTest, KeepsItsUnitsAndItsMaximumWhenWaitsGiveUpAtRandomMoments) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    constexpr int kThreads = 4;
    for (int round = 0; round < 50; ++round) {
        const auto maximum = static_cast<MPSemaphoreCount>(random() % 3);
        Make(maximum, maximum / 2);
        std::atomic<long> units{static_cast<long>(maximum / 2)};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([this, &units, own = std::mt19937(random())]() mutable {
                for (int i = 0; i < 100; ++i) {
                    if (own() % 2 == 0) {
                        units += MPSignalSemaphore(mSemaphore) == noErr ? 1 : 0;
                    } else {
                        const auto timeout = -static_cast<Duration>(own() % 40); // microseconds
                        units -= MPWaitOnSemaphore(mSemaphore, timeout) == noErr ? 1 : 0;
                    }
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        for (auto left = static_cast<long>(maximum); left > units; --left) {
            ASSERT_EQ(MPSignalSemaphore(mSemaphore), noErr);
        }
        ASSERT_EQ(MPSignalSemaphore(mSemaphore), kMPInsufficientResourcesErr);
        for (MPSemaphoreCount left = maximum; left > 0; --left) {
            ASSERT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationImmediate), noErr);
        }
        ASSERT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationImmediate), kMPTimeoutErr);
        ASSERT_EQ(MPDeleteSemaphore(mSemaphore), noErr);
    }
}

// Each signal aims at the moment at which the wait gives up. With a maximum of 0 it is accepted if
// and only if there is a thread that waits, which then has to take it.
TEST_F(SemaphoreTest, GivesNoUnitToAWaitThatGivesUp) {
    Make(0, 0);
    constexpr int kRounds = 1000;
    std::atomic<int> begun{0};
    std::atomic<int> ended{0};
    std::atomic<OSStatus> waited{noErr};
    std::thread waiter([&] {
        for (int round = 1; round <= kRounds; ++round) {
            while (begun != round) {
                std::this_thread::yield();
            }
            waited = MPWaitOnSemaphore(mSemaphore, -40);
            ended = round;
        }
    });
    const microseconds earliest(20);
    const microseconds latest(150);
    std::chrono::nanoseconds delay = latest;
    for (int round = 1; round <= kRounds; ++round) {
        const Clock::time_point start = Clock::now();
        begun = round;
        while (Clock::now() < start + delay) {
        }
        const OSStatus signalled = MPSignalSemaphore(mSemaphore);
        while (ended != round) {
            std::this_thread::yield();
        }
        EXPECT_EQ(signalled == noErr, waited == noErr) << "after " << delay.count() << " ns";
        const std::chrono::nanoseconds step(100 + round % 300);
        delay += signalled == noErr ? step : -step;
        if (delay < earliest) {
            delay = latest;
        }
    }
    waiter.join();
}

// A second wait that comes between may take the unit that was meant for the first one, which then
// has to give up in time all the same.
TEST_F(SemaphoreTest, EndsAWaitInTimeWhenAnotherTakesTheUnitThatWasMeantForIt) {
    Make(0, 0);
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    constexpr int kRounds = 600;
    constexpr int kWaiters = 3;
    std::atomic<int> begun{0};
    std::atomic<int> ended{0};
    std::atomic<int> taken{0};
    std::vector<std::thread> waiters;
    for (unsigned t = 0; t < kWaiters; ++t) {
        waiters.emplace_back([&, random = std::mt19937(static_cast<unsigned>(seed) + t)]() mutable {
            for (int round = 1; round <= kRounds; ++round) {
                while (begun != round) {
                    std::this_thread::yield();
                }
                const auto timeout = -static_cast<Duration>(1 + random() % 60); // microseconds
                taken += MPWaitOnSemaphore(mSemaphore, timeout) == noErr ? 1 : 0;
                ++ended;
            }
        });
    }
    int given = 0;
    for (int round = 1; round <= kRounds; ++round) {
        begun = round;
        while (ended != kWaiters * round) {
            given += MPSignalSemaphore(mSemaphore) == noErr ? 1 : 0;
        }
    }
    for (auto& waiter : waiters) {
        waiter.join();
    }
    EXPECT_EQ(taken, given);
}

// Two threads hand one unit to and fro and wait without limit: a wake-up that is lost stops both.
TEST_F(SemaphoreTest, LosesNoWakeUpBetweenTwoThreadsThatTakeTurns) {
    Make(1, 0);
    MPSemaphoreID back = nullptr;
    ASSERT_EQ(MPCreateSemaphore(1, 0, &back), noErr);
    constexpr int kRounds = 5000;
    std::thread other([this, back] {
        for (int i = 0; i < kRounds; ++i) {
            EXPECT_EQ(MPWaitOnSemaphore(mSemaphore, kDurationForever), noErr);
            EXPECT_EQ(MPSignalSemaphore(back), noErr);
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        EXPECT_EQ(MPSignalSemaphore(mSemaphore), noErr);
        EXPECT_EQ(MPWaitOnSemaphore(back, kDurationForever), noErr);
    }
    other.join();
    EXPECT_EQ(MPDeleteSemaphore(back), noErr);
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
