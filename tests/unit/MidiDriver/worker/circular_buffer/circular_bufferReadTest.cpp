#include "MidiDriver/worker/circular_buffer/circular_buffer.h"
#include "tests/unit/MidiDriver/worker/circular_buffer/GuardedRing.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <utility>

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

Bytes Joined(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

TEST(CircularBufferRead, WrapsAnIndexedStartToAsFarBeforeTheFirstSlotAsItLayBeyondTheLast) {
    GuardedRing ring(3, 8);
    Fill(ring, 7);
    // One slot before the first, which is the end of the control block, and then the two elements
    // from slot 0 on.
    const Bytes stored = Counting(6, 7);
    const Bytes expected = Joined(ring.AheadOfFirstSlot(-1), stored);
    EXPECT_EQ(ring.Peek(2, 9), expected);
    EXPECT_EQ(ring.Peek(2, 2), Bytes(expected.begin(), expected.begin() + 6));
    EXPECT_EQ(ring.Peek(2, 1), ring.AheadOfFirstSlot(-1));
    // Two slots before the first, and as many as are stored may be passed over.
    EXPECT_EQ(ring.Peek(3, 9), Joined(ring.AheadOfFirstSlot(-2), stored));
    EXPECT_EQ(ring.Peek(4, 9), Joined(ring.AheadOfFirstSlot(-3), stored));
    EXPECT_EQ(ring->firstError, 0);
}

TEST(CircularBufferRead, ReadsTheControlBlockAsItIsAndZerosBeforeTheBlock) {
    GuardedRing ring(40, 8);
    cb_set_flags(ring, kCBNoOverflowError);
    Fill(ring, 7);
    const auto* const block = reinterpret_cast<const unsigned char*>(ring.Get());
    Bytes expected(80 - kCBHeaderSize, 0);
    expected.insert(expected.end(), block, block + kCBHeaderSize);
    // Three fields at places that are the same everywhere, so that this is what it seems to be.
    ASSERT_EQ(expected[80 - kCBHeaderSize + offsetof(_t_circular_buffer, flags)], 2);
    ASSERT_EQ(std::memcmp(expected.data() + 80 - kCBHeaderSize, &ring->elemSize, 4), 0);
    ASSERT_EQ(std::memcmp(expected.data() + 80 - kCBHeaderSize + 20, &ring->writeOffset, 4), 0);
    EXPECT_EQ(ring.Peek(3, 2), expected);
    const Bytes all = Counting(160);
    EXPECT_EQ(ring.Peek(3, 9), Joined(expected, Bytes(all.begin() + 80, all.end())));
}

TEST(CircularBufferRead, TouchesNothingBeforeTheBlock) {
    // The start position lies before the whole block here.
    GuardedRing ring(200, 8);
    Fill(ring, 7);
    const Bytes ahead = ring.AheadOfFirstSlot(-2);
    EXPECT_EQ(Bytes(ahead.begin(), ahead.end() - kCBHeaderSize), Bytes(400 - kCBHeaderSize, 0));
    const Bytes elements = Counting(800);
    EXPECT_EQ(ring.Peek(3, 9), Joined(ahead, Bytes(elements.begin() + 400, elements.end())));
}

TEST(CircularBufferRead, LeavesTheReadPositionWhereAWrappedReadStopped) {
    for (const std::uint32_t elemSize : {1u, 3u, 40u, 200u}) {
        for (int asked = 0; asked <= 6; ++asked) {
            SCOPED_TRACE(testing::Message() << elemSize << " bytes, " << asked << " asked for");
            GuardedRing ring(elemSize, 8);
            Fill(ring, 7);
            Bytes out(6 * elemSize);
            int count = asked;
            EXPECT_EQ(cb_read_ex(ring, 3, out.data(), &count, kCBConsume), 0u);
            EXPECT_EQ(count, std::min(asked, 4));
            const int left = 4 - count;
            EXPECT_EQ(ring->readOffset,
                      kCBHeaderSize - 2 * elemSize + static_cast<std::uint32_t>(count) * elemSize);
            EXPECT_EQ(cb_get_num_elem_used(ring), static_cast<unsigned int>(left));
            EXPECT_EQ(cb_is_full(ring), 0u);
            // The rest comes from where it stopped.
            Bytes rest = left > 2 ? ring.AheadOfFirstSlot(2 - left) : Bytes();
            const Bytes all = Counting(4 * elemSize);
            rest.insert(rest.end(), all.end() - std::min(left, 2) * static_cast<int>(elemSize),
                        all.end());
            EXPECT_EQ(ring.Peek(0, 9), rest);
            EXPECT_EQ(ring.Read(9), rest);
            EXPECT_EQ(ring.ReadSlot(), ring.WriteSlot());
        }
    }
}

// A ring of eight elements whose read position lies three slots ahead of the first one and whose
// write position is slot 2. Two positions are before the block for the large elements.
void PutAhead(GuardedRing& ring) {
    Fill(ring, 7);
    int count = 0;
    ASSERT_EQ(cb_read_ex(ring, 4, nullptr, &count, kCBConsume), 0u);
    ASSERT_EQ(ring.ReadSlot(), -3);
    ASSERT_EQ(ring.WriteSlot(), 2);
    ASSERT_EQ(cb_get_num_elem_used(ring), 5u);
}

class CircularBufferAhead : public testing::TestWithParam<std::uint32_t> {
protected:
    CircularBufferAhead() : mRing(GetParam(), 8) { PutAhead(mRing); }
    Bytes Elements(std::size_t count, unsigned char first = 50) const {
        return Counting(count * GetParam(), first);
    }

    GuardedRing mRing;
};

TEST_P(CircularBufferAhead, CountsItsIndexesFromThere) {
    const Bytes stored = mRing.Peek(3, 2);
    EXPECT_EQ(mRing.Peek(0, 9), Joined(mRing.AheadOfFirstSlot(-3), stored));
    EXPECT_EQ(mRing.Peek(2, 9), Joined(mRing.AheadOfFirstSlot(-1), stored));
    EXPECT_EQ(mRing.Peek(5, 9), Bytes());
    int count = 1;
    EXPECT_EQ(cb_peek(mRing, 6, nullptr, &count), 3u);
    EXPECT_EQ(count, 1);
}

TEST_P(CircularBufferAhead, IsNeverFullForAWriteInElements) {
    // Slots 2 to 8, 0 to 8, and 0 and 1 once more: 18 elements.
    EXPECT_EQ(mRing.Write(Elements(18)), std::pair(0u, 18));
    EXPECT_EQ(mRing.WriteSlot(), 2);
    EXPECT_EQ(cb_get_num_elem_used(mRing), 5u);
    const Bytes all = Elements(18);
    const Bytes last(all.end() - 2 * static_cast<int>(GetParam()), all.end());
    // Looked at before the read, which changes the control block.
    const Bytes expected = Joined(mRing.AheadOfFirstSlot(-3), last);
    EXPECT_EQ(mRing.Read(9), expected);
    EXPECT_EQ(cb_is_full(mRing), 0u);
}

TEST_P(CircularBufferAhead, EndsAWriteInBlocksAtTheEndWithoutAnError) {
    const CopyCalls calls;
    cb_set_copy_func(mRing, CopyCalls::Copy);
    const std::size_t offered = std::max<std::size_t>(18, 40 / GetParam());
    EXPECT_EQ(mRing.Write(Elements(offered)), std::pair(0u, 7));
    EXPECT_EQ(calls.All().size(), 1u);
    EXPECT_EQ(mRing.WriteSlot(), 0);
    EXPECT_EQ(cb_get_num_elem_used(mRing), 3u);
    const Bytes expected = mRing.AheadOfFirstSlot(-3);
    EXPECT_EQ(mRing.Read(9), expected);
}

TEST_P(CircularBufferAhead, RemovesFromThere) {
    for (const auto& [count, slot] : std::initializer_list<std::pair<int, int>>{
             {-1, -3}, {0, -3}, {1, -2}, {2, 0}, {1, 1}, {9, 2}}) {
        int removed = count;
        EXPECT_EQ(cb_remove(mRing, &removed), 0u);
        EXPECT_EQ(removed, count);
        EXPECT_EQ(mRing.ReadSlot(), slot);
    }
    EXPECT_EQ(cb_get_num_elem_used(mRing), 0u);
}

TEST_P(CircularBufferAhead, RemovingBeyondTheEndEndsAtTheWritePosition) {
    // Slot 14 lies behind the last one, which makes it slot 6, and that behind slot 2.
    int count = 17;
    EXPECT_EQ(cb_remove(mRing, &count), 0u);
    EXPECT_EQ(mRing.ReadSlot(), 2);
    EXPECT_EQ(mRing.Write(Elements(8)), std::pair(0u, 8));
    EXPECT_EQ(cb_is_full(mRing), 1u);
    EXPECT_EQ(mRing.Read(9), Elements(8));
}

INSTANTIATE_TEST_SUITE_P(InAndBeforeTheBlock, CircularBufferAhead,
                         testing::Values(1u, 3u, 12u, 40u, 100u));

TEST(CircularBufferRead, StoresTheNearestPositionThatCanBeWhereARingIsLarge) {
    if constexpr (sizeof(void*) == 4) {
        GTEST_SKIP() << "a ring of more than 2 GB does not fit this address space";
    } else {
        // Three slots of a gigabyte, none of which is touched.
        constexpr std::uint32_t kGigabyte = 1u << 30;
        const std::size_t size = cb_calc_buffer_size(kGigabyte, 2);
        void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        ASSERT_NE(memory, MAP_FAILED);
        auto* const ring = static_cast<_t_circular_buffer*>(memory);
        ASSERT_EQ(cb_initialize_with_buffer(ring, kGigabyte, 2), 0u);
        // As if slots 2 and 0 held elements. The index behind them wraps to two slots ahead of slot
        // 0, whose offset modulo 2^32 is slot 2's, and that of the next one is the block's end.
        ring->readOffset = kCBHeaderSize + 2 * kGigabyte;
        ring->writeOffset = kCBHeaderSize + kGigabyte;
        int count = 0;
        EXPECT_EQ(cb_read_ex(ring, 2, nullptr, &count, kCBConsume), 0u);
        EXPECT_EQ(ring->readOffset, kCBHeaderSize);
        EXPECT_EQ(cb_get_num_elem_used(ring), 1u);
        munmap(memory, size);
    }
}

} // namespace
