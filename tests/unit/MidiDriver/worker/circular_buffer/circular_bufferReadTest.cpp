#include "MidiDriver/worker/circular_buffer/circular_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <limits>

#include "tests/unit/MidiDriver/worker/circular_buffer/GuardedRing.h"

namespace {

constexpr int kMaxInt = std::numeric_limits<int>::max();
constexpr int kMinInt = std::numeric_limits<int>::min();
constexpr unsigned char kUntouched = 0xEE;

// Puts four elements into a ring of eight, the first one into the slot `first`.
void Fill(GuardedRing& ring, std::uint32_t first) {
    ring.StartAt(first);
    ring.Write(Counting(4 * ring->elemSize));
}

TEST(CircularBufferRead, SetsTheCountToZeroWhenEmpty) {
    GuardedRing ring(4, 2);
    Bytes out(8, kUntouched);
    int count = 2;
    EXPECT_EQ(cb_read(ring, out.data(), &count), 0u);
    EXPECT_EQ(count, 0);
    count = 2;
    EXPECT_EQ(cb_read_ex(ring, 0, out.data(), &count, kCBConsume), 0u);
    EXPECT_EQ(count, 0);
    count = 2;
    EXPECT_EQ(cb_peek(ring, 0, out.data(), &count), 0u);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(out, Bytes(8, kUntouched));
}

TEST(CircularBufferRead, TakesNoMoreThanAskedFor) {
    GuardedRing ring(3, 8);
    Fill(ring, 7);
    EXPECT_EQ(ring.Read(1), Counting(3));
    EXPECT_EQ(ring.Read(2), Counting(6, 4));
    EXPECT_EQ(cb_get_num_elem_used(ring), 1u);
    EXPECT_EQ(ring.Read(1), Counting(3, 10));
    EXPECT_EQ(cb_get_num_elem_used(ring), 0u);
}

TEST(CircularBufferRead, TakesNoMoreThanIsStoredAndLeavesTheRestOfTheDestination) {
    for (std::uint32_t first = 0; first <= 8; ++first) {
        for (int asked : {5, 1000, kMaxInt}) {
            GuardedRing ring(3, 8);
            Fill(ring, first);
            Bytes out(15, kUntouched);
            int count = asked;
            EXPECT_EQ(cb_read(ring, out.data(), &count), 0u);
            EXPECT_EQ(count, 4);
            Bytes expected = Counting(12);
            expected.resize(15, kUntouched);
            EXPECT_EQ(out, expected);
        }
    }
}

TEST(CircularBufferRead, CopiesNothingForZeroOrNegativeCounts) {
    GuardedRing ring(3, 8);
    Fill(ring, 7);
    for (int asked : {0, -1, kMinInt}) {
        for (unsigned int start : {0u, 1u, 2u, 4u}) {
            int count = asked;
            EXPECT_EQ(cb_peek(ring, start, nullptr, &count), 0u);
            EXPECT_EQ(count, 0);
        }
        int count = asked;
        EXPECT_EQ(cb_read(ring, nullptr, &count), 0u);
        EXPECT_EQ(count, 0);
    }
    EXPECT_EQ(cb_get_num_elem_used(ring), 4u);
}

TEST(CircularBufferRead, ConsumesOnlyWithTheLowestOptionBit) {
    GuardedRing ring(3, 8);
    Fill(ring, 0);
    Bytes out(3);
    for (unsigned int options : {0u, 2u, 0xFFFFFFFEu}) {
        int count = 1;
        EXPECT_EQ(cb_read_ex(ring, 0, out.data(), &count, options), 0u);
        EXPECT_EQ(count, 1);
        EXPECT_EQ(out, Counting(3));
        EXPECT_EQ(cb_get_num_elem_used(ring), 4u);
    }
    for (const unsigned char first : std::initializer_list<unsigned char>{1, 4}) {
        int count = 1;
        EXPECT_EQ(cb_read_ex(ring, 0, out.data(), &count, first == 1 ? 1u : 0xFFFFFFFFu), 0u);
        EXPECT_EQ(out, Counting(3, first));
    }
    EXPECT_EQ(cb_get_num_elem_used(ring), 2u);
}

TEST(CircularBufferRead, PeeksWithoutConsuming) {
    GuardedRing ring(3, 8);
    Fill(ring, 7);
    EXPECT_EQ(ring.Peek(0, 4), Counting(12));
    EXPECT_EQ(ring.Peek(0, 100), Counting(12));
    EXPECT_EQ(ring.Peek(1, 100), Counting(9, 4));
    EXPECT_EQ(cb_get_num_elem_used(ring), 4u);
}

TEST(CircularBufferRead, StartsAtTheIndexedElement) {
    GuardedRing ring(3, 8);
    Fill(ring, 2);
    EXPECT_EQ(ring.Peek(1, 2), Counting(6, 4));
    EXPECT_EQ(ring.Peek(3, 1), Counting(3, 10));
    EXPECT_EQ(ring.Peek(3, 9), Counting(3, 10));
}

TEST(CircularBufferRead, ConsumesTheElementsBeforeTheIndexToo) {
    GuardedRing ring(3, 8);
    Fill(ring, 2);
    Bytes out(3);
    int count = 1;
    EXPECT_EQ(cb_read_ex(ring, 2, out.data(), &count, kCBConsume), 0u);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(out, Counting(3, 7));
    EXPECT_EQ(ring.Read(9), Counting(3, 10));
}

TEST(CircularBufferRead, CopiesNothingFromTheIndexBehindTheLastElement) {
    GuardedRing ring(3, 8);
    Fill(ring, 2);
    int count = 5;
    EXPECT_EQ(cb_peek(ring, 4, nullptr, &count), 0u);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(ring->firstError, 0);
    EXPECT_EQ(cb_get_num_elem_used(ring), 4u);

    count = 5;
    EXPECT_EQ(cb_read_ex(ring, 4, nullptr, &count, kCBConsume), 0u);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(cb_get_num_elem_used(ring), 0u);
}

TEST(CircularBufferRead, RecordsAnIndexBeyondTheStoredElementsAndLeavesTheCount) {
    for (std::uint32_t first : {2u, 7u}) {
        for (unsigned int start : {5u, 8u, 9u, 0x55555555u, 0x80000000u, 0xFFFFFFFFu}) {
            GuardedRing ring(3, 8);
            Fill(ring, first);
            Bytes out(3, kUntouched);
            int count = 1;
            EXPECT_EQ(cb_peek(ring, start, out.data(), &count), 3u);
            EXPECT_EQ(count, 1);
            EXPECT_EQ(ring->firstError, 3);
            EXPECT_EQ(ring->lastError, 3);
            count = -7;
            EXPECT_EQ(cb_read_ex(ring, start, out.data(), &count, kCBConsume), 3u);
            EXPECT_EQ(count, -7);
            EXPECT_EQ(out, Bytes(3, kUntouched));
            EXPECT_EQ(ring.Read(9, 3), Counting(12));
            EXPECT_EQ(cb_clear_errors(ring), 3u);
            EXPECT_EQ(cb_clear_errors(ring), 0u);
        }
    }
}

TEST(CircularBufferRead, TakesAnyIndexOfAnEmptyRingWithoutAnError) {
    GuardedRing ring(3, 8);
    for (unsigned int start : {1u, 8u, 0xFFFFFFFFu}) {
        int count = 3;
        EXPECT_EQ(cb_peek(ring, start, nullptr, &count), 0u);
        EXPECT_EQ(count, 0);
    }
    EXPECT_EQ(ring->firstError, 0);
}

// Slots 0 to 8. With the oldest element in slot 7 the element with index 2 lies in slot 0, but the
// start position wraps to the other side of the first slot.

TEST(CircularBufferRead, WrapsAnIndexedStartToAsFarBeforeTheFirstSlotAsItLayBeyondTheLast) {
    GuardedRing ring(3, 8);
    Fill(ring, 7);
    // One slot before the first: a slot that is none, then the two elements from slot 0 on.
    Bytes expected(3, 0);
    const Bytes stored = Counting(6, 7);
    expected.insert(expected.end(), stored.begin(), stored.end());
    EXPECT_EQ(ring.Peek(2, 9), expected);
    EXPECT_EQ(ring.Peek(2, 2), Bytes(expected.begin(), expected.begin() + 6));
    EXPECT_EQ(ring.Peek(2, 1), Bytes(3, 0));
    // Two slots before the first, and as many as are stored may be passed over.
    expected.insert(expected.begin(), 3, 0);
    EXPECT_EQ(ring.Peek(3, 9), expected);
    expected.insert(expected.begin(), 3, 0);
    EXPECT_EQ(ring.Peek(4, 9), expected);
    EXPECT_EQ(ring->firstError, 0);
}

TEST(CircularBufferRead, KeepsTheControlBlockOutOfWhatAWrappedStartReads) {
    // The start position lies before the whole block here.
    GuardedRing ring(200, 8);
    Fill(ring, 7);
    Bytes expected(400, 0);
    const Bytes elements = Counting(800);
    expected.insert(expected.end(), elements.begin() + 400, elements.end());
    EXPECT_EQ(ring.Peek(3, 9), expected);
}

TEST(CircularBufferRead, KeepsTheReadPositionInTheDataAreaAfterAWrappedStart) {
    for (int asked = 0; asked <= 6; ++asked) {
        GuardedRing ring(3, 8);
        Fill(ring, 7);
        Bytes out(18);
        int count = asked;
        EXPECT_EQ(cb_read_ex(ring, 3, out.data(), &count, kCBConsume), 0u);
        EXPECT_EQ(count, std::min(asked, 4));
        const std::uint32_t passed = asked <= 2 ? 0 : static_cast<std::uint32_t>(count - 2);
        EXPECT_EQ(ring.ReadSlot(), passed);
        EXPECT_EQ(cb_get_num_elem_used(ring), 2 - passed);
    }
}

} // namespace
