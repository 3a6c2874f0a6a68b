#include "platform/packetlist/PacketListWalk.h"

#include "tests/support/TestSeed.h"
#include "tests/support/platform/PacketLists.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

using TestSupport::Bytes;
using TestSupport::MakePacketList;
using TestSupport::PackedOrPadded;

std::vector<Bytes> Packets(const Bytes& list) {
    std::vector<Bytes> packets;
    ForEachPacket(list.data(), list.size(), [&](const MIDIPacket* packet) {
        packets.emplace_back(PacketData(packet), PacketData(packet) + PacketLength(packet));
    });
    return packets;
}

PacketListExtent Extent(const Bytes& list) {
    return ForEachPacket(list.data(), list.size(), [](const MIDIPacket*) {});
}

void SetCount(Bytes& list, UInt32 count) {
    std::memcpy(list.data(), &count, sizeof count);
}

unsigned int CountIn(const Bytes& list) {
    return CountMIDIBytes(list.data(), list.size());
}

} // namespace

TEST(PacketListWalk, VisitsThePacketsInOrder) {
    const std::vector<Bytes> packets = {{0x90, 1, 2}, {}, {0xF8}, Bytes(65535, 7)};
    EXPECT_EQ(Packets(MakePacketList(packets)), packets);
}

TEST(PacketListWalk, TellsHowFarItCame) {
    const Bytes list = MakePacketList({{1, 2, 3}, {}, {4, 5}});
    EXPECT_EQ(Extent(list).packets, 3U);
    EXPECT_EQ(Extent(list).bytes, PackedOrPadded(39, 44));
    EXPECT_EQ(Extent(list).bytes, list.size());
    EXPECT_EQ(PacketListSize(reinterpret_cast<const MIDIPacketList*>(list.data())), list.size());
    EXPECT_EQ(Extent(MakePacketList({})).bytes, 4U);
    EXPECT_EQ(Extent({1, 2, 3}).bytes, 0U);
    EXPECT_EQ(Extent({}).bytes, 0U);
}

TEST(PacketListWalk, ReadsAndWritesTheFieldsOfPackets) {
    Bytes list = MakePacketList({{1}, {2, 3}}, 0x0102030405060708U);
    ForEachPacket(list.data(), list.size(), [](const MIDIPacket* packet) {
        EXPECT_EQ(PacketTime(packet), 0x0102030405060708U);
        SetPacketTime(const_cast<MIDIPacket*>(packet), PacketLength(packet));
    });
    UInt64 expected = 1;
    ForEachPacket(list.data(), list.size(), [&expected](const MIDIPacket* packet) {
        EXPECT_EQ(PacketTime(packet), expected);
        ++expected;
    });
    EXPECT_EQ(expected, 3U);
}

// Padding starts packets at multiples of 4, so only a packed list may lie anywhere.
TEST(PacketListWalk, ReadsAPackedListAtAnOddAddress) {
    if (PackedOrPadded(0, 1) != 0) {
        GTEST_SKIP() << "this run pads";
    }
    const std::vector<Bytes> packets = {{0x90, 1, 2}, {0xF8}, {1, 2, 3, 4, 5}};
    Bytes shifted = MakePacketList(packets);
    shifted.insert(shifted.begin(), 0xEE);
    std::vector<Bytes> seen;
    ForEachPacket(shifted.data() + 1, shifted.size() - 1, [&](const MIDIPacket* packet) {
        seen.emplace_back(PacketData(packet), PacketData(packet) + PacketLength(packet));
    });
    EXPECT_EQ(seen, packets);
    EXPECT_EQ(CountMIDIBytes(shifted.data() + 1, shifted.size() - 1), 9U);
}

TEST(PacketListWalk, StopsAtThePacketThatIsCutOff) {
    const Bytes whole = MakePacketList({{1, 2, 3}, {4, 5}, {6}});
    const std::vector<std::size_t> ends = {17, PackedOrPadded(29, 32), PackedOrPadded(40, 43)};
    EXPECT_EQ(whole.size(), ends.back());
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        SCOPED_TRACE(size);
        Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        cut.shrink_to_fit();
        const auto expected = static_cast<std::size_t>(std::count_if(
            ends.begin(), ends.end(), [size](std::size_t end) { return end <= size; }));
        EXPECT_EQ(Packets(cut).size(), expected);
    }
}

TEST(PacketListWalk, StopsWithTheBytesWhenTheCountIsTooHigh) {
    Bytes list = MakePacketList({{1, 2, 3}});
    SetCount(list, 0xFFFFFFFF);
    EXPECT_EQ(Packets(list), (std::vector<Bytes>{{1, 2, 3}}));
    EXPECT_EQ(CountIn(list), 3U);
}

TEST(PacketListWalk, StaysWithinRandomBytes) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    for (int round = 0; round < 20000; ++round) {
        Bytes list(random() % 64);
        for (unsigned char& byte : list) {
            byte = static_cast<unsigned char>(random() % 4 == 0 ? random() : 0);
        }
        list.shrink_to_fit();
        std::size_t visited = 0;
        for (const Bytes& packet : Packets(list)) {
            visited += kPacketHeaderSize + packet.size();
        }
        ASSERT_LE(visited, list.size());
        ASSERT_LE(Extent(list).bytes, list.size());
        ASSERT_LE(CountIn(list), visited);
    }
}

TEST(PacketListWalk, CountsTheMIDIBytesAndNothingElse) {
    EXPECT_EQ(CountIn(MakePacketList({})), 0U);
    EXPECT_EQ(CountIn(MakePacketList({{}, {}, {}})), 0U);
    EXPECT_EQ(CountIn(MakePacketList({{1, 2, 3}, {}, {4, 5}})), 5U);
    EXPECT_EQ(CountIn({1, 2, 3}), 0U);
    EXPECT_EQ(CountIn({}), 0U);
}
