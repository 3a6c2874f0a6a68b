#include "tests/integration/jack/BackendFixture.h"
#include "tests/integration/jack/ProcessWatch.h"

#include <unistd.h>

#include <cstdlib>
#include <mutex>

namespace JackTest {
namespace {

using testing::Contains;
using testing::IsEmpty;

class JackRealTimeTest : public BackendFixture {
protected:
    void SetUp() override {
        BackendFixture::SetUp();
        if (IsSkipped()) {
            return;
        }
        mServer->Start();
        Publish(kPorts);
        ASSERT_TRUE(WaitUntilUp());
        ASSERT_TRUE(WaitForPeriods(10));
        TakeForbiddenCalls(); // those of the first use: the loader looks functions
                              // up
    }

    void TearDown() override {
        CallInProcess(nullptr);
        BackendFixture::TearDown();
    }

    static testing::AssertionResult WaitForPeriods(std::uint64_t count) {
        const std::uint64_t first = WatchedPeriods();
        return WaitUntil("periods pass", [&] { return WatchedPeriods() - first >= count; });
    }

    // Traffic that takes every path: both directions, long messages, and full
    // queues.
    void Work() {
        Peer daw("daw", 2);
        Peer surface("surface");
        ASSERT_TRUE(daw.Connect("daw:out 1", "Quorvel MIDI:Quorvel Port 01 in"));
        ASSERT_TRUE(daw.Connect("daw:out 2", "Quorvel MIDI:Quorvel Port 01 in"));
        ASSERT_TRUE(daw.Connect("Quorvel MIDI:Quorvel Port 01 out", "daw:in 1"));
        ASSERT_TRUE(
            surface.Connect("Quorvel MIDI private:Quorvel Virtual Source 01", "surface:in 1"));
        Bytes large(60000, 0x01);
        large.front() = 0xF0;
        large.back() = 0xF7;
        for (int i = 0; i < 20; ++i) {
            daw.Send(1, large);
            daw.Send(2, {0x90, 0x00, 0x00});
            EmitFromPort(0, {0x90, 0x00, 0x7F});
            EmitFromPrivateSource(0, large);
        }
        ASSERT_TRUE(WaitUntil("it went through", [&] {
            Input(0);
            // Of so much, a part may be lost.
            return mEvents[0] >= 20 && daw.Received(1).size() == 20 && !surface.Received(1).empty();
        }));
    }
};

TEST_F(JackRealTimeTest, NeitherAllocatesNorLocksNorCallsTheSystemInAPeriod) {
    ASSERT_NO_FATAL_FAILURE(Work());
    ASSERT_TRUE(WaitForPeriods(10));
    EXPECT_THAT(TakeForbiddenCalls(), IsEmpty());
}

// The test above sees what it is to see.

TEST_F(JackRealTimeTest, WouldSeeAnAllocation) {
    CallInProcess([] { std::free(std::malloc(7)); });
    ASSERT_TRUE(WaitForPeriods(2));
    CallInProcess(nullptr);
    EXPECT_THAT(TakeForbiddenCalls(), testing::AllOf(Contains("malloc"), Contains("free")));
}

TEST_F(JackRealTimeTest, WouldSeeALock) {
    CallInProcess([] {
        static std::mutex mutex;
        const std::lock_guard lock(mutex);
    });
    ASSERT_TRUE(WaitForPeriods(2));
    CallInProcess(nullptr);
    EXPECT_THAT(TakeForbiddenCalls(), Contains("pthread_mutex_lock"));
}

TEST_F(JackRealTimeTest, WouldSeeASystemCall) {
    CallInProcess([] {
        if (write(-1, "", 1) == 0) {
            std::abort();
        }
    });
    ASSERT_TRUE(WaitForPeriods(2));
    CallInProcess(nullptr);
    EXPECT_THAT(TakeForbiddenCalls(), Contains("write"));
}

} // namespace
} // namespace JackTest
