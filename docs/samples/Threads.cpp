#include "runtime/sync/NyEvent.h"
#include "runtime/thread/NyInit.h"
#include "runtime/thread/NyThread.h"

#include <gtest/gtest.h>

namespace {

class Counter : public NyThread {
public:
    Counter() { mName = "counter"; }
    void Run() override {
        mStop.Wait(0xFFFFFFFF);
        ++mRuns;
    }
    // The owner makes the thread leave Run and joins it before the object goes.
    void ShutDown() {
        mStop.Signal();
        WaitForExit();
    }
    int GetRuns() const { return mRuns; }

private:
    NyEvent mStop{NyEvent::kManualReset, NyEvent::kNotSignaled, "stop"};
    int mRuns = 0;
};

} // namespace

TEST(RuntimeSamples, Threads) {
    NyInit(); // once, on the main thread, before any thread starts
    EXPECT_TRUE(NyThread::IsMainThread());

    Counter counter;
    counter.Start();
    counter.ShutDown();
    EXPECT_EQ(counter.GetRuns(), 1); // what the thread did is visible after the join
    NyCleanup();
}
