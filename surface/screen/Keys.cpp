#include "surface/screen/Keys.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace Surface {

namespace {

using Kind = Command::Kind;

constexpr int kSmallMove = 256; // 64 of them from the bottom to the top
constexpr int kLargeMove = 2048;
// Of the keys in a KeyLine.
constexpr std::size_t kLongestKeys = 13;

constexpr KeyBinding Character(char32_t character, const char* name, Command command,
                               const char* meaning) {
    return {SpecialKey::kNone, character, name, command, meaning};
}

constexpr KeyBinding Special(SpecialKey key, const char* name, Command command,
                             const char* meaning) {
    return {key, 0, name, command, meaning};
}

constexpr KeyBinding Function(char32_t number, const char* name, Button button,
                              const char* meaning) {
    return {SpecialKey::kFunction, number, name, {Kind::kButton, button}, meaning};
}

// The meanings of keys that belong together, each in the order of its keys.
constexpr const char* kPortKeys = "next port, previous port";
constexpr const char* kChooseStrip = "choose a strip";
constexpr const char* kStripWayKeys = "strip to the left, right";
constexpr const char* kFaderKeys = "fader up, down";
constexpr const char* kFarKeys = "fader far up, down";
constexpr const char* kTurnKeys = "turn the pot left, right";
constexpr const char* kStripKeys = "record solo mute select";
constexpr const char* kTransportKeys = "play, stop, record";
constexpr const char* kWindKeys = "rewind, forward";
constexpr const char* kJogKeys = "jog wheel back, on";
constexpr const char* kBankKeys = "bank left, right";
constexpr const char* kChannelKeys = "channel left, right";
constexpr const char* kViewKeys = "flip, global, name, time";
constexpr const char* kPotKeys = "pots: track, send, pan";
constexpr const char* kMorePotKeys = "pots: plug-in EQ synth";
constexpr const char* kFunctionKeys = "function keys";
constexpr const char* kAutomationKeys = "read write touch latch";
constexpr const char* kCursorKeys = "cursor: 4 directions";
constexpr const char* kWayKeys = "zoom, marker, nudge";
constexpr const char* kPunchKeys = "drop, replace";
constexpr const char* kClickKeys = "click, all solo";
constexpr const char* kEditKeys = "save undo cancel enter";
constexpr const char* kHeldKeys = "hold shift opt ctrl alt";

constexpr std::array kBindings = {
    Character(U'?', "?", {Kind::kHelp}, "these keys, and back"),
    Character(U'q', "q", {Kind::kEnd}, "end"),
    Special(SpecialKey::kTab, "Tab", {Kind::kOtherPort, {}, 1}, kPortKeys),
    Special(SpecialKey::kBackTab, "Shift-Tab", {Kind::kOtherPort, {}, -1}, kPortKeys),
    Character(U'1', "1", {Kind::kChooseFader, {}, 0}, kChooseStrip),
    Character(U'2', "2", {Kind::kChooseFader, {}, 1}, kChooseStrip),
    Character(U'3', "3", {Kind::kChooseFader, {}, 2}, kChooseStrip),
    Character(U'4', "4", {Kind::kChooseFader, {}, 3}, kChooseStrip),
    Character(U'5', "5", {Kind::kChooseFader, {}, 4}, kChooseStrip),
    Character(U'6', "6", {Kind::kChooseFader, {}, 5}, kChooseStrip),
    Character(U'7', "7", {Kind::kChooseFader, {}, 6}, kChooseStrip),
    Character(U'8', "8", {Kind::kChooseFader, {}, 7}, kChooseStrip),
    Character(U'9', "9", {Kind::kChooseFader, {}, kMasterFader}, "choose the master"),
    Special(SpecialKey::kLeft, "Left", {Kind::kOtherFader, {}, -1}, kStripWayKeys),
    Special(SpecialKey::kRight, "Right", {Kind::kOtherFader, {}, 1}, kStripWayKeys),
    Special(SpecialKey::kUp, "Up", {Kind::kMoveFader, {}, kSmallMove}, kFaderKeys),
    Special(SpecialKey::kDown, "Down", {Kind::kMoveFader, {}, -kSmallMove}, kFaderKeys),
    Special(SpecialKey::kPageUp, "PgUp", {Kind::kMoveFader, {}, kLargeMove}, kFarKeys),
    Special(SpecialKey::kPageDown, "PgDn", {Kind::kMoveFader, {}, -kLargeMove}, kFarKeys),
    Special(SpecialKey::kHome, "Home", {Kind::kFaderToUnity}, "fader to 0 dB"),
    Special(SpecialKey::kEnd, "End", {Kind::kFaderToOff}, "fader to the bottom"),
    Character(U'-', "-", {Kind::kTurnPot, {}, -1}, kTurnKeys),
    Character(U'+', "+", {Kind::kTurnPot, {}, 1}, kTurnKeys),
    Special(SpecialKey::kEnter, "Enter", {Kind::kStripButton, Button::kPotPush}, "press the pot"),
    Character(U'r', "r", {Kind::kStripButton, Button::kRecordReady}, kStripKeys),
    Character(U's', "s", {Kind::kStripButton, Button::kSolo}, kStripKeys),
    Character(U'm', "m", {Kind::kStripButton, Button::kMute}, kStripKeys),
    Character(U'e', "e", {Kind::kStripButton, Button::kSelect}, kStripKeys),
    Character(U' ', "Space", {Kind::kPlayOrStop}, "play, or stop"),
    Character(U'p', "p", {Kind::kButton, Button::kPlay}, kTransportKeys),
    Character(U'x', "x", {Kind::kButton, Button::kStop}, kTransportKeys),
    Character(U'o', "o", {Kind::kButton, Button::kRecord}, kTransportKeys),
    Character(U'w', "w", {Kind::kButton, Button::kRewind}, kWindKeys),
    Character(U'f', "f", {Kind::kButton, Button::kForward}, kWindKeys),
    Character(U'c', "c", {Kind::kButton, Button::kCycle}, "cycle"),
    Character(U'j', "j", {Kind::kTurnJog, {}, -1}, kJogKeys),
    Character(U'k', "k", {Kind::kTurnJog, {}, 1}, kJogKeys),
    Character(U'y', "y", {Kind::kButton, Button::kScrub}, "scrub"),
    Character(U',', ",", {Kind::kButton, Button::kBankLeft}, kBankKeys),
    Character(U'.', ".", {Kind::kButton, Button::kBankRight}, kBankKeys),
    Character(U'<', "<", {Kind::kButton, Button::kChannelLeft}, kChannelKeys),
    Character(U'>', ">", {Kind::kButton, Button::kChannelRight}, kChannelKeys),
    Character(U'v', "v", {Kind::kButton, Button::kFlip}, kViewKeys),
    Character(U'g', "g", {Kind::kButton, Button::kGlobalView}, kViewKeys),
    Character(U'n', "n", {Kind::kButton, Button::kNameValue}, kViewKeys),
    Character(U'b', "b", {Kind::kButton, Button::kTimeFormat}, kViewKeys),
    Character(U'T', "T", {Kind::kButton, Button::kAssignTrack}, kPotKeys),
    Character(U'N', "N", {Kind::kButton, Button::kAssignSend}, kPotKeys),
    Character(U'A', "A", {Kind::kButton, Button::kAssignPan}, kPotKeys),
    Character(U'I', "I", {Kind::kButton, Button::kAssignPlugIn}, kMorePotKeys),
    Character(U'Q', "Q", {Kind::kButton, Button::kAssignEqualizer}, kMorePotKeys),
    Character(U'Y', "Y", {Kind::kButton, Button::kAssignInstrument}, kMorePotKeys),
    Function(1, "F1", Button::kF1, kFunctionKeys),
    Function(2, "F2", Button::kF2, kFunctionKeys),
    Function(3, "F3", Button::kF3, kFunctionKeys),
    Function(4, "F4", Button::kF4, kFunctionKeys),
    Function(5, "F5", Button::kF5, kFunctionKeys),
    Function(6, "F6", Button::kF6, kFunctionKeys),
    Function(7, "F7", Button::kF7, kFunctionKeys),
    Function(8, "F8", Button::kF8, kFunctionKeys),
    Function(9, "F9", Button::kRead, kAutomationKeys),
    Function(10, "F10", Button::kWrite, kAutomationKeys),
    Function(11, "F11", Button::kTouch, kAutomationKeys),
    Function(12, "F12", Button::kLatch, kAutomationKeys),
    Character(U'K', "K", {Kind::kButton, Button::kUp}, kCursorKeys),
    Character(U'J', "J", {Kind::kButton, Button::kDown}, kCursorKeys),
    Character(U'H', "H", {Kind::kButton, Button::kLeft}, kCursorKeys),
    Character(U'L', "L", {Kind::kButton, Button::kRight}, kCursorKeys),
    Character(U'z', "z", {Kind::kButton, Button::kZoom}, kWayKeys),
    Character(U'M', "M", {Kind::kButton, Button::kMarker}, kWayKeys),
    Character(U'G', "G", {Kind::kButton, Button::kNudge}, kWayKeys),
    Character(U'd', "d", {Kind::kButton, Button::kDrop}, kPunchKeys),
    Character(U'D', "D", {Kind::kButton, Button::kReplace}, kPunchKeys),
    Character(U'i', "i", {Kind::kButton, Button::kClick}, kClickKeys),
    Character(U'O', "O", {Kind::kButton, Button::kSoloMode}, kClickKeys),
    Character(U'S', "S", {Kind::kButton, Button::kSave}, kEditKeys),
    Character(U'u', "u", {Kind::kButton, Button::kUndo}, kEditKeys),
    Character(U'C', "C", {Kind::kButton, Button::kCancel}, kEditKeys),
    Character(U'E', "E", {Kind::kButton, Button::kEnter}, kEditKeys),
    Character(U'!', "!", {Kind::kHoldButton, Button::kShift}, kHeldKeys),
    Character(U'@', "@", {Kind::kHoldButton, Button::kOption}, kHeldKeys),
    Character(U'#', "#", {Kind::kHoldButton, Button::kControl}, kHeldKeys),
    Character(U'$', "$", {Kind::kHoldButton, Button::kAlt}, kHeldKeys),
};

} // namespace

std::span<const KeyBinding> KeyBindings() {
    return kBindings;
}

std::optional<Command> CommandOf(const UserInput& key) {
    const auto* const found =
        std::find_if(kBindings.begin(), kBindings.end(), [&key](const KeyBinding& binding) {
            return binding.key == key.key && binding.character == key.character;
        });
    if (key.kind != UserInput::Kind::kKey || found == kBindings.end()) {
        return std::nullopt;
    }
    return found->command;
}

std::vector<KeyLine> KeyLines() {
    std::vector<KeyLine> lines;
    for (auto from = kBindings.begin(); from != kBindings.end();) {
        const auto* const to = std::find_if(from, kBindings.end(), [from](const KeyBinding& each) {
            return std::string_view(each.meaning) != from->meaning;
        });
        KeyLine line{from->name, from->meaning};
        for (const auto* each = from + 1; each != to; ++each) {
            line.keys += std::string(" ") + each->name;
        }
        if (line.keys.size() > kLongestKeys) {
            line.keys = std::string(from->name) + " ... " + (to - 1)->name;
        }
        lines.push_back(std::move(line));
        from = to;
    }
    return lines;
}

} // namespace Surface
