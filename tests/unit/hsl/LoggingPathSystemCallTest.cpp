// A log call in a process whose kernel kills it for a system call. Not for emulators, which have
// no filters, nor for sanitizers, which make calls of their own. Reading the clock is allowed: the
// kernel may have it read by call.
#include "hsl/CategoryHolder.h"
#include "hsl/LogContext.h"
#include "hsl/LogManager.h"

#include <gtest/gtest.h>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <iterator>

namespace HSL {
namespace {

constexpr CCategoryHolder kSubject(20, "Subject");

#define ALLOW(call)                                                                                \
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, (call), 0, 1), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)

// From here on this thread may read the clock and end the process, and nothing else.
bool ForbidSystemCalls() {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        ALLOW(SYS_gettimeofday),
        ALLOW(SYS_clock_gettime),
        ALLOW(SYS_exit_group),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    };
    const sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

CLogContext* StartLogging() {
    CLogManager::Initialize();
    CLogManager::Instance()->SetOutputCallback([](const char*) {});
    CLogManager::Instance()->SetFilterValue(kInfo, true);
    return CLogManager::GetTLSContext();
}

[[noreturn]] void LogWithoutSystemCalls() {
    CLogContext* const context = StartLogging();
    const short format = CLogManager::Instance()->AddFormatString("%d %g");
    if (!ForbidSystemCalls()) {
        _exit(2);
    }
    for (int i = 0; i < 20000; ++i) {
        context->Log(kSubject[kInfo], format, i, 2.5);
        context->Log(kSubject[kInfo], "text %s", "of some length, more than a number has");
        context->Log(kSubject[kError], format, i);
    }
    _exit(0);
}

[[noreturn]] void MakeASystemCall() {
    StartLogging();
    if (!ForbidSystemCalls()) {
        _exit(2);
    }
    syscall(SYS_getppid);
    _exit(0);
}

TEST(LoggingPathSystemCallTest, ASystemCallKillsTheProcess) {
    EXPECT_EXIT(MakeASystemCall(), testing::KilledBySignal(SIGSYS), "");
}

TEST(LoggingPathSystemCallTest, LoggingMakesNone) {
    EXPECT_EXIT(LogWithoutSystemCalls(), testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace HSL
