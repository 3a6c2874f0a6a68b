#include "MidiDriver/worker/circular_buffer/InPlaceRoom.h"

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

constexpr int kCapacity = 12;

class InPlaceRoomTest : public testing::Test {
protected:
    // A ring whose oldest byte lies in slot `read` and that stores `used` bytes.
    static void Prepare(CCircularBuffer& buffer, int read, int used) {
        std::vector<unsigned char> bytes(kCapacity, 0xEE);
        int count = read;
        buffer.Write(bytes.data(), count);
        buffer.Read(bytes.data(), count);
        count = used;
        buffer.Write(bytes.data(), count);
        ASSERT_EQ(count, used);
    }
};

TEST_F(InPlaceRoomTest, KnowsTheUsedBytesAndTheRunAtEveryPosition) {
    for (int read = 0; read < kCapacity; ++read) {
        for (int used = 0; used <= kCapacity; ++used) {
            CCircularBuffer buffer(1, kCapacity, CCircularBuffer::MallocFunc,
                                   CCircularBuffer::FreeFunc, CCircularBuffer::CopyFunc);
            Prepare(buffer, read, used);
            const CInPlaceRoom room(*buffer.GetRing());
            EXPECT_EQ(room.Used(), static_cast<unsigned int>(used));
            // There is one slot more than may be filled.
            const int write = (read + used) % (kCapacity + 1);
            const int free = kCapacity - used;
            const int toTheEnd = kCapacity + 1 - write;
            EXPECT_EQ(room.Run(), static_cast<unsigned int>(std::min(free, toTheEnd)))
                << read << " " << used;
            EXPECT_EQ(room.Start(), reinterpret_cast<unsigned char*>(buffer.GetRing()) +
                                        buffer.GetRing()->startOffset + write);
        }
    }
}

TEST_F(InPlaceRoomTest, HasRoomToTheEndWithTheReadPositionAheadOfTheFirstSlot) {
    constexpr int kLarge = 200; // positions ahead of the block, too
    for (const unsigned int ahead : {1u, 40u, 60u, 70u, 150u}) {
        CCircularBuffer buffer(1, kLarge, CCircularBuffer::MallocFunc, CCircularBuffer::FreeFunc,
                               CCircularBuffer::CopyFunc);
        // From slot 199 on, so that the element with the index 1 + `ahead` wraps to there.
        std::vector<unsigned char> bytes(kLarge, 0xEE);
        int count = kLarge - 1;
        buffer.Write(bytes.data(), count);
        buffer.Read(bytes.data(), count);
        count = kLarge - 10;
        buffer.Write(bytes.data(), count);
        _t_circular_buffer& ring = *buffer.GetRing();
        count = 0;
        ASSERT_EQ(cb_read_ex(&ring, 1 + ahead, nullptr, &count, kCBConsume), 0u);
        ASSERT_EQ(ring.readOffset, ring.startOffset - ahead);
        const CInPlaceRoom room(ring);
        EXPECT_EQ(room.Used(), cb_get_num_elem_used(&ring));
        EXPECT_EQ(room.Start() + room.Run(),
                  reinterpret_cast<unsigned char*>(&ring) + ring.lastSlotOffset + 1);
    }
}

TEST_F(InPlaceRoomTest, WhatIsStoredInPlaceIsReadBehindTheRest) {
    for (int read = 0; read < kCapacity; ++read) {
        for (int used = 0; used < kCapacity; ++used) {
            CCircularBuffer buffer(1, kCapacity, CCircularBuffer::MallocFunc,
                                   CCircularBuffer::FreeFunc, CCircularBuffer::CopyFunc);
            Prepare(buffer, read, used);
            const CInPlaceRoom room(*buffer.GetRing());
            const auto size = static_cast<std::size_t>(room.Run() - 1);
            std::memset(room.Start(), 0x5A, size);
            EXPECT_EQ(cb_get_num_elem_used(buffer.GetRing()), static_cast<unsigned int>(used))
                << "before it is stored";
            CInPlaceRoom::Store(*buffer.GetRing(), room.Start() + size);
            // The functions that copy carry on from there.
            const unsigned char last = 0xA5;
            int count = 1;
            buffer.Write(&last, count);
            std::vector<unsigned char> expected(static_cast<std::size_t>(used), 0xEE);
            expected.insert(expected.end(), size, 0x5A);
            expected.push_back(0xA5);
            std::vector<unsigned char> found(kCapacity);
            count = kCapacity;
            buffer.Read(found.data(), count);
            found.resize(static_cast<std::size_t>(count));
            EXPECT_EQ(found, expected) << read << " " << used;
        }
    }
}

} // namespace
