#include "midiserver/backends/OutputQueue.h"

#include "tests/support/TestSeed.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>
#include <vector>

namespace {

using MidiServer::OutputQueue;
using Bytes = std::vector<std::uint8_t>;

Bytes TakeWhole(OutputQueue& queue) {
    Bytes event(queue.Next());
    queue.Take(event);
    return event;
}

Bytes Numbered(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    }
    return bytes;
}

TEST(OutputQueueTest, GivesEventsBackInOrder) {
    OutputQueue queue(64);
    EXPECT_EQ(queue.Next(), 0U);
    EXPECT_TRUE(queue.Write(Bytes{0x90, 0x3C, 0x40}));
    EXPECT_TRUE(queue.Write(Bytes{0xF8}));
    EXPECT_EQ(TakeWhole(queue), (Bytes{0x90, 0x3C, 0x40}));
    EXPECT_EQ(TakeWhole(queue), (Bytes{0xF8}));
    EXPECT_EQ(queue.Next(), 0U);
}

TEST(OutputQueueTest, TakesAnEventThatFitsExactlyAndRefusesOneByteMore) {
    OutputQueue queue(64);
    EXPECT_FALSE(queue.Write(Numbered(61)));
    EXPECT_EQ(queue.Next(), 0U);
    EXPECT_TRUE(queue.Write(Numbered(60)));
    EXPECT_FALSE(queue.Write(Bytes{0xF8}));
    EXPECT_EQ(TakeWhole(queue), Numbered(60));
}

TEST(OutputQueueTest, RefusesAnEventWholeWhenOnlyItsHeaderFits) {
    OutputQueue queue(16);
    EXPECT_TRUE(queue.Write(Numbered(8)));
    EXPECT_FALSE(queue.Write(Bytes{0xF8}));
    EXPECT_EQ(TakeWhole(queue), Numbered(8));
    EXPECT_EQ(queue.Next(), 0U);
}

TEST(OutputQueueTest, GivesAnEventInPieces) {
    OutputQueue queue(64);
    queue.Write(Numbered(10));
    queue.Write(Bytes{0xFE});
    ASSERT_GT(queue.Next(), 4U);
    Bytes piece(4);
    queue.Take(piece);
    EXPECT_EQ(queue.Next(), 6U);
    Bytes rest(6);
    queue.Take(rest);
    piece.insert(piece.end(), rest.begin(), rest.end());
    EXPECT_EQ(piece, Numbered(10));
    EXPECT_EQ(TakeWhole(queue), (Bytes{0xFE}));
}

TEST(OutputQueueTest, ClearsWhatIsThereAndCountsIt) {
    OutputQueue queue(2048);
    queue.Write(Numbered(1000));
    queue.Write(Bytes{0xF8});
    ASSERT_GT(queue.Next(), 4U);
    Bytes piece(4);
    queue.Take(piece);
    EXPECT_EQ(queue.Clear(), 2U);
    EXPECT_EQ(queue.Next(), 0U);
    EXPECT_EQ(queue.Clear(), 0U);
    queue.Write(Numbered(3));
    EXPECT_EQ(TakeWhole(queue), Numbered(3));
}

TEST(OutputQueueTest, KeepsEventsWholeWhileBothThreadsWork) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    constexpr int kEvents = 20000;
    OutputQueue queue(300); // small, so that it wraps and fills all the time
    std::thread writer([&] {
        std::mt19937_64 random(seed);
        for (int i = 0; i < kEvents; ++i) {
            Bytes event(1 + random() % 100, static_cast<std::uint8_t>(i));
            while (!queue.Write(event)) {
                std::this_thread::yield();
            }
        }
    });
    std::mt19937_64 random(seed);
    std::mt19937_64 pieces(seed + 1);
    int wrong = 0;
    for (int i = 0; i < kEvents; ++i) {
        const Bytes expected(1 + random() % 100, static_cast<std::uint8_t>(i));
        while (queue.Next() == 0) {
            std::this_thread::yield();
        }
        Bytes event;
        do {
            Bytes piece(std::min<std::size_t>(queue.Next(), 1 + pieces() % 50));
            queue.Take(piece);
            event.insert(event.end(), piece.begin(), piece.end());
        } while (event.size() < expected.size());
        wrong += event != expected;
    }
    writer.join();
    EXPECT_EQ(wrong, 0);
}

} // namespace
