#include "MidiDriver/worker/PacketListWalk.h"

#include "tests/unit/MidiDriver/worker/WorkerHarness.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace {

std::vector<Bytes> Packets(const Bytes& list) {
    std::vector<Bytes> packets;
    ForEachPacket(list.data(), list.size(), [&](const unsigned char* bytes, unsigned int length) {
        packets.emplace_back(bytes, bytes + length);
    });
    return packets;
}

void SetCount(Bytes& list, uint32_t count) {
    std::memcpy(list.data(), &count, sizeof count);
}

unsigned int CountIn(const Bytes& list) {
    return CountMIDIBytes(list.data(), static_cast<unsigned int>(list.size()));
}

} // namespace

TEST(PacketListWalk, VisitsThePacketsInOrder) {
    const std::vector<Bytes> packets = {{0x90, 1, 2}, {}, {0xF8}, Bytes(65535, 7)};
    EXPECT_EQ(Packets(MakePacketList(packets)), packets);
}

TEST(PacketListWalk, ReadsAListAtAnOddAddress) {
    const std::vector<Bytes> packets = {{0x90, 1, 2}, {0xF8}, {1, 2, 3, 4, 5}};
    Bytes shifted = MakePacketList(packets);
    shifted.insert(shifted.begin(), 0xEE);
    std::vector<Bytes> seen;
    ForEachPacket(shifted.data() + 1, shifted.size() - 1,
                  [&](const unsigned char* bytes, unsigned int length) {
                      seen.emplace_back(bytes, bytes + length);
                  });
    EXPECT_EQ(seen, packets);
    EXPECT_EQ(CountMIDIBytes(shifted.data() + 1, static_cast<unsigned int>(shifted.size() - 1)),
              9u);
}

TEST(PacketListWalk, StopsAtThePacketThatIsCutOff) {
    const Bytes whole = MakePacketList({{1, 2, 3}, {4, 5}, {6}});
    const std::vector<std::size_t> ends = {17, 29, 40}; // of the packets
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
}

TEST(PacketListWalk, StaysWithinRandomBytes) {
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
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
        ASSERT_LE(CountIn(list), list.size());
    }
}

TEST(PacketListWalk, CountsTheMIDIBytesAndNoHeader) {
    EXPECT_EQ(CountIn(MakePacketList({})), 0u);
    EXPECT_EQ(CountIn(MakePacketList({{}, {}, {}})), 0u);
    EXPECT_EQ(CountIn(MakePacketList({{1, 2, 3}, {}, {4, 5}})), 5u);
}

TEST(PacketListWalk, CountsNothingWhenTheStatedHeadersExceedTheList) {
    Bytes list = MakePacketList({{1, 2, 3}});
    SetCount(list, 2);
    EXPECT_EQ(CountIn(list), 0u);
    SetCount(list, 0xFFFFFFFF);
    EXPECT_EQ(CountIn(list), 0u);
    // Ten times this count is a multiple of 2^32, plus 4.
    SetCount(list, 0x9999999A);
    EXPECT_EQ(CountIn(list), 0u);
    EXPECT_EQ(CountIn({1, 2, 3}), 0u);
    EXPECT_EQ(CountIn({}), 0u);
}
