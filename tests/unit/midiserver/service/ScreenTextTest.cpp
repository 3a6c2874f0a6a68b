#include "midiserver/service/ScreenText.h"

#include <gtest/gtest.h>

namespace MidiServer {
namespace {

TEST(ScreenTextTest, PutsTheLinesInTheScreensPlace) {
    EXPECT_EQ(ScreenText("one\ntwo\n", 24, 80), "\x1b[Hone\x1b[K\ntwo\x1b[K\n\x1b[J");
    EXPECT_EQ(ScreenText("", 24, 80), "\x1b[H\x1b[J");
}

TEST(ScreenTextTest, CutsLinesThatAreTooLong) {
    EXPECT_EQ(ScreenText("12345678\n123\n", 24, 4), "\x1b[H1234\x1b[K\n123\x1b[K\n\x1b[J");
}

TEST(ScreenTextTest, SaysHowManyLinesHaveNoRoom) {
    EXPECT_EQ(ScreenText("1\n2\n3\n", 4, 80), "\x1b[H1\x1b[K\n2\x1b[K\n3\x1b[K\n\x1b[J");
    EXPECT_EQ(ScreenText("1\n2\n3\n4\n", 4, 80),
              "\x1b[H1\x1b[K\n2\x1b[K\nand 2 more lines\x1b[K\n\x1b[J");
    EXPECT_EQ(ScreenText("1\n2\n", 2, 80), "\x1b[Hand 2 more lines\x1b[K\n\x1b[J");
}

} // namespace
} // namespace MidiServer
