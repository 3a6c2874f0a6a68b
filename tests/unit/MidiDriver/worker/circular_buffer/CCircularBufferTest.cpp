#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>
#include <vector>

namespace {

static_assert(std::has_virtual_destructor_v<CCircularBuffer>);
static_assert(sizeof(CCircularBuffer) == 2 * sizeof(void*));
static_assert(!std::is_copy_constructible_v<CCircularBuffer>);

int sFrees = 0;
int sCopies = 0;
int sFreedSize = 0;

void CountingFree(void* block, int size) {
    ++sFrees;
    sFreedSize = size;
    CCircularBuffer::FreeFunc(block, size);
}

void* CountingCopy(void* destination, const void* source, unsigned long size) {
    ++sCopies;
    return CCircularBuffer::CopyFunc(destination, source, size);
}

void* NoMemory(int) {
    return nullptr;
}

void ExpectFourFromEverything(CCircularBuffer& buffer) {
    unsigned char byte = 7;
    int count = 9;
    EXPECT_EQ(buffer.Write(&byte, count), 4u);
    EXPECT_EQ(buffer.Read(&byte, count), 4u);
    EXPECT_EQ(buffer.Peek(0, &byte, count), 4u);
    EXPECT_EQ(buffer.Remove(count), 4u);
    EXPECT_EQ(buffer.GetFirstError(), 4u);
    EXPECT_EQ(buffer.GetLastError(), 4u);
    EXPECT_EQ(buffer.ClearErrors(), 4u);
    EXPECT_EQ(buffer.GetFlags(), 4u);
    EXPECT_EQ(buffer.SetFlags(kCBNoOverflowError), 4u);
    EXPECT_EQ(buffer.ClearFlags(kCBNoOverflowError), 4u);
    EXPECT_EQ(buffer.SetCopyFunc(CountingCopy), 4u);
    EXPECT_EQ(buffer.GetRing(), nullptr);
    EXPECT_EQ(count, 9);
    EXPECT_EQ(byte, 7);
}

class CCircularBufferTest : public testing::Test {
protected:
    void SetUp() override { sFrees = sCopies = sFreedSize = 0; }

    CCircularBuffer mBuffer{1, 64, CCircularBuffer::MallocFunc, CountingFree, CountingCopy};
    std::vector<unsigned char> mBytes = std::vector<unsigned char>(100, 0x5A);
};

TEST_F(CCircularBufferTest, ReturnsFourFromEverythingWithoutARing) {
    CCircularBuffer none;
    ExpectFourFromEverything(none);
}

TEST_F(CCircularBufferTest, IsLeftWithoutARingByAFailedAllocation) {
    {
        CCircularBuffer none(1, 64, NoMemory, CountingFree, CountingCopy);
        ExpectFourFromEverything(none);
    }
    EXPECT_EQ(sFrees, 0);
}

TEST_F(CCircularBufferTest, BuildsTheRingAsAsked) {
    ASSERT_NE(mBuffer.GetRing(), nullptr);
    EXPECT_EQ(mBuffer.GetRing()->elemSize, 1u);
    EXPECT_EQ(mBuffer.GetRing()->numElems, 64u);
    EXPECT_EQ(mBuffer.GetRing()->mallocFunc, CCircularBuffer::MallocFunc);
    EXPECT_EQ(mBuffer.GetRing()->freeFunc, CountingFree);
    EXPECT_EQ(mBuffer.GetRing()->copyFunc, CountingCopy);
    EXPECT_EQ(mBuffer.GetFlags(), kCBOwned);
}

TEST_F(CCircularBufferTest, WritesReadsPeeksAndRemoves) {
    mBytes[1] = 1;
    int count = 5;
    EXPECT_EQ(mBuffer.Write(mBytes.data(), count), 0u);
    EXPECT_EQ(count, 5);
    unsigned char out[2] = {};
    count = 2;
    EXPECT_EQ(mBuffer.Peek(1, out, count), 0u);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[1], 0x5A);
    count = 2;
    EXPECT_EQ(mBuffer.Read(out, count), 0u);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(out[0], 0x5A);
    EXPECT_EQ(out[1], 1);
    EXPECT_EQ(cb_get_num_elem_used(mBuffer.GetRing()), 3u);
    count = 2;
    EXPECT_EQ(mBuffer.Remove(count), 0u);
    EXPECT_EQ(cb_get_num_elem_used(mBuffer.GetRing()), 1u);
}

TEST_F(CCircularBufferTest, ReportsTheStickyErrors) {
    int count = 65;
    mBuffer.SetCopyFunc(nullptr);
    EXPECT_EQ(mBuffer.Write(mBytes.data(), count), 2u);
    EXPECT_EQ(count, 64);
    count = 1;
    EXPECT_EQ(mBuffer.Peek(65, mBytes.data(), count), 3u);
    EXPECT_EQ(mBuffer.GetFirstError(), 2u);
    EXPECT_EQ(mBuffer.GetLastError(), 3u);
    EXPECT_EQ(mBuffer.ClearErrors(), 2u);
    EXPECT_EQ(mBuffer.GetFirstError(), 0u);
    EXPECT_EQ(mBuffer.GetLastError(), 0u);
}

TEST_F(CCircularBufferTest, SetsAndClearsFlags) {
    EXPECT_EQ(mBuffer.SetFlags(kCBNoOverflowError), 0u);
    EXPECT_EQ(mBuffer.GetFlags(), 0x03u);
    EXPECT_EQ(mBuffer.ClearFlags(kCBOwned), 0u);
    EXPECT_EQ(mBuffer.GetFlags(), 0x02u);
    mBuffer.SetFlags(kCBOwned);
}

TEST_F(CCircularBufferTest, CopiesLargeWritesWithTheCopyFunction) {
    int count = 33;
    mBuffer.Write(mBytes.data(), count);
    EXPECT_EQ(sCopies, 1);
    mBuffer.Read(mBytes.data(), count);
    EXPECT_EQ(mBuffer.SetCopyFunc(nullptr), 0u);
    mBuffer.Write(mBytes.data(), count);
    EXPECT_EQ(sCopies, 1);
}

TEST_F(CCircularBufferTest, DestroysTheRing) {
    auto buffer = std::make_unique<CCircularBuffer>(4, 10, CCircularBuffer::MallocFunc,
                                                    CountingFree, CCircularBuffer::CopyFunc);
    buffer.reset();
    EXPECT_EQ(sFrees, 1);
    EXPECT_EQ(sFreedSize, static_cast<int>(cb_calc_buffer_size(4, 10)));
}

TEST_F(CCircularBufferTest, OffersMallocFreeAndMemcpy) {
    void* block = CCircularBuffer::MallocFunc(100);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(CCircularBuffer::CopyFunc(block, mBytes.data(), 100), block);
    EXPECT_EQ(
        std::vector(static_cast<unsigned char*>(block), static_cast<unsigned char*>(block) + 100),
        mBytes);
    CCircularBuffer::FreeFunc(block, 0);
    CCircularBuffer::FreeFunc(nullptr, 100);
    EXPECT_EQ(CCircularBuffer::MallocFunc(-1), nullptr);
}

} // namespace
