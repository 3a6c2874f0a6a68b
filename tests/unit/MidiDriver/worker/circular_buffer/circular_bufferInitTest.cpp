#include "MidiDriver/worker/circular_buffer/circular_buffer.h"
#include "tests/unit/MidiDriver/worker/circular_buffer/GuardedRing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t kMaxU32 = std::numeric_limits<std::uint32_t>::max();

std::vector<int> sAllocated;
std::vector<int> sFreed;

void* CountingMalloc(int size) {
    sAllocated.push_back(size);
    void* block = std::malloc(static_cast<std::size_t>(size));
    std::memset(block, 0xFF, static_cast<std::size_t>(size));
    return block;
}

void* FailingMalloc(int size) {
    sAllocated.push_back(size);
    return nullptr;
}

void CountingFree(void* block, int size) {
    sFreed.push_back(size);
    std::free(block);
}

template <typename T>
T FieldAt(const _t_circular_buffer* ring, std::size_t offset) {
    T field;
    std::memcpy(&field, reinterpret_cast<const unsigned char*>(ring) + offset, sizeof field);
    return field;
}

class CircularBufferInit : public testing::Test {
protected:
    void SetUp() override {
        sAllocated.clear();
        sFreed.clear();
    }
};

TEST_F(CircularBufferInit, TakesAHeaderOf48BytesOn32BitAnd64BytesOn64Bit) {
    EXPECT_EQ(kCBHeaderSize, sizeof(void*) == 4 ? 48u : 64u);
    EXPECT_EQ(cb_calc_buffer_size(0, 0), kCBHeaderSize);
}

TEST_F(CircularBufferInit, CalculatesRoomForOneElementMoreThanTheCapacity) {
    EXPECT_EQ(cb_calc_buffer_size(1, 524288), 524289 + kCBHeaderSize);
    EXPECT_EQ(cb_calc_buffer_size(12, 15770), 189252 + kCBHeaderSize);
    EXPECT_EQ(cb_calc_buffer_size(4, 0), 4 + kCBHeaderSize);
    EXPECT_EQ(cb_calc_buffer_size(1, kMaxU32 - kCBHeaderSize - 1), kMaxU32);
}

TEST_F(CircularBufferInit, CalculatesTheLargestSizeForWhatTakesMoreThan32Bits) {
    EXPECT_EQ(cb_calc_buffer_size(1, kMaxU32 - kCBHeaderSize), kMaxU32);
    EXPECT_EQ(cb_calc_buffer_size(1, kMaxU32), kMaxU32);
    EXPECT_EQ(cb_calc_buffer_size(0x10000, 0xFFFF), kMaxU32);
    EXPECT_EQ(cb_calc_buffer_size(kMaxU32, kMaxU32), kMaxU32);
    EXPECT_EQ(cb_calc_buffer_size(0, kMaxU32), kCBHeaderSize);
}

TEST_F(CircularBufferInit, AllocatesTheCalculatedSizeOnceAndStartsEmpty) {
    _t_circular_buffer* ring = nullptr;
    ASSERT_EQ(cb_initialize(&ring, 12, 5, CountingMalloc, CountingFree), 0u);
    ASSERT_NE(ring, nullptr);
    EXPECT_THAT(sAllocated, ElementsAre(static_cast<int>(cb_calc_buffer_size(12, 5))));
    EXPECT_EQ(ring->elemSize, 12u);
    EXPECT_EQ(ring->numElems, 5u);
    EXPECT_EQ(ring->startOffset, kCBHeaderSize);
    EXPECT_EQ(ring->lastSlotOffset, kCBHeaderSize + 60);
    EXPECT_EQ(ring->readOffset, kCBHeaderSize);
    EXPECT_EQ(ring->writeOffset, kCBHeaderSize);
    EXPECT_EQ(ring->mallocFunc, CountingMalloc);
    EXPECT_EQ(ring->freeFunc, CountingFree);
    EXPECT_EQ(ring->copyFunc, nullptr);
    EXPECT_EQ(ring->flags, kCBOwned);
    EXPECT_EQ(ring->firstError, 0);
    EXPECT_EQ(ring->lastError, 0);
    EXPECT_EQ(cb_get_num_elem_used(ring), 0u);
    EXPECT_EQ(cb_destroy(ring), 0u);
}

TEST_F(CircularBufferInit, KeepsTheFieldsInOrderAndInTheHostsByteOrder) {
    _t_circular_buffer* ring = nullptr;
    ASSERT_EQ(cb_initialize(&ring, 3, 7, CountingMalloc, CountingFree), 0u);
    cb_set_copy_func(ring, CopyCalls::Copy);
    cb_set_flags(ring, kCBNoOverflowError);
    const Bytes bytes = Counting(6);
    int count = 2;
    cb_write(ring, bytes.data(), &count);
    Bytes out(3);
    count = 1;
    cb_read(ring, out.data(), &count);
    cb_clear_flags(ring, kCBNoOverflowError);
    const Bytes tooMany(24);
    count = 8;
    EXPECT_EQ(cb_write(ring, tooMany.data(), &count), 2u);
    EXPECT_EQ(cb_peek(ring, 8, out.data(), &count), 3u);

    EXPECT_EQ(FieldAt<std::uint32_t>(ring, 0), 3u);
    EXPECT_EQ(FieldAt<std::uint32_t>(ring, 4), 7u);
    EXPECT_EQ(FieldAt<std::uint32_t>(ring, 8), kCBHeaderSize);
    EXPECT_EQ(FieldAt<std::uint32_t>(ring, 12), kCBHeaderSize + 21);
    EXPECT_EQ(FieldAt<std::uint32_t>(ring, 16), kCBHeaderSize + 3);
    EXPECT_EQ(FieldAt<std::uint32_t>(ring, 20), kCBHeaderSize);
    constexpr std::size_t kPointer = sizeof(void*);
    EXPECT_EQ(FieldAt<cb_malloc_func>(ring, 24), CountingMalloc);
    EXPECT_EQ(FieldAt<cb_free_func>(ring, 24 + kPointer), CountingFree);
    EXPECT_EQ(FieldAt<cb_copy_func>(ring, 24 + 2 * kPointer), CopyCalls::Copy);
    EXPECT_EQ(FieldAt<std::uint8_t>(ring, 24 + 3 * kPointer), kCBOwned);
    EXPECT_EQ(FieldAt<std::uint8_t>(ring, 25 + 3 * kPointer), 2);
    EXPECT_EQ(FieldAt<std::uint8_t>(ring, 26 + 3 * kPointer), 3);
    cb_destroy(ring);
}

TEST_F(CircularBufferInit, ReportsAFailedAllocationAndLeavesANullRing) {
    auto* ring = reinterpret_cast<_t_circular_buffer*>(&sAllocated);
    EXPECT_EQ(cb_initialize(&ring, 4, 10, FailingMalloc, CountingFree), 1u);
    EXPECT_EQ(ring, nullptr);
    EXPECT_THAT(sAllocated, ElementsAre(static_cast<int>(cb_calc_buffer_size(4, 10))));
    EXPECT_THAT(sFreed, IsEmpty());
}

TEST_F(CircularBufferInit, RefusesASizeThatTheAllocatorCannotBeTold) {
    constexpr std::uint32_t kMaxInt = std::numeric_limits<int>::max();
    const std::vector<std::pair<std::uint32_t, std::uint32_t>> shapes = {
        {1, kMaxInt - kCBHeaderSize},
        {1, kMaxU32},
        {0x10000, 0x8000},
        {0x10000, 0xFFFF},
        {kMaxU32, 1},
        {kMaxU32, kMaxU32},
        {0x10000, 0x10000},
        {2, 0x7FFFFFFF},
    };
    for (const auto& [elemSize, numElems] : shapes) {
        SCOPED_TRACE(testing::Message() << elemSize << " x " << numElems);
        auto* ring = reinterpret_cast<_t_circular_buffer*>(&sAllocated);
        EXPECT_EQ(cb_initialize(&ring, elemSize, numElems, CountingMalloc, CountingFree), 1u);
        EXPECT_EQ(ring, nullptr);
    }
    EXPECT_THAT(sAllocated, IsEmpty());

    // The largest size that fits is asked for.
    _t_circular_buffer* ring = nullptr;
    EXPECT_EQ(cb_initialize(&ring, 1, kMaxInt - kCBHeaderSize - 1, FailingMalloc, nullptr), 1u);
    EXPECT_THAT(sAllocated, ElementsAre(std::numeric_limits<int>::max()));
}

TEST_F(CircularBufferInit, RefusesToAllocateWithoutAnAllocator) {
    auto* ring = reinterpret_cast<_t_circular_buffer*>(&sAllocated);
    EXPECT_EQ(cb_initialize(&ring, 4, 10, nullptr, CountingFree), 1u);
    EXPECT_EQ(ring, nullptr);
}

TEST_F(CircularBufferInit, SetsUpTheCallersMemoryWithoutOwningIt) {
    GuardedRing ring(4, 3);
    EXPECT_EQ(ring->elemSize, 4u);
    EXPECT_EQ(ring->numElems, 3u);
    EXPECT_EQ(ring->startOffset, kCBHeaderSize);
    EXPECT_EQ(ring->lastSlotOffset, kCBHeaderSize + 12);
    EXPECT_EQ(ring->readOffset, kCBHeaderSize);
    EXPECT_EQ(ring->writeOffset, kCBHeaderSize);
    EXPECT_EQ(ring->mallocFunc, nullptr);
    EXPECT_EQ(ring->freeFunc, nullptr);
    EXPECT_EQ(ring->copyFunc, nullptr);
    EXPECT_EQ(ring->flags, 0);
    EXPECT_EQ(ring->firstError, 0);
    EXPECT_EQ(ring->lastError, 0);
}

TEST_F(CircularBufferInit, TouchesNothingButTheHeader) {
    GuardedRing ring(4, 3);
    EXPECT_EQ(Bytes(ring.Data(), ring.Data() + ring.DataSize()),
              Bytes(16, GuardedRing::kUnwritten));
}

TEST_F(CircularBufferInit, LeavesNoCapacityInTheCallersMemoryForASizeBeyond32Bits) {
    GuardedRing ring(1, 8);
    EXPECT_EQ(cb_initialize_with_buffer(ring, 0x10000, 0xFFFF), 1u);
    EXPECT_EQ(ring->numElems, 0u);
    EXPECT_EQ(ring->lastSlotOffset, 0u);
    const Bytes bytes = Counting(64);
    int count = 64;
    EXPECT_EQ(cb_write(ring, bytes.data(), &count), 2u);
    EXPECT_EQ(count, 0);
}

TEST_F(CircularBufferInit, MakesRingsWithoutCapacityOfNoElementsOrOfNoBytes) {
    for (const auto& [elemSize, numElems] : {std::pair{4u, 0u}, {0u, 4u}, {0u, 0u}}) {
        SCOPED_TRACE(testing::Message() << elemSize << " x " << numElems);
        GuardedRing ring(elemSize, numElems);
        cb_set_copy_func(ring, CopyCalls::Copy);
        EXPECT_EQ(cb_is_full(ring), 1u);
        EXPECT_EQ(cb_get_num_elem_used(ring), 0u);
        Bytes bytes = Counting(400);
        int count = 100;
        EXPECT_EQ(cb_write(ring, bytes.data(), &count), 2u);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(cb_clear_errors(ring), 2u);
        count = 100;
        EXPECT_EQ(cb_read(ring, bytes.data(), &count), 0u);
        EXPECT_EQ(count, 0);
        count = 100;
        EXPECT_EQ(cb_peek(ring, 1, bytes.data(), &count), 0u);
        EXPECT_EQ(count, 0);
        count = 100;
        EXPECT_EQ(cb_remove(ring, &count), 0u);
        EXPECT_EQ(count, 0);
    }
}

TEST_F(CircularBufferInit, YieldsFourForANullRingExceptThatItIsNotFull) {
    unsigned char byte = 7;
    int count = 9;
    EXPECT_EQ(cb_initialize(nullptr, 1, 1, CountingMalloc, CountingFree), 4u);
    EXPECT_EQ(cb_initialize_with_buffer(nullptr, 1, 1), 4u);
    EXPECT_EQ(cb_set_copy_func(nullptr, CopyCalls::Copy), 4u);
    EXPECT_EQ(cb_set_flags(nullptr, 1), 4u);
    EXPECT_EQ(cb_clear_flags(nullptr, 1), 4u);
    EXPECT_EQ(cb_get_flags(nullptr), 4u);
    EXPECT_EQ(cb_clear_errors(nullptr), 4u);
    EXPECT_EQ(cb_is_full(nullptr), 0u);
    EXPECT_EQ(cb_get_num_elem_used(nullptr), 4u);
    EXPECT_EQ(cb_write(nullptr, &byte, &count), 4u);
    EXPECT_EQ(cb_read(nullptr, &byte, &count), 4u);
    EXPECT_EQ(cb_read_ex(nullptr, 0, &byte, &count, kCBConsume), 4u);
    EXPECT_EQ(cb_peek(nullptr, 0, &byte, &count), 4u);
    EXPECT_EQ(cb_remove(nullptr, &count), 4u);
    EXPECT_EQ(cb_destroy(nullptr), 4u);
    EXPECT_EQ(count, 9);
    EXPECT_EQ(byte, 7);
    EXPECT_THAT(sAllocated, IsEmpty());
}

TEST_F(CircularBufferInit, SetsAndClearsSingleFlags) {
    GuardedRing ring(1, 1);
    EXPECT_EQ(cb_set_flags(ring, 0x06), 0u);
    EXPECT_EQ(cb_set_flags(ring, 0x80), 0u);
    EXPECT_EQ(cb_get_flags(ring), 0x86u);
    EXPECT_EQ(cb_clear_flags(ring, 0x05), 0u);
    EXPECT_EQ(cb_get_flags(ring), 0x82u);
    EXPECT_EQ(cb_clear_flags(ring, 0xFF), 0u);
    EXPECT_EQ(cb_get_flags(ring), 0u);
}

TEST_F(CircularBufferInit, StoresAndReplacesTheCopyFunction) {
    GuardedRing ring(1, 1);
    EXPECT_EQ(cb_set_copy_func(ring, CopyCalls::Copy), 0u);
    EXPECT_EQ(ring->copyFunc, CopyCalls::Copy);
    EXPECT_EQ(cb_set_copy_func(ring, nullptr), 0u);
    EXPECT_EQ(ring->copyFunc, nullptr);
}

TEST_F(CircularBufferInit, FreesAnOwnedBlockWithTheSizeThatWasAllocated) {
    _t_circular_buffer* ring = nullptr;
    ASSERT_EQ(cb_initialize(&ring, 12, 100, CountingMalloc, CountingFree), 0u);
    EXPECT_EQ(cb_destroy(ring), 0u);
    EXPECT_EQ(sFreed, sAllocated);
    EXPECT_EQ(sFreed.size(), 1u);
}

TEST_F(CircularBufferInit, FreesNothingOnceTheRingNoLongerOwnsItsBlock) {
    _t_circular_buffer* ring = nullptr;
    ASSERT_EQ(cb_initialize(&ring, 1, 1, CountingMalloc, CountingFree), 0u);
    cb_clear_flags(ring, kCBOwned);
    EXPECT_EQ(cb_destroy(ring), 0u);
    EXPECT_THAT(sFreed, IsEmpty());
    std::free(ring);
}

TEST_F(CircularBufferInit, FreesNothingWithoutADeallocator) {
    _t_circular_buffer* ring = nullptr;
    ASSERT_EQ(cb_initialize(&ring, 1, 1, CountingMalloc, nullptr), 0u);
    EXPECT_EQ(cb_destroy(ring), 0u);
    std::free(ring);

    GuardedRing callers(1, 1);
    cb_set_flags(callers, kCBOwned);
    EXPECT_EQ(cb_destroy(callers), 0u);
    EXPECT_THAT(sFreed, IsEmpty());
}

TEST_F(CircularBufferInit, ClearsTheHeaderOnDestructionAndThenHoldsNothing) {
    GuardedRing ring(2, 4);
    cb_set_copy_func(ring, CopyCalls::Copy);
    cb_set_flags(ring, 0xF2);
    ring.Write(Counting(4));
    EXPECT_EQ(cb_destroy(ring), 0u);
    const auto* header = reinterpret_cast<const unsigned char*>(ring.Get());
    EXPECT_EQ(Bytes(header, header + sizeof(_t_circular_buffer)),
              Bytes(sizeof(_t_circular_buffer), 0));

    unsigned char byte = 7;
    int count = 1;
    EXPECT_EQ(cb_write(ring, &byte, &count), 2u);
    EXPECT_EQ(count, 0);
    count = 1;
    EXPECT_EQ(cb_read(ring, &byte, &count), 2u);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(cb_get_num_elem_used(ring), 0u);
}

TEST_F(CircularBufferInit, WorksOnAtAnotherAddressOnceTheBlockIsMoved) {
    GuardedRing ring(3, 4);
    ring.StartAt(3);
    ring.Write(Counting(9));
    GuardedRing moved(3, 4);
    std::memcpy(moved.Get(), ring.Get(), cb_calc_buffer_size(3, 4));
    EXPECT_EQ(moved.Read(4), Counting(9));
}

} // namespace
