#include "midiserver/routing/PingRestorer.h"

#include <gtest/gtest.h>

#include <vector>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(PingRestorerTest, TurnsTheNoteOffsBackThatBridgesMakeOfHuiPings) {
    constexpr std::array<std::uint8_t, 3> kPing = {0x90, 0x00, 0x00};
    EXPECT_EQ(RestoredPing(Protocol::kHui, Bytes{0x80, 0x00, 0x40}), kPing);
    EXPECT_EQ(RestoredPing(Protocol::kHui, Bytes{0x80, 0x00, 0x00}), kPing);
}

TEST(PingRestorerTest, LeavesEveryOtherMessageAlone) {
    for (const Bytes& message :
         {Bytes{0x80, 0x00, 0x41}, Bytes{0x80, 0x01, 0x40}, Bytes{0x81, 0x00, 0x40},
          Bytes{0x90, 0x00, 0x00}, Bytes{0x80, 0x00}, Bytes{0x80, 0x00, 0x40, 0x00}, Bytes{}}) {
        EXPECT_EQ(RestoredPing(Protocol::kHui, message), std::nullopt);
    }
}

TEST(PingRestorerTest, LeavesNoteOffsOfOtherProtocolsAlone) {
    EXPECT_EQ(RestoredPing(Protocol::kMackieControl, Bytes{0x80, 0x00, 0x40}), std::nullopt);
    EXPECT_EQ(RestoredPing(Protocol::kNone, Bytes{0x80, 0x00, 0x40}), std::nullopt);
}

} // namespace
} // namespace MidiServer
