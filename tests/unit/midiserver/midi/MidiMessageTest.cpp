#include "midiserver/midi/MidiMessage.h"

#include <gtest/gtest.h>

#include <vector>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(MidiMessageTest, KnowsWholeMessages) {
    for (const Bytes& bytes : {Bytes{0x90, 0x3C, 0x40}, Bytes{0xC0, 0x05}, Bytes{0xF8},
                               Bytes{0xF0, 0xF7}, Bytes{0xF0, 0x01, 0x7F, 0xF7}}) {
        EXPECT_TRUE(IsWholeMessage(bytes)) << bytes.size();
    }
}

TEST(MidiMessageTest, KnowsWhatIsNone) {
    for (const Bytes& bytes : {Bytes{}, Bytes{0x3C}, Bytes{0xF7}, Bytes{0x90, 0x3C},
                               Bytes{0x90, 0x3C, 0x40, 0x00}, Bytes{0x90, 0x3C, 0x80}, Bytes{0xF0},
                               Bytes{0xF0, 0x01}, Bytes{0xF0, 0x80, 0xF7}, Bytes{0xF8, 0xF8}}) {
        EXPECT_FALSE(IsWholeMessage(bytes)) << bytes.size();
    }
}

} // namespace
} // namespace MidiServer
