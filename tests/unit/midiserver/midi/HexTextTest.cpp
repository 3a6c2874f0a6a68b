#include "midiserver/midi/HexText.h"

#include "midiserver/errors/Errors.h"

#include <gtest/gtest.h>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(HexTextTest, WritesTwoDigitsForEachByte) {
    EXPECT_EQ(HexText(Bytes{0x90, 0x00, 0x7F}), "90 00 7F");
    EXPECT_EQ(HexText(Bytes{0xF8}), "F8");
    EXPECT_EQ(HexText(Bytes{}), "");
}

TEST(HexTextTest, ReadsWhatItWrites) {
    Bytes all(256);
    for (std::size_t i = 0; i < all.size(); ++i) {
        all[i] = static_cast<std::uint8_t>(i);
    }
    for (const Bytes& bytes : {all, Bytes{0x0A}, Bytes{}}) {
        EXPECT_EQ(BytesOfHexText(HexText(bytes)), bytes);
    }
}

TEST(HexTextTest, RefusesAnythingElse) {
    for (const char* const text : {"9", "90 0", "9x", " 90", "90  00", "-1", "0x90", "7f"}) {
        EXPECT_THROW(BytesOfHexText(text), InputError) << text;
    }
}

} // namespace
} // namespace MidiServer
