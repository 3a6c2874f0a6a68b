#include "surface/mackie/MackieEncoder.h"

#include "surface/mackie/MackieButtons.h"
#include "surface/mackie/MackieDecoder.h"

#include <gmock/gmock.h>

namespace Surface::Mackie {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Message = std::array<std::uint8_t, 3>;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(MackieEncoderTest, PressesEveryButtonByItsNote) {
    for (const NoteRange& range : NoteRanges()) {
        for (std::uint8_t strip = 0; strip < range.count; ++strip) {
            const auto note = static_cast<std::uint8_t>(range.first + strip);
            const ButtonId button{range.button, strip};
            EXPECT_THAT(Encode(ButtonMoved{button, true}), ElementsAre(Message{0x90, note, 0x7F}));
            EXPECT_THAT(Encode(ButtonMoved{button, false}), ElementsAre(Message{0x90, note, 0}));
        }
    }
    EXPECT_THAT(Encode(ButtonMoved{{Button::kOnLine}, true}), IsEmpty()) << "it has none";
}

TEST(MackieEncoderTest, TouchesMovesAndLetsGoOfFaders) {
    EXPECT_THAT(Encode(FaderTouched{0, true}), ElementsAre(Message{0x90, 0x68, 0x7F}));
    EXPECT_THAT(Encode(FaderTouched{kMasterFader, false}), ElementsAre(Message{0x90, 0x70, 0x00}));
    EXPECT_THAT(Encode(FaderPushed{2, 0x2AC0}), ElementsAre(Message{0xE2, 0x40, 0x55}));
    EXPECT_THAT(Encode(FaderPushed{kMasterFader, kHighestFader}),
                ElementsAre(Message{0xE8, 0x7F, 0x7F}));
    EXPECT_THAT(Encode(FaderPushed{0, 0xFFFF}), ElementsAre(Message{0xE0, 0x7F, 0x7F}));
    EXPECT_THAT(Encode(FaderPushed{9, 0}), IsEmpty());
    EXPECT_THAT(Encode(FaderTouched{9, true}), IsEmpty());
}

TEST(MackieEncoderTest, TurnsPotsAndTheJogWheel) {
    EXPECT_THAT(Encode(PotTurned{0, 1}), ElementsAre(Message{0xB0, 0x10, 0x01}));
    EXPECT_THAT(Encode(PotTurned{7, -7}), ElementsAre(Message{0xB0, 0x17, 0x47}));
    EXPECT_THAT(Encode(PotTurned{8, 1}), IsEmpty());
    EXPECT_THAT(Encode(JogTurned{1}), ElementsAre(Message{0xB0, 0x3C, 0x01}));
    EXPECT_THAT(Encode(JogTurned{-1}), ElementsAre(Message{0xB0, 0x3C, 0x41}));
}

TEST(MackieEncoderTest, ConfirmsAConnectionWithTheSameSerialNumber) {
    const Bytes reply = {0xF0, 0, 0, 0x66, 0x10, 0x02, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0xF7};
    EXPECT_EQ(AnswerTo(Decode(reply), "0.1.0"),
              (Bytes{0xF0, 0, 0, 0x66, 0x10, 0x03, 1, 2, 3, 4, 5, 6, 7, 0xF7}));
}

TEST(MackieEncoderTest, TellsItsVersionInFiveCharacters) {
    const Bytes request = {0xF0, 0, 0, 0x66, 0x14, 0x13, 0x00, 0xF7};
    EXPECT_EQ(AnswerTo(Decode(request), "0.1.0"),
              (Bytes{0xF0, 0, 0, 0x66, 0x14, 0x14, '0', '.', '1', '.', '0', 0xF7}));
    EXPECT_EQ(AnswerTo(Decode(request), "1.0"),
              (Bytes{0xF0, 0, 0, 0x66, 0x14, 0x14, '1', '.', '0', ' ', ' ', 0xF7}));
    EXPECT_EQ(AnswerTo(Decode(request), "12.34.56"),
              (Bytes{0xF0, 0, 0, 0x66, 0x14, 0x14, '1', '2', '.', '3', '4', 0xF7}));
    EXPECT_EQ(AnswerTo(Decode(request), "\xC3\xA4"),
              (Bytes{0xF0, 0, 0, 0x66, 0x14, 0x14, ' ', ' ', ' ', ' ', ' ', 0xF7}));
}

// The driver answers these at once; a second answer would introduce the surface again.
TEST(MackieEncoderTest, LeavesPingsToTheDriver) {
    for (const std::uint8_t identity : Bytes{0x10, 0x11, 0x14, 0x15}) {
        for (const std::uint8_t command : Bytes{0x00, 0x1A}) {
            const Bytes query = {0xF0, 0, 0, 0x66, identity, command, 0xF7};
            EXPECT_EQ(AnswerTo(Decode(query), "0.1.0"), std::nullopt);
        }
    }
    EXPECT_EQ(AnswerTo(PingReceived{}, "0.1.0"), std::nullopt);
    EXPECT_EQ(AnswerTo(LightSet{{Button::kPlay}, LightState::kOn}, "0.1.0"), std::nullopt);
}

} // namespace
} // namespace Surface::Mackie
