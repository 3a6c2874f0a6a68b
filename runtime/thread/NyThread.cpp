#include "runtime/thread/NyThread.h"

#include "hsl/LogManager.h"

#include <sched.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

// Both are initialised at compile time and have no destructor. So any static object may use them,
// and so may a thread that starts or ends while the process does.
constinit NyAtStartFunctions NyThread::mAtStartFunctions;
constinit std::atomic<pthread_t> NyThread::msMainThreadID{};

namespace {

constexpr std::int32_t kLowestPriority = 1000;
constexpr std::int32_t kNormalPriority = 1005;
constexpr std::int32_t kHighestPriority = 1015;

// Returns the platform's priority for a level. The steps are lopsided on purpose, as there are five
// levels below normal and ten above it: those below are fifths of the lower half of the range,
// those above are tenths of the upper half.
int ToPlatformPriority(std::int32_t level) {
    const int min = sched_get_priority_min(SCHED_FIFO);
    const int max = sched_get_priority_max(SCHED_FIFO);
    const int mid = (max + min) / 2;
    const int half = (max - min) / 2;
    int priority = mid;
    if (level == kLowestPriority) {
        priority = min;
    } else if (level > kLowestPriority && level < kNormalPriority) {
        priority = mid - (half * (kNormalPriority - level)) / 5;
    } else if (level > kNormalPriority && level < kHighestPriority) {
        priority = mid + (half * (level - kNormalPriority)) / 10;
    } else if (level == kHighestPriority) {
        priority = max;
    }
    priority = priority > max ? max : priority;
    return priority < min ? min : priority;
}

int CreateRealTimeThread(pthread_t& thread, std::int32_t level, void* (*body)(void*),
                         void* argument) {
    pthread_attr_t attributes;
    if (const int error = pthread_attr_init(&attributes); error != 0) {
        return error;
    }
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE);
    pthread_attr_setschedpolicy(&attributes, SCHED_FIFO);
    sched_param parameters{};
    parameters.sched_priority = ToPlatformPriority(level);
    pthread_attr_setschedparam(&attributes, &parameters);
    // Without this the platform would ignore the policy and use that of the creating thread.
    pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    const int result = pthread_create(&thread, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    return result;
}

void ReportRefusedScheduling(int error) {
    static constinit std::atomic_flag reported;
    if (!reported.test_and_set(std::memory_order_relaxed)) {
        syslog(LOG_WARNING,
               "Real-time scheduling refused (%s): threads run with the scheduling they inherit",
               std::strerror(error));
    }
}

} // namespace

NyThread::NyThread()
    : mName("unnamed"),
      mPriority(kNormalPriority),
      mSpare(-1),
      mPlatformData(std::make_unique<PlatformData>()) {}

NyThread::~NyThread() = default;

void NyThread::Start() {
    PlatformData& data = *mPlatformData;
    if (data.mRunning.load(std::memory_order_acquire) != 0) {
        return;
    }
    if (data.mJoinable) {
        WaitForExit();
    }
    data.mRunning.store(1, std::memory_order_relaxed);
    pthread_t thread{};
    int result = CreateRealTimeThread(thread, mPriority, &ThreadBody, this);
    if (result != 0) {
        // The platform refuses a process without the privilege. It is better to play late than not
        // to play.
        const int refusal = result;
        result = pthread_create(&thread, nullptr, &ThreadBody, this);
        if (result == 0) {
            ReportRefusedScheduling(refusal);
        }
    }
    if (result == 0) {
        data.mThread.store(thread, std::memory_order_relaxed);
        data.mJoinable = true;
    }
}

int NyThread::WaitForExit() {
    PlatformData& data = *mPlatformData;
    if (!data.mJoinable) {
        return ESRCH;
    }
    const int result = pthread_join(data.mThread.load(std::memory_order_relaxed), nullptr);
    if (result == 0) {
        data.mJoinable = false;
    }
    return result;
}

bool NyThread::IsMainThread() {
    return pthread_equal(pthread_self(), MainThreadID()) != 0;
}

void NyThread::Initialize() {
    msMainThreadID.store(pthread_self(), std::memory_order_relaxed);
}

void NyThread::Sleep(int microseconds) {
    usleep(static_cast<useconds_t>(microseconds));
}

void NyThread::GetThreadTimes(NyTime&, NyTime&) {}

void* NyThread::ThreadBody(void* argument) {
    auto* thread = static_cast<NyThread*>(argument);
    thread->mPlatformData->mThread.store(pthread_self(), std::memory_order_relaxed);
    ThreadStart(thread);
    return nullptr;
}

void NyThread::ThreadStart(NyThread* thread) {
    // The size is read again each time, because an at-start function may add another one.
    for (std::size_t i = 0; i < mAtStartFunctions.Size(); ++i) {
        mAtStartFunctions.At(i)();
    }
    if (thread != nullptr) {
        thread->Run();
        thread->mPlatformData->mRunning.store(0, std::memory_order_release);
    }
    // This is a static function because there is no manager while logging is off.
    HSL::CLogManager::CleanupTLSContext();
}
