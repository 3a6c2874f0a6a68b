// What a log call costs besides its time: nothing. Locks are counted in all code that is linked
// into this program, allocations in all that it loads.
#include "hsl/CategoryHolder.h"
#include "hsl/FormatHolder.h"
#include "hsl/LogContext.h"
#include "hsl/LogIndent.h"
#include "hsl/LogManager.h"
#include "runtime/sync/NyLock.h"
#include "runtime/thread/NyThread.h"
#include "tests/support/memory/AllocationCounter.h"

#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <pthread.h>

#include <cstdint>
#include <functional>
#include <string>

namespace {

constinit thread_local std::uint64_t tlsLocks = 0;

} // namespace

extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_trylock(pthread_mutex_t* mutex);
int __real_pthread_rwlock_rdlock(pthread_rwlock_t* lock);
int __real_pthread_rwlock_wrlock(pthread_rwlock_t* lock);
OSStatus __real_MPEnterCriticalRegion(MPCriticalRegionID region, Duration timeout);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    ++tlsLocks;
    return __real_pthread_mutex_lock(mutex);
}
int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
    ++tlsLocks;
    return __real_pthread_mutex_trylock(mutex);
}
int __wrap_pthread_rwlock_rdlock(pthread_rwlock_t* lock) {
    ++tlsLocks;
    return __real_pthread_rwlock_rdlock(lock);
}
int __wrap_pthread_rwlock_wrlock(pthread_rwlock_t* lock) {
    ++tlsLocks;
    return __real_pthread_rwlock_wrlock(lock);
}
OSStatus __wrap_MPEnterCriticalRegion(MPCriticalRegionID region, Duration timeout) {
    ++tlsLocks;
    return __real_MPEnterCriticalRegion(region, timeout);
}
}

namespace HSL {
namespace {

constexpr CCategoryHolder kSubject(20, "Subject");

void Discard(const char*) {}

// Every way of logging, more often than the ring has room for.
class Calls {
public:
    Calls() {
        CLogManager::Initialize();
        CLogManager::Instance()->SetOutputCallback(Discard);
        CLogManager::Instance()->SetFilterValue(kInfo, true);
        mFormat.Register();
        mContext = CLogManager::GetTLSContext();
    }

    void Make() {
        for (int i = 0; i < 5000; ++i) {
            CLogManager::GetTLSContext()->Log(kSubject[kInfo], mFormat, i, 5000000000LL, 2.5);
            const CLogIndent indent(*mContext);
            mContext->Log(kSubject[kInfo], "text %s %S", mLongText.c_str(), L"wide");
            mContext->Log(kSubject[kError], mFormat, i);
            mContext->Log(CCat{kInfo, 20, 30}, "no arguments");
        }
    }

private:
    CFormatHolder mFormat{"%d %d %g"};
    CLogContext* mContext = nullptr;
    const std::string mLongText = std::string(1000, 'x');
};

TEST(LoggingPathTest, AllocatesNothing) {
    Calls calls;
    {
        // Otherwise nothing below counts.
        const std::uint64_t before = TestSupport::AllocationsOfThisThread();
        ::operator delete(::operator new(100)); // called as it stands, unlike an expression
        ASSERT_GT(TestSupport::AllocationsOfThisThread(), before);
    }
    const std::uint64_t before = TestSupport::AllocationsOfThisThread();
    calls.Make();
    EXPECT_EQ(TestSupport::AllocationsOfThisThread(), before);
    CLogManager::Cleanup();
}

TEST(LoggingPathTest, TakesNoLock) {
    Calls calls;
    {
        const std::uint64_t before = tlsLocks;
        const NyLockGuard guard(CLogManager::AddRemoveContextLock(), true);
        ASSERT_GT(tlsLocks, before);
        const std::uint64_t beforeName = tlsLocks;
        CLogManager::Instance()->GetCategoryName(kInfo);
        ASSERT_GT(tlsLocks, beforeName);
    }
    const std::uint64_t before = tlsLocks;
    calls.Make();
    EXPECT_EQ(tlsLocks, before);
    CLogManager::Cleanup();
}

class Body : public NyThread {
public:
    explicit Body(std::function<void()> body) : mBody(std::move(body)) {}
    void Run() override { mBody(); }

private:
    std::function<void()> mBody;
};

TEST(LoggingPathTest, TheEndOfAThreadFreesItsRing) {
    CLogManager::Initialize();
    const std::size_t size = cb_calc_buffer_size(1, 262144);
    const TestSupport::AllocationRecorder recorder;
    Body thread([] { CLogManager::GetTLSContext(); });
    thread.Start();
    EXPECT_EQ(thread.WaitForExit(), 0);
    EXPECT_EQ(recorder.BlocksOf(size).size(), 1u);
    EXPECT_EQ(recorder.FreedBlocksOf(size), 1u);
    CLogManager::Cleanup();
}

} // namespace
} // namespace HSL
