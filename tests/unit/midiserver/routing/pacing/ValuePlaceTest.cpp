#include "midiserver/routing/pacing/ValuePlace.h"

#include <gmock/gmock.h>

#include <vector>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::optional<ValuePlace> Mackie(const Bytes& message) {
    return PlaceOf(Protocol::kMackieControl, message);
}
std::optional<ValuePlace> Hui(const Bytes& message) {
    return PlaceOf(Protocol::kHui, message);
}

Bytes Text(std::uint8_t device, std::uint8_t cell, std::size_t characters) {
    Bytes message = {0xF0, 0x00, 0x00, 0x66, device, 0x12, cell};
    message.resize(message.size() + characters, 'a');
    message.push_back(0xF7);
    return message;
}
Bytes Zones(const std::vector<std::uint8_t>& zones) {
    Bytes message = {0xF0, 0x00, 0x00, 0x66, 0x05, 0x00, 0x12};
    for (const std::uint8_t zone : zones) {
        message.push_back(zone);
        message.resize(message.size() + 10, 'a');
    }
    message.push_back(0xF7);
    return message;
}

TEST(ValuePlaceTest, IsTheSameForValuesOfTheSameThingAlone) {
    ASSERT_TRUE(Mackie({0xE0, 1, 2}));
    EXPECT_EQ(Mackie({0xE0, 1, 2}), Mackie({0xE0, 3, 4}));
    EXPECT_NE(Mackie({0xE0, 1, 2}), Mackie({0xE1, 1, 2}));
    EXPECT_EQ(Mackie({0xB0, 0x30, 1}), Mackie({0xB0, 0x30, 2}));
    EXPECT_NE(Mackie({0xB0, 0x30, 1}), Mackie({0xB0, 0x31, 1}));
    EXPECT_EQ(Hui({0xB0, 0x10, 1}), Hui({0xB0, 0x10, 2}));
    EXPECT_NE(Mackie({0xB0, 0x30, 1}), Mackie({0xE0, 0, 1})) << "a ring is no fader";
}

TEST(ValuePlaceTest, IsNoneForWhatCountsEachTime) {
    EXPECT_FALSE(Mackie({0x90, 0x5E, 0x7F}));
    EXPECT_FALSE(Mackie({0xD0, 0x1C}));
    EXPECT_FALSE(Mackie({0xF0, 0x00, 0x00, 0x66, 0x14, 0x00, 0xF7}));
    EXPECT_FALSE(Hui({0x90, 0x00, 0x00}));
    EXPECT_FALSE(Hui({0xB0, 0x0C, 0x01}));
    EXPECT_FALSE(Hui({0xB0, 0x2C, 0x41}));
    EXPECT_FALSE(Hui({0xB0, 0x00, 0x41})) << "a half by itself";
    EXPECT_FALSE(Hui({0xB0, 0x20, 0x41}));
    EXPECT_FALSE(PlaceOf(Protocol::kNone, Bytes{0xE0, 1, 2}));
}

TEST(ValuePlaceTest, OverlapsWhereTextsShareCellsWhateverTheirDevice) {
    EXPECT_TRUE(Mackie(Text(0x14, 0, 7))->Overlaps(*Mackie(Text(0x15, 6, 7))));
    EXPECT_FALSE(Mackie(Text(0x14, 0, 7))->Overlaps(*Mackie(Text(0x14, 7, 7))));
    EXPECT_EQ(Mackie(Text(0x14, 0, 7)), Mackie(Text(0x15, 0, 7)));
}

TEST(ValuePlaceTest, OverlapsWhereOneDigitIsAmongSeveral) {
    const Bytes several = {0xF0, 0x00, 0x00, 0x66, 0x14, 0x10, 1, 2, 3, 0xF7};
    EXPECT_TRUE(Mackie(several)->Overlaps(*Mackie({0xB0, 0x42, 1})));
    EXPECT_FALSE(Mackie(several)->Overlaps(*Mackie({0xB0, 0x43, 1})));
    EXPECT_FALSE(Mackie(several)->Overlaps(*Mackie({0xB0, 0x4A, 1}))) << "another display";
}

TEST(ValuePlaceTest, TellsZonesThatDoNotLieSideBySide) {
    EXPECT_EQ(Hui(Zones({0, 2, 3})), Hui(Zones({3, 0, 2})));
    EXPECT_NE(Hui(Zones({0, 1, 3})), Hui(Zones({0, 2, 3})));
    EXPECT_TRUE(Hui(Zones({1, 3}))->Overlaps(*Hui(Zones({3}))));
    EXPECT_TRUE(Hui(Zones({3}))->Overlaps(*Hui(Zones({1, 3}))));
    EXPECT_FALSE(Hui(Zones({2, 3}))->Overlaps(*Hui(Zones({1}))));
}

TEST(ValuePlaceTest, IsThatOfTheFaderForBothHalvesOfItsPosition) {
    const auto high = HighHalfPlace(Protocol::kHui, Bytes{0xB0, 0x03, 1});
    ASSERT_TRUE(high);
    EXPECT_EQ(high, LowHalfPlace(Protocol::kHui, Bytes{0xB0, 0x23, 1}));
    EXPECT_NE(high, LowHalfPlace(Protocol::kHui, Bytes{0xB0, 0x24, 1}));
    EXPECT_FALSE(LowHalfPlace(Protocol::kHui, Bytes{0xB0, 0x03, 1}));
    EXPECT_FALSE(HighHalfPlace(Protocol::kHui, Bytes{0xB0, 0x09, 1}));
    EXPECT_FALSE(HighHalfPlace(Protocol::kMackieControl, Bytes{0xB0, 0x03, 1}));
}

} // namespace
} // namespace MidiServer
