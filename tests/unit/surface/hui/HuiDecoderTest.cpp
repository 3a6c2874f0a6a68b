#include "surface/hui/HuiDecoder.h"

#include "surface/hui/HuiButtons.h"

#include <gmock/gmock.h>

#include <vector>

namespace Surface::Hui {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;

std::uint8_t Byte(unsigned value) {
    return static_cast<std::uint8_t>(value);
}

Bytes Exclusive(const Bytes& data) {
    Bytes message = {0xF0, 0x00, 0x00, 0x66, 0x05, 0x00};
    message.insert(message.end(), data.begin(), data.end());
    message.push_back(0xF7);
    return message;
}

class HuiDecoderTest : public testing::Test {
protected:
    // Returns the event of a message if it is of this kind. It refers to mMessage.
    template <class Kind>
    std::optional<Kind> Decode(Bytes message) {
        mMessage = std::move(message);
        const SurfaceEvent event = mDecoder.Decode(mMessage);
        const auto* kind = std::get_if<Kind>(&event);
        return kind ? std::optional<Kind>(*kind) : std::nullopt;
    }
    bool IsUnknown(Bytes message) { return Decode<UnknownMessage>(std::move(message)).has_value(); }

    HuiDecoder mDecoder;
    Bytes mMessage;
};

TEST_F(HuiDecoderTest, SwitchesTheLightOfEveryZoneAndPort) {
    for (unsigned zone = 0; zone < 128; ++zone) {
        const auto selected = Decode<ZoneSelected>({0xB0, 0x0C, Byte(zone)});
        ASSERT_EQ(selected.has_value(), zone < 0x1E);
        for (unsigned value = 0; value < 128; ++value) {
            const auto light = Decode<LightSet>({0xB0, 0x2C, Byte(value)});
            const auto button = ButtonAt({Byte(zone), Byte(value % 64)});
            ASSERT_EQ(light.has_value(), button.has_value()) << zone << ' ' << value;
            if (light) {
                ASSERT_EQ(light->button, *button);
                ASSERT_EQ(light->state, value >= 64 ? LightState::kOn : LightState::kOff);
            }
        }
    }
}

TEST_F(HuiDecoderTest, KnowsNoPortBeforeAZone) {
    EXPECT_TRUE(IsUnknown({0xB0, 0x2C, 0x44}));
    ASSERT_TRUE(Decode<ZoneSelected>({0xB0, 0x0C, 0x0E}));
    EXPECT_TRUE(Decode<LightSet>({0xB0, 0x2C, 0x44}));
    EXPECT_TRUE(Decode<LightSet>({0xB0, 0x2C, 0x43})) << "the zone holds";
}

TEST_F(HuiDecoderTest, SwitchesNothingAfterAnUnknownZone) {
    ASSERT_TRUE(Decode<ZoneSelected>({0xB0, 0x0C, 0x0E}));
    EXPECT_TRUE(IsUnknown({0xB0, 0x0C, 0x1E}));
    EXPECT_TRUE(IsUnknown({0xB0, 0x2C, 0x44}));
}

TEST_F(HuiDecoderTest, MovesAFaderByTwoHalves) {
    for (unsigned fader = 0; fader < 9; ++fader) {
        const auto half = Decode<FaderHalfReceived>({0xB0, Byte(fader), Byte(0x30 + fader)});
        ASSERT_TRUE(half);
        EXPECT_EQ(half->fader, fader);
    }
    for (unsigned fader = 0; fader < 9; ++fader) {
        const auto moved = Decode<FaderMoved>({0xB0, Byte(0x20 + fader), 0x7E});
        ASSERT_TRUE(moved);
        EXPECT_EQ(moved->fader, fader);
        EXPECT_EQ(moved->position, (0x30 + fader) * 128 + 0x7E) << "its own high half";
    }
    EXPECT_EQ(Decode<FaderMoved>({0xB0, 0x22, 0x00})->position, 0x32 * 128) << "still";
}

TEST_F(HuiDecoderTest, SetsTheRingsOfTwelvePots) {
    for (unsigned pot = 0; pot < 16; ++pot) {
        for (unsigned value = 0; value < 128; ++value) {
            const auto set = Decode<PotRingSet>({0xB0, Byte(0x10 + pot), Byte(value)});
            const auto ring = RingOfByte(Byte(value));
            ASSERT_EQ(set.has_value(), pot < 12 && ring.has_value());
            if (set) {
                ASSERT_EQ(set->pot, pot);
                ASSERT_EQ(set->ring, *ring);
            }
        }
    }
}

TEST_F(HuiDecoderTest, KnowsNoOtherController) {
    for (unsigned controller = 0; controller < 128; ++controller) {
        const bool known = controller <= 0x08 || controller == 0x0C ||
                           (controller >= 0x10 && controller <= 0x1B) ||
                           (controller >= 0x20 && controller <= 0x28) || controller == 0x2C;
        mDecoder = {};
        mDecoder.Decode(Bytes{0xB0, 0x0C, 0x00});
        EXPECT_EQ(IsUnknown({0xB0, Byte(controller), 0x00}), !known) << controller;
    }
}

TEST_F(HuiDecoderTest, SetsMetersOfBothSides) {
    for (unsigned strip = 0; strip < 16; ++strip) {
        for (unsigned value = 0; value < 128; ++value) {
            const auto meter = Decode<MeterSet>({0xA0, Byte(strip), Byte(value)});
            ASSERT_EQ(meter.has_value(), strip < 8 && value / 16 < 2 && value % 16 <= 12);
            if (meter) {
                ASSERT_EQ(meter->strip, strip);
                ASSERT_EQ(meter->side, value < 16 ? MeterSide::kLeft : MeterSide::kRight);
                ASSERT_EQ(meter->level, value % 16);
                ASSERT_EQ(meter->overload, value % 16 == 12) << "the clip light";
                ASSERT_FALSE(meter->falls);
            }
        }
    }
}

TEST_F(HuiDecoderTest, WritesTheNamesAboveTheStrips) {
    for (unsigned zone = 0; zone < 128; ++zone) {
        const auto text = Decode<TextWritten>(Exclusive({0x10, Byte(zone), 'K', 'i', 'c', 'k'}));
        ASSERT_EQ(text.has_value(), zone <= 8);
        if (text) {
            EXPECT_EQ(text->text, "Kick");
            EXPECT_EQ(text->display,
                      zone < 8 ? TextDisplay::kStripNames : TextDisplay::kAssignment);
            EXPECT_EQ(text->first, zone % 8 * 4);
        }
    }
    EXPECT_TRUE(IsUnknown(Exclusive({0x10, 0x00, 'K', 'i', 'c'})));
    EXPECT_TRUE(IsUnknown(Exclusive({0x10, 0x00, 'K', 'i', 'c', 'k', 's'})));
    EXPECT_TRUE(IsUnknown(Exclusive({0x10})));
}

TEST_F(HuiDecoderTest, WritesZonesOfTheMainDisplay) {
    Bytes data = {0x12, 0x00};
    data.resize(12, 'a');
    ASSERT_TRUE(Decode<ZonesWritten>(Exclusive(data)));
    data.push_back(0x07);
    data.resize(23, 'b');
    const auto zones = Decode<ZonesWritten>(Exclusive(data));
    ASSERT_TRUE(zones);
    EXPECT_THAT(zones->zones.first(2), ElementsAre(0x00, 'a'));
    EXPECT_THAT(zones->zones.subspan(11, 2), ElementsAre(0x07, 'b'));
    EXPECT_EQ(zones->zones.size(), 22U);

    Bytes unknownZone = data;
    unknownZone[12] = 0x08;
    EXPECT_TRUE(IsUnknown(Exclusive(unknownZone)));
    data.push_back('c');
    EXPECT_TRUE(IsUnknown(Exclusive(data))) << "no whole zones";
    EXPECT_TRUE(IsUnknown(Exclusive({0x12})));
}

TEST_F(HuiDecoderTest, ReadsTimecodeFromRightToLeft) {
    Bytes data = {0x11};
    for (unsigned count = 1; count <= 9; ++count) {
        data.push_back(Byte(count == 2 ? 0x1D : count));
        const auto digits = Decode<DigitsSet>(Exclusive(data));
        ASSERT_EQ(digits.has_value(), count <= 8);
        if (digits) {
            EXPECT_EQ(digits->display, DigitDisplay::kTimecode);
            EXPECT_EQ(digits->first, 0);
            EXPECT_EQ(digits->count, count);
            EXPECT_EQ(digits->digits[0], (Digit{'1', false}));
        }
        if (count >= 2 && digits) {
            EXPECT_EQ(digits->digits[1], (Digit{'d', true}));
        }
    }
    EXPECT_TRUE(IsUnknown(Exclusive({0x11})));
    for (unsigned code = 0; code < 128; ++code) {
        const auto digit = Decode<DigitsSet>(Exclusive({0x11, Byte(code)}));
        ASSERT_TRUE(digit);
        EXPECT_EQ(digit->digits[0].character, code < 32 ? "0123456789AbCdEF"[code % 16] : ' ');
        EXPECT_EQ(digit->digits[0].point, code >= 16 && code < 32);
    }
}

TEST_F(HuiDecoderTest, ToleratesPings) {
    EXPECT_TRUE(Decode<PingReceived>({0x90, 0x00, 0x00}));
    EXPECT_TRUE(IsUnknown({0x90, 0x00, 0x7F}));
    EXPECT_TRUE(IsUnknown({0x90, 0x01, 0x00}));
}

TEST_F(HuiDecoderTest, BeginsAnewAfterAReset) {
    mDecoder.Decode(Bytes{0xB0, 0x0C, 0x0E});
    mDecoder.Decode(Bytes{0xB0, 0x00, 0x7F});
    const auto reset = Decode<ResetReceived>({0xFF});
    ASSERT_TRUE(reset);
    EXPECT_EQ(reset->kind, ResetKind::kAll);
    EXPECT_TRUE(IsUnknown({0xB0, 0x2C, 0x44}));
    EXPECT_EQ(Decode<FaderMoved>({0xB0, 0x20, 0x01})->position, 1);
}

TEST_F(HuiDecoderTest, LeavesEverythingElseUnknown) {
    for (const Bytes& message : std::vector<Bytes>{
             {},
             {0xF8},
             {0xC0, 0x01},
             {0xD0, 0x01},
             {0xE0, 0x00, 0x00},
             {0xA1, 0x00, 0x00},
             {0xB1, 0x0C, 0x00},
             {0xB0, 0x0C},
             {0xB0, 0x0C, 0x80},
             {0x80, 0x00, 0x40},
             Exclusive({}),
             Exclusive({0x13, 0x00}),
             {0xF0, 0x00, 0x00, 0x66, 0x05, 0x01, 0x10, 0x00, 'a', 'b', 'c', 'd', 0xF7},
             {0xF0, 0x00, 0x00, 0x66, 0x14, 0x12, 0x00, 0x41, 0xF7},
             {0xF0, 0x00, 0x00, 0x66, 0x05, 0x00, 0x10, 0x00, 'a', 'b', 'c', 'd'}}) {
        EXPECT_TRUE(IsUnknown(message)) << testing::PrintToString(message);
    }
    EXPECT_TRUE(Decode<ForeignExclusive>({0xF0, 0x00, 0x00, 0x67, 0x05, 0xF7}));
}

} // namespace
} // namespace Surface::Hui
