#include "surface/mackie/MackieDecoder.h"

#include "surface/mackie/MackieButtons.h"

#include <gmock/gmock.h>

#include <vector>

namespace Surface::Mackie {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Holds the message that its event refers to.
class Decoded {
public:
    explicit Decoded(Bytes message) : mMessage(std::move(message)), mEvent(Decode(mMessage)) {}

    // Returns the event if it is of this kind.
    template <class Kind>
    const Kind* As() const {
        return std::get_if<Kind>(&mEvent);
    }
    bool IsUnknown() const { return As<UnknownMessage>() != nullptr; }

private:
    Bytes mMessage;
    SurfaceEvent mEvent;
};

std::uint8_t Byte(unsigned value) {
    return static_cast<std::uint8_t>(value);
}

Decoded Exclusive(std::uint8_t identity, const Bytes& data) {
    Bytes message = {0xF0, 0x00, 0x00, 0x66, identity};
    message.insert(message.end(), data.begin(), data.end());
    message.push_back(0xF7);
    return Decoded(message);
}

TEST(MackieDecoderTest, SwitchesTheLightOfEveryNote) {
    for (unsigned note = 0; note < 128; ++note) {
        for (unsigned velocity = 0; velocity < 128; ++velocity) {
            const Decoded decoded({0x90, Byte(note), Byte(velocity)});
            const auto button = ButtonOfNote(Byte(note));
            ASSERT_EQ(decoded.IsUnknown(), !button) << note;
            if (button) {
                const auto* light = decoded.As<LightSet>();
                ASSERT_TRUE(light) << note;
                ASSERT_EQ(light->button, *button);
                ASSERT_EQ(light->state, velocity == 0   ? LightState::kOff
                                        : velocity == 1 ? LightState::kFlashing
                                                        : LightState::kOn);
            }
        }
    }
}

TEST(MackieDecoderTest, TakesANoteOffForALightOff) {
    const Decoded decoded({0x80, 0x5E, 0x40});
    const auto* light = decoded.As<LightSet>();
    ASSERT_TRUE(light);
    EXPECT_EQ(light->state, LightState::kOff);
    EXPECT_EQ(light->button, (ButtonId{Button::kPlay}));
}

TEST(MackieDecoderTest, MovesNineFadersByFourteenBits) {
    for (unsigned channel = 0; channel < 16; ++channel) {
        for (unsigned position = 0; position <= kHighestFader; position += 43) {
            const Decoded decoded(
                {Byte(0xE0 + channel), Byte(position % 128), Byte(position / 128)});
            const auto* moved = decoded.As<FaderMoved>();
            ASSERT_EQ(moved != nullptr, channel < 9);
            if (moved) {
                ASSERT_EQ(moved->fader, channel);
                ASSERT_EQ(moved->position, position);
            }
        }
    }
}

TEST(MackieDecoderTest, SetsRingsAndDigitsAndKnowsNoOtherController) {
    for (unsigned controller = 0; controller < 128; ++controller) {
        for (unsigned value = 0; value < 128; ++value) {
            const Decoded decoded({0xB0, Byte(controller), Byte(value)});
            const auto* ring = decoded.As<PotRingSet>();
            const auto* digits = decoded.As<DigitsSet>();
            const bool isRing = controller >= 0x30 && controller <= 0x37 && value % 16 <= 11;
            const bool isDigit = controller >= 0x40 && controller <= 0x4B;
            ASSERT_EQ(ring != nullptr, isRing) << controller << ' ' << value;
            ASSERT_EQ(digits != nullptr, isDigit) << controller;
            ASSERT_EQ(decoded.IsUnknown(), !isRing && !isDigit);
            if (ring) {
                ASSERT_EQ(ring->pot, controller - 0x30);
                ASSERT_EQ(ring->ring, RingOfByte(Byte(value)));
            }
            if (digits) {
                const bool timecode = controller < 0x4A;
                ASSERT_EQ(digits->display,
                          timecode ? DigitDisplay::kTimecode : DigitDisplay::kAssignment);
                ASSERT_EQ(digits->first, controller - (timecode ? 0x40 : 0x4A));
                ASSERT_EQ(digits->count, 1);
                ASSERT_EQ(digits->digits[0].point, value >= 64);
            }
        }
    }
}

TEST(MackieDecoderTest, ReadsTheCharactersOfSevenSegments) {
    const std::string characters = " ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_ !\"#$%&'()*+,-./"
                                   "0123456789:;<=>?";
    ASSERT_EQ(characters.size(), 64U);
    for (unsigned code = 0; code < 128; ++code) {
        const Decoded decoded({0xB0, 0x40, Byte(code)});
        ASSERT_TRUE(decoded.As<DigitsSet>());
        EXPECT_EQ(decoded.As<DigitsSet>()->digits[0], (Digit{characters[code % 64], code >= 64}))
            << code;
    }
}

TEST(MackieDecoderTest, ReadsDigitsOfOneMessageFromRightToLeft) {
    const Decoded timecode =
        Exclusive(0x14, {0x10, 0x36, 0x32, 0x31, 0x71, 0x30, 0x72, 0x30, 0x79, 0x30, 0x31});
    const auto* digits = timecode.As<DigitsSet>();
    ASSERT_TRUE(digits);
    EXPECT_EQ(digits->display, DigitDisplay::kTimecode);
    EXPECT_EQ(digits->count, 10);
    EXPECT_EQ(digits->digits[0], (Digit{'6', false}));
    EXPECT_EQ(digits->digits[3], (Digit{'1', true}));
    EXPECT_EQ(digits->digits[9], (Digit{'1', false}));

    const Decoded assignment = Exclusive(0x14, {0x11, 0x4E, 0x10, 0x31});
    ASSERT_TRUE(assignment.As<DigitsSet>());
    EXPECT_EQ(assignment.As<DigitsSet>()->count, 2) << "what goes beyond the display is cut";
    EXPECT_EQ(assignment.As<DigitsSet>()->digits[0], (Digit{'N', true}));
    EXPECT_EQ(assignment.As<DigitsSet>()->digits[1], (Digit{'P', false}));

    EXPECT_TRUE(Exclusive(0x14, {0x10}).IsUnknown());
}

TEST(MackieDecoderTest, SetsMetersAndTheirOverload) {
    for (unsigned byte = 0; byte < 128; ++byte) {
        const Decoded decoded({0xD0, Byte(byte)});
        const auto* meter = decoded.As<MeterSet>();
        const unsigned value = byte % 16;
        ASSERT_EQ(meter == nullptr, value == 13) << byte;
        if (meter) {
            ASSERT_EQ(meter->strip, byte / 16);
            ASSERT_EQ(meter->side, MeterSide::kLeft);
            ASSERT_TRUE(meter->falls);
            ASSERT_EQ(meter->level.has_value(), value <= 12);
            ASSERT_EQ(meter->level.value_or(value), value);
            ASSERT_EQ(meter->overload.has_value(), value >= 14);
            ASSERT_EQ(meter->overload.value_or(false), value == 14);
        }
    }
}

TEST(MackieDecoderTest, WritesTextFromAnyCellToTheDisplaysEnd) {
    for (unsigned first = 0; first < 128; ++first) {
        for (const std::size_t length : {0U, 1U, 7U, 56U, 100U, 112U, 113U}) {
            Bytes data = {0x12, Byte(first)};
            for (std::size_t i = 0; i < length; ++i) {
                data.push_back(Byte(static_cast<unsigned>('A' + i % 26)));
            }
            const Decoded decoded = Exclusive(0x14, data);
            const auto* text = decoded.As<TextWritten>();
            ASSERT_EQ(text != nullptr, first < 112 && length > 0);
            if (text) {
                ASSERT_EQ(text->display, TextDisplay::kStrips);
                ASSERT_EQ(text->first, first);
                ASSERT_EQ(text->text.size(), std::min<std::size_t>(length, 112 - first));
                ASSERT_EQ(text->text[0], 'A');
                ASSERT_EQ(text->text.back(), static_cast<char>('A' + (text->text.size() - 1) % 26));
            }
        }
    }
    EXPECT_TRUE(Exclusive(0x14, {0x12}).IsUnknown());
}

TEST(MackieDecoderTest, UnderstandsAllDevicesOfTheFamilyAlike) {
    for (unsigned identity = 0; identity < 128; ++identity) {
        const bool ours = identity == 0x05 || identity == 0x10 || identity == 0x11 ||
                          identity == 0x14 || identity == 0x15;
        const Decoded text = Exclusive(Byte(identity), {0x12, 0x00, 'a'});
        EXPECT_EQ(text.As<TextWritten>() != nullptr, ours) << identity;
        EXPECT_EQ(text.IsUnknown(), !ours);
        const Decoded query = Exclusive(Byte(identity), {0x00});
        EXPECT_EQ(query.As<DeviceQueried>() != nullptr, ours && identity != 0x05) << identity;
        if (const auto* queried = query.As<DeviceQueried>()) {
            EXPECT_EQ(queried->identity, identity);
            EXPECT_FALSE(queried->serialNumber);
        }
    }
}

TEST(MackieDecoderTest, UnderstandsTheHandshake) {
    const Decoded serial = Exclusive(0x15, {0x1A});
    ASSERT_TRUE(serial.As<DeviceQueried>());
    EXPECT_TRUE(serial.As<DeviceQueried>()->serialNumber);
    EXPECT_EQ(serial.As<DeviceQueried>()->identity, 0x15);

    const Decoded reply = Exclusive(0x10, {0x02, 1, 2, 3, 4, 5, 6, 7, 0x75, 0x56, 0x4B, 0x1F});
    ASSERT_TRUE(reply.As<HostConnectionReplied>());
    EXPECT_EQ(reply.As<HostConnectionReplied>()->identity, 0x10);
    EXPECT_THAT(reply.As<HostConnectionReplied>()->serialNumber,
                testing::ElementsAre(1, 2, 3, 4, 5, 6, 7));
    EXPECT_TRUE(Exclusive(0x10, {0x02, 1, 2, 3, 4, 5, 6}).IsUnknown());

    const Decoded version = Exclusive(0x14, {0x13, 0x00});
    ASSERT_TRUE(version.As<VersionRequested>());
    EXPECT_EQ(version.As<VersionRequested>()->identity, 0x14);
}

TEST(MackieDecoderTest, UnderstandsResets) {
    const auto kind = [](std::uint8_t command, const Bytes& rest) -> std::optional<ResetKind> {
        Bytes data = {command};
        data.insert(data.end(), rest.begin(), rest.end());
        const Decoded decoded = Exclusive(0x14, data);
        const auto* reset = decoded.As<ResetReceived>();
        return reset ? std::optional(reset->kind) : std::nullopt;
    };
    EXPECT_EQ(kind(0x08, {0x00}), ResetKind::kAll);
    EXPECT_EQ(kind(0x63, {}), ResetKind::kAll);
    EXPECT_EQ(kind(0x0F, {0x7F}), ResetKind::kOffline);
    EXPECT_EQ(kind(0x61, {}), ResetKind::kFadersDown);
    EXPECT_EQ(kind(0x62, {}), ResetKind::kLightsOff);
    EXPECT_EQ(kind(0x60, {}), std::nullopt);
    EXPECT_EQ(kind(0x64, {}), std::nullopt);
}

TEST(MackieDecoderTest, UnderstandsTheModesOfMeters) {
    for (unsigned bits = 0; bits < 128; ++bits) {
        const Decoded mode = Exclusive(0x14, {0x20, Byte(bits % 16), Byte(bits)});
        const auto* set = mode.As<MeterModeSet>();
        ASSERT_EQ(set != nullptr, bits % 16 < 8);
        if (set) {
            EXPECT_EQ(set->strip, bits % 16);
            EXPECT_EQ(set->signalLight, bits % 2 == 1);
            EXPECT_EQ(set->peakHold, bits / 2 % 2 == 1);
            EXPECT_EQ(set->onDisplay, bits / 4 % 2 == 1);
        }
    }
    EXPECT_TRUE(Exclusive(0x14, {0x20, 0x01}).IsUnknown());
    const Decoded direction = Exclusive(0x14, {0x21, 0x01});
    ASSERT_TRUE(direction.As<MeterDirectionSet>());
    EXPECT_TRUE(direction.As<MeterDirectionSet>()->vertical);
    EXPECT_FALSE(Exclusive(0x14, {0x21, 0x00}).As<MeterDirectionSet>()->vertical);
    EXPECT_TRUE(Exclusive(0x14, {0x21}).IsUnknown());
}

TEST(MackieDecoderTest, UnderstandsSettings) {
    const auto setting = [](const Bytes& data) {
        const Decoded decoded = Exclusive(0x14, data);
        const auto* changed = decoded.As<SettingChanged>();
        return changed ? std::optional(changed->setting) : std::nullopt;
    };
    EXPECT_EQ(setting({0x0A, 0x01}), Setting::kTransportClick);
    EXPECT_EQ(setting({0x0B, 0x0F}), Setting::kBacklight);
    EXPECT_EQ(setting({0x0C, 0x01}), Setting::kTouchlessFaders);
    EXPECT_EQ(setting({0x0E, 0x08, 0x03}), Setting::kTouchSensitivity);
    EXPECT_EQ(setting({0x0E, 0x09, 0x03}), std::nullopt);
    EXPECT_EQ(setting({0x0E, 0x03}), std::nullopt);
    EXPECT_EQ(setting({0x0A}), std::nullopt);
}

TEST(MackieDecoderTest, LeavesEverythingElseUnknown) {
    for (const Bytes& message : std::vector<Bytes>{{},
                                                   {0xF8},
                                                   {0xFF},
                                                   {0xF6},
                                                   {0xC0, 0x01},
                                                   {0xA0, 0x01, 0x02},
                                                   {0x91, 0x00, 0x7F},
                                                   {0xB1, 0x30, 0x01},
                                                   {0xD1, 0x01},
                                                   {0xF2, 0x01, 0x02},
                                                   {0x90, 0x00},
                                                   {0x90, 0x00, 0x80},
                                                   {0x90, 0x80, 0x00},
                                                   {0xD0, 0x80},
                                                   {0xD0},
                                                   {0xE0, 0x00},
                                                   {0x00, 0x01, 0x02},
                                                   {0xF0, 0x00, 0x00, 0x66, 0x14, 0x12, 0x00, 0x41},
                                                   {0xF0, 0x00, 0x00, 0x66, 0x14, 0xF7},
                                                   {0xF0, 0x00, 0x00, 0x66, 0x14, 0x7F, 0xF7}}) {
        EXPECT_TRUE(Decoded(message).IsUnknown()) << testing::PrintToString(message);
    }
}

TEST(MackieDecoderTest, TellsSystemExclusiveOfAnotherMakeFromItsOwn) {
    const Decoded other({0xF0, 0x00, 0x00, 0x67, 0x15, 0x13, 0x00, 0x20, 0xF7});
    ASSERT_TRUE(other.As<ForeignExclusive>());
    EXPECT_EQ(other.As<ForeignExclusive>()->size, 9U);
}

} // namespace
} // namespace Surface::Mackie
