#include "surface/mackie/MackieButtons.h"

#include <gmock/gmock.h>

namespace Surface::Mackie {
namespace {

TEST(MackieButtonsTest, FindsTheNoteOfEveryButtonItFinds) {
    unsigned named = 0;
    for (unsigned note = 0; note < 256; ++note) {
        if (const auto button = ButtonOfNote(static_cast<std::uint8_t>(note))) {
            ++named;
            EXPECT_EQ(NoteOfButton(*button), note);
        }
    }
    EXPECT_EQ(named, 0x74U + 1U) << "00 to 73 and 76";
    EXPECT_FALSE(ButtonOfNote(0x74));
    EXPECT_FALSE(ButtonOfNote(0x75));
    EXPECT_FALSE(ButtonOfNote(0x77));
}

TEST(MackieButtonsTest, KnowsTheButtonsOfTheDevice) {
    EXPECT_EQ(ButtonOfNote(0x00), (ButtonId{Button::kRecordReady, 0}));
    EXPECT_EQ(ButtonOfNote(0x0F), (ButtonId{Button::kSolo, 7}));
    EXPECT_EQ(ButtonOfNote(0x12), (ButtonId{Button::kMute, 2}));
    EXPECT_EQ(ButtonOfNote(0x18), (ButtonId{Button::kSelect, 0}));
    EXPECT_EQ(ButtonOfNote(0x27), (ButtonId{Button::kPotPush, 7}));
    EXPECT_EQ(ButtonOfNote(0x2E), (ButtonId{Button::kBankLeft}));
    EXPECT_EQ(ButtonOfNote(0x36), (ButtonId{Button::kF1}));
    EXPECT_EQ(ButtonOfNote(0x46), (ButtonId{Button::kShift}));
    EXPECT_EQ(ButtonOfNote(0x5E), (ButtonId{Button::kPlay}));
    EXPECT_EQ(ButtonOfNote(0x65), (ButtonId{Button::kScrub}));
    EXPECT_EQ(ButtonOfNote(0x70), (ButtonId{Button::kFaderTouch, kMasterFader}));
    EXPECT_EQ(ButtonOfNote(0x73), (ButtonId{Button::kLightSolo}));
}

TEST(MackieButtonsTest, HasNoNoteForButtonsOfOthers) {
    EXPECT_FALSE(NoteOfButton({Button::kInsert, 0}));
    EXPECT_FALSE(NoteOfButton({Button::kReturnToZero}));
    EXPECT_FALSE(NoteOfButton({Button::kMute, kMasterFader}));
    EXPECT_FALSE(NoteOfButton({Button::kFaderTouch, 9}));
}

// The documents and the keys are made from this table.
TEST(MackieButtonsTest, ListsItsNotesInAscendingOrderWithoutOverlap) {
    unsigned next = 0;
    for (const NoteRange& range : NoteRanges()) {
        EXPECT_GE(range.first, next);
        EXPECT_EQ(range.count > 1, IsStripButton(range.button)) << ButtonName(range.button);
        next = range.first + range.count;
    }
    EXPECT_LE(next, 128U);
}

} // namespace
} // namespace Surface::Mackie
