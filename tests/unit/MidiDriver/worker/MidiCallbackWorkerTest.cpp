#include "MidiDriver/worker/MidiCallbackWorker.h"

#include "tests/support/WaitUntil.h"
#include "tests/support/memory/AllocationCounter.h"
#include "tests/support/platform/ControllableClock.h"
#include "tests/support/platform/SyslogCapture.h"
#include "tests/unit/MidiDriver/worker/WorkerHarness.h"

#include <gtest/gtest.h>

#include <syslog.h>

#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <thread>

using namespace TestSupport;

namespace {

using Deliveries = std::vector<Delivery>;

const Bytes kHUIPing = {0x90, 0x00, 0x00};
const Bytes kHUIReply = {0x90, 0x00, 0x7F};
const std::vector<tActiveSenseFn> kHUIOnPortOne = {nullptr, IsHUIActiveSenseFn};

TestWorker::Options WithActiveSense(const std::vector<tActiveSenseFn>& functions,
                                    tPacketDataCBElemType elementType = kMIDISinglePacket) {
    TestWorker::Options options;
    options.mElementType = elementType;
    options.mActiveSense = &functions;
    return options;
}

} // namespace

TEST(MidiCallbackWorker, IgnoresANullWorker) {
    Bytes bytes = {1, 2, 3};
    WriteCBBytes(nullptr, 0, bytes.data(), 3, true);
    SignalConsumeEvent(nullptr);
    ShutDown(nullptr);
    DeleteMidiCallbackWorker(nullptr);
    EXPECT_TRUE(SyslogLines().empty());
}

TEST(MidiCallbackWorker, ForwardsItemsWithPortBytesAndRefconInOrder) {
    TestWorker worker;
    const Deliveries items = {{0, {0x90, 1, 2}}, {31, {0xF8}}, {255, Bytes(300, 7)}, {0, {}}};
    for (const Delivery& item : items) {
        worker.Write(item.mPort, item.mBytes);
    }
    ASSERT_TRUE(worker.Sink().WaitForCount(items.size()));
    EXPECT_EQ(worker.Sink().Deliveries(), items);
}

TEST(MidiCallbackWorker, ForwardsAnIncompleteItemOnlyWithItsLastPart) {
    TestWorker worker;
    worker.Write(4, {1, 2, 3}, false);
    // The info ring is still empty, and a wake-up finds nothing.
    SignalConsumeEvent(worker.Get());
    worker.Write(4, {4}, false);
    worker.Write(4, {5, 6}, true);
    worker.Write(5, {7}, true);
    ASSERT_TRUE(worker.Sink().WaitForCount(2));
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{4, {1, 2, 3, 4, 5, 6}}, {5, {7}}}));
}

TEST(MidiCallbackWorker, DoesNotWakeTheLoopForAnIncompletePart) {
    AllocationRecorder recorder;
    TestWorker worker;
    const auto rings = recorder.BlocksOf(cb_calc_buffer_size(4, 524288));
    ASSERT_EQ(rings.size(), 1u);
    auto* const infoRing = static_cast<_t_circular_buffer*>(rings.front());
    worker.Write(0, {1, 2, 3}, false);
    EXPECT_EQ(cb_get_num_elem_used(infoRing), 0u);
    EXPECT_TRUE(worker.Sink().Deliveries().empty());
    worker.Write(0, {4}, true);
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{0, {1, 2, 3, 4}}}));
}

TEST(MidiCallbackWorker, QueuesOneInfoRecordOfPortAndLengthForAllPartsOfAnItem) {
    AllocationRecorder recorder;
    TestWorker worker;
    const auto rings = recorder.BlocksOf(cb_calc_buffer_size(4, 524288));
    ASSERT_EQ(rings.size(), 1u);
    auto* const infoRing = static_cast<_t_circular_buffer*>(rings.front());

    worker.Sink().Close();
    worker.Write(0, {});
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
    worker.Write(18, Bytes(300, 1), false);
    worker.Write(18, Bytes(50, 2), true);

    // 18 is the top byte, 350 the other three.
    EXPECT_EQ(cb_get_num_elem_used(infoRing), 1u);
    const auto* const record =
        reinterpret_cast<const unsigned char*>(infoRing) + infoRing->readOffset;
    Bytes expected = {18, 0x00, 0x01, 0x5E};
    if constexpr (std::endian::native == std::endian::little) {
        std::reverse(expected.begin(), expected.end());
    }
    EXPECT_EQ(Bytes(record, record + 4), expected);
}

TEST(MidiCallbackWorker, SharesTheByteTotalOfAnItemAmongAllWorkers) {
    ControllableClock clock;
    TestWorker first;
    TestWorker second;
    first.Write(0, {1, 2, 3, 4, 5}, false);
    clock.AdvanceWallTime(std::chrono::seconds(10));
    // Its record counts the other worker's five bytes as well, which are not in its ring.
    second.Write(0, {6, 7, 8}, true);
    EXPECT_TRUE(
        WaitForLine(LOG_INFO, "Error 0 reading from MIDI Data circular buffer.  CBs out of sync."));
    // And the first worker's record lacks them.
    first.Write(0, {9, 10}, true);
    ASSERT_TRUE(first.Sink().WaitForCount(1));
    EXPECT_EQ(first.Sink().Deliveries(), (Deliveries{{0, {1, 2}}}));
    second.Write(1, {11});
    ASSERT_TRUE(second.Sink().WaitForCount(1));
    EXPECT_EQ(second.Sink().Deliveries(), (Deliveries{{1, {11}}}));
}

TEST(MidiCallbackWorker, AnswersAPingAtOnceAndForwardsItToo) {
    TestWorker worker(WithActiveSense(kHUIOnPortOne));
    worker.Write(1, kHUIPing);
    EXPECT_EQ(Replies(), (Deliveries{{1, kHUIReply}}));
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{1, kHUIPing}}));
}

TEST(MidiCallbackWorker, AnswersNoPingOfAnIncompletePartAndForwardsIt) {
    TestWorker worker(WithActiveSense(kHUIOnPortOne));
    worker.Write(1, kHUIPing, false);
    EXPECT_TRUE(Replies().empty());
    worker.Write(1, {}, true);
    EXPECT_TRUE(Replies().empty());
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{1, kHUIPing}}));
}

TEST(MidiCallbackWorker, AnswersNothingWithoutADetector) {
    {
        TestWorker none;
        none.Write(1, kHUIPing);
        ASSERT_TRUE(none.Sink().WaitForCount(1));
    }
    TestWorker worker(WithActiveSense(kHUIOnPortOne));
    worker.Write(0, kHUIPing); // a null entry
    worker.Write(2, kHUIPing); // beyond the table
    worker.Write(1, {0x90, 1, 0});
    ASSERT_TRUE(worker.Sink().WaitForCount(3));
    EXPECT_TRUE(Replies().empty());
}

TEST(MidiCallbackWorker, KeepsItsOwnCopyOfTheDetectors) {
    std::vector<tActiveSenseFn> functions = kHUIOnPortOne;
    TestWorker worker(WithActiveSense(functions));
    functions.clear();
    functions.shrink_to_fit();
    worker.Write(1, kHUIPing);
    EXPECT_EQ(Replies(), (Deliveries{{1, kHUIReply}}));
}

TEST(MidiCallbackWorker, AnswersEveryPingOfAPacketList) {
    TestWorker worker(WithActiveSense(kHUIOnPortOne, kMIDIPacketList));
    const Bytes list = MakePacketList({kHUIPing, {0xB0, 0x0C, 0x00}, {}, kHUIPing});
    worker.Write(1, list);
    EXPECT_EQ(Replies(), (Deliveries{{1, kHUIReply}, {1, kHUIReply}}));
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{1, list}}));
}

TEST(MidiCallbackWorker, LooksAtPacketsOnlyWithinTheBytesGiven) {
    TestWorker worker(WithActiveSense(kHUIOnPortOne, kMIDIPacketList));
    const Bytes whole = MakePacketList({kHUIPing, kHUIPing});
    for (std::size_t size = 0; size < whole.size(); ++size) {
        worker.Write(1, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    }
    Bytes endless = MakePacketList({kHUIPing});
    const std::uint32_t count = 0xFFFFFFFF;
    std::memcpy(endless.data(), &count, sizeof count);
    worker.Write(1, endless);
    // The first packet is whole from 17 bytes on, whatever padding follows it; the second never is.
    EXPECT_EQ(Replies(), Deliveries(whole.size() - 17 + 1, Delivery{1, kHUIReply}));
    ASSERT_TRUE(worker.Sink().WaitForCount(whole.size() + 1));
}

namespace {

std::vector<unsigned int> sCapacities;

// Answers every packet, each answer a byte shorter than the room it was given.
bool AnswerAllButOne(unsigned int, const unsigned char*, unsigned int, unsigned char* reply,
                     unsigned int* replyLength) {
    sCapacities.push_back(*replyLength);
    --*replyLength;
    std::memset(reply, 0x55, *replyLength);
    return true;
}

} // namespace

TEST(MidiCallbackWorker, SetsTheReplyCapacityOncePerCallAndNotPerPacket) {
    const std::vector<tActiveSenseFn> functions = {AnswerAllButOne};
    TestWorker worker(WithActiveSense(functions, kMIDIPacketList));
    worker.Write(0, MakePacketList({{1}, {2}, {3}}));
    worker.Write(0, MakePacketList({{4}}));
    EXPECT_EQ(sCapacities, (std::vector<unsigned int>{128, 127, 126, 128}));
    EXPECT_EQ(Replies(), (Deliveries{{0, Bytes(127, 0x55)},
                                     {0, Bytes(126, 0x55)},
                                     {0, Bytes(125, 0x55)},
                                     {0, Bytes(127, 0x55)}}));
}

TEST(MidiCallbackWorker, AnswersWhileTheLoopHoldsItsLock) {
    ControllableClock clock;
    TestWorker::Options options = WithActiveSense(kHUIOnPortOne);
    options.mThrottleRate = 10;
    TestWorker worker(options);
    std::atomic<bool> sleeping{false};
    std::atomic<bool> goOn{false};
    clock.OnSleep([&](std::chrono::microseconds length) {
        sleeping = true;
        EXPECT_TRUE(WaitUntil("the test goes on", [&] { return goOn.load(); }));
        clock.Advance(length);
    });
    worker.Write(0, Bytes(10, 1));
    worker.Write(0, Bytes(10, 2));
    ASSERT_TRUE(WaitUntil("the worker sleeps", [&] { return sleeping.load(); }));

    std::atomic<bool> written{false};
    std::thread sender([&] {
        worker.Write(1, kHUIPing);
        written = true;
    });
    // The reply comes although the item itself cannot be queued while a port is held back.
    EXPECT_TRUE(WaitUntil("the reply is there", [] { return Replies().size() == 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(written);
    EXPECT_EQ(worker.Sink().Deliveries().size(), 1u);
    goOn = true;
    sender.join();
    ASSERT_TRUE(worker.Sink().WaitForCount(3));
}

TEST(MidiCallbackWorker, AcceptsNullCallbacks) {
    TestWorker::Options options = WithActiveSense(kHUIOnPortOne);
    options.mForward = nullptr;
    options.mReply = nullptr;
    AllocationRecorder recorder;
    TestWorker worker(options);
    const auto rings = recorder.BlocksOf(cb_calc_buffer_size(1, 524288));
    ASSERT_EQ(rings.size(), 1u);
    worker.Write(1, kHUIPing);
    EXPECT_TRUE(WaitUntil("the data ring is empty", [&] {
        return cb_get_num_elem_used(static_cast<_t_circular_buffer*>(rings.front())) == 0;
    }));
    EXPECT_TRUE(Replies().empty());
}

TEST(MidiCallbackWorker, RefusesPortsThatItHasNoTableOrRecordFor) {
    const std::vector<tActiveSenseFn> functions(1000, IsHUIActiveSenseFn);
    TestWorker::Options options = WithActiveSense(functions);
    TestWorker unlimited(options);
    unlimited.Write(256, kHUIPing);
    unlimited.Write(0xFFFFFFFF, kHUIPing);
    EXPECT_TRUE(Replies().empty());
    unlimited.Write(255, {1});

    options.mThrottleRate = 20;
    TestWorker limited(options);
    limited.Write(20, kHUIPing);
    limited.Write(20, kHUIPing, false);
    limited.Write(255, kHUIPing);
    EXPECT_TRUE(Replies().empty());
    limited.Write(19, {2});

    ASSERT_TRUE(unlimited.Sink().WaitForCount(1));
    ASSERT_TRUE(limited.Sink().WaitForCount(1));
    EXPECT_EQ(unlimited.Sink().Deliveries(), (Deliveries{{255, {1}}}));
    EXPECT_EQ(limited.Sink().Deliveries(), (Deliveries{{19, {2}}}));
}

TEST(MidiCallbackWorker, RefusesNullDataThatIsSaidToHaveBytes) {
    TestWorker worker(WithActiveSense(kHUIOnPortOne));
    WriteCBBytes(worker.Get(), 1, nullptr, 3, true);
    WriteCBBytes(worker.Get(), 1, nullptr, 3, false);
    WriteCBBytes(worker.Get(), 1, nullptr, 0, true);
    worker.Write(1, {1});
    ASSERT_TRUE(worker.Sink().WaitForCount(2));
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{1, {}}, {1, {1}}}));
    EXPECT_TRUE(Replies().empty());
}

TEST(MidiCallbackWorker, SizesItsTablesByTheThrottleRateAndNotByThePortCount) {
    AllocationRecorder recorder;
    TestWorker::Options options;
    options.mThrottleRate = 50;
    options.mPortCount = 2;
    TestWorker worker(options);
    // 50 * 1.1 is a little more than 55 in binary.
    EXPECT_EQ(recorder.BlocksOf(cb_calc_buffer_size(12, 56)).size(), 50u);
    worker.Write(40, {1});
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
}

TEST(MidiCallbackWorker, GivesTheDriversWorkerItsSizes) {
    AllocationRecorder recorder;
    TestWorker::Options options;
    options.mElementType = kMIDIPacketList;
    options.mThrottleRate = 14336;
    TestWorker worker(options);
    const std::uint32_t throttleRing = cb_calc_buffer_size(12, 15770);
    EXPECT_EQ(throttleRing, 189252 + kCBHeaderSize);
    EXPECT_EQ(recorder.BlocksOf(throttleRing).size(), 14336u);
    EXPECT_EQ(recorder.BlocksOf(cb_calc_buffer_size(1, 524288)).size(), 1u);
    EXPECT_EQ(recorder.BlocksOf(cb_calc_buffer_size(4, 524288)).size(), 1u);
    worker.Write(31, MakePacketList({{0xF8}}));
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
    worker.Delete();
    EXPECT_EQ(recorder.FreedBlocksOf(throttleRing), 14336u);
    EXPECT_EQ(CountLinesAt(LOG_ERR), 0u);
}

TEST(MidiCallbackWorker, MakesNoThrottleRingsWithoutARate) {
    for (const int rate : {0, -1, std::numeric_limits<int>::min()}) {
        AllocationRecorder recorder;
        TestWorker::Options options;
        options.mThrottleRate = rate;
        TestWorker worker(options);
        for (const std::uint32_t length : {0u, 1u, 2u, 36u}) {
            EXPECT_TRUE(recorder.BlocksOf(cb_calc_buffer_size(12, length)).empty());
        }
        // Far more than any limit, in no time.
        for (int i = 0; i < 100; ++i) {
            worker.Write(200, Bytes(4000, 1));
        }
        ASSERT_TRUE(worker.Sink().WaitForCount(100));
    }
}

TEST(MidiCallbackWorker, DropsTheQueueAtShutDownAndNothingComesAfter) {
    TestWorker worker;
    worker.Sink().Close();
    worker.Write(0, {1});
    ASSERT_TRUE(worker.Sink().WaitForCount(1));
    worker.Write(0, {2});
    std::thread owner([&] { ShutDown(worker.Get()); });
    auto* const object = static_cast<CMidiCallbackWorker*>(worker.Get());
    EXPECT_TRUE(WaitUntil("the worker is told to end", [&] { return !object->IsRunning(); }));
    worker.Sink().Open();
    owner.join();
    worker.Write(0, {3});
    SignalConsumeEvent(worker.Get());
    worker.Delete();
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{0, {1}}}));
}

TEST(MidiCallbackWorker, ShutsDownOnceAndThenDoesNothing) {
    TestWorker worker;
    ShutDown(worker.Get());
    ShutDown(worker.Get());
    EXPECT_FALSE(static_cast<CMidiCallbackWorker*>(worker.Get())->IsRunning());
    worker.Delete();
    EXPECT_EQ(CountLinesAt(LOG_ERR), 0u);
}

TEST(MidiCallbackWorker, ShutsARunningWorkerDownWhenItIsDeleted) {
    for (int i = 0; i < 50; ++i) {
        TestWorker worker;
        worker.Write(0, {1});
        worker.Delete();
    }
    EXPECT_EQ(CountLinesAt(LOG_ERR), 0u);
}

TEST(MidiCallbackWorker, ReleasesTheItemThatIsHeldBackBeforeItShutsDown) {
    ControllableClock clock;
    TestWorker::Options options;
    options.mThrottleRate = 10;
    TestWorker worker(options);
    std::atomic<bool> goOn{false};
    clock.OnSleep([&](std::chrono::microseconds length) {
        EXPECT_TRUE(WaitUntil("the test goes on", [&] { return goOn.load(); }));
        clock.Advance(length);
    });
    worker.Write(0, Bytes(10, 1));
    worker.Write(0, Bytes(10, 2));
    ASSERT_TRUE(WaitUntil("the worker sleeps", [&] { return clock.Sleeps() > 0; }));
    std::thread owner([&] { ShutDown(worker.Get()); });
    auto* const object = static_cast<CMidiCallbackWorker*>(worker.Get());
    EXPECT_TRUE(WaitUntil("the worker is told to end", [&] { return !object->IsRunning(); }));
    goOn = true;
    owner.join();
    EXPECT_EQ(worker.Sink().Deliveries(), (Deliveries{{0, Bytes(10, 1)}, {0, Bytes(10, 2)}}));
}

TEST(MidiCallbackWorker, CarriesTrafficAtFullSpeedWithoutLossOrReordering) {
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    TestWorker worker;
    Deliveries sent;
    for (int i = 0; i < 20000; ++i) {
        Delivery item{static_cast<unsigned int>(random() % 32), Bytes(random() % 40)};
        for (unsigned char& byte : item.mBytes) {
            byte = static_cast<unsigned char>(random());
        }
        // Well within the data ring, whatever the loop does.
        if (i % 5000 == 4999) {
            ASSERT_TRUE(worker.Sink().WaitForCount(sent.size()));
        }
        worker.Write(item.mPort, item.mBytes);
        sent.push_back(std::move(item));
    }
    ASSERT_TRUE(worker.Sink().WaitForCount(sent.size()));
    EXPECT_EQ(worker.Sink().Deliveries(), sent);
}

// What two workers share is touched from two threads here: the byte total, the reports' statics.
// Their items' lengths then get mixed up, which is intended; their bytes never do.
TEST(MidiCallbackWorker, KeepsTheBytesOfConcurrentWorkersApart) {
    TestWorker first;
    TestWorker second;
    const auto send = [](TestWorker& worker, unsigned char mark) {
        for (int i = 0; i < 3000; ++i) {
            worker.Write(mark, Bytes(20, mark));
        }
    };
    std::thread firstSender([&] { send(first, 0x11); });
    std::thread secondSender([&] { send(second, 0x22); });
    firstSender.join();
    secondSender.join();
    ShutDown(first.Get());
    ShutDown(second.Get());
    for (const auto& [worker, mark] : {std::pair{&first, 0x11}, std::pair{&second, 0x22}}) {
        EXPECT_FALSE(worker->Sink().Deliveries().empty());
        for (const Delivery& item : worker->Sink().Deliveries()) {
            ASSERT_EQ(item.mPort, static_cast<unsigned int>(mark));
            ASSERT_EQ(item.mBytes, Bytes(item.mBytes.size(), static_cast<unsigned char>(mark)));
        }
    }
}

TEST(MidiCallbackWorker, AllocatesRingsWithMallocAndFree) {
    AllocationRecorder recorder;
    void* const block = allocFunc(12345);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(recorder.BlocksOf(12345).size(), 1u);
    freeFunc(block, 0);
    EXPECT_EQ(recorder.FreedBlocksOf(12345), 1u);
}
