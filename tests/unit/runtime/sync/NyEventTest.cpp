#include "runtime/sync/NyEvent.h"

#include "runtime/time/NyTime.h"
#include "tests/support/WaitUntil.h"
#include "tests/unit/runtime/sync/PlatformCalls.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using std::chrono::milliseconds;

constexpr unsigned int kForever = 0xFFFFFFFF;

NyTime Microseconds(long long value) {
    NyTime time;
    time.Set(NyTime::kMicroseconds, value);
    return time;
}

TEST(NyEventTest, IsCalledUnnamedUnlessNamed) {
    EXPECT_EQ(NyEvent(NyEvent::kAutoReset, NyEvent::kSignaled).GetName(), "unnamed");
    EXPECT_EQ(NyEvent(NyEvent::kAutoReset, NyEvent::kSignaled, "resume").GetName(), "resume");
}

TEST(NyEventTest, LetsEveryWaitPassUntilResetWithManualReset) {
    NyEvent event(NyEvent::kManualReset, NyEvent::kSignaled);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(event.Wait(0));
        EXPECT_TRUE(event.Wait(kForever));
    }
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
    event.Signal();
    EXPECT_TRUE(event.Wait(0));
    EXPECT_TRUE(event.Wait(0));
}

TEST(NyEventTest, ClearsItselfWithAutoReset) {
    NyEvent event(NyEvent::kAutoReset, NyEvent::kSignaled);
    EXPECT_TRUE(event.Wait(kForever));
    EXPECT_FALSE(event.Wait(0));
    event.Signal();
    event.Signal(); // a state, not a count
    EXPECT_TRUE(event.Wait(0));
    EXPECT_FALSE(event.Wait(0));
    event.Signal();
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
}

TEST(NyEventTest, TimesOutWhileNotSignaled) {
    NyEvent event(NyEvent::kManualReset, NyEvent::kNotSignaled);
    EXPECT_FALSE(event.Wait(0));
    const auto start = std::chrono::system_clock::now();
    EXPECT_FALSE(event.Wait(30));
    // The deadline is on the wall clock in microseconds.
    EXPECT_GE(std::chrono::system_clock::now() - start, milliseconds(29));
}

TEST(NyEventTest, LetsExactlyOneOfSeveralWaitersPassWithAutoReset) {
    NyEvent event(NyEvent::kAutoReset, NyEvent::kNotSignaled);
    constexpr int kWaiters = 4;
    std::atomic<int> passed{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kWaiters; ++i) {
        threads.emplace_back([&event, &passed] { passed += event.Wait(300) ? 1 : 0; });
    }
    event.Signal();
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(passed, 1);
    EXPECT_FALSE(event.Wait(0));
}

TEST(NyEventTest, WakesAllWaitersWithManualReset) {
    NyEvent event(NyEvent::kManualReset, NyEvent::kNotSignaled);
    std::vector<std::future<bool>> waiters;
    for (const unsigned int timeout : {kForever, 600000U, kForever}) {
        waiters.push_back(
            std::async(std::launch::async, [&event, timeout] { return event.Wait(timeout); }));
    }
    for (auto& waiter : waiters) {
        EXPECT_EQ(waiter.wait_for(milliseconds(10)), std::future_status::timeout);
    }
    event.Signal();
    for (auto& waiter : waiters) {
        EXPECT_TRUE(waiter.get());
    }
}

// Two threads hand a plain value to and fro; each hand-over must arrive and show the other's write.
TEST(NyEventTest, IsSignaledByTheFirstOfTwoStepsAndWakesByTheSecond) {
    NyEvent event(NyEvent::kAutoReset, NyEvent::kNotSignaled);
    event.SignalUnderLock();
    EXPECT_TRUE(event.Wait(0));
    EXPECT_FALSE(event.Wait(0));
    event.WakeWaiters(); // nothing is left to wake for
    EXPECT_FALSE(event.Wait(0));

    std::thread waiter([&event] { EXPECT_TRUE(event.Wait(kForever)); });
    event.SignalUnderLock();
    event.WakeWaiters();
    waiter.join();
    EXPECT_FALSE(event.Wait(0));
}

TEST(NyEventTest, LosesNoSignalInAnEndlessExchange) {
    constexpr int kRounds = 5000;
    NyEvent there(NyEvent::kAutoReset, NyEvent::kNotSignaled);
    NyEvent back(NyEvent::kAutoReset, NyEvent::kNotSignaled);
    int value = 0;
    std::thread other([&] {
        for (int i = 0; i < kRounds; ++i) {
            EXPECT_TRUE(there.Wait(kForever));
            ++value;
            back.Signal();
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        ++value;
        there.Signal();
        ASSERT_TRUE(back.Wait(kForever));
        ASSERT_EQ(value, 2 * (i + 1));
    }
    other.join();
}

TEST(NyEventTest, StandsManySignalersAndWaitersAtOnce) {
    constexpr int kRounds = 3000;
    NyEvent event(NyEvent::kAutoReset, NyEvent::kNotSignaled);
    std::atomic<int> signals{0};
    std::atomic<int> passes{0};
    std::atomic<bool> done{false};
    std::vector<std::thread> waiters;
    for (int t = 0; t < 3; ++t) {
        waiters.emplace_back([&, t] {
            while (!done) {
                passes += event.Wait(t == 0 ? 0U : 5U) ? 1 : 0;
            }
        });
    }
    std::vector<std::thread> signalers;
    for (int t = 0; t < 2; ++t) {
        signalers.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                ++signals;
                event.Signal();
                if (t == 1 && i % 7 == 0) {
                    event.Reset();
                }
            }
        });
    }
    for (auto& thread : signalers) {
        thread.join();
    }
    event.Signal();
    EXPECT_TRUE(TestSupport::WaitUntil("a waiter passes", [&] { return passes != 0; }));
    done = true;
    for (auto& thread : waiters) {
        thread.join();
    }
    EXPECT_GE(passes, 1);
    EXPECT_LE(passes, signals + 1);
}

// A clock that stands still and timed waits that return what the test says.
class NyEventDeadlineTest : public testing::Test {
protected:
    void SetUp() override {
        mPlatform->mGetTimeOfDay = [this](timeval* time) {
            *time = mNow;
            return 0;
        };
        mPlatform->mCondTimedWait = [this](pthread_cond_t*, pthread_mutex_t*,
                                           const timespec* deadline) {
            mDeadlines.push_back({static_cast<long long>(deadline->tv_sec), deadline->tv_nsec});
            return mOnTimedWait ? mOnTimedWait() : ETIMEDOUT;
        };
    }

    using Deadline = std::pair<long long, long>;

    PlatformCalls::Scope mPlatform;
    timeval mNow{100, 600000};
    std::vector<Deadline> mDeadlines;
    std::function<int()> mOnTimedWait;
    NyEvent mEvent{NyEvent::kAutoReset, NyEvent::kNotSignaled};
};

TEST_F(NyEventDeadlineTest, AddsTheMillisecondsToTheWallClock) {
    EXPECT_FALSE(mEvent.Wait(250));
    EXPECT_EQ(mDeadlines, (std::vector<Deadline>{{100, 850000000}}));
}

TEST_F(NyEventDeadlineTest, CarriesTheRemainderIntoTheSeconds) {
    EXPECT_FALSE(mEvent.Wait(1500));
    EXPECT_EQ(mDeadlines, (std::vector<Deadline>{{102, 100000000}}));
}

TEST_F(NyEventDeadlineTest, CarriesFromTheMillionthMicrosecondOn) {
    mNow.tv_usec = 599999;
    EXPECT_FALSE(mEvent.Wait(400));
    mNow.tv_usec = 600000;
    EXPECT_FALSE(mEvent.Wait(400));
    mNow.tv_usec = 999999;
    EXPECT_FALSE(mEvent.Wait(999));
    EXPECT_EQ(mDeadlines, (std::vector<Deadline>{{100, 999999000}, {101, 0}, {101, 998999000}}));
}

TEST_F(NyEventDeadlineTest, PollsWithThePresentAsDeadline) {
    EXPECT_FALSE(mEvent.Wait(0));
    EXPECT_EQ(mDeadlines, (std::vector<Deadline>{{100, 600000000}}));
}

TEST_F(NyEventDeadlineTest, ReachesTheLongestLimit) {
    EXPECT_FALSE(mEvent.Wait(0xFFFFFFFE));
    EXPECT_EQ(mDeadlines, (std::vector<Deadline>{{100 + 4294967, 894000000}}));
}

TEST_F(NyEventDeadlineTest, StartsTheFullLimitOverAfterAWakeUpForNothing) {
    int wakeUps = 0;
    mOnTimedWait = [this, &wakeUps] {
        mNow.tv_sec += 7;
        return ++wakeUps < 3 ? 0 : ETIMEDOUT;
    };
    EXPECT_FALSE(mEvent.Wait(100));
    EXPECT_EQ(mDeadlines,
              (std::vector<Deadline>{{100, 700000000}, {107, 700000000}, {114, 700000000}}));
}

TEST_F(NyEventDeadlineTest, TakesOnlyATimeoutForATimeout) {
    int wakeUps = 0;
    mOnTimedWait = [&wakeUps] { return ++wakeUps < 3 ? EINVAL : ETIMEDOUT; };
    EXPECT_FALSE(mEvent.Wait(100));
    EXPECT_EQ(mDeadlines.size(), 3U);
}

TEST_F(NyEventDeadlineTest, TimesOutThoughTheClockCannotBeRead) {
    mPlatform->mGetTimeOfDay = [](timeval*) { return -1; };
    EXPECT_FALSE(mEvent.Wait(250));
    EXPECT_EQ(mDeadlines, (std::vector<Deadline>{{0, 250000000}}));
}

TEST_F(NyEventDeadlineTest, CutsAFiniteTimeToWholeMilliseconds) {
    for (const long long value : {2500LL, 2999LL, 999LL, 0LL, -999LL}) {
        NyTime time = Microseconds(value);
        EXPECT_FALSE(mEvent.Wait(time));
        EXPECT_EQ(time.mMicroseconds, value);
    }
    EXPECT_EQ(mDeadlines, (std::vector<Deadline>{{100, 602000000},
                                                 {100, 602000000},
                                                 {100, 600000000},
                                                 {100, 600000000},
                                                 {100, 600000000}}));
}

TEST_F(NyEventDeadlineTest, TakesTheLow32BitsOfTheMilliseconds) {
    NyTime time = Microseconds(((1LL << 32) + 5) * 1000);
    EXPECT_FALSE(mEvent.Wait(time));
    time = Microseconds(-2000); // -2 is 0xFFFFFFFE milliseconds
    EXPECT_FALSE(mEvent.Wait(time));
    EXPECT_EQ(mDeadlines, (std::vector<Deadline>{{100, 605000000}, {100 + 4294967, 894000000}}));
}

TEST_F(NyEventDeadlineTest, WaitsWithoutLimitForAnInfiniteTime) {
    NyTime infinite;
    infinite.Set(NyTime::kInfinite, 0);
    NyTime minusOne = Microseconds(-1000); // 0xFFFFFFFF milliseconds
    for (NyTime* time : {&infinite, &minusOne}) {
        auto waiter = std::async(std::launch::async, [this, time] { return mEvent.Wait(*time); });
        EXPECT_EQ(waiter.wait_for(milliseconds(20)), std::future_status::timeout);
        mEvent.Signal();
        EXPECT_TRUE(waiter.get());
    }
    EXPECT_TRUE(mDeadlines.empty());
}

TEST_F(NyEventDeadlineTest, DoesNotLookAtTheClockWhenSignaled) {
    mEvent.Signal();
    EXPECT_TRUE(mEvent.Wait(5));
    EXPECT_TRUE(mDeadlines.empty());
}

TEST(NyEventSignalTest, BroadcastsWhileTheSignalStands) {
    PlatformCalls::Scope platform;
    int broadcasts = 0;
    platform->mCondBroadcast = [&broadcasts](pthread_cond_t* condition) {
        ++broadcasts;
        return __real_pthread_cond_broadcast(condition);
    };
    NyEvent event(NyEvent::kAutoReset, NyEvent::kNotSignaled);
    event.Signal();
    event.Signal();
    EXPECT_EQ(broadcasts, 2);
    event.Reset();
    EXPECT_EQ(broadcasts, 2);
}

TEST(NyEventSignalTest, SparesTheBroadcastWhenAWaiterTookTheSignalMeanwhile) {
    PlatformCalls::Scope platform;
    int broadcasts = 0;
    bool inside = false;
    int taken = 0;
    NyEvent event(NyEvent::kAutoReset, NyEvent::kNotSignaled);
    platform->mCondBroadcast = [&broadcasts](pthread_cond_t* condition) {
        ++broadcasts;
        return __real_pthread_cond_broadcast(condition);
    };
    // A waiter that passes right after Signal let the mutex go.
    platform->mMutexUnlock = [&](pthread_mutex_t* mutex) {
        const int result = __real_pthread_mutex_unlock(mutex);
        if (!inside) {
            inside = true;
            taken += event.Wait(0) ? 1 : 0;
        }
        return result;
    };
    event.Signal();
    platform->mMutexUnlock = nullptr;
    EXPECT_EQ(taken, 1);
    EXPECT_EQ(broadcasts, 0);
    EXPECT_FALSE(event.Wait(0));
}

struct FailingCall {
    const char* mName;
    std::function<void(PlatformCalls::Hooks&)> mInstall;
    bool mInert;
};

class NyEventFailureTest : public testing::TestWithParam<FailingCall> {};

TEST_P(NyEventFailureTest, FollowsTheResultOfTheLastCallAlone) {
    PlatformCalls::Scope platform;
    int destroyed = 0;
    platform->mMutexDestroy = [&destroyed](pthread_mutex_t* mutex) {
        ++destroyed;
        return __real_pthread_mutex_destroy(mutex);
    };
    GetParam().mInstall(PlatformCalls::TheHooks());
    {
        NyEvent event(NyEvent::kAutoReset, NyEvent::kNotSignaled);
        PlatformCalls::TheHooks().mMutexInit = nullptr;
        // Inert: passes every wait, whatever is signalled or reset.
        EXPECT_EQ(event.Wait(0), GetParam().mInert);
        event.Signal();
        EXPECT_TRUE(event.Wait(kForever));
        event.Reset();
        EXPECT_EQ(event.Wait(0), GetParam().mInert);
    }
    EXPECT_EQ(destroyed, GetParam().mInert ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(
    EachCall, NyEventFailureTest,
    testing::Values(FailingCall{"None", [](PlatformCalls::Hooks&) {}, false},
                    FailingCall{"ConditionAttributes",
                                [](PlatformCalls::Hooks& hooks) {
                                    hooks.mCondAttrInit = [](pthread_condattr_t* attributes) {
                                        __real_pthread_condattr_init(attributes);
                                        return ENOMEM;
                                    };
                                },
                                false},
                    FailingCall{"Condition",
                                [](PlatformCalls::Hooks& hooks) {
                                    hooks.mCondInit = [](pthread_cond_t* condition,
                                                         const pthread_condattr_t* attributes) {
                                        __real_pthread_cond_init(condition, attributes);
                                        return EAGAIN;
                                    };
                                },
                                false},
                    FailingCall{"Mutex",
                                [](PlatformCalls::Hooks& hooks) {
                                    hooks.mMutexInit = [](pthread_mutex_t*,
                                                          const pthread_mutexattr_t*) {
                                        return EAGAIN;
                                    };
                                },
                                true}),
    [](const auto& test) { return std::string(test.param.mName); });

} // namespace
