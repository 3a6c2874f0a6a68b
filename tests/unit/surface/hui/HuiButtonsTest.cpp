#include "surface/hui/HuiButtons.h"

#include <gmock/gmock.h>

namespace Surface::Hui {
namespace {

TEST(HuiButtonsTest, FindsThePlaceOfEveryButtonItFinds) {
    unsigned named = 0;
    for (unsigned zone = 0; zone < 256; ++zone) {
        for (unsigned port = 0; port < 256; ++port) {
            const ZonePort place{static_cast<std::uint8_t>(zone), static_cast<std::uint8_t>(port)};
            const auto button = ButtonAt(place);
            if (button) {
                ++named;
                EXPECT_LT(zone, kZoneCount);
                EXPECT_LT(port, kPortCount);
                EXPECT_EQ(PlaceOfButton(*button), place) << ButtonText(*button);
            }
        }
    }
    EXPECT_EQ(named, 64U + 132U) << "eight strips, and the zones above";
}

TEST(HuiButtonsTest, KnowsTheButtonsOfTheDevice) {
    EXPECT_EQ(ButtonAt({0x00, 0}), (ButtonId{Button::kFaderTouch, 0}));
    EXPECT_EQ(ButtonAt({0x03, 1}), (ButtonId{Button::kSelect, 3}));
    EXPECT_EQ(ButtonAt({0x07, 2}), (ButtonId{Button::kMute, 7}));
    EXPECT_EQ(ButtonAt({0x02, 3}), (ButtonId{Button::kSolo, 2}));
    EXPECT_EQ(ButtonAt({0x02, 7}), (ButtonId{Button::kRecordReady, 2}));
    EXPECT_EQ(ButtonAt({0x08, 1}), (ButtonId{Button::kShift}));
    EXPECT_EQ(ButtonAt({0x0A, 1}), (ButtonId{Button::kBankLeft}));
    EXPECT_EQ(ButtonAt({0x0D, 4}), (ButtonId{Button::kUp}));
    EXPECT_EQ(ButtonAt({0x0E, 1}), (ButtonId{Button::kRewind}));
    EXPECT_EQ(ButtonAt({0x0E, 3}), (ButtonId{Button::kStop}));
    EXPECT_EQ(ButtonAt({0x0E, 4}), (ButtonId{Button::kPlay}));
    EXPECT_EQ(ButtonAt({0x0E, 5}), (ButtonId{Button::kRecord}));
    EXPECT_EQ(ButtonAt({0x0F, 0}), (ButtonId{Button::kReturnToZero}));
    EXPECT_EQ(ButtonAt({0x13, 5}), (ButtonId{Button::kPoint}));
    EXPECT_EQ(ButtonAt({0x16, 3}), (ButtonId{Button::kLightSolo}));
    EXPECT_EQ(ButtonAt({0x18, 2}), (ButtonId{Button::kRead}));
    EXPECT_EQ(ButtonAt({0x1B, 0}), (ButtonId{Button::kF1}));
    EXPECT_EQ(ButtonAt({0x1D, 3}), (ButtonId{Button::kBeep}));
}

TEST(HuiButtonsTest, HasNoPlaceForButtonsOfOthers) {
    EXPECT_FALSE(PlaceOfButton({Button::kFlip}));
    EXPECT_FALSE(PlaceOfButton({Button::kFaderTouch, kMasterFader}));
    EXPECT_FALSE(ButtonAt({0x1D, 4}));
    EXPECT_FALSE(ButtonAt({0x1E, 0}));
}

} // namespace
} // namespace Surface::Hui
