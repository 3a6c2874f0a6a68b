// Rings that overflow, that could not be allocated, and what the worker makes of it.

#include "tests/support/WaitUntil.h"
#include "tests/support/memory/AllocationCounter.h"
#include "tests/support/memory/ArrayNewFaults.h"
#include "tests/support/platform/ControllableClock.h"
#include "tests/support/platform/SyslogCapture.h"
#include "tests/unit/MidiDriver/worker/WorkerHarness.h"

#include <gtest/gtest.h>

#include <syslog.h>

#include <cstdint>
#include <new>
#include <ostream>

using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

using Deliveries = std::vector<Delivery>;

constexpr std::uint32_t kQueueRingLength = 524288;
const Bytes kHUIPing = {0x90, 0x00, 0x00};
const std::vector<tActiveSenseFn> kHUI = {IsHUIActiveSenseFn};

std::string WriteError(unsigned int code) {
    return "writeCBBytes: Error " + std::to_string(code) +
           " while writing to MIDI circular buffer, reinitializing Data and Info CBs...";
}

std::string RemoveError(unsigned int code, const std::string& ring) {
    return "Error: " + std::to_string(code) +
           ", ReinitializeInfoDataCB: Error while removing elements from MIDI " + ring + " CB";
}

// Stops the loop inside the callback, where it holds no lock, with nothing queued.
void Stop(TestWorker& worker) {
    worker.Sink().Close();
    worker.Write(0, {0xAA});
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
}

} // namespace

TEST(WorkerFailures, FillsTheDataRingExactlyAndOverflowsWithOneByteMore) {
    ControllableClock clock;
    TestWorker worker;
    Stop(worker);
    worker.Write(0, Bytes(kQueueRingLength - 1, 1));
    worker.Write(0, {2});
    EXPECT_EQ(CountLinesAt(LOG_ERR), 0u);
    worker.Write(0, {3});
    EXPECT_EQ(CountLines(LOG_ERR, WriteError(2)), 1u);
    // The data ring reports its error at its removal too; the info ring has none.
    EXPECT_EQ(CountLines(LOG_ERR, RemoveError(2, "Data")), 1u);
    EXPECT_EQ(CountLines(LOG_ERR, RemoveError(2, "Info")), 0u);
}

TEST(WorkerFailures, DropsTheNextItemWholeAfterAnOverflowAndThenTriesAgain) {
    ControllableClock clock;
    TestWorker::Options options;
    options.mActiveSense = &kHUI;
    TestWorker worker(options);
    Stop(worker);
    worker.Write(0, Bytes(kQueueRingLength + 1, 1));
    ASSERT_EQ(CountLines(LOG_ERR, RemoveError(2, "Data")), 1u);

    worker.Write(0, kHUIPing);
    EXPECT_TRUE(Replies().empty());
    EXPECT_EQ(CountLines(LOG_ERR, RemoveError(2, "Data")), 1u);
    // The flag is off again: this one is answered, and its write fails for the sticky error.
    worker.Write(0, kHUIPing);
    EXPECT_EQ(Replies().size(), 1u);
    EXPECT_EQ(CountLines(LOG_ERR, RemoveError(2, "Data")), 2u);
}

TEST(WorkerFailures, DropsTheRestOfAnItemWhosePartOverflowed) {
    ControllableClock clock;
    TestWorker::Options options;
    options.mActiveSense = &kHUI;
    TestWorker worker(options);
    Stop(worker);
    worker.Write(0, Bytes(kQueueRingLength + 1, 1), false);
    worker.Write(0, kHUIPing, false);
    worker.Write(0, kHUIPing, false);
    worker.Write(0, kHUIPing, true);
    EXPECT_TRUE(Replies().empty());
    EXPECT_EQ(CountLines(LOG_ERR, RemoveError(2, "Data")), 1u);
    worker.Write(0, kHUIPing, true);
    EXPECT_EQ(Replies().size(), 1u);
}

TEST(WorkerFailures, ForwardsNothingMoreAfterADataRingOverflow) {
    ControllableClock clock;
    TestWorker worker;
    Stop(worker);
    worker.Write(0, {1});
    worker.Write(0, Bytes(kQueueRingLength, 2));
    worker.Sink().Open();
    for (int i = 0; i < 10; ++i) {
        worker.Write(0, {3});
    }
    worker.Delete();
    // Not even what was queued before.
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{0, {0xAA}}}));
}

TEST(WorkerFailures, ServesWithANewWorkerAfterAnOverflow) {
    {
        TestWorker worker;
        worker.Write(0, Bytes(kQueueRingLength + 1, 1));
    }
    TestWorker worker;
    worker.Write(0, {1});
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{0, {1}}}));
}

TEST(WorkerFailures, RefusesItemsOfMoreBytesThanAnIntCounts) {
    ControllableClock clock;
    TestWorker worker;
    // The ring takes its fill from the buffer and no more.
    Bytes bytes(kQueueRingLength);
    WriteCBBytes(worker.Get(), 0, bytes.data(), 0xFFFFFFFF, true);
    EXPECT_EQ(CountLines(LOG_ERR, WriteError(2)), 1u);
    worker.Delete();
    EXPECT_TRUE(worker.Sink().Deliveries().empty());
}

TEST(WorkerFailures, ReportsAReinitialisationAtMostEveryTenSecondsForAllWorkers) {
    ControllableClock clock;
    TestWorker first;
    TestWorker second;
    const Bytes tooLong(kQueueRingLength + 1, 1);
    const auto fail = [&tooLong](TestWorker& worker) {
        worker.Write(0, tooLong); // fails
        worker.Write(0, {});      // dropped
    };
    fail(first);
    EXPECT_EQ(CountLines(LOG_ERR, WriteError(2)), 1u);
    fail(first);
    fail(second);
    clock.AdvanceWallTime(10s - 1us);
    fail(second);
    EXPECT_EQ(CountLines(LOG_ERR, WriteError(2)), 1u);
    clock.AdvanceWallTime(1us);
    fail(second);
    EXPECT_EQ(CountLines(LOG_ERR, WriteError(2)), 2u);
    fail(first);
    EXPECT_EQ(CountLines(LOG_ERR, WriteError(2)), 2u);
}

TEST(WorkerFailures, OverflowsTheInfoRingWithEmptyItemsAndForwardsNothingMore) {
    ControllableClock clock;
    TestWorker worker;
    Stop(worker);
    for (std::uint32_t i = 0; i < kQueueRingLength; ++i) {
        WriteCBBytes(worker.Get(), 0, nullptr, 0, true);
    }
    ASSERT_EQ(CountLinesAt(LOG_ERR), 0u);
    worker.Write(0, {1});
    EXPECT_EQ(CountLines(LOG_ERR, WriteError(2)), 1u);
    EXPECT_EQ(CountLines(LOG_ERR, RemoveError(2, "Info")), 1u);
    EXPECT_EQ(CountLines(LOG_ERR, RemoveError(2, "Data")), 0u);
    clock.AdvanceWallTime(10s);
    worker.Sink().Open();
    EXPECT_TRUE(WaitForLine(LOG_INFO, "Error 2 reading from MIDI Data circular buffer"));
    EXPECT_EQ(worker.Sink().Deliveries().size(), 1u);
}

TEST(WorkerFailures, KeepsTheByteTotalOfAFailedItemForTheNextWorker) {
    ControllableClock clock;
    {
        TestWorker worker;
        worker.Write(0, {1, 2, 3, 4, 5}, false);
        worker.Write(0, Bytes(kQueueRingLength, 1), true);
        ASSERT_EQ(CountLines(LOG_ERR, WriteError(2)), 1u);
    }
    TestWorker worker;
    clock.AdvanceWallTime(10s);
    worker.Write(0, {6, 7, 8});
    EXPECT_TRUE(
        WaitForLine(LOG_INFO, "Error 0 reading from MIDI Data circular buffer.  CBs out of sync."));
    worker.Write(0, {9});
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{0, {9}}}));
}

TEST(WorkerFailures, KeepsTheBytesOfItemsWhoseRecordsFailedForTheNextWorker) {
    ControllableClock clock;
    TestWorker::Options options;
    options.mInfoElementSize = 3; // no ring
    TestWorker failing(options);
    failing.Write(0, {1, 2}); // its record fails
    failing.Write(0, {3});    // dropped
    failing.Write(0, {4, 5}); // its record fails again
    TestWorker worker;
    clock.AdvanceWallTime(10s);
    worker.Write(0, {6});
    EXPECT_TRUE(
        WaitForLine(LOG_INFO, "Error 0 reading from MIDI Data circular buffer.  CBs out of sync."));
    // The total began anew with its record.
    worker.Write(0, {7});
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{0, {7}}}));
}

TEST(WorkerFailures, DropsTheItemThatOverflowsTheThrottleRingAndTheSendersNext) {
    ControllableClock clock;
    TestWorker::Options options;
    options.mElementType = kMIDIPacketList;
    options.mThrottleRate = 10;
    TestWorker worker(options);
    const Bytes empty = MakePacketList({});
    const Bytes other = MakePacketList({{1}});
    // Empty lists are not limited. The ring holds 11 records, the tail's is out of it.
    const std::size_t kFitting = 12;
    for (std::size_t i = 0; i < kFitting; ++i) {
        worker.Write(3, empty);
        ASSERT_TRUE(worker.Sink().WaitForCount(i + 1));
    }
    EXPECT_EQ(CountLinesAt(LOG_ERR), 0u);
    clock.StepWallTimeAtReadings(11s);
    worker.Write(3, empty);
    EXPECT_TRUE(WaitForLine(LOG_INFO, "Error 2 writing to MIDI Throttle CB"));
    EXPECT_TRUE(WaitForLine(LOG_ERR, RemoveError(2, "Throttle") + "[3]"));
    worker.Write(4, other); // discarded
    worker.Write(4, other);
    ASSERT_TRUE(worker.Sink().WaitForCount(kFitting + 1));

    // The port's ring stays in error: once the tail has expired the next record cannot be read, and
    // the write fails again.
    clock.Advance(1001ms);
    worker.Write(3, other);
    EXPECT_TRUE(WaitForLine(LOG_INFO, "Error 2 reading from MIDI Throttle CB"));
    EXPECT_TRUE(WaitUntil("the failure is reported three times", [] {
        return CountLines(LOG_ERR, RemoveError(2, "Throttle") + "[3]") == 3;
    }));
    EXPECT_EQ(CountLines(LOG_INFO, "Error 2 writing to MIDI Throttle CB"), 2u);
    worker.Write(4, other); // discarded
    worker.Write(4, other);
    ASSERT_TRUE(worker.Sink().WaitForCount(kFitting + 2));
    Deliveries expected(kFitting, Delivery{3, empty});
    expected.insert(expected.end(), 2, Delivery{4, other});
    EXPECT_EQ(worker.Sink().Deliveries(), expected);
}

namespace {

struct LostRing {
    const char* mName;
    std::uint32_t mElementSize;

    friend void PrintTo(const LostRing& lost, std::ostream* stream) { *stream << lost.mName; }
};

class WithoutQueueRing : public testing::TestWithParam<LostRing> {};

void ExpectARefusingWorker(TestWorker& worker, const std::string& name) {
    EXPECT_EQ(CountLines(LOG_ERR, "Error: 1, VirtualMidi: Error initializing MIDI " + name +
                                      " circular buffer"),
              1u);
    worker.Write(0, kHUIPing);
    EXPECT_EQ(Replies().size(), 1u);
    EXPECT_EQ(CountLines(LOG_ERR, WriteError(4)), 1u);
    EXPECT_EQ(CountLines(LOG_ERR, RemoveError(4, name)), 1u);
    SignalConsumeEvent(worker.Get());
    worker.Delete();
    EXPECT_TRUE(worker.Sink().Deliveries().empty());
    EXPECT_EQ(CountLines(LOG_ERR, "Error: 4, ~CMidiCallbackWorker: Error while destroying MIDI " +
                                      name + " CB"),
              1u);
    EXPECT_EQ(CountLinesAt(LOG_ERR), 4u);
}

} // namespace

TEST_P(WithoutQueueRing, RefusesItemsAndSaysSoWhenItCouldNotBeAllocated) {
    if (!CanFailMalloc()) {
        GTEST_SKIP() << "malloc cannot be made to fail under this sanitizer";
    }
    ControllableClock clock;
    const LostRing& lost = GetParam();
    FailMallocOf(cb_calc_buffer_size(lost.mElementSize, kQueueRingLength), 1);
    TestWorker::Options options;
    options.mActiveSense = &kHUI;
    TestWorker worker(options);
    ExpectARefusingWorker(worker, lost.mName);
}

TEST_P(WithoutQueueRing, RefusesItemsAndSaysSoForAnElementSizeThatTheLoopCannotRead) {
    ControllableClock clock;
    const LostRing& lost = GetParam();
    TestWorker::Options options;
    options.mActiveSense = &kHUI;
    (lost.mElementSize == 1 ? options.mDataElementSize : options.mInfoElementSize) = 8;
    TestWorker worker(options);
    ExpectARefusingWorker(worker, lost.mName);
}

INSTANTIATE_TEST_SUITE_P(WorkerFailures, WithoutQueueRing,
                         testing::Values(LostRing{"Data", 1}, LostRing{"Info", 4}),
                         [](const auto& test) { return std::string(test.param.mName); });

TEST(WorkerFailures, ReadsAndWritesNothingForAnyElementSizeButItsOwn) {
    for (const int size : {-12, -1, 0, 2, 3, 5, 11, 13, 1 << 30}) {
        for (int TestWorker::Options::*const member :
             {&TestWorker::Options::mDataElementSize, &TestWorker::Options::mInfoElementSize,
              &TestWorker::Options::mThrottleElementSize}) {
            TestWorker::Options options;
            options.mThrottleRate = 4;
            options.*member = size;
            TestWorker worker(options);
            worker.Write(1, {1});
            worker.Write(1, {});
            worker.Write(1, {2, 3});
            worker.Delete();
            EXPECT_TRUE(worker.Sink().Deliveries().empty()) << size;
        }
    }
}

TEST(WorkerFailures, WithoutAnInfoRingReportsEachWakeUp) {
    ControllableClock clock;
    TestWorker::Options options;
    options.mInfoElementSize = 8;
    TestWorker worker(options);
    clock.AdvanceWallTime(10s);
    SignalConsumeEvent(worker.Get());
    EXPECT_TRUE(WaitForLine(LOG_INFO, "Error 4 reading from MIDI Data circular buffer"));
}

TEST(WorkerFailures, WithoutAThrottleRingDropsThatPortsItems) {
    if (!CanFailMalloc()) {
        GTEST_SKIP() << "malloc cannot be made to fail under this sanitizer";
    }
    ControllableClock clock;
    FailMallocOf(cb_calc_buffer_size(12, 11), 1);
    TestWorker::Options options;
    options.mThrottleRate = 10;
    TestWorker worker(options);
    EXPECT_EQ(CountLines(LOG_ERR, "Error: 1, VirtualMidi: Error initializing MIDI Throttle "
                                  "circular buffer[0]"),
              1u);
    worker.Write(0, {1});
    EXPECT_TRUE(WaitUntil("the failure is reported twice", [] {
        return CountLines(LOG_ERR, RemoveError(4, "Throttle") + "[0]") == 2;
    }));
    worker.Write(1, {2}); // discarded
    worker.Write(1, {3});
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{1, {3}}}));
    worker.Delete();
    EXPECT_EQ(CountLines(LOG_ERR,
                         "Error: 4, ~CMidiCallbackWorker: Error while destroying MIDI Throttle "
                         "CB[0]"),
              1u);
}

TEST(WorkerFailures, WithoutAnyThrottleRingDropsEveryItemAndReportsBothSides) {
    ControllableClock clock;
    TestWorker::Options options;
    options.mThrottleElementSize = 16;
    options.mThrottleRate = 3;
    TestWorker worker(options);
    for (const char* port : {"0", "1", "2"}) {
        EXPECT_EQ(CountLines(LOG_ERR,
                             std::string("Error: 1, VirtualMidi: Error initializing MIDI Throttle "
                                         "circular buffer[") +
                                 port + "]"),
                  1u);
    }
    clock.StepWallTimeAtReadings(11s);
    worker.Write(2, {1});
    EXPECT_TRUE(WaitForLine(LOG_INFO, "Error 4 reading from MIDI Throttle CB"));
    EXPECT_TRUE(WaitForLine(LOG_INFO, "Error 4 writing to MIDI Throttle CB"));
    worker.Delete();
    EXPECT_TRUE(worker.Sink().Deliveries().empty());
}

TEST(WorkerFailures, ThrowsAndLeavesNothingBehindWhenThePacketBufferCannotBeAllocated) {
    AllocationRecorder recorder;
    FailArrayNewOf(256, 1);
    TestWorker::Options options;
    options.mThrottleRate = 10;
    EXPECT_THROW(TestWorker{options}, std::bad_alloc);
    for (const auto& [elementSize, length, rings] :
         {std::tuple{1u, kQueueRingLength, 1u}, std::tuple{4u, kQueueRingLength, 1u},
          std::tuple{12u, 11u, 10u}}) {
        const std::uint32_t size = cb_calc_buffer_size(elementSize, length);
        EXPECT_EQ(recorder.BlocksOf(size).size(), rings);
        EXPECT_EQ(recorder.FreedBlocksOf(size), rings);
    }
    EXPECT_EQ(CountLinesAt(LOG_ERR), 0u);
}
