#include "midiserver/routing/pacing/Pacer.h"

#include "midiserver/midi/PacketList.h"
#include "tests/support/TestSeed.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <random>

namespace MidiServer {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using TimePoint = Pacer::TimePoint;

constexpr TimePoint kStart{1h};
const Bytes kNote = {0x90, 0x3C, 0x40};
const Bytes kPing = {0x90, 0x00, 0x00};

Pacer PacerOf(std::size_t ports, Protocol protocol = Protocol::kNone) {
    Pacer pacer;
    pacer.Configure(std::vector<Pacer::PortSettings>(ports, {protocol, false}));
    return pacer;
}

void Flood(Pacer& pacer, std::size_t port, TimePoint now) {
    while (pacer.Add(port, kNote, now)) {
    }
}

// Sends all that may go now; returns the bytes of data.
std::size_t SendAll(Pacer& pacer, TimePoint now) {
    PacedList list;
    std::size_t bytes = 0;
    while (pacer.Next(now, list)) {
        bytes += list.dataBytes;
    }
    return bytes;
}

TEST(PacerTest, HasNothingToSendWhenNothingWaits) {
    Pacer pacer = PacerOf(2);
    PacedList list;
    EXPECT_FALSE(pacer.Next(kStart, list));
    EXPECT_EQ(pacer.Due(), TimePoint::max());
    EXPECT_FALSE(Pacer().Next(kStart, list));
}

TEST(PacerTest, GivesEachMessageAPacketOfItsOwn) {
    Pacer pacer = PacerOf(1);
    pacer.Add(0, kNote, kStart);
    pacer.Add(0, Bytes(257, 0x11), kStart + 1ms);
    PacedList list;
    ASSERT_TRUE(pacer.Next(kStart + 2ms, list));
    std::vector<std::size_t> sizes;
    for (const auto packet : PacketsOf(*list.list.List())) {
        sizes.push_back(packet.size());
    }
    EXPECT_THAT(sizes, testing::ElementsAre(3, 256, 1));
    EXPECT_EQ(list.dataBytes, 260U);
    EXPECT_THAT(list.arrived, testing::ElementsAre(kStart, kStart + 1ms));
}

TEST(PacerTest, LetsPortsTakeTurns) {
    Pacer pacer = PacerOf(3);
    Flood(pacer, 0, kStart);
    Flood(pacer, 2, kStart);
    PacedList list;
    for (const std::size_t expected : {0U, 2U, 0U, 2U}) {
        ASSERT_TRUE(pacer.Next(kStart, list));
        EXPECT_EQ(list.port, expected);
        EXPECT_LE(list.list.ByteSize(), Pacer::kLargestList);
    }
    pacer.Add(1, kNote, kStart);
    ASSERT_TRUE(pacer.Next(kStart, list));
    ASSERT_TRUE(pacer.Next(kStart, list));
    EXPECT_EQ(list.port, 1U) << "it waits for one turn of each other port at most";
}

TEST(PacerTest, KeepsAReserveForPings) {
    Pacer pacer = PacerOf(1, Protocol::kHui);
    Flood(pacer, 0, kStart);
    EXPECT_LE(SendAll(pacer, kStart), PacingWindow::kBytes - Pacer::kPingReserve);
    EXPECT_GT(pacer.Due(), kStart);
    EXPECT_TRUE(pacer.Add(0, kPing, kStart)) << "a full queue takes it as well";
    EXPECT_LE(pacer.Due(), kStart);
    PacedList list;
    ASSERT_TRUE(pacer.Next(kStart, list));
    EXPECT_EQ(list.dataBytes, kPing.size());
}

TEST(PacerTest, KeepsWhatWaitsOnPortsThatStay) {
    Pacer pacer = PacerOf(2);
    pacer.Add(0, kNote, kStart);
    pacer.Configure({{Protocol::kHui, false}});
    EXPECT_EQ(pacer.Ports(), 1U);
    EXPECT_EQ(SendAll(pacer, kStart), kNote.size());
}

// The sum of what was sent in any window must stay within the limit, all arrives whole and in
// order, and Due is exactly the time at which there is something to send.
TEST(PacerTest, KeepsEveryPortToItsRateWhateverComes) {
    constexpr std::size_t kPorts = 4;
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    Pacer pacer = PacerOf(kPorts, Protocol::kHui);
    struct Port {
        Bytes added;
        Bytes sent;
        std::deque<std::pair<TimePoint, std::size_t>> window;
        std::size_t windowBytes = 0;
    };
    std::array<Port, kPorts> ports;
    PacedList list;
    const auto sendAll = [&](TimePoint now) {
        while (pacer.Next(now, list)) {
            Port& port = ports[list.port];
            for (const auto packet : PacketsOf(*list.list.List())) {
                port.sent.insert(port.sent.end(), packet.begin(), packet.end());
            }
            port.window.emplace_back(now, list.dataBytes);
            port.windowBytes += list.dataBytes;
            while (port.window.front().first + PacingWindow::kLength <= now) {
                port.windowBytes -= port.window.front().second;
                port.window.pop_front();
            }
            ASSERT_LE(port.windowBytes, PacingWindow::kBytes - Pacer::kPingReserve);
        }
    };
    TimePoint now = kStart;
    for (int step = 0; step < 3000; ++step) {
        for (std::size_t i = random() % 3; i > 0; --i) {
            const std::size_t port = random() % kPorts;
            // Without status bytes, so that none is a ping.
            const Bytes message(1 + random() % (random() % 20 == 0 ? 20000 : 40),
                                static_cast<std::uint8_t>(step % 128));
            if (pacer.Add(port, message, now)) {
                ports[port].added.insert(ports[port].added.end(), message.begin(), message.end());
            }
        }
        sendAll(now);
        const TimePoint due = pacer.Due();
        ASSERT_GT(due, now);
        const TimePoint next = now + std::chrono::microseconds(random() % 20000);
        if (due <= next) {
            ASSERT_FALSE(pacer.Next(due - 1ns, list));
            ASSERT_TRUE(pacer.Next(due, list));
            Port& port = ports[list.port];
            for (const auto packet : PacketsOf(*list.list.List())) {
                port.sent.insert(port.sent.end(), packet.begin(), packet.end());
            }
            port.window.emplace_back(due, list.dataBytes);
            port.windowBytes += list.dataBytes;
        }
        now = std::max(next, now);
    }
    for (; pacer.Due() != TimePoint::max(); now = std::max(now, pacer.Due())) {
        sendAll(now);
    }
    for (const Port& port : ports) {
        EXPECT_EQ(port.sent, port.added);
    }
}

} // namespace
} // namespace MidiServer
