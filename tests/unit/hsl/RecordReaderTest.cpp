#include "hsl/RecordReader.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace HSL {
namespace {

constexpr int kCapacity = 16;

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
