// The system's part of real-time scheduling is played here, so that the test needs no privilege and
// takes no priority: functions of this program take the place of the C library's.
#include "midiserver/host/RealTimePriority.h"

#include "midiserver/log/Logging.h"
#include "runtime/thread/NyInit.h"
#include "tests/integration/jack/ChildProcess.h"
#include "tests/integration/realtime/RealTimeService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <optional>
#include <thread>

namespace {

struct Scheduling {
    int policy;
    int level;
};

rlim_t sPriorityLimit = 0;
rlimit sTimeLimit{RLIM_INFINITY, RLIM_INFINITY};
int sSchedulingError = 0;
std::vector<Scheduling> sTaken;

} // namespace

extern "C" {

int ReplacedGetLimit(int resource, rlimit* limit) asm("getrlimit");
int ReplacedGetLimit(int resource, rlimit* limit) {
    switch (resource) {
    case RLIMIT_RTPRIO:
        *limit = {sPriorityLimit, sPriorityLimit};
        return 0;
    case RLIMIT_RTTIME:
        *limit = sTimeLimit;
        return 0;
    default:
        return ::prlimit(0, static_cast<__rlimit_resource>(resource), nullptr, limit);
    }
}

int ReplacedSetLimit(int resource, const rlimit* limit) asm("setrlimit");
int ReplacedSetLimit(int resource, const rlimit* limit) {
    if (resource != RLIMIT_RTTIME) {
        return ::prlimit(0, static_cast<__rlimit_resource>(resource), limit, nullptr);
    }
    sTimeLimit = *limit;
    return 0;
}

int ReplacedSetScheduler(pid_t, int policy,
                         const sched_param* parameters) asm("sched_setscheduler");
int ReplacedSetScheduler(pid_t, int policy, const sched_param* parameters) {
    errno = sSchedulingError;
    if (sSchedulingError != 0) {
        return -1;
    }
    sTaken.push_back({policy, parameters->sched_priority});
    return 0;
}
}

namespace MidiServer {
namespace {

using JackTest::ChildProcess;
using QuorvelTest::RealTimeService;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

class RealTimePriorityTest : public testing::Test {
protected:
    RealTimePriorityTest() {
        NyInit();
        ::unsetenv("JOURNAL_STREAM");
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    }

    // Returns what the log says when a thread takes the priority.
    std::string Take(int times = 1) {
        CaptureStderr();
        {
            const Logging logging({.level = "info", .categories = {}, .format = "plain"});
            for (int i = 0; i < times; ++i) {
                std::thread([this] {
                    mThread = ::gettid();
                    mPriority.Take();
                }).join();
            }
        }
        return GetCapturedStderr();
    }

    RealTimePriority mPriority{"the tested thread"};
    pid_t mThread = 0;
};

TEST_F(RealTimePriorityTest, IsTakenWithinTheUsersLimit) {
    sPriorityLimit = 3;
    EXPECT_THAT(Take(), HasSubstr("\tthe tested thread has real-time priority 3, within the user's "
                                  "limit\n"));
    ASSERT_EQ(sTaken.size(), 1U);
    EXPECT_EQ(sTaken[0].policy, SCHED_FIFO | SCHED_RESET_ON_FORK);
    EXPECT_EQ(sTaken[0].level, 3);
    EXPECT_EQ(sTimeLimit.rlim_cur, RLIM_INFINITY);
}

TEST_F(RealTimePriorityTest, IsNoHigherThanItNeedsToBe) {
    sPriorityLimit = 95;
    EXPECT_THAT(Take(), HasSubstr(" has real-time priority 4, "));
    ASSERT_EQ(sTaken.size(), 1U);
    EXPECT_EQ(sTaken[0].level, RealTimePriority::kLevel);
}

TEST_F(RealTimePriorityTest, IsDoneWithoutWhereThereIsNoBus) {
    EXPECT_THAT(Take(), HasSubstr("\tthe tested thread runs without real-time priority: the user's "
                                  "limit allows none (ulimit -r), and the desktop's real-time "
                                  "service gives none (no system bus: No such file or "
                                  "directory)\n"));
    EXPECT_TRUE(sTaken.empty());
    EXPECT_EQ(sTimeLimit.rlim_cur, RLIM_INFINITY);
}

TEST_F(RealTimePriorityTest, IsSaidOnce) {
    const std::string log = Take(3);
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

// With a bus of the test's own.
class RealTimeServiceTest : public RealTimePriorityTest {
protected:
    static constexpr const char* kRunner = "/usr/bin/dbus-run-session";

    void SetUp() override {
        if (::access(kRunner, X_OK) != 0) {
            GTEST_SKIP() << kRunner << " is not installed";
        }
        // The bus ends with its shell, and that with this test.
        mBus.emplace(std::vector<std::string>{kRunner, "--", "/bin/sh", "-c",
                                              "echo \"$DBUS_SESSION_BUS_ADDRESS\"; exec cat"});
        ASSERT_TRUE(mBus->ReadLine(mAddress));
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", mAddress.c_str(), 1);
    }

    std::optional<ChildProcess> mBus;
    std::string mAddress;
};

TEST_F(RealTimeServiceTest, GivesThePriorityToAProcessThatLimitsItself) {
    const RealTimeService service(mAddress, false);
    EXPECT_THAT(Take(), HasSubstr("\tthe tested thread has real-time priority 4, from the "
                                  "desktop's real-time service\n"));
    const auto requests = service.Requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].thread, static_cast<std::uint64_t>(mThread));
    EXPECT_EQ(requests[0].level, 4U);
    EXPECT_EQ(sTimeLimit.rlim_max, static_cast<rlim_t>(RealTimeService::kMostMicroseconds));
    EXPECT_EQ(sTimeLimit.rlim_cur, static_cast<rlim_t>(RealTimeService::kMostMicroseconds) / 2);

    // A thread that comes to the limit goes on without priority.
    ASSERT_EQ(std::raise(SIGXCPU), 0);
    ASSERT_EQ(sTaken.size(), 1U);
    EXPECT_EQ(sTaken[0].policy, SCHED_OTHER);
}

TEST_F(RealTimeServiceTest, IsAskedWhereTheSystemRefusesInSpiteOfTheLimit) {
    sPriorityLimit = 95;
    sSchedulingError = EPERM;
    const RealTimeService service(mAddress, false);
    EXPECT_THAT(Take(), HasSubstr(", from the desktop's real-time service\n"));
}

TEST_F(RealTimeServiceTest, KeepsStricterLimitsThanItsOwn) {
    sTimeLimit = {1000, 50000};
    const RealTimeService service(mAddress, false);
    Take();
    EXPECT_EQ(sTimeLimit.rlim_cur, 1000U);
    EXPECT_EQ(sTimeLimit.rlim_max, 50000U);
}

TEST_F(RealTimeServiceTest, MayRefuse) {
    const RealTimeService service(mAddress, true);
    EXPECT_THAT(Take(), HasSubstr("real-time service gives none (Operation not permitted)\n"));
}

TEST_F(RealTimeServiceTest, MayBeMissingOnTheBus) {
    EXPECT_THAT(Take(), HasSubstr("real-time service gives none (The name "
                                  "org.freedesktop.RealtimeKit1 was not provided by any "
                                  ".service files)\n"));
}

} // namespace
} // namespace MidiServer
