#include "MidiDriver/worker/circular_buffer/circular_buffer.h"
#include "tests/unit/MidiDriver/worker/circular_buffer/GuardedRing.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr int kMaxInt = std::numeric_limits<int>::max();
constexpr int kMinInt = std::numeric_limits<int>::min();

// Removes without an error and with the count unchanged; the number of elements left.
unsigned int Remove(GuardedRing& ring, int asked) {
    int count = asked;
    EXPECT_EQ(cb_remove(ring, &count), 0u);
    EXPECT_EQ(count, asked);
    return cb_get_num_elem_used(ring);
}

TEST(CircularBufferRemove, SetsTheCountToZeroWhenEmpty) {
    GuardedRing ring(4, 5);
    for (int asked : {1, 0, -1, kMaxInt, kMinInt}) {
        int count = asked;
        EXPECT_EQ(cb_remove(ring, &count), 0u);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(ring.ReadSlot(), 0u);
    }
}

TEST(CircularBufferRemove, EmptiesTheRingWithTheFullUsedCountWhereverTheContentsLie) {
    for (std::uint32_t slot = 0; slot <= 6; ++slot) {
        for (std::uint32_t used = 1; used <= 6; ++used) {
            GuardedRing ring(4, 6);
            ring.StartAt(slot);
            ring.Write(Counting(4 * used));
            const std::uint32_t write = ring->writeOffset;
            EXPECT_EQ(Remove(ring, static_cast<int>(cb_get_num_elem_used(ring))), 0u);
            EXPECT_EQ(ring->writeOffset, write);
            // Usable to its full capacity afterwards.
            EXPECT_EQ(ring.Write(Counting(24)), std::pair(0u, 6));
            EXPECT_EQ(ring.Read(6), Counting(24));
        }
    }
}

TEST(CircularBufferRemove, DiscardsTheOldestElementsOfContentsThatDoNotWrap) {
    GuardedRing ring(4, 6);
    ring.StartAt(1);
    ring.Write(Counting(20));
    EXPECT_EQ(Remove(ring, 2), 3u);
    EXPECT_EQ(ring.Read(6), Counting(12, 9));
}

TEST(CircularBufferRemove, EmptiesTheRingWhenAskedForMuchMoreThanIsStored) {
    for (std::uint32_t slot = 0; slot <= 6; ++slot) {
        for (int asked : {12, 13, 100, kMaxInt}) {
            GuardedRing ring(4, 6);
            ring.StartAt(slot);
            ring.Write(Counting(16));
            const std::uint32_t write = ring->writeOffset;
            EXPECT_EQ(Remove(ring, asked), 0u);
            EXPECT_EQ(ring->readOffset, write);
        }
    }
}

TEST(CircularBufferRemove, LeavesElementsWhenAskedForALittleMoreThanIsStored) {
    // From slot 1 six elements too many pass the end of slots 0 to 6 and come to lie in slot 1.
    GuardedRing ring(4, 6);
    ring.StartAt(1);
    ring.Write(Counting(16));
    EXPECT_EQ(Remove(ring, 6), 4u);
    EXPECT_EQ(ring.ReadSlot(), 1u);
}

TEST(CircularBufferRemove, EmptiesWrappedContentsByAnyRemovalThatDoesNotPassTheEnd) {
    for (int asked : {0, 1, 2}) {
        GuardedRing ring(4, 6);
        ring.StartAt(4);
        ring.Write(Counting(20));
        ASSERT_EQ(ring.WriteSlot(), 2u);
        EXPECT_EQ(Remove(ring, asked), 0u) << asked;
        EXPECT_EQ(ring.ReadSlot(), 2u);
    }
}

TEST(CircularBufferRemove, KeepsOneElementTooFewOfWrappedContentsWhenItPassesTheEnd) {
    // Slots 0 to 6: the elements lie in 4, 5, 6, 0, 1 and 2.
    GuardedRing ring(4, 6);
    ring.StartAt(4);
    ring.Write(Counting(24));
    EXPECT_EQ(Remove(ring, 3), 2u);
    EXPECT_EQ(ring.Read(6), Counting(8, 17));
}

TEST(CircularBufferRemove, RemovesNothingOfContentsThatDoNotWrapForACountOfZero) {
    GuardedRing ring(4, 6);
    ring.Write(Counting(8));
    EXPECT_EQ(Remove(ring, 0), 2u);
}

TEST(CircularBufferRemove, MovesBackForANegativeCountButNotBeyondTheFirstSlot) {
    GuardedRing ring(4, 6);
    ring.Write(Counting(20));
    ring.Read(3);
    EXPECT_EQ(Remove(ring, -1), 3u);
    EXPECT_EQ(ring.Peek(0, 3), Counting(12, 9));
    EXPECT_EQ(Remove(ring, -5), 5u);
    EXPECT_EQ(ring.ReadSlot(), 0u);
    EXPECT_EQ(Remove(ring, kMinInt), 5u);
    EXPECT_EQ(ring.Read(6), Counting(20));
}

TEST(CircularBufferRemove, ReturnsTheStickyError) {
    GuardedRing ring(1, 2);
    ring.Write(Counting(3));
    int count = 1;
    EXPECT_EQ(cb_remove(ring, &count), 2u);
    EXPECT_EQ(count, 1);
    count = 1;
    EXPECT_EQ(cb_remove(ring, &count), 2u);
    count = 1;
    EXPECT_EQ(cb_remove(ring, &count), 2u);
    EXPECT_EQ(count, 0);
}

} // namespace
