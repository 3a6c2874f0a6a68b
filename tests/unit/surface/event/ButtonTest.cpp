#include "surface/event/Button.h"

#include <gmock/gmock.h>

#include <set>

namespace Surface {
namespace {

TEST(ButtonTest, HasANameOfItsOwn) {
    std::set<std::string_view> names;
    for (std::size_t button = 0; button < kButtonCount; ++button) {
        const std::string_view name = ButtonName(static_cast<Button>(button));
        EXPECT_FALSE(name.empty());
        EXPECT_TRUE(names.insert(name).second) << name;
    }
}

// The first, the last and some between: each name stands at its button.
TEST(ButtonTest, NamesAreInTheOrderOfTheButtons) {
    EXPECT_EQ(ButtonName(Button::kRecordReady), "record ready");
    EXPECT_EQ(ButtonName(Button::kInsert), "insert");
    EXPECT_EQ(ButtonName(Button::kRewind), "rewind");
    EXPECT_EQ(ButtonName(Button::kBankLeft), "bank left");
    EXPECT_EQ(ButtonName(Button::kAssignTrack), "assign track");
    EXPECT_EQ(ButtonName(Button::kFlip), "flip");
    EXPECT_EQ(ButtonName(Button::kF1), "f1");
    EXPECT_EQ(ButtonName(Button::kRead), "read");
    EXPECT_EQ(ButtonName(Button::kGroup), "group");
    EXPECT_EQ(ButtonName(Button::kSave), "save");
    EXPECT_EQ(ButtonName(Button::kParameterInsert), "parameter insert");
    EXPECT_EQ(ButtonName(Button::kRoomInput1), "room input 1");
    EXPECT_EQ(ButtonName(Button::kNumber0), "number 0");
    EXPECT_EQ(ButtonName(Button::kUserA), "user a");
    EXPECT_EQ(ButtonName(Button::kBeep), "beep");
}

TEST(ButtonTest, TellsTheStripAsPeopleCount) {
    EXPECT_EQ(ButtonText({Button::kMute, 0}), "mute 1");
    EXPECT_EQ(ButtonText({Button::kInsert, 7}), "insert 8");
    EXPECT_EQ(ButtonText({Button::kFaderTouch, kMasterFader}), "touch master");
    EXPECT_EQ(ButtonText({Button::kRewind}), "rewind");
    EXPECT_EQ(FaderName(0), "1");
    EXPECT_EQ(FaderName(kMasterFader), "master");
}

} // namespace
} // namespace Surface
