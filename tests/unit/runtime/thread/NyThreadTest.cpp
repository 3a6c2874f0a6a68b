#include "runtime/thread/NyThread.h"

#include "runtime/sync/NyEvent.h"
#include "runtime/time/NyTime.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/platform/SyslogCapture.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <syslog.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

using CreateFunction = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

namespace {

constexpr unsigned int kForever = 0xFFFFFFFF;

// Set before threads start, null to pass a call on.
std::function<CreateFunction> sCreate;
std::function<int(pthread_t)> sJoin;
std::function<int(useconds_t)> sSleep;
std::pair<int, int> sPriorityRange{-1, -1};
bool sHasMemoryForAttributes = true;

} // namespace

extern "C" {
CreateFunction __real_pthread_create;
CreateFunction __wrap_pthread_create;
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
    return sCreate ? sCreate(thread, attributes, body, argument)
                   : __real_pthread_create(thread, attributes, body, argument);
}
int __real_pthread_attr_init(pthread_attr_t* attributes);
int __wrap_pthread_attr_init(pthread_attr_t* attributes);
int __wrap_pthread_attr_init(pthread_attr_t* attributes) {
    return sHasMemoryForAttributes ? __real_pthread_attr_init(attributes) : ENOMEM;
}
int __real_pthread_join(pthread_t thread, void** result);
int __wrap_pthread_join(pthread_t thread, void** result);
int __wrap_pthread_join(pthread_t thread, void** result) {
    return sJoin ? sJoin(thread) : __real_pthread_join(thread, result);
}
int __real_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds) {
    return sSleep ? sSleep(microseconds) : __real_usleep(microseconds);
}
int __real_sched_get_priority_min(int policy);
int __wrap_sched_get_priority_min(int policy);
int __wrap_sched_get_priority_min(int policy) {
    EXPECT_EQ(policy, SCHED_FIFO);
    return sPriorityRange.first < 0 ? __real_sched_get_priority_min(policy) : sPriorityRange.first;
}
int __real_sched_get_priority_max(int policy);
int __wrap_sched_get_priority_max(int policy);
int __wrap_sched_get_priority_max(int policy) {
    EXPECT_EQ(policy, SCHED_FIFO);
    return sPriorityRange.second < 0 ? __real_sched_get_priority_max(policy)
                                     : sPriorityRange.second;
}
}

namespace {

class FunctionThread : public NyThread {
public:
    explicit FunctionThread(std::function<void()> body, std::int32_t priority = 1005)
        : mBody(std::move(body)) {
        mPriority = priority;
    }
    void Run() override { mBody(); }
    const std::string& Name() const { return mName; }
    std::int32_t Priority() const { return mPriority; }

private:
    std::function<void()> mBody;
};

class DefaultThread : public NyThread {
public:
    void Run() override {}
    const std::string& Name() const { return mName; }
    std::int32_t Priority() const { return mPriority; }
};

struct Attributes {
    int mPolicy = -1;
    int mInherit = -1;
    int mPriority = -1;
    int mDetachState = -1;
};

Attributes ReadAttributes(const pthread_attr_t* attributes) {
    Attributes read;
    sched_param parameters{};
    EXPECT_EQ(pthread_attr_getschedpolicy(attributes, &read.mPolicy), 0);
    EXPECT_EQ(pthread_attr_getinheritsched(attributes, &read.mInherit), 0);
    EXPECT_EQ(pthread_attr_getschedparam(attributes, &parameters), 0);
    EXPECT_EQ(pthread_attr_getdetachstate(attributes, &read.mDetachState), 0);
    read.mPriority = parameters.sched_priority;
    return read;
}

class NyThreadTest : public testing::Test {
protected:
    void TearDown() override {
        sCreate = nullptr;
        sJoin = nullptr;
        sSleep = nullptr;
        sPriorityRange = {-1, -1};
        sHasMemoryForAttributes = true;
    }

    // The platform with the privilege (every creation succeeds; the thread itself is created
    // without real-time attributes, so that the test needs no privilege).
    void GrantRealTime() {
        sCreate = [this](pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                         void* argument) {
            mAttributes.push_back(attributes == nullptr ? Attributes{}
                                                        : ReadAttributes(attributes));
            return __real_pthread_create(thread, nullptr, body, argument);
        };
    }

    // The platform that refuses real-time attributes.
    void RefuseRealTime(int error) {
        sCreate = [this, error](pthread_t* thread, const pthread_attr_t* attributes,
                                void* (*body)(void*), void* argument) {
            mAttributes.push_back(attributes == nullptr ? Attributes{}
                                                        : ReadAttributes(attributes));
            if (mAttributes.back().mInherit == PTHREAD_EXPLICIT_SCHED) {
                return error;
            }
            return __real_pthread_create(thread, attributes, body, argument);
        };
    }

    std::vector<Attributes> mAttributes;
};

TEST_F(NyThreadTest, IsBuiltUnnamedAtNormalPriority) {
    const DefaultThread thread;
    EXPECT_EQ(thread.Name(), "unnamed");
    EXPECT_EQ(thread.Priority(), 1005);
}

TEST_F(NyThreadTest, AsksForAJoinableRealTimeThreadOfItsOwnPolicy) {
    GrantRealTime();
    FunctionThread thread([] {});
    thread.Start();
    EXPECT_EQ(thread.WaitForExit(), 0);
    ASSERT_EQ(mAttributes.size(), 1U);
    EXPECT_EQ(mAttributes[0].mPolicy, SCHED_FIFO);
    EXPECT_EQ(mAttributes[0].mInherit, PTHREAD_EXPLICIT_SCHED);
    EXPECT_EQ(mAttributes[0].mDetachState, PTHREAD_CREATE_JOINABLE);
    EXPECT_TRUE(TestSupport::SyslogLines().empty());
}

struct PriorityRow {
    std::int32_t mLevel;
    int mOf15To47;
    int mOf1To99;
};

class NyThreadPriorityTest : public NyThreadTest, public testing::WithParamInterface<PriorityRow> {
protected:
    int PriorityIn(int min, int max) {
        sPriorityRange = {min, max};
        GrantRealTime();
        FunctionThread thread([] {}, GetParam().mLevel);
        thread.Start();
        EXPECT_EQ(thread.WaitForExit(), 0);
        return mAttributes.empty() ? -1 : mAttributes.back().mPriority;
    }
};

TEST_P(NyThreadPriorityTest, MapsTheLevelOntoThePlatformsRange) {
    EXPECT_EQ(PriorityIn(15, 47), GetParam().mOf15To47);
    EXPECT_EQ(PriorityIn(1, 99), GetParam().mOf1To99);
}

TEST_P(NyThreadPriorityTest, StaysInARangeOfOne) {
    EXPECT_EQ(PriorityIn(7, 7), 7);
}

INSTANTIATE_TEST_SUITE_P(
    Levels, NyThreadPriorityTest,
    testing::Values(PriorityRow{999, 31, 50}, PriorityRow{1000, 15, 1}, PriorityRow{1001, 19, 11},
                    PriorityRow{1002, 22, 21}, PriorityRow{1003, 25, 31}, PriorityRow{1004, 28, 41},
                    PriorityRow{1005, 31, 50}, PriorityRow{1006, 32, 54}, PriorityRow{1007, 34, 59},
                    PriorityRow{1008, 35, 64}, PriorityRow{1009, 37, 69}, PriorityRow{1010, 39, 74},
                    PriorityRow{1011, 40, 79}, PriorityRow{1012, 42, 84}, PriorityRow{1013, 43, 89},
                    PriorityRow{1014, 45, 94}, PriorityRow{1015, 47, 99}, PriorityRow{1016, 31, 50},
                    PriorityRow{0, 31, 50}, PriorityRow{-1, 31, 50},
                    PriorityRow{2147483647, 31, 50}),
    [](const auto& test) { return "Row" + std::to_string(test.index); });

TEST_F(NyThreadTest, RunsWithInheritedSchedulingWhenRealTimeIsRefusedAndSaysSoOnce) {
    for (const int error : {EPERM, EINVAL}) {
        RefuseRealTime(error);
        mAttributes.clear();
        bool ran = false;
        FunctionThread thread([&ran] { ran = true; });
        thread.Start();
        EXPECT_EQ(thread.WaitForExit(), 0);
        EXPECT_TRUE(ran);
        ASSERT_EQ(mAttributes.size(), 2U);
        EXPECT_NE(mAttributes[1].mInherit, PTHREAD_EXPLICIT_SCHED);
    }
    EXPECT_EQ(TestSupport::SyslogLines(),
              (std::vector<TestSupport::SyslogLine>{
                  {LOG_WARNING, "Real-time scheduling refused (Operation not permitted): threads "
                                "run with the scheduling they inherit"}}));
}

TEST_F(NyThreadTest, StartsWithInheritedSchedulingWithoutMemoryForAttributes) {
    sHasMemoryForAttributes = false;
    int creations = 0;
    sCreate = [&creations](pthread_t* thread, const pthread_attr_t* attributes,
                           void* (*body)(void*), void* argument) {
        ++creations;
        EXPECT_EQ(attributes, nullptr);
        // The thread sanitizer's own pthread_create makes attributes, too.
        sHasMemoryForAttributes = true;
        return __real_pthread_create(thread, attributes, body, argument);
    };
    bool ran = false;
    FunctionThread thread([&ran] { ran = true; });
    thread.Start();
    EXPECT_EQ(thread.WaitForExit(), 0);
    EXPECT_TRUE(ran);
    EXPECT_EQ(creations, 1);
    EXPECT_EQ(TestSupport::SyslogLines().size(), 1U);
}

TEST_F(NyThreadTest, RunsInRealTimeOrSaysThatItCannot) {
    int policy = -1;
    sched_param parameters{};
    FunctionThread thread(
        [&policy, &parameters] { pthread_getschedparam(pthread_self(), &policy, &parameters); },
        1000);
    thread.Start();
    EXPECT_EQ(thread.WaitForExit(), 0);
    if (TestSupport::SyslogLines().empty()) {
        EXPECT_EQ(policy, SCHED_FIFO);
        EXPECT_EQ(parameters.sched_priority, sched_get_priority_min(SCHED_FIFO));
    } else {
        int inherited = -1;
        pthread_getschedparam(pthread_self(), &inherited, &parameters);
        EXPECT_EQ(policy, inherited);
        EXPECT_EQ(TestSupport::SyslogLines().size(), 1U);
    }
}

TEST_F(NyThreadTest, AnswersAWaitForAThreadThatCouldNotBeCreated) {
    int creations = 0;
    sCreate = [&creations](pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) {
        ++creations;
        return EAGAIN;
    };
    FunctionThread thread([] { ADD_FAILURE(); });
    thread.Start();
    EXPECT_EQ(creations, 2);
    EXPECT_EQ(thread.WaitForExit(), ESRCH);
    EXPECT_EQ(thread.WaitForExit(), ESRCH);
    // The running flag stays set: it is not tried again.
    sCreate = nullptr;
    thread.Start();
    EXPECT_EQ(thread.WaitForExit(), ESRCH);
    EXPECT_TRUE(TestSupport::SyslogLines().empty());
}

TEST_F(NyThreadTest, AnswersAWaitForAThreadThatWasNeverStarted) {
    FunctionThread thread([] {});
    EXPECT_EQ(thread.WaitForExit(), ESRCH);
    EXPECT_TRUE(pthread_equal(thread.GetId(), pthread_t{}));
}

TEST_F(NyThreadTest, AnswersASecondWait) {
    FunctionThread thread([] {});
    thread.Start();
    EXPECT_EQ(thread.WaitForExit(), 0);
    EXPECT_EQ(thread.WaitForExit(), ESRCH);
}

TEST_F(NyThreadTest, ReturnsTheErrorOfTheJoinAndCanThenBeWaitedForAgain) {
    FunctionThread thread([] {});
    thread.Start();
    sJoin = [](pthread_t) { return EDEADLK; };
    EXPECT_EQ(thread.WaitForExit(), EDEADLK);
    sJoin = nullptr;
    EXPECT_EQ(thread.WaitForExit(), 0);
}

TEST_F(NyThreadTest, KnowsItsIdInsideAndOutside) {
    pthread_t inside{};
    pthread_t self{};
    NyEvent leave(NyEvent::kManualReset, NyEvent::kNotSignaled);
    NyEvent entered(NyEvent::kManualReset, NyEvent::kNotSignaled);
    FunctionThread* object = nullptr;
    FunctionThread thread([&] {
        inside = object->GetId();
        self = NyThread::GetCurrentId();
        entered.Signal();
        leave.Wait(kForever);
    });
    object = &thread;
    thread.Start();
    ASSERT_TRUE(entered.Wait(kForever));
    EXPECT_TRUE(pthread_equal(inside, self));
    EXPECT_TRUE(pthread_equal(thread.GetId(), self));
    EXPECT_FALSE(pthread_equal(self, pthread_self()));
    leave.Signal();
    EXPECT_EQ(thread.WaitForExit(), 0);
}

TEST_F(NyThreadTest, StartsOneThreadOnlyWhileItRuns) {
    std::atomic<int> runs{0};
    NyEvent leave(NyEvent::kManualReset, NyEvent::kNotSignaled);
    FunctionThread thread([&] {
        ++runs;
        leave.Wait(kForever);
    });
    std::atomic<int> creations{0};
    sCreate = [&creations](pthread_t* created, const pthread_attr_t*, void* (*body)(void*),
                           void* argument) {
        ++creations;
        return __real_pthread_create(created, nullptr, body, argument);
    };
    thread.Start();
    thread.Start();
    EXPECT_TRUE(TestSupport::WaitUntil("the thread runs", [&] { return runs != 0; }));
    thread.Start();
    leave.Signal();
    EXPECT_EQ(thread.WaitForExit(), 0);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(creations, 1);
}

TEST_F(NyThreadTest, CanBeStartedAgainAfterItWasJoined) {
    int runs = 0; // plain: start and join order it
    FunctionThread thread([&runs] { ++runs; });
    for (int i = 0; i < 50; ++i) {
        thread.Start();
        EXPECT_EQ(thread.WaitForExit(), 0);
    }
    EXPECT_EQ(runs, 50);
}

TEST_F(NyThreadTest, CanBeStartedAgainWithoutAJoinAndLeavesNoThreadBehind) {
    int joins = 0;
    sJoin = [&joins](pthread_t thread) {
        ++joins;
        return __real_pthread_join(thread, nullptr);
    };
    std::atomic<int> runs{0};
    FunctionThread thread([&runs] { ++runs; });
    thread.Start();
    while (runs < 20) {
        thread.Start(); // does nothing until `Run` has returned
        std::this_thread::yield();
    }
    EXPECT_EQ(thread.WaitForExit(), 0);
    EXPECT_EQ(joins, runs);
}

// What the at-start functions did, in order. Written by one thread at a time.
std::vector<int> sTrace;

void TraceOne() {
    sTrace.push_back(1);
}
void TraceThree() {
    sTrace.push_back(3);
}
void TraceTwoAndAddThree() {
    sTrace.push_back(2);
    NyThread::mAtStartFunctions.Append(&TraceThree);
}

TEST_F(NyThreadTest, RunsTheAtStartFunctionsInOrderBeforeTheBody) {
    EXPECT_EQ(NyThread::mAtStartFunctions.Size(), 0U);
    NyThread::mAtStartFunctions.Append(&TraceOne);
    NyThread::mAtStartFunctions.Append(&TraceTwoAndAddThree);
    FunctionThread thread([] { sTrace.push_back(100); });
    thread.Start();
    EXPECT_EQ(thread.WaitForExit(), 0);
    // The third was added while the second ran, and is run all the same.
    EXPECT_EQ(sTrace, (std::vector<int>{1, 2, 3, 100}));
}

TEST_F(NyThreadTest, RunsTheAtStartFunctionsAloneForNoThreadObject) {
    NyThread::mAtStartFunctions.Append(&TraceOne);
    NyThread::ThreadStart(nullptr);
    EXPECT_EQ(sTrace, (std::vector<int>{1}));
}

TEST_F(NyThreadTest, SleepsThatManyMicroseconds) {
    std::vector<useconds_t> slept;
    sSleep = [&slept](useconds_t microseconds) {
        slept.push_back(microseconds);
        return 0;
    };
    NyThread::Sleep(1000);
    NyThread::Sleep(0);
    EXPECT_EQ(slept, (std::vector<useconds_t>{1000, 0}));
    sSleep = nullptr;
    const auto start = std::chrono::steady_clock::now();
    NyThread::Sleep(1000);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1));
}

TEST_F(NyThreadTest, LeavesThreadTimesUntouched) {
    DefaultThread thread;
    NyTime a;
    NyTime b;
    a.Set(NyTime::kMicroseconds, 12);
    b.Set(NyTime::kInfinite, 0);
    thread.GetThreadTimes(a, b);
    EXPECT_EQ(a.mMicroseconds, 12);
    EXPECT_EQ(a.mSpecial, 0);
    EXPECT_EQ(b.mSpecial, 1);
}

TEST_F(NyThreadTest, CallsTheDerivedOperationsThroughTheBase) {
    auto ran = std::make_unique<std::atomic<bool>>(false);
    std::unique_ptr<NyThread> thread =
        std::make_unique<FunctionThread>([flag = ran.get()] { *flag = true; });
    thread->Start();
    EXPECT_EQ(thread->WaitForExit(), 0);
    EXPECT_TRUE(*ran);
}

} // namespace
