#include "midiserver/preferences/PingProtocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::Optional;

TEST(PingProtocolTest, KnowsTheProtocolNamesExactly) {
    EXPECT_EQ(ProtocolFromName("HUI"), Protocol::kHui);
    EXPECT_EQ(ProtocolFromName("MackieControl"), Protocol::kMackieControl);
    for (const char* name : {"", "hui", "HUI ", "Mackie Control", "mackiecontrol", "none"}) {
        EXPECT_EQ(ProtocolFromName(name), Protocol::kNone) << name;
    }
    EXPECT_EQ(ProtocolName(Protocol::kHui), "HUI");
    EXPECT_EQ(ProtocolName(Protocol::kMackieControl), "MackieControl");
    EXPECT_EQ(ProtocolName(Protocol::kNone), "none");
}

TEST(PingProtocolTest, ExpectsNoReplyWithoutAProtocol) {
    PingProtocol pings(Protocol::kNone, 0);

    EXPECT_FALSE(pings.ExpectedReply(Bytes{0x90, 0x00, 0x00}));
    EXPECT_FALSE(pings.ExpectedReply(Bytes{0xF0, 0x00, 0x00, 0x66, 0x14, 0x00, 0xF7}));
}

TEST(PingProtocolTest, ExpectsAHuiReplyForExactlyThePing) {
    PingProtocol pings(Protocol::kHui, 3);

    EXPECT_THAT(pings.ExpectedReply(Bytes{0x90, 0x00, 0x00}),
                Optional(ElementsAre(0x90, 0x00, 0x7F)));
    EXPECT_FALSE(pings.ExpectedReply(Bytes{0x91, 0x00, 0x00}));
    EXPECT_FALSE(pings.ExpectedReply(Bytes{0x90, 0x01, 0x00}));
    EXPECT_FALSE(pings.ExpectedReply(Bytes{0x90, 0x00, 0x00, 0x00}));
    EXPECT_FALSE(pings.ExpectedReply(Bytes{0x90, 0x00}));
    EXPECT_FALSE(pings.ExpectedReply(Bytes{}));
    EXPECT_FALSE(pings.ExpectedReply(Bytes{0xF0, 0x00, 0x00, 0x66, 0x14, 0x00, 0xF7}));
}

TEST(PingProtocolTest, ExpectsEveryMackieReplyAsTheFirstPingShapedIt) {
    PingProtocol pings(Protocol::kMackieControl, 2);

    const auto first = pings.ExpectedReply(Bytes{0xF0, 0x00, 0x00, 0x66, 0x15, 0x1A, 0x00, 0xF7});
    EXPECT_THAT(first, Optional(ElementsAre(0xF0, 0, 0, 0x66, 0x15, 0x1B, 0, 3, 0, 2, 1, 9, 5, 7, 2,
                                            7, 7, 0xF7)));
    EXPECT_EQ(pings.ExpectedReply(Bytes{0xF0, 0x00, 0x00, 0x66, 0x14, 0x00, 0xF7}), first);
}

TEST(PingProtocolTest, TakesOnlyDeviceQueriesOfTheTwoDevicesForMackiePings) {
    PingProtocol pings(Protocol::kMackieControl, 0);

    for (const std::uint8_t device : Bytes{0x10, 0x11, 0x13, 0x16}) {
        EXPECT_FALSE(pings.ExpectedReply(Bytes{0xF0, 0, 0, 0x66, device, 0x00, 0xF7}));
    }
    EXPECT_FALSE(pings.ExpectedReply(Bytes{0xF0, 0, 0, 0x67, 0x15, 0x00, 0xF7}));
    EXPECT_FALSE(pings.ExpectedReply(Bytes{0xF0, 0, 0, 0x66, 0x14, 0x01, 0xF7}));
    EXPECT_FALSE(pings.ExpectedReply(Bytes{0xF0, 0, 0, 0x66, 0x14, 0x00, 0x00}));
    EXPECT_FALSE(pings.ExpectedReply(Bytes{0xF0, 0, 0, 0x66, 0x14, 0xF7}));
    EXPECT_FALSE(pings.ExpectedReply(Bytes{0x90, 0x00, 0x00}));
}

TEST(PingProtocolTest, TurnsTheNoteOffsBackThatBridgesMakeOfHuiPings) {
    constexpr std::array<std::uint8_t, 3> kPing = {0x90, 0x00, 0x00};
    EXPECT_EQ(RestoredPing(Protocol::kHui, Bytes{0x80, 0x00, 0x40}), kPing);
    EXPECT_EQ(RestoredPing(Protocol::kHui, Bytes{0x80, 0x00, 0x00}), kPing);
}

TEST(PingProtocolTest, LeavesEveryOtherMessageAlone) {
    for (const Bytes& message :
         {Bytes{0x80, 0x00, 0x41}, Bytes{0x80, 0x01, 0x40}, Bytes{0x81, 0x00, 0x40},
          Bytes{0x90, 0x00, 0x00}, Bytes{0x80, 0x00}, Bytes{0x80, 0x00, 0x40, 0x00}, Bytes{}}) {
        EXPECT_EQ(RestoredPing(Protocol::kHui, message), std::nullopt);
    }
}

TEST(PingProtocolTest, LeavesNoteOffsOfOtherProtocolsAlone) {
    EXPECT_EQ(RestoredPing(Protocol::kMackieControl, Bytes{0x80, 0x00, 0x40}), std::nullopt);
    EXPECT_EQ(RestoredPing(Protocol::kNone, Bytes{0x80, 0x00, 0x40}), std::nullopt);
}

} // namespace
} // namespace MidiServer
