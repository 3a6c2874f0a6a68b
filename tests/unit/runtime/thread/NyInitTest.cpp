#include "runtime/thread/NyInit.h"

#include "hsl/LogManager.h"
#include "runtime/socket/NySocket.h"
#include "runtime/thread/NyThread.h"
#include "runtime/workqueue/NyWorkQueue.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

TEST(NyInitTest, RecordsTheMainThread) {
    EXPECT_FALSE(NyThread::IsMainThread());
    std::thread([] {
        NyInit();
        EXPECT_TRUE(NyThread::IsMainThread());
        EXPECT_TRUE(pthread_equal(NyThread::MainThreadID(), pthread_self()));
        EXPECT_TRUE(pthread_equal(NyThread::GetCurrentId(), pthread_self()));
    }).join();
    // The other thread may be gone, its number is kept; this thread takes over by a call.
    NyInit();
    EXPECT_TRUE(NyThread::IsMainThread());
    std::thread([] { EXPECT_FALSE(NyThread::IsMainThread()); }).join();
}

TEST(NyInitTest, HasTheCurrentCommandClearedOnEveryLaterThread) {
    EXPECT_EQ(NyThread::mAtStartFunctions.Size(), 0U);
    NyInit();
    EXPECT_EQ(NyThread::mAtStartFunctions.Size(), 1U);
    EXPECT_EQ(NyThread::mAtStartFunctions.At(0), &NyWorkQueue::InitTLS);
}

TEST(NyInitTest, AppendsAgainWhenCalledAgain) {
    constexpr std::size_t kCalls = 100;
    const std::size_t before = NyThread::mAtStartFunctions.Size();
    for (std::size_t i = 0; i < kCalls; ++i) {
        NyInit();
    }
    ASSERT_EQ(NyThread::mAtStartFunctions.Size(), before + kCalls);
    EXPECT_EQ(NyThread::mAtStartFunctions.At(before + kCalls - 1), &NyWorkQueue::InitTLS);
}

TEST(NyInitTest, SetsTheSocketLayerUpAndNyCleanupTakesItDown) {
    EXPECT_FALSE(NySocket::IsInitialized());
    const std::size_t before = NyThread::mAtStartFunctions.Size();
    NyInit();
    EXPECT_TRUE(NySocket::IsInitialized());
    NyInit();
    EXPECT_TRUE(NySocket::IsInitialized());
    NyCleanup();
    EXPECT_FALSE(NySocket::IsInitialized());
    NyCleanup();
    EXPECT_FALSE(NySocket::IsInitialized());
    // The rest stays.
    EXPECT_TRUE(NyThread::IsMainThread());
    EXPECT_EQ(NyThread::mAtStartFunctions.Size(), before + 2);
}

TEST(NyInitTest, LeavesTheLoggingAlone) {
    NyInit();
    EXPECT_EQ(HSL::CLogManager::Instance(), nullptr);
    HSL::CLogManager::CleanupTLSContext();
    EXPECT_EQ(HSL::CLogManager::Instance(), nullptr);
}

} // namespace
