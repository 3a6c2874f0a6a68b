#include "midiserver/backends/InputQueue.h"

#include "tests/support/TestSeed.h"
#include "tests/support/memory/AllocationCounter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <thread>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

const Bytes kNote = {0x90, 0x3C, 0x40};

bool WasRaised(WakeUpSignal& signal) {
    return signal.WaitUntil(Clock::time_point{});
}

TEST(InputQueueTest, GivesWhatWasWrittenWithItsTime) {
    WakeUpSignal reader;
    InputQueue queue(2, reader);
    queue.Write(1, 4711, kNote);
    queue.Write(1, 4712, {});

    InputEvent event;
    EXPECT_FALSE(queue.Read(0, event));
    ASSERT_TRUE(queue.Read(1, event));
    EXPECT_EQ(event.time, 4711U);
    EXPECT_EQ(event.bytes, kNote);
    EXPECT_FALSE(event.followsLoss);
    ASSERT_TRUE(queue.Read(1, event));
    EXPECT_EQ(event.time, 4712U);
    EXPECT_TRUE(event.bytes.empty());
    EXPECT_FALSE(queue.Read(1, event));
}

TEST(InputQueueTest, TakesAnEventThatFillsItsRingExactlyAndNoneLarger) {
    WakeUpSignal reader;
    InputQueue queue(1, reader);
    Bytes largest(InputQueue::kLargestEvent);
    std::iota(largest.begin(), largest.end(), std::uint8_t{0});
    queue.Write(0, 1, Bytes(InputQueue::kLargestEvent + 1));
    EXPECT_EQ(queue.TakeLoss(0).noRoom, 1U);
    queue.Write(0, 2, largest);
    queue.Write(0, 3, {});
    EXPECT_EQ(queue.TakeLoss(0).noRoom, 1U);

    InputEvent event;
    ASSERT_TRUE(queue.Read(0, event));
    EXPECT_EQ(event.bytes, largest);
    EXPECT_TRUE(event.followsLoss);
    EXPECT_FALSE(queue.Read(0, event));
}

TEST(InputQueueTest, TellsTheWriterWhatFits) {
    WakeUpSignal reader;
    InputQueue queue(1, reader);
    EXPECT_EQ(queue.Room(0), InputQueue::kLargestEvent);
    EXPECT_EQ(queue.Room(1), std::nullopt);
    queue.Write(0, 0, Bytes(*queue.Room(0) - 16));
    EXPECT_EQ(queue.Room(0), 0U);
    EXPECT_TRUE(queue.Write(0, 0, {}));
    EXPECT_EQ(queue.Room(0), std::nullopt);
    EXPECT_EQ(queue.TakeLoss(0).noRoom, 0U);
}

TEST(InputQueueTest, TellsTheReaderBeforeWhichEventSomethingIsMissing) {
    WakeUpSignal reader;
    InputQueue queue(1, reader);
    queue.Write(0, 1, kNote);
    queue.CountLost(0, 3);
    queue.CountLost(0, 2);
    queue.Write(0, 2, kNote);
    queue.Write(0, 3, kNote);

    EXPECT_EQ(queue.TakeLoss(0).upstream, 5U);
    EXPECT_EQ(queue.TakeLoss(0).upstream, 0U);
    InputEvent event;
    for (const bool expected : {false, true, false}) {
        ASSERT_TRUE(queue.Read(0, event));
        EXPECT_EQ(event.followsLoss, expected);
    }
}

TEST(InputQueueTest, CountsALossOfNobodyKnowsWhomOnThePortsInUse) {
    WakeUpSignal reader;
    InputQueue queue(3, reader);
    queue.Write(0, 1, kNote);
    queue.Write(2, 1, kNote);
    queue.CountLostSomewhere();
    queue.Write(2, 2, kNote);
    EXPECT_EQ(queue.TakeLoss(0).upstream, 1U);
    EXPECT_EQ(queue.TakeLoss(1).upstream, 0U);
    EXPECT_EQ(queue.TakeLoss(2).upstream, 1U);
    queue.CountLostSomewhere();
    EXPECT_EQ(queue.TakeLoss(0).upstream, 0U) << "it has been silent since";
    EXPECT_EQ(queue.TakeLoss(2).upstream, 1U);

    InputEvent event;
    ASSERT_TRUE(queue.Read(2, event));
    EXPECT_FALSE(event.followsLoss);
    ASSERT_TRUE(queue.Read(2, event));
    EXPECT_TRUE(event.followsLoss);
}

TEST(InputQueueTest, LetsAFloodedPortTakeNoRoomFromTheOthers) {
    WakeUpSignal reader;
    InputQueue queue(2, reader);
    for (int i = 0; i < 10000; ++i) {
        queue.Write(0, 0, kNote);
    }
    EXPECT_GT(queue.TakeLoss(0).noRoom, 0U);
    queue.Write(1, 0, kNote);
    EXPECT_EQ(queue.TakeLoss(1).noRoom, 0U);
    InputEvent event;
    EXPECT_TRUE(queue.Read(1, event));
}

TEST(InputQueueTest, LeavesAPortThatIsNotThereAlone) {
    WakeUpSignal reader;
    InputQueue queue(1, reader);
    queue.Write(1, 0, kNote);
    queue.CountLost(1, 1);
    queue.Wake();

    InputEvent event;
    EXPECT_FALSE(queue.Read(1, event));
    EXPECT_EQ(queue.TakeLoss(1).upstream, 0U);
    EXPECT_FALSE(WasRaised(reader));
}

TEST(InputQueueTest, WakesTheReaderOnceForAllThatWasWritten) {
    WakeUpSignal reader;
    InputQueue queue(1, reader);
    queue.Wake();
    EXPECT_FALSE(WasRaised(reader)) << "for nothing";
    queue.Write(0, 0, kNote);
    EXPECT_FALSE(WasRaised(reader)) << "by a write, which must make no system call";
    queue.Wake();
    EXPECT_TRUE(WasRaised(reader));
    queue.Wake();
    EXPECT_FALSE(WasRaised(reader)) << "twice";
    queue.CountLost(0, 1);
    queue.Wake();
    EXPECT_TRUE(WasRaised(reader)) << "for a loss";
}

TEST(InputQueueTest, AllocatesNothingWhileItCarries) {
    WakeUpSignal reader;
    InputQueue queue(1, reader);
    InputEvent event;
    event.bytes.reserve(InputQueue::kLargestEvent);
    const Bytes large(InputQueue::kLargestEvent);
    const std::uint64_t before = TestSupport::AllocationsOfThisThread();
    const bool hasWritten = queue.Write(0, 0, large);
    const bool hasWrittenMore = queue.Write(0, 0, kNote);
    queue.CountLost(0, 1);
    queue.Wake();
    const bool hasRead = queue.Read(0, event);
    EXPECT_EQ(TestSupport::AllocationsOfThisThread(), before);
    EXPECT_TRUE(hasWritten && !hasWrittenMore && hasRead);
}

// The order, the bytes and the marks of loss hold between two threads, whatever the sizes are and
// wherever the ring's end falls.
TEST(InputQueueTest, CarriesAllThatItDidNotDropBetweenTwoThreads) {
    constexpr std::size_t kPorts = 3;
    constexpr std::uint64_t kEvents = 30000;
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    WakeUpSignal reader;
    InputQueue queue(kPorts, reader);
    std::uint64_t repetitions = 0;
    std::thread writer([&] {
        std::mt19937_64 random(seed);
        Bytes bytes;
        for (std::uint64_t number = 1; number <= kEvents; ++number) {
            bytes.assign(random() % (number % 100 == 0 ? 20000 : 40),
                         static_cast<std::uint8_t>(number));
            queue.Write(random() % kPorts, number, bytes);
            queue.Wake();
        }
        // The last mark of every port must go in.
        for (std::size_t port = 0; port < kPorts; ++port) {
            while (!queue.Write(port, kEvents + 1, {})) {
                ++repetitions;
                queue.Wake();
                std::this_thread::yield();
            }
        }
        queue.Wake();
    });

    std::uint64_t received = 0;
    std::uint64_t lost = 0;
    std::uint64_t finished = 0;
    std::uint64_t last[kPorts] = {};
    InputEvent event;
    while (finished < kPorts) {
        reader.WaitUntil(Clock::time_point::max());
        for (std::size_t port = 0; port < kPorts; ++port) {
            while (queue.Read(port, event)) {
                EXPECT_GT(event.time, last[port]);
                last[port] = event.time;
                EXPECT_EQ(std::count(event.bytes.begin(), event.bytes.end(),
                                     static_cast<std::uint8_t>(event.time)),
                          static_cast<std::ptrdiff_t>(event.bytes.size()));
                ++(event.time <= kEvents ? received : finished);
            }
            lost += queue.TakeLoss(port).noRoom;
        }
    }
    writer.join();
    for (std::size_t port = 0; port < kPorts; ++port) {
        lost += queue.TakeLoss(port).noRoom;
    }
    EXPECT_EQ(received + lost, kEvents + repetitions);
}

} // namespace
} // namespace MidiServer
