#include "MidiDriver/worker/circular_buffer/circular_buffer.h"
#include "tests/unit/MidiDriver/worker/circular_buffer/GuardedRing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Outcome = std::pair<unsigned int, int>;

constexpr int kMaxInt = std::numeric_limits<int>::max();
constexpr int kMinInt = std::numeric_limits<int>::min();

// What these tests check is the same with a copy function and without one.
class CircularBufferWrite : public testing::TestWithParam<bool> {
protected:
    void UseCopyFunc(GuardedRing& ring) const {
        cb_set_copy_func(ring, GetParam() ? CopyCalls::Copy : nullptr);
    }

    CopyCalls mCalls;
};

INSTANTIATE_TEST_SUITE_P(WithAndWithoutCopyFunc, CircularBufferWrite, testing::Bool(),
                         [](const auto& copies) { return copies.param ? "With" : "Without"; });

TEST_P(CircularBufferWrite, AcceptsExactlyAsManyElementsAsItsCapacityOneByOne) {
    for (std::uint32_t numElems : {1u, 2u, 7u, 100u}) {
        for (std::uint32_t slot = 0; slot <= numElems; ++slot) {
            GuardedRing ring(1, numElems);
            UseCopyFunc(ring);
            ring.StartAt(slot);
            for (std::uint32_t i = 0; i < numElems; ++i) {
                EXPECT_EQ(cb_is_full(ring), 0u);
                EXPECT_EQ(cb_get_num_elem_used(ring), i);
                EXPECT_EQ(ring.Write(Counting(1)), Outcome(0, 1));
            }
            EXPECT_EQ(cb_is_full(ring), 1u);
            EXPECT_EQ(cb_get_num_elem_used(ring), numElems);
            EXPECT_EQ(ring.Write(Counting(1)), Outcome(2, 0));
            EXPECT_EQ(ring->firstError, 2);
            EXPECT_EQ(ring->lastError, 2);
        }
    }
}

TEST_P(CircularBufferWrite, RefusesWriteWhenFullWithoutRecordingIfToldSo) {
    GuardedRing ring(1, 2);
    UseCopyFunc(ring);
    cb_set_flags(ring, kCBNoOverflowError);
    ring.Write(Counting(2));
    EXPECT_EQ(ring.Write(Counting(1)), Outcome(0, 0));
    EXPECT_EQ(ring.Write(Counting(100)), Outcome(0, 0));
    EXPECT_EQ(ring->firstError, 0);
    EXPECT_EQ(ring->lastError, 0);
}

TEST_P(CircularBufferWrite, ReturnsThePreviousErrorWhenFullIfToldNotToRecord) {
    GuardedRing ring(1, 2);
    UseCopyFunc(ring);
    ring.Write(Counting(2));
    unsigned char byte = 0;
    int count = 1;
    EXPECT_EQ(cb_peek(ring, 3, &byte, &count), 3u);
    cb_set_flags(ring, kCBNoOverflowError);
    EXPECT_EQ(ring.Write(Counting(1)), Outcome(3, 0));
    EXPECT_EQ(ring->lastError, 3);
}

TEST_P(CircularBufferWrite, StaysInErrorThroughSuccessesUntilCleared) {
    GuardedRing ring(1, 2);
    UseCopyFunc(ring);
    ring.Write(Counting(2));
    EXPECT_EQ(ring.Write(Counting(1)), Outcome(2, 0));
    EXPECT_EQ(ring.Read(2, 2), Counting(2));
    EXPECT_EQ(ring.Write(Counting(1)), Outcome(2, 1));
    int count = 1;
    EXPECT_EQ(cb_remove(ring, &count), 2u);
    EXPECT_EQ(cb_remove(ring, &count), 2u);
    EXPECT_EQ(cb_clear_errors(ring), 2u);
    EXPECT_EQ(cb_clear_errors(ring), 0u);
    EXPECT_EQ(ring.Write(Counting(1)), Outcome(0, 1));
}

TEST_P(CircularBufferWrite, KeepsTheFirstAndTheLastOfDifferentErrors) {
    GuardedRing ring(1, 2);
    UseCopyFunc(ring);
    ring.Write(Counting(2));
    ring.Write(Counting(1));
    unsigned char byte = 0;
    int count = 1;
    EXPECT_EQ(cb_peek(ring, 3, &byte, &count), 3u);
    EXPECT_EQ(ring->firstError, 2);
    EXPECT_EQ(ring->lastError, 3);
    EXPECT_EQ(ring.Read(1, 3), Counting(1));
    EXPECT_EQ(cb_clear_errors(ring), 2u);
    EXPECT_EQ(ring->lastError, 0);
}

TEST_P(CircularBufferWrite, StoresNothingForZeroOrNegativeCounts) {
    GuardedRing ring(1000, 4);
    UseCopyFunc(ring);
    for (int offered : {0, -1, -100, kMinInt}) {
        int count = offered;
        EXPECT_EQ(cb_write(ring, nullptr, &count), 0u);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(cb_get_num_elem_used(ring), 0u);
    }
    EXPECT_THAT(mCalls.All(), IsEmpty());
}

TEST_P(CircularBufferWrite, RecordsOverflowWhenFullEvenForZeroOrNegativeCounts) {
    for (int offered : {0, -1, kMinInt}) {
        GuardedRing ring(1, 1);
        UseCopyFunc(ring);
        ring.Write(Counting(1));
        int count = offered;
        EXPECT_EQ(cb_write(ring, nullptr, &count), 2u);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(ring->firstError, 2);
    }
}

TEST_P(CircularBufferWrite, FillsTheRingExactlyWithoutAnError) {
    for (std::uint32_t elemSize : {1u, 3u, 4u, 40u}) {
        for (std::uint32_t slot = 0; slot <= 9; ++slot) {
            GuardedRing ring(elemSize, 9);
            UseCopyFunc(ring);
            ring.StartAt(slot);
            const Bytes bytes = Counting(9 * elemSize);
            EXPECT_EQ(ring.Write(bytes), Outcome(0, 9));
            EXPECT_EQ(cb_is_full(ring), 1u);
            EXPECT_EQ(ring.Read(10), bytes);
        }
    }
}

TEST_P(CircularBufferWrite, KeepsTheBytesOfWritesAndReadsOfEachLengthAtEachOffset) {
    constexpr std::uint32_t kElements = 70;
    for (std::uint32_t elemSize : {1u, 3u, 12u}) {
        for (std::uint32_t slot = 0; slot <= kElements; ++slot) {
            for (std::uint32_t length = 1; length <= kElements; length += elemSize) {
                GuardedRing ring(elemSize, kElements);
                UseCopyFunc(ring);
                ring.StartAt(slot);
                const Bytes bytes = Counting(length * elemSize);
                ASSERT_EQ(ring.Write(bytes), Outcome(0, static_cast<int>(length)));
                ASSERT_EQ(cb_get_num_elem_used(ring), length);
                ASSERT_EQ(ring.Peek(0, kElements), bytes);
                ASSERT_EQ(ring.Read(static_cast<int>(length)), bytes);
                ASSERT_EQ(cb_get_num_elem_used(ring), 0u);
                ASSERT_EQ(ring.ReadSlot(), (slot + length) % (kElements + 1));
            }
        }
    }
}

TEST_P(CircularBufferWrite, ReadsNoMoreOfTheSourceThanFits) {
    for (std::uint32_t elemSize : {1u, 8u, 1000u}) {
        GuardedRing ring(elemSize, 50);
        UseCopyFunc(ring);
        ring.StartAt(20);
        // Behind these bytes the address sanitizer watches.
        const Bytes bytes = Counting(50 * elemSize);
        int count = kMaxInt;
        EXPECT_EQ(cb_write(ring, bytes.data(), &count), 2u);
        EXPECT_EQ(count, 50);
        EXPECT_EQ(ring.Read(50, 2), bytes);
    }
}

// The element path: no copy function, or up to 32 bytes.

TEST(CircularBufferElementPath, StoresWhatFitsAndRecordsTheOverflow) {
    for (std::uint32_t slot = 0; slot <= 5; ++slot) {
        GuardedRing ring(2, 5);
        ring.StartAt(slot);
        ring.Write(Counting(4));
        EXPECT_EQ(ring.Write(Counting(100, 5)), Outcome(2, 3));
        EXPECT_EQ(cb_is_full(ring), 1u);
        EXPECT_EQ(ring.Read(5, 2), Counting(10));
    }
}

TEST(CircularBufferElementPath, StoresWhatFitsWithoutRecordingIfToldSo) {
    GuardedRing ring(2, 5);
    cb_set_flags(ring, kCBNoOverflowError);
    EXPECT_EQ(ring.Write(Counting(100)), Outcome(0, 5));
    EXPECT_EQ(ring->firstError, 0);
    EXPECT_EQ(ring.Read(5), Counting(10));
}

TEST(CircularBufferElementPath, RecordsAnOverflowFromTheStartOnwardsUnlikeTheBlockPath) {
    GuardedRing ring(1, 64);
    EXPECT_EQ(ring.Write(Counting(65)), Outcome(2, 64));
}

TEST(CircularBufferElementPath, LeavesTheCopyFunctionAloneUpTo32Bytes) {
    for (std::uint32_t elemSize : {1u, 4u, 16u, 32u}) {
        CopyCalls calls;
        GuardedRing ring(elemSize, 100);
        cb_set_copy_func(ring, CopyCalls::Copy);
        EXPECT_EQ(ring.Write(Counting(32)), Outcome(0, static_cast<int>(32 / elemSize)));
        EXPECT_THAT(calls.All(), IsEmpty());
        EXPECT_EQ(ring.Read(32), Counting(32));
    }
}

TEST(CircularBufferElementPath, RecordsOverflowOfASmallWriteDespiteTheCopyFunction) {
    GuardedRing ring(1, 20);
    cb_set_copy_func(ring, CopyCalls::Copy);
    EXPECT_EQ(ring.Write(Counting(32)), Outcome(2, 20));
}

// The block path: more than 32 bytes with a copy function.

class CircularBufferBlockPath : public testing::Test {
protected:
    void UseCopyFunc(GuardedRing& ring) { cb_set_copy_func(ring, CopyCalls::Copy); }

    CopyCalls mCalls;
};

TEST_F(CircularBufferBlockPath, CopiesAContiguousWriteOf33BytesAtOnce) {
    GuardedRing ring(1, 100);
    UseCopyFunc(ring);
    ring.StartAt(5);
    const Bytes bytes = Counting(33);
    EXPECT_EQ(ring.Write(bytes), Outcome(0, 33));
    EXPECT_THAT(mCalls.All(), ElementsAre(CopyCalls::Call{ring.Data() + 5, bytes.data(), 33}));
}

TEST_F(CircularBufferBlockPath, CopiesAWrappingWriteInTwoRuns) {
    GuardedRing ring(4, 20);
    UseCopyFunc(ring);
    ring.StartAt(15);
    const Bytes bytes = Counting(40);
    EXPECT_EQ(ring.Write(bytes), Outcome(0, 10));
    EXPECT_THAT(mCalls.All(), ElementsAre(CopyCalls::Call{ring.Data() + 60, bytes.data(), 24},
                                          CopyCalls::Call{ring.Data(), bytes.data() + 24, 16}));
    EXPECT_EQ(ring.WriteSlot(), 4u);
}

TEST_F(CircularBufferBlockPath, WrapsToTheStartAfterARunUpToTheEnd) {
    GuardedRing ring(1, 99);
    UseCopyFunc(ring);
    ring.StartAt(60);
    EXPECT_EQ(ring.Write(Counting(40)), Outcome(0, 40));
    EXPECT_THAT(mCalls.All(), SizeIs(1));
    EXPECT_EQ(ring.WriteSlot(), 0u);
}

TEST_F(CircularBufferBlockPath, FillsFromTheStartShortWithoutRecordingAnOverflow) {
    GuardedRing ring(1, 64);
    UseCopyFunc(ring);
    const Bytes bytes = Counting(100);
    EXPECT_EQ(ring.Write(bytes), Outcome(0, 64));
    EXPECT_EQ(ring->firstError, 0);
    EXPECT_EQ(cb_is_full(ring), 1u);
    EXPECT_THAT(mCalls.All(), ElementsAre(CopyCalls::Call{ring.Data(), bytes.data(), 64}));
    EXPECT_EQ(ring.Read(65), Counting(64));
}

TEST_F(CircularBufferBlockPath, FillsUpToAReadPositionAtTheStartWithoutRecordingAnOverflow) {
    GuardedRing ring(1, 64);
    UseCopyFunc(ring);
    ring.Write(Counting(30));
    EXPECT_EQ(ring.Write(Counting(35, 31)), Outcome(0, 34));
    EXPECT_EQ(ring->lastError, 0);
    EXPECT_EQ(ring.Read(64), Counting(64));
}

TEST_F(CircularBufferBlockPath, ReturnsTheLastErrorAfterAShortFill) {
    GuardedRing ring(1, 64);
    UseCopyFunc(ring);
    ring.Write(Counting(1));
    Bytes out(1);
    int count = 1;
    EXPECT_EQ(cb_peek(ring, 2, out.data(), &count), 3u);
    EXPECT_EQ(ring.Write(Counting(100)), Outcome(3, 63));
}

TEST_F(CircularBufferBlockPath, RecordsAnOverflowOfTheSecondRun) {
    GuardedRing ring(1, 64);
    UseCopyFunc(ring);
    ring.StartAt(10);
    const Bytes bytes = Counting(100);
    EXPECT_EQ(ring.Write(bytes), Outcome(2, 64));
    EXPECT_THAT(mCalls.All(), ElementsAre(CopyCalls::Call{ring.Data() + 10, bytes.data(), 55},
                                          CopyCalls::Call{ring.Data(), bytes.data() + 55, 9}));
    EXPECT_EQ(ring.Read(64, 2), Counting(64));
}

TEST_F(CircularBufferBlockPath, RecordsNoOverflowOfTheSecondRunIfToldSo) {
    GuardedRing ring(1, 64);
    UseCopyFunc(ring);
    cb_set_flags(ring, kCBNoOverflowError);
    ring.StartAt(10);
    EXPECT_EQ(ring.Write(Counting(100)), Outcome(0, 64));
    EXPECT_EQ(ring->firstError, 0);
}

TEST_F(CircularBufferBlockPath, RecordsAnOverflowWhenNothingIsLeftForTheSecondRun) {
    GuardedRing ring(1, 64);
    UseCopyFunc(ring);
    ring.StartAt(1);
    const Bytes bytes = Counting(100);
    EXPECT_EQ(ring.Write(bytes), Outcome(2, 64));
    EXPECT_THAT(mCalls.All(), ElementsAre(CopyCalls::Call{ring.Data() + 1, bytes.data(), 64}));
    EXPECT_EQ(cb_is_full(ring), 1u);
}

TEST_F(CircularBufferBlockPath, FillsTheGapBehindAReadPositionAheadInOneRun) {
    GuardedRing ring(1, 100);
    UseCopyFunc(ring);
    ring.StartAt(90);
    ring.Write(Counting(20));
    const Bytes bytes = Counting(100, 21);
    EXPECT_EQ(ring.Write(bytes), Outcome(2, 80));
    EXPECT_THAT(mCalls.All(), ElementsAre(CopyCalls::Call{ring.Data() + 9, bytes.data(), 80}));
    EXPECT_EQ(ring.Read(100, 2), Counting(100));
}

TEST_F(CircularBufferBlockPath, FillsTheGapExactlyWithoutAnError) {
    GuardedRing ring(1, 100);
    UseCopyFunc(ring);
    ring.StartAt(90);
    ring.Write(Counting(20));
    EXPECT_EQ(ring.Write(Counting(80, 21)), Outcome(0, 80));
    EXPECT_EQ(cb_is_full(ring), 1u);
}

} // namespace
