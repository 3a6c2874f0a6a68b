#include "tests/unit/platform/CoreMIDI/MidiTestSupport.h"

#include <cstdlib>

using namespace MidiTest;
using TestSupport::PackedOrPadded;

namespace {

const Bytes kNote{0x90, 0x3C, 0x7F};
const Bytes kPing{0x90, 0x00, 0x00};

class PacketListTest : public testing::Test {
protected:
    // Appends to a list in a buffer of `mRoom` bytes.
    bool Add(MIDITimeStamp time, const Bytes& data) {
        MIDIPacket* const added = MIDIPacketListAdd(
            ThisList(), mRoom, mCurrent, time, static_cast<ByteCount>(data.size()), data.data());
        if (added != nullptr) {
            mCurrent = added;
        }
        return added != nullptr;
    }
    MIDIPacketList* ThisList() { return reinterpret_cast<MIDIPacketList*>(mBuffer.data()); }
    void Begin(ByteCount room) {
        mRoom = room;
        mBuffer.assign(room, 0xEE);
        mBuffer.shrink_to_fit();
        mCurrent = MIDIPacketListInit(ThisList());
    }

    ByteCount mRoom = 0;
    Bytes mBuffer;
    MIDIPacket* mCurrent = nullptr;
};

} // namespace

TEST_F(PacketListTest, LaysPacketsOutInTheHostsByteOrder) {
    Begin(100);
    ASSERT_TRUE(Add(0x0102030405060708, {0xC0, 0x05, 0x06}));
    ASSERT_TRUE(Add(9, {0xF8}));
    const UInt32 count = 2;
    EXPECT_EQ(std::memcmp(mBuffer.data(), &count, 4), 0);
    const UInt64 time = 0x0102030405060708;
    EXPECT_EQ(std::memcmp(&mBuffer[4], &time, 8), 0);
    const UInt16 length = 3;
    EXPECT_EQ(std::memcmp(&mBuffer[12], &length, 2), 0);
    EXPECT_EQ(mBuffer[14], 0xC0);
    const UInt64 second = 9;
    const std::size_t at = PackedOrPadded(17, 20);
    EXPECT_EQ(std::memcmp(&mBuffer[at], &second, 8), 0);
    EXPECT_EQ(mBuffer[at + 10], 0xF8);
    EXPECT_EQ(mBuffer[at + 11], 0xEE) << "written past the packet";
}

TEST_F(PacketListTest, IsEmptyAfterInit) {
    Begin(100);
    EXPECT_EQ(ThisList()->numPackets, 0U);
    EXPECT_EQ(static_cast<void*>(mCurrent), static_cast<void*>(&mBuffer[4]));
}

TEST_F(PacketListTest, JoinsMessagesOfTheSameTime) {
    Begin(100);
    ASSERT_TRUE(Add(5, kNote));
    ASSERT_TRUE(Add(5, kPing));
    ASSERT_TRUE(Add(6, kNote));
    EXPECT_EQ(PacketsOf(ThisList()),
              (Packets{{5, {0x90, 0x3C, 0x7F, 0x90, 0x00, 0x00}}, {6, kNote}}));
}

TEST_F(PacketListTest, KeepsSystemExclusiveApart) {
    Begin(200);
    const Bytes start{0xF0, 0x01};
    const Bytes middle{0x02, 0x03};
    const Bytes end{0x04, 0xF7};
    for (const Bytes& data : {kNote, start, middle, end, kNote}) {
        ASSERT_TRUE(Add(5, data));
    }
    EXPECT_EQ(PacketsOf(ThisList()),
              (Packets{{5, kNote}, {5, start}, {5, middle}, {5, end}, {5, kNote}}));
}

TEST_F(PacketListTest, TakesAnExactFitAndRefusesOneByteMore) {
    const auto first = static_cast<ByteCount>(PackedOrPadded(13, 16));
    Begin(4 + first + 13);
    ASSERT_TRUE(Add(1, kNote));
    ASSERT_TRUE(Add(2, kNote));
    EXPECT_FALSE(Add(3, {}));
    Begin(4 + first + 12);
    ASSERT_TRUE(Add(1, kNote));
    EXPECT_FALSE(Add(2, kNote));
    EXPECT_EQ(PacketsOf(ThisList()), (Packets{{1, kNote}})) << "changed although refused";
    Begin(4 + 10 + 15);
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(Add(1, kNote)) << "joins, 29 bytes in all";
    }
    EXPECT_FALSE(Add(1, {0xF8})) << "joined past the end";
}

TEST_F(PacketListTest, RefusesMoreThanALengthCanSayAndMoreThanAListMayHold) {
    Begin(200000);
    EXPECT_FALSE(Add(1, Bytes(65536, 0x11)));
    EXPECT_FALSE(Add(1, Bytes(65536 - 13, 0x11))) << "65537 bytes in all";
    EXPECT_TRUE(Add(1, Bytes(65536 - 14, 0x11))) << "65536 bytes in all";
    EXPECT_FALSE(Add(2, {}));
}

TEST_F(PacketListTest, KeepsEmptyPackets) {
    Begin(100);
    ASSERT_TRUE(Add(1, kNote));
    ASSERT_TRUE(Add(2, {}));
    ASSERT_TRUE(Add(3, {0xC0, 0x01}));
    EXPECT_EQ(PacketsOf(ThisList()), (Packets{{1, kNote}, {2, {}}, {3, {0xC0, 0x01}}}));
}

TEST_F(PacketListTest, RefusesNullArguments) {
    Begin(100);
    EXPECT_EQ(MIDIPacketListInit(nullptr), nullptr);
    EXPECT_EQ(MIDIPacketListAdd(nullptr, 100, mCurrent, 0, 3, kNote.data()), nullptr);
    EXPECT_EQ(MIDIPacketListAdd(ThisList(), 100, nullptr, 0, 3, kNote.data()), nullptr);
    EXPECT_EQ(MIDIPacketListAdd(ThisList(), 100, mCurrent, 0, 3, nullptr), nullptr);
    EXPECT_EQ(ThisList()->numPackets, 0U);
}

TEST_F(PacketListTest, ReadsAndWritesFieldsAtAnyAddress) {
    Begin(200);
    for (MIDITimeStamp time = 1; time <= 9; ++time) {
        ASSERT_TRUE(Add(time, Bytes(static_cast<std::size_t>(time), 0xF8)));
    }
    ForEachPacket(ThisList(), mRoom, [](const MIDIPacket* packet) {
        SetPacketTime(const_cast<MIDIPacket*>(packet), PacketTime(packet) + PacketLength(packet));
    });
    MIDITimeStamp expected = 0;
    for (const auto& [time, data] : PacketsOf(ThisList())) {
        expected += 2;
        EXPECT_EQ(time, expected);
    }
}

// The runs with the padding library name its folder (QuorvelTest.cmake), so that none of them
// passes for the other.
TEST_F(PacketListTest, PadsWhenThisRunIsToPad) {
    MIDIPacket packet{};
    const char* const folder = std::getenv("LD_LIBRARY_PATH");
    const bool isToPad =
        QUORVEL_PADS_PACKETS || (folder != nullptr && std::string(folder).ends_with("/padded"));
    for (UInt16 length = 0; length <= 256; ++length) {
        packet.length = length;
        const auto* const next = reinterpret_cast<const Byte*>(MIDIPacketNext(&packet));
        const auto distance = static_cast<std::size_t>(next - reinterpret_cast<Byte*>(&packet));
        const std::size_t packed = 10U + length;
        EXPECT_EQ(distance, isToPad ? (packed + 3) / 4 * 4 : packed) << length;
    }
}
