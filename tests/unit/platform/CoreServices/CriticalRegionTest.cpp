#include <CoreServices/CoreServices.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <limits>
#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

class CriticalRegionTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(MPCreateCriticalRegion(&mRegion), noErr); }
    void TearDown() override { MPDeleteCriticalRegion(mRegion); }

    OSStatus EnterElsewhere(Duration timeout) {
        return std::async(std::launch::async,
                          [this, timeout] {
                              const OSStatus status = MPEnterCriticalRegion(mRegion, timeout);
                              if (status == noErr) {
                                  MPExitCriticalRegion(mRegion);
                              }
                              return status;
                          })
            .get();
    }

    MPCriticalRegionID mRegion = nullptr;
};

// Holds a region on a thread of its own until told to leave.
class Holder {
public:
    explicit Holder(MPCriticalRegionID region) : mRegion(region) { mEntered.get_future().wait(); }
    ~Holder() { Leave(); }
    OSStatus Leave() {
        if (mThread.joinable()) {
            mLeave.set_value();
            mThread.join();
        }
        return mExitStatus;
    }

private:
    MPCriticalRegionID mRegion;
    std::promise<void> mEntered;
    std::promise<void> mLeave;
    OSStatus mExitStatus = noErr;
    std::thread mThread{[this] {
        EXPECT_EQ(MPEnterCriticalRegion(mRegion, kDurationForever), noErr);
        mEntered.set_value();
        mLeave.get_future().wait();
        mExitStatus = MPExitCriticalRegion(mRegion);
    }};
};

TEST_F(CriticalRegionTest, RefusesToCreateIntoNull) {
    EXPECT_EQ(MPCreateCriticalRegion(nullptr), paramErr);
}

TEST_F(CriticalRegionTest, LetsTheHolderEnterAgainAndWantsAsManyExits) {
    EXPECT_EQ(MPEnterCriticalRegion(mRegion, kDurationForever), noErr);
    EXPECT_EQ(MPEnterCriticalRegion(mRegion, kDurationImmediate), noErr);
    EXPECT_EQ(EnterElsewhere(kDurationImmediate), kMPTimeoutErr);
    EXPECT_EQ(MPExitCriticalRegion(mRegion), noErr);
    EXPECT_EQ(EnterElsewhere(kDurationImmediate), kMPTimeoutErr);
    EXPECT_EQ(MPExitCriticalRegion(mRegion), noErr);
    EXPECT_EQ(EnterElsewhere(kDurationImmediate), noErr);
}

TEST_F(CriticalRegionTest, LetsTheHolderNestDeeply) {
    constexpr int kDepth = 1000;
    for (int i = 0; i < kDepth; ++i) {
        ASSERT_EQ(MPEnterCriticalRegion(mRegion, kDurationForever), noErr);
    }
    for (int i = 0; i < kDepth; ++i) {
        if (i == kDepth - 1) {
            EXPECT_EQ(EnterElsewhere(kDurationImmediate), kMPTimeoutErr);
        }
        ASSERT_EQ(MPExitCriticalRegion(mRegion), noErr);
    }
    EXPECT_EQ(MPExitCriticalRegion(mRegion), kMPInsufficientResourcesErr);
    EXPECT_EQ(EnterElsewhere(kDurationImmediate), noErr);
}

TEST_F(CriticalRegionTest, RefusesAnExitByAThreadThatDoesNotHoldIt) {
    EXPECT_EQ(MPExitCriticalRegion(mRegion), kMPInsufficientResourcesErr);
    Holder holder(mRegion);
    EXPECT_EQ(MPExitCriticalRegion(mRegion), kMPInsufficientResourcesErr);
    EXPECT_EQ(MPEnterCriticalRegion(mRegion, kDurationImmediate), kMPTimeoutErr);
    EXPECT_EQ(holder.Leave(), noErr);
}

TEST_F(CriticalRegionTest, WaitsAtLeastThatManyMilliseconds) {
    Holder holder(mRegion);
    const auto start = Clock::now();
    EXPECT_EQ(MPEnterCriticalRegion(mRegion, 30), kMPTimeoutErr);
    EXPECT_GE(Clock::now() - start, milliseconds(30));
}

TEST_F(CriticalRegionTest, WaitsAtLeastThatManyMicrosecondsForANegativeDuration) {
    Holder holder(mRegion);
    const auto start = Clock::now();
    EXPECT_EQ(MPEnterCriticalRegion(mRegion, -30000), kMPTimeoutErr);
    EXPECT_GE(Clock::now() - start, microseconds(30000));
}

TEST_F(CriticalRegionTest, PassesToAWaiterWhenTheHolderLeaves) {
    for (const Duration timeout :
         {Duration{kDurationForever}, Duration{600000}, std::numeric_limits<Duration>::min()}) {
        SCOPED_TRACE(timeout);
        auto holder = std::make_unique<Holder>(mRegion);
        auto waiter = std::async(std::launch::async, [this, timeout] {
            const OSStatus status = MPEnterCriticalRegion(mRegion, timeout);
            MPExitCriticalRegion(mRegion);
            return status;
        });
        EXPECT_EQ(waiter.wait_for(milliseconds(20)), std::future_status::timeout);
        holder->Leave();
        EXPECT_EQ(waiter.get(), noErr);
    }
}

TEST_F(CriticalRegionTest, KeepsThreadsApartAndMakesTheirWritesVisible) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 3000;
    std::int64_t counter = 0; // plain: the region alone protects it
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, &counter, t] {
            for (int i = 0; i < kRounds; ++i) {
                // A mix of endless, timed and polled entries.
                const Duration timeout = t == 0 ? kDurationForever : t == 1 ? 600000 : -600000000;
                while (MPEnterCriticalRegion(mRegion, t == 3 ? kDurationImmediate : timeout) !=
                       noErr) {
                    std::this_thread::yield();
                }
                ++counter;
                MPExitCriticalRegion(mRegion);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, std::int64_t{kThreads} * kRounds);
}

TEST_F(CriticalRegionTest, AnswersIdentifiersThatNeverExisted) {
    std::vector<MPCriticalRegionID> invented{nullptr};
    for (const std::uintptr_t value :
         {std::uintptr_t{1}, std::uintptr_t{0xFFFFF}, std::uintptr_t{0x100001} * 255,
          std::numeric_limits<std::uintptr_t>::max(),
          reinterpret_cast<std::uintptr_t>(&invented)}) {
        invented.push_back(reinterpret_cast<MPCriticalRegionID>(value));
    }
    for (MPCriticalRegionID region : invented) {
        SCOPED_TRACE(reinterpret_cast<std::uintptr_t>(region));
        EXPECT_EQ(MPEnterCriticalRegion(region, kDurationForever), kMPInvalidIDErr);
        EXPECT_EQ(MPExitCriticalRegion(region), kMPInvalidIDErr);
        EXPECT_EQ(MPDeleteCriticalRegion(region), kMPInvalidIDErr);
    }
}

TEST_F(CriticalRegionTest, AnswersADeletedIdentifierEvenAfterItsRecordIsReused) {
    ASSERT_EQ(MPDeleteCriticalRegion(mRegion), noErr);
    // Enough to come round to the same record, also where records rest for long.
    for (int i = 0; i < 5000; ++i) {
        MPCriticalRegionID other = nullptr;
        ASSERT_EQ(MPCreateCriticalRegion(&other), noErr);
        ASSERT_NE(other, mRegion);
        ASSERT_EQ(MPDeleteCriticalRegion(other), noErr);
    }
    std::vector<MPCriticalRegionID> others(5000);
    for (MPCriticalRegionID& other : others) {
        ASSERT_EQ(MPCreateCriticalRegion(&other), noErr);
        EXPECT_NE(other, mRegion);
    }
    EXPECT_EQ(MPEnterCriticalRegion(mRegion, kDurationForever), kMPInvalidIDErr);
    EXPECT_EQ(MPExitCriticalRegion(mRegion), kMPInvalidIDErr);
    EXPECT_EQ(MPDeleteCriticalRegion(mRegion), kMPInvalidIDErr);
    for (MPCriticalRegionID other : others) {
        EXPECT_EQ(MPEnterCriticalRegion(other, kDurationImmediate), noErr);
        EXPECT_EQ(MPExitCriticalRegion(other), noErr);
        EXPECT_EQ(MPDeleteCriticalRegion(other), noErr);
    }
}

TEST_F(CriticalRegionTest, StartsEveryLifeUnheld) {
    // More rounds than there are lives between two of one record, held at each deletion.
    for (int i = 0; i < 5000; ++i) {
        MPCriticalRegionID region = nullptr;
        ASSERT_EQ(MPCreateCriticalRegion(&region), noErr);
        ASSERT_NE(region, nullptr);
        ASSERT_EQ(MPEnterCriticalRegion(region, kDurationImmediate), noErr);
        ASSERT_EQ(MPDeleteCriticalRegion(region), noErr);
    }
    std::vector<MPCriticalRegionID> regions(600);
    for (MPCriticalRegionID& region : regions) {
        ASSERT_EQ(MPCreateCriticalRegion(&region), noErr);
    }
    std::async(std::launch::async, [&regions] {
        for (MPCriticalRegionID region : regions) {
            EXPECT_EQ(MPEnterCriticalRegion(region, kDurationImmediate), noErr);
        }
    }).get();
    for (MPCriticalRegionID region : regions) {
        EXPECT_EQ(MPDeleteCriticalRegion(region), noErr);
    }
}

TEST_F(CriticalRegionTest, GivesLivingRegionsDifferentIdentifiers) {
    std::set<MPCriticalRegionID> regions;
    for (int i = 0; i < 2000; ++i) {
        MPCriticalRegionID region = nullptr;
        ASSERT_EQ(MPCreateCriticalRegion(&region), noErr);
        EXPECT_TRUE(regions.insert(region).second);
    }
    for (MPCriticalRegionID region : regions) {
        EXPECT_EQ(MPDeleteCriticalRegion(region), noErr);
    }
}

TEST_F(CriticalRegionTest, AnswersADeletedIdentifierWhileItsRecordIsInUseAgain) {
    ASSERT_EQ(MPDeleteCriticalRegion(mRegion), noErr);
    std::atomic<std::uintptr_t> deleted{reinterpret_cast<std::uintptr_t>(mRegion)};
    std::atomic<bool> stop{false};
    std::thread user([&deleted, &stop] {
        while (!stop) {
            auto* region = reinterpret_cast<MPCriticalRegionID>(deleted.load());
            EXPECT_EQ(MPEnterCriticalRegion(region, kDurationImmediate), kMPInvalidIDErr);
            EXPECT_EQ(MPExitCriticalRegion(region), kMPInvalidIDErr);
            EXPECT_EQ(MPDeleteCriticalRegion(region), kMPInvalidIDErr);
        }
    });
    for (int i = 0; i < 50000; ++i) {
        MPCriticalRegionID region = nullptr;
        ASSERT_EQ(MPCreateCriticalRegion(&region), noErr);
        ASSERT_EQ(MPEnterCriticalRegion(region, kDurationImmediate), noErr);
        ASSERT_EQ(MPEnterCriticalRegion(region, kDurationImmediate), noErr);
        ASSERT_EQ(MPExitCriticalRegion(region), noErr);
        ASSERT_EQ(MPExitCriticalRegion(region), noErr);
        ASSERT_EQ(MPDeleteCriticalRegion(region), noErr);
        deleted = reinterpret_cast<std::uintptr_t>(region);
    }
    stop = true;
    user.join();
}

} // namespace
