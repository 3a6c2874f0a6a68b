#include "surface/hui/HuiEncoder.h"

#include "surface/event/SurfaceEvent.h"
#include "surface/hui/HuiButtons.h"

#include <gmock/gmock.h>

namespace Surface::Hui {
namespace {

using Message = std::array<std::uint8_t, 3>;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(HuiEncoderTest, PressesEveryButtonByItsZoneAndPort) {
    for (std::uint8_t zone = 0; zone < kZoneCount; ++zone) {
        for (std::uint8_t port = 0; port < kPortCount; ++port) {
            if (const auto button = ButtonAt({zone, port})) {
                const auto pressed = static_cast<std::uint8_t>(0x40 + port);
                EXPECT_THAT(Encode(ButtonMoved{*button, true}),
                            ElementsAre(Message{0xB0, 0x0F, zone}, Message{0xB0, 0x2F, pressed}));
                EXPECT_THAT(Encode(ButtonMoved{*button, false}),
                            ElementsAre(Message{0xB0, 0x0F, zone}, Message{0xB0, 0x2F, port}));
            }
        }
    }
    EXPECT_THAT(Encode(ButtonMoved{{Button::kFlip}, true}), IsEmpty()) << "it has none";
}

TEST(HuiEncoderTest, TouchesMovesAndLetsGoOfFaders) {
    EXPECT_THAT(Encode(FaderTouched{2, true}),
                ElementsAre(Message{0xB0, 0x0F, 0x02}, Message{0xB0, 0x2F, 0x40}));
    EXPECT_THAT(Encode(FaderPushed{2, 0x2AC1}),
                ElementsAre(Message{0xB0, 0x02, 0x55}, Message{0xB0, 0x22, 0x41}));
    EXPECT_THAT(Encode(FaderTouched{2, false}),
                ElementsAre(Message{0xB0, 0x0F, 0x02}, Message{0xB0, 0x2F, 0x00}));
    EXPECT_THAT(Encode(FaderPushed{7, 0xFFFF}),
                ElementsAre(Message{0xB0, 0x07, 0x7F}, Message{0xB0, 0x27, 0x7F}));
    EXPECT_THAT(Encode(FaderPushed{kMasterFader, 0}), IsEmpty()) << "it has none";
    EXPECT_THAT(Encode(FaderTouched{kMasterFader, true}), IsEmpty());
}

TEST(HuiEncoderTest, TurnsPotsAndTheJogWheel) {
    EXPECT_THAT(Encode(PotTurned{0, 1}), ElementsAre(Message{0xB0, 0x40, 0x41}));
    EXPECT_THAT(Encode(PotTurned{11, -7}), ElementsAre(Message{0xB0, 0x4B, 0x07}));
    EXPECT_THAT(Encode(PotTurned{12, 1}), IsEmpty());
    EXPECT_THAT(Encode(JogTurned{3}), ElementsAre(Message{0xB0, 0x0D, 0x43}));
    EXPECT_THAT(Encode(JogTurned{-3}), ElementsAre(Message{0xB0, 0x0D, 0x03}));
}

} // namespace
} // namespace Surface::Hui
