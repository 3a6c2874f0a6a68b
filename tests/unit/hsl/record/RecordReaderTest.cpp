#include "hsl/record/RecordReader.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace HSL {
namespace {

constexpr int kCapacity = 16;
constexpr std::size_t kSlots = kCapacity + 1;

class RecordReaderTest : public testing::Test {
protected:
    // Stores so many bytes that count up from 1, the first of them in slot `read`.
    void Prepare(int read, int size) {
        std::vector<unsigned char> bytes(kCapacity);
        int count = read;
        mBuffer.Write(bytes.data(), count);
        mBuffer.Read(bytes.data(), count);
        Store(1, size);
    }
    void Store(int first, int size) {
        std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
        std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(first));
        mBuffer.Write(bytes.data(), size);
    }
    // What lies in all slots, the free ones too.
    std::vector<unsigned char> Slots() const {
        const _t_circular_buffer* const ring = mBuffer.GetRing();
        const auto* const block = reinterpret_cast<const unsigned char*>(ring);
        return {block + ring->startOffset, block + ring->lastSlotOffset + 1};
    }
    unsigned int Used() const { return cb_get_num_elem_used(mBuffer.GetRing()); }

    CCircularBuffer mBuffer{1, kCapacity, CCircularBuffer::MallocFunc, CCircularBuffer::FreeFunc,
                            CCircularBuffer::CopyFunc};
};

TEST_F(RecordReaderTest, ReadsFieldsFromEveryPositionAndReleasesThem) {
    for (int start = 0; start < 100; ++start) {
        Prepare(start % kCapacity, 15);
        CRecordReader reader(mBuffer);
        std::vector<unsigned char> bytes(7);
        bytes[0] = reader.Get<unsigned char>();
        const auto number = reader.Get<std::uint16_t>();
        std::memcpy(&bytes[1], &number, sizeof number);
        reader.GetBytes(&bytes[3], 4);
        EXPECT_EQ(bytes, (std::vector<unsigned char>{1, 2, 3, 4, 5, 6, 7}));
        unsigned char scratch[8];
        const unsigned char* const rest = reader.GetInPlace(8, scratch);
        EXPECT_EQ(std::vector<unsigned char>(rest, rest + 8),
                  (std::vector<unsigned char>{8, 9, 10, 11, 12, 13, 14, 15}));
        EXPECT_EQ(reader.Unreleased(), 15u);
        EXPECT_EQ(Used(), 15u) << "still the reader's";
        reader.Release();
        EXPECT_EQ(reader.Unreleased(), 0u);
        EXPECT_EQ(Used(), 0u);
    }
}

TEST_F(RecordReaderTest, GivesTheRoomBackAsZerosAndLeavesAllElse) {
    // Every round starts a little further on, so that the contents wrap in some.
    for (std::size_t round = 0; round < 2 * kSlots; ++round) {
        std::vector<unsigned char> bytes(kCapacity);
        Prepare(1, 10);
        const std::vector<unsigned char> before = Slots();
        const std::size_t first = mBuffer.GetRing()->readOffset - mBuffer.GetRing()->startOffset;
        CRecordReader reader(mBuffer);
        reader.GetBytes(bytes.data(), 6);
        EXPECT_EQ(Slots(), before) << "still the reader's";
        reader.Release();
        std::vector<unsigned char> expected = before;
        for (std::size_t i = 0; i < 6; ++i) {
            expected[(first + i) % kSlots] = 0;
        }
        EXPECT_EQ(Slots(), expected);
        reader.GetBytes(bytes.data(), 4);
        reader.Release();
        EXPECT_EQ(Used(), 0u);
    }
}

TEST_F(RecordReaderTest, WhatIsMissingReadsAsZeros) {
    Prepare(14, 3);
    CRecordReader reader(mBuffer);
    unsigned char bytes[5] = {9, 9, 9, 9, 9};
    reader.GetBytes(bytes, 5);
    EXPECT_EQ(std::vector<unsigned char>(bytes, bytes + 5),
              (std::vector<unsigned char>{1, 2, 3, 0, 0}));
    EXPECT_EQ(reader.Get<std::uint32_t>(), 0u);
    reader.Release();
    EXPECT_EQ(Used(), 0u);
}

TEST_F(RecordReaderTest, FindsWhatIsStoredAfterItWasMade) {
    Prepare(10, 2);
    CRecordReader reader(mBuffer);
    EXPECT_EQ(reader.Get<unsigned char>(), 1);
    Store(3, 8);
    for (int i = 2; i <= 10; ++i) {
        EXPECT_EQ(reader.Get<unsigned char>(), i);
    }
    reader.Release();
    Store(1, kCapacity);
    EXPECT_EQ(Used(), static_cast<unsigned int>(kCapacity)) << "the ring is as before";
}

TEST_F(RecordReaderTest, WithoutARingAllIsZeros) {
    CCircularBuffer none;
    CRecordReader reader(none);
    EXPECT_EQ(reader.Get<std::uint64_t>(), 0u);
    EXPECT_EQ(reader.Unreleased(), 0u);
    reader.Release();
}

} // namespace
} // namespace HSL
