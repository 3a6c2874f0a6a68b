#include "platform/packetlist/PacketListBuilder.h"

#include "tests/support/platform/PacketLists.h"

#include <gtest/gtest.h>

namespace {

using TestSupport::Bytes;
using TestSupport::PackedOrPadded;

TEST(PacketListBuilder, KeepsEveryPacketApartAsMIDIPacketListAddWouldLayItOut) {
    PacketListBuilder builder;
    alignas(MIDIPacketList) unsigned char room[4096];
    auto* const list = reinterpret_cast<MIDIPacketList*>(room);
    MIDIPacket* packet = MIDIPacketListInit(list);
    for (unsigned char length = 0; length < 20; ++length) {
        const Bytes data(length, length);
        const std::size_t announced = builder.SizeWith(data.size());
        builder.Add(data, length);
        EXPECT_EQ(builder.ByteSize(), announced);
        // Of different times, so that it does not join them.
        packet = MIDIPacketListAdd(list, sizeof room, packet, length, length, data.data());
        ASSERT_NE(packet, nullptr);
    }
    ASSERT_EQ(builder.ByteSize(), PacketListSize(list));
    std::vector<const MIDIPacket*> expected;
    ForEachPacket(list, sizeof room, [&](const MIDIPacket* each) { expected.push_back(each); });
    std::size_t at = 0;
    ForEachPacket(builder.List(), builder.ByteSize(), [&](const MIDIPacket* each) {
        ASSERT_LT(at, expected.size());
        ASSERT_EQ(std::memcmp(each, expected[at], kPacketHeaderSize + PacketLength(each)), 0);
        ++at;
    });
    EXPECT_EQ(at, 20U);
}

TEST(PacketListBuilder, BeginsAnew) {
    PacketListBuilder builder;
    EXPECT_TRUE(builder.Empty());
    EXPECT_EQ(builder.ByteSize(), 4U);
    builder.Add(Bytes{1, 2, 3});
    builder.Add(Bytes{});
    builder.Add(Bytes{4, 5});
    EXPECT_FALSE(builder.Empty());
    EXPECT_EQ(builder.ByteSize(), PackedOrPadded(39, 44));
    builder.Clear();
    EXPECT_TRUE(builder.Empty());
    EXPECT_EQ(PacketCount(builder.List()), 0U);
    EXPECT_EQ(builder.SizeWith(3), 17U);
    builder.Release();
    builder.Clear();
    builder.Add(Bytes{1});
    EXPECT_EQ(builder.ByteSize(), 15U);
}

} // namespace
