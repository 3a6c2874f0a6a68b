#include "surface/mackie/MackieButtons.h"

#include <algorithm>
#include <array>

namespace Surface::Mackie {

namespace {

constexpr auto kRanges = std::to_array<NoteRange>({
    {0x00, 8, Button::kRecordReady},
    {0x08, 8, Button::kSolo},
    {0x10, 8, Button::kMute},
    {0x18, 8, Button::kSelect},
    {0x20, 8, Button::kPotPush},
    {0x28, 1, Button::kAssignTrack},
    {0x29, 1, Button::kAssignSend},
    {0x2A, 1, Button::kAssignPan},
    {0x2B, 1, Button::kAssignPlugIn},
    {0x2C, 1, Button::kAssignEqualizer},
    {0x2D, 1, Button::kAssignInstrument},
    {0x2E, 1, Button::kBankLeft},
    {0x2F, 1, Button::kBankRight},
    {0x30, 1, Button::kChannelLeft},
    {0x31, 1, Button::kChannelRight},
    {0x32, 1, Button::kFlip},
    {0x33, 1, Button::kGlobalView},
    {0x34, 1, Button::kNameValue},
    {0x35, 1, Button::kTimeFormat},
    {0x36, 1, Button::kF1},
    {0x37, 1, Button::kF2},
    {0x38, 1, Button::kF3},
    {0x39, 1, Button::kF4},
    {0x3A, 1, Button::kF5},
    {0x3B, 1, Button::kF6},
    {0x3C, 1, Button::kF7},
    {0x3D, 1, Button::kF8},
    {0x3E, 1, Button::kViewMidiTracks},
    {0x3F, 1, Button::kViewInputs},
    {0x40, 1, Button::kViewAudioTracks},
    {0x41, 1, Button::kViewInstruments},
    {0x42, 1, Button::kViewAux},
    {0x43, 1, Button::kViewBusses},
    {0x44, 1, Button::kViewOutputs},
    {0x45, 1, Button::kViewUser},
    {0x46, 1, Button::kShift},
    {0x47, 1, Button::kOption},
    {0x48, 1, Button::kControl},
    {0x49, 1, Button::kAlt},
    {0x4A, 1, Button::kRead},
    {0x4B, 1, Button::kWrite},
    {0x4C, 1, Button::kTrim},
    {0x4D, 1, Button::kTouch},
    {0x4E, 1, Button::kLatch},
    {0x4F, 1, Button::kGroup},
    {0x50, 1, Button::kSave},
    {0x51, 1, Button::kUndo},
    {0x52, 1, Button::kCancel},
    {0x53, 1, Button::kEnter},
    {0x54, 1, Button::kMarker},
    {0x55, 1, Button::kNudge},
    {0x56, 1, Button::kCycle},
    {0x57, 1, Button::kDrop},
    {0x58, 1, Button::kReplace},
    {0x59, 1, Button::kClick},
    {0x5A, 1, Button::kSoloMode},
    {0x5B, 1, Button::kRewind},
    {0x5C, 1, Button::kForward},
    {0x5D, 1, Button::kStop},
    {0x5E, 1, Button::kPlay},
    {0x5F, 1, Button::kRecord},
    {0x60, 1, Button::kUp},
    {0x61, 1, Button::kDown},
    {0x62, 1, Button::kLeft},
    {0x63, 1, Button::kRight},
    {0x64, 1, Button::kZoom},
    {0x65, 1, Button::kScrub},
    {0x66, 1, Button::kUserA},
    {0x67, 1, Button::kUserB},
    {0x68, 9, Button::kFaderTouch},
    {0x71, 1, Button::kLightTimecode},
    {0x72, 1, Button::kLightBeats},
    {0x73, 1, Button::kLightSolo},
    {0x76, 1, Button::kRelayClick},
});

} // namespace

std::span<const NoteRange> NoteRanges() {
    return kRanges;
}

std::optional<ButtonId> ButtonOfNote(std::uint8_t note) {
    const auto range = std::find_if(kRanges.begin(), kRanges.end(), [note](const NoteRange& each) {
        return note >= each.first && note < each.first + each.count;
    });
    if (range == kRanges.end()) {
        return std::nullopt;
    }
    return ButtonId{range->button, static_cast<std::uint8_t>(note - range->first)};
}

std::optional<std::uint8_t> NoteOfButton(ButtonId id) {
    const auto range = std::find_if(kRanges.begin(), kRanges.end(), [id](const NoteRange& each) {
        return each.button == id.button && id.strip < each.count;
    });
    if (range == kRanges.end()) {
        return std::nullopt;
    }
    return static_cast<std::uint8_t>(range->first + id.strip);
}

} // namespace Surface::Mackie
