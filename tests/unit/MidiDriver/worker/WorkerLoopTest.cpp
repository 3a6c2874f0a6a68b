// The loop's packet buffer and its reports.

#include "tests/support/WaitUntil.h"
#include "tests/support/memory/AllocationCounter.h"
#include "tests/support/memory/ArrayNewFaults.h"
#include "tests/support/platform/ControllableClock.h"
#include "tests/support/platform/SyslogCapture.h"
#include "tests/unit/MidiDriver/worker/WorkerHarness.h"

#include <gtest/gtest.h>

#include <syslog.h>

#include <array>
#include <cstdint>

using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

using Deliveries = std::vector<Delivery>;

constexpr std::uint32_t kQueueRingLength = 524288;

const std::string kInfoReadError = "Error 3 reading from MIDI Data circular buffer";
const std::string kBufferError =
    "CMidiCallbackWorker:svc: Error dynamically allocating mPktData buffer";
const std::string kSkipError = "CMidiCallbackWorker:svc: Error removing large packet from buffer";

// A worker whose rings can be looked at.
struct OpenWorker {
    AllocationRecorder mRecorder;
    TestWorker mWorker;

    explicit OpenWorker(const TestWorker::Options& options = {}) : mWorker(options) {}

    _t_circular_buffer* DataRing() const { return Ring(1); }
    _t_circular_buffer* InfoRing() const { return Ring(4); }

    // Stops the loop inside the callback, where it holds no lock, with nothing queued.
    void Stop() {
        mWorker.Sink().Close();
        mWorker.Write(0, {0xAA});
        ASSERT_TRUE(mWorker.Sink().WaitForCount(1));
    }

private:
    _t_circular_buffer* Ring(std::uint32_t elementSize) const {
        return static_cast<_t_circular_buffer*>(
            mRecorder.BlocksOf(cb_calc_buffer_size(elementSize, kQueueRingLength)).at(0));
    }
};

// Records error 3 on a ring that holds something, without touching what it holds.
void Spoil(_t_circular_buffer* ring) {
    std::array<unsigned char, 4> element;
    int count = 1;
    ASSERT_EQ(cb_peek(ring, kQueueRingLength, element.data(), &count), kCBIndexBeyondStored);
}

} // namespace

TEST(WorkerLoop, GrowsThePacketBufferToExactlyTheLongestItem) {
    OpenWorker open;
    Bytes longest(5003);
    for (std::size_t i = 0; i < longest.size(); ++i) {
        longest[i] = static_cast<unsigned char>(i * 7);
    }
    const Deliveries items = {{0, Bytes(256, 1)}, {0, Bytes(257, 2)}, {0, longest},
                              {0, Bytes(300, 3)}, {0, longest},       {0, {4}}};
    for (const Delivery& item : items) {
        open.mWorker.Write(item.mPort, item.mBytes);
        ASSERT_TRUE(
            open.mWorker.Sink().WaitForCount(static_cast<std::size_t>(&item - items.data() + 1)));
    }
    EXPECT_EQ(open.mWorker.Sink().Deliveries(), items);
}

TEST(WorkerLoop, AllocatesAndFreesOneBufferPerGrowth) {
    AllocationRecorder recorder;
    TestWorker worker;
    worker.Sink().OnlyCount(0); // the loop's own blocks are then the only ones of their sizes
    Bytes bytes(20000, 1);
    std::size_t sent = 0;
    for (const unsigned int size : {12345u, 10000u, 12345u, 12347u, 3u}) {
        WriteCBBytes(worker.Get(), 0, bytes.data(), size, true);
        ASSERT_TRUE(worker.Sink().WaitForCount(++sent));
    }
    EXPECT_EQ(recorder.BlocksOf(12345).size(), 1u);
    EXPECT_EQ(recorder.FreedBlocksOf(12345), 1u);
    EXPECT_EQ(recorder.BlocksOf(10000).size(), 0u);
    EXPECT_EQ(recorder.BlocksOf(12347).size(), 1u);
    worker.Delete();
    // Let go, not freed, when the loop ended.
    EXPECT_EQ(recorder.FreedBlocksOf(12347), 0u);
}

TEST(WorkerLoop, ForwardsTheLargestItemThatTheRingHolds) {
    TestWorker worker;
    const Bytes largest(kQueueRingLength, 0x5A);
    worker.Write(3, largest);
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{3, largest}}));
}

TEST(WorkerLoop, SkipsAnItemThatItCannotBufferAndTriesAgainForTheNext) {
    ControllableClock clock;
    OpenWorker open;
    open.Stop();
    FailArrayNewOf(54321, 1);
    open.mWorker.Write(1, Bytes(54321, 1));
    open.mWorker.Write(2, {2});
    clock.AdvanceWallTime(10s);
    open.mWorker.Sink().Open();
    ASSERT_TRUE(open.mWorker.Sink().WaitForCount(2));
    EXPECT_EQ(open.mWorker.Sink().Deliveries(), (Deliveries{{0, {0xAA}}, {2, {2}}}));
    EXPECT_EQ(CountLines(LOG_ERR, kBufferError), 1u);
    // The capacity kept the size that failed: the next buffer has it, and the item then fits.
    open.mWorker.Write(3, Bytes(54320, 3));
    ASSERT_TRUE(open.mWorker.Sink().WaitForCount(3));
    EXPECT_EQ(open.mWorker.Sink().Deliveries().back(), (Delivery{3, Bytes(54320, 3)}));
}

TEST(WorkerLoop, SkipsItemsForAsLongAsThereIsNoBuffer) {
    ControllableClock clock;
    OpenWorker open;
    open.Stop();
    FailArrayNewOf(54321, 3);
    open.mWorker.Write(1, Bytes(54321, 1));
    open.mWorker.Write(1, {2});
    open.mWorker.Write(1, {3, 4});
    open.mWorker.Write(1, {5, 6, 7});
    open.mWorker.Sink().Open();
    ASSERT_TRUE(open.mWorker.Sink().WaitForCount(2));
    EXPECT_EQ(open.mWorker.Sink().Deliveries(), (Deliveries{{0, {0xAA}}, {1, {5, 6, 7}}}));
    // In the first ten seconds of the worker's life nothing is reported.
    EXPECT_TRUE(CountLines(LOG_ERR, kBufferError) == 0);
}

TEST(WorkerLoop, GivesUpThisWakeUpWhenTheItemCannotEvenBeSkipped) {
    ControllableClock clock;
    OpenWorker open;
    open.Stop();
    FailArrayNewOf(54321, 1);
    open.mWorker.Write(1, Bytes(54321, 1));
    open.mWorker.Write(1, {2});
    Spoil(open.DataRing());
    // Every report finds its ten seconds gone.
    clock.StepWallTimeAtReadings(11s);
    open.mWorker.Sink().Open();
    EXPECT_TRUE(WaitForLine(LOG_ERR, kSkipError));
    EXPECT_EQ(CountLines(LOG_ERR, kBufferError), 1u);
    EXPECT_EQ(open.mWorker.Sink().Deliveries().size(), 1u);
}

TEST(WorkerLoop, ReportsAnInfoRingErrorUnderTheDataRingsName) {
    ControllableClock clock;
    OpenWorker open;
    open.Stop();
    open.mWorker.Write(1, {1});
    Spoil(open.InfoRing());
    clock.AdvanceWallTime(10s);
    open.mWorker.Sink().Open();
    EXPECT_TRUE(WaitForLine(LOG_INFO, kInfoReadError));
    EXPECT_EQ(open.mWorker.Sink().Deliveries().size(), 1u);
}

TEST(WorkerLoop, ReportsADataRingErrorAndDropsTheItem) {
    ControllableClock clock;
    OpenWorker open;
    open.Stop();
    open.mWorker.Write(1, {1});
    Spoil(open.DataRing());
    clock.AdvanceWallTime(10s);
    open.mWorker.Sink().Open();
    EXPECT_TRUE(WaitForLine(LOG_INFO, "Error 3 reading from MIDI Data circular buffer"));
    EXPECT_EQ(open.mWorker.Sink().Deliveries().size(), 1u);
}

TEST(WorkerLoop, ReportsNothingInItsFirstTenSecondsAndThenOnceInTen) {
    ControllableClock clock;
    OpenWorker open;
    open.Stop();
    open.mWorker.Write(1, {1});
    Spoil(open.InfoRing());
    // Each wake-up meets the error once and reads the clock once.
    auto wakeUp = [&, readings = clock.WallTimeReadings()](bool openSink) mutable {
        if (openSink) {
            open.mWorker.Sink().Open();
        } else {
            SignalConsumeEvent(open.mWorker.Get());
        }
        ++readings;
        ASSERT_TRUE(WaitUntil("the worker has read the wall clock",
                              [&] { return clock.WallTimeReadings() >= readings; }));
    };
    clock.AdvanceWallTime(10s - 1us);
    wakeUp(true);
    clock.AdvanceWallTime(1us);
    wakeUp(false);
    ASSERT_TRUE(WaitForLine(LOG_INFO, kInfoReadError));
    EXPECT_EQ(CountLines(LOG_INFO, kInfoReadError), 1u);
    clock.AdvanceWallTime(10s - 1us);
    wakeUp(false);
    clock.AdvanceWallTime(1us);
    wakeUp(false);
    EXPECT_TRUE(
        WaitUntil("the second report", [] { return CountLines(LOG_INFO, kInfoReadError) == 2; }));
}

TEST(WorkerLoop, UsesUpTheReportBudgetWithEverySecondsOldThrottledItem) {
    ControllableClock clock;
    TestWorker::Options options;
    options.mThrottleRate = 100;
    OpenWorker open(options);
    open.Stop();
    open.mWorker.Write(1, {1}); // takes the budget, silently
    clock.AdvanceWallTime(10s);
    open.mWorker.Sink().Open();
    ASSERT_TRUE(open.mWorker.Sink().WaitForCount(2));

    open.mWorker.Sink().Close();
    open.mWorker.Write(1, {2});
    ASSERT_TRUE(open.mWorker.Sink().WaitForCount(3));
    open.mWorker.Write(1, {3});
    Spoil(open.InfoRing());
    clock.AdvanceWallTime(10s - 1us);
    const std::uint64_t readings = clock.WallTimeReadings();
    open.mWorker.Sink().Open();
    ASSERT_TRUE(WaitUntil("the worker has read the wall clock",
                          [&] { return clock.WallTimeReadings() > readings; }));
    // More than ten seconds into the worker's life, but not since that item.
    clock.AdvanceWallTime(1us);
    EXPECT_EQ(CountLinesAt(LOG_INFO), 0u);
    SignalConsumeEvent(open.mWorker.Get());
    EXPECT_TRUE(WaitForLine(LOG_INFO, kInfoReadError));
    EXPECT_EQ(CountLinesAt(LOG_INFO), 1u);
}
