#include "surface/event/EventText.h"

#include <gmock/gmock.h>

#include <vector>

namespace Surface {
namespace {

using Bytes = std::vector<std::uint8_t>;

// What the messages of docs/surface.md become is checked there.
TEST(EventTextTest, ShowsWhatIsNoPrintableCharacterAsAQuestionMark) {
    EXPECT_EQ(EventText(TextWritten{TextDisplay::kStrips, 7, "a\n\x7F\x1Bz"}),
              "text at 7: \"a???z\"");
    const Bytes zone = {2, 'a', 'b', 0, 10, 'e', 'f', 'g', 'h', 'i', 127};
    EXPECT_EQ(EventText(ZonesWritten{zone}), "main text at 20: \"ab??efghi?\"");
}

TEST(EventTextTest, TellsSeveralZonesInOneLine) {
    Bytes zones = {0, 'a', 'a', 'a', 'a', 'a', 'a', 'a', 'a', 'a', 'a'};
    const Bytes last = {7, 'b', 'b', 'b', 'b', 'b', 'b', 'b', 'b', 'b', 'b'};
    zones.insert(zones.end(), last.begin(), last.end());
    EXPECT_EQ(EventText(ZonesWritten{zones}),
              "main text at 0: \"aaaaaaaaaa\", main text at 70: \"bbbbbbbbbb\"");
}

TEST(EventTextTest, CutsALongUnknownMessage) {
    EXPECT_EQ(EventText(UnknownMessage{Bytes{0xB0, 0x4E, 0x30}}), "unknown: B0 4E 30");
    EXPECT_EQ(EventText(UnknownMessage{Bytes(16, 0x11)}),
              "unknown: 11 11 11 11 11 11 11 11 11 11 11 11 11 11 11 11");
    EXPECT_EQ(EventText(UnknownMessage{Bytes(17, 0x11)}),
              "unknown: 11 11 11 11 11 11 11 11 11 11 11 11 11 11 11 11 ...");
    EXPECT_EQ(EventText(UnknownMessage{}), "unknown: ");
}

} // namespace
} // namespace Surface
