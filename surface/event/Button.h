#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Surface {

// Strips of one port, and its faders: a ninth one is the master.
inline constexpr std::uint8_t kStripCount = 8;
inline constexpr std::uint8_t kFaderCount = 9;
inline constexpr std::uint8_t kMasterFader = 8;

// A button of a control surface, or a light without one, by what is printed on it. The protocols
// share those that both have: their numbers on the wire are in mackie/MackieButtons.h and
// hui/HuiButtons.h.
enum class Button : std::uint8_t {
    // One in each strip.
    kRecordReady,
    kSolo,
    kMute,
    kSelect,
    kPotPush,    // the pot pressed: V-Select
    kFaderTouch, // a finger on the fader; the master has it too
    kAutomation, // HUI
    kInsert,     // HUI

    // Transport.
    kRewind,
    kForward,
    kStop,
    kPlay,
    kRecord,
    kCycle, // loop
    kReturnToZero,
    kGoToEnd,
    kOnLine,
    kQuickPunch,
    kTalkback,
    kScrub,
    kShuttle,

    // Ways through the strips and the screen.
    kBankLeft,
    kBankRight,
    kChannelLeft,
    kChannelRight,
    kUp,
    kDown,
    kLeft,
    kRight,
    kZoom,
    kCursorMode,

    // What the pots do.
    kAssignTrack,
    kAssignSend,
    kAssignPan,
    kAssignPlugIn,
    kAssignEqualizer,
    kAssignInstrument,
    kAssignOutput,
    kAssignInput,
    kSendA,
    kSendB,
    kSendC,
    kSendD,
    kSendE,
    kAssign,
    kDefault,
    kSuspend,
    kAssignShift,
    kAssignMute,
    kBypass,
    kRecordReadyAll,

    // Views.
    kFlip,
    kGlobalView,
    kNameValue,
    kTimeFormat,
    kViewMidiTracks,
    kViewInputs,
    kViewAudioTracks,
    kViewInstruments,
    kViewAux,
    kViewBusses,
    kViewOutputs,
    kViewUser,
    kWindowMix,
    kWindowEdit,
    kWindowTransport,
    kWindowMemory,
    kWindowStatus,
    kWindowAlternate,

    // Function keys and those that change the others.
    kF1,
    kF2,
    kF3,
    kF4,
    kF5,
    kF6,
    kF7,
    kF8,
    kShift,
    kOption,
    kControl,
    kAlt,

    // Automation.
    kRead,
    kWrite,
    kTrim,
    kTouch,
    kLatch,
    kAutomationOff,
    kEnablePlugIn,
    kEnablePan,
    kEnableFader,
    kEnableSendMute,
    kEnableSend,
    kEnableMute,

    // Groups and status.
    kGroup,
    kPhase,
    kMonitor,
    kGroupAutomation,
    kGroupSuspend,
    kGroupCreate,

    // Editing and utilities.
    kSave,
    kUndo,
    kCancel,
    kEnter,
    kMarker,
    kNudge,
    kDrop,
    kReplace,
    kClick,
    kSoloMode,
    kEditMode,
    kEditTool,
    kPaste,
    kCut,
    kCapture,
    kDelete,
    kCopy,
    kSeparate,
    kAudition,
    kPreRoll,
    kPunchIn,
    kPunchOut,
    kPostRoll,

    // The section of a plug-in's parameters.
    kParameterInsert,
    kParameterAssign,
    kParameterSelect1,
    kParameterSelect2,
    kParameterSelect3,
    kParameterSelect4,
    kParameterBypass,
    kParameterCompare,

    // Control room.
    kRoomInput1,
    kRoomInput2,
    kRoomInput3,
    kRoomMute,
    kDiscrete,
    kRoomOutput1,
    kRoomOutput2,
    kRoomOutput3,
    kDim,
    kMono,

    // Numeric keys.
    kNumber0,
    kNumber1,
    kNumber2,
    kNumber3,
    kNumber4,
    kNumber5,
    kNumber6,
    kNumber7,
    kNumber8,
    kNumber9,
    kPoint,
    kPlus,
    kMinus,
    kTimes,
    kDivide,
    kEquals,
    kClear,

    // Pedals, lights alone, and what clicks.
    kUserA,
    kUserB,
    kLightTimecode,
    kLightFeet,
    kLightBeats,
    kLightSolo, // something is soloed: rude solo
    kRelayClick,
    kRelay1,
    kRelay2,
    kBeep,
};

inline constexpr std::size_t kButtonCount = static_cast<std::size_t>(Button::kBeep) + 1;

// Whether there is one of the button in each strip.
constexpr bool IsStripButton(Button button) {
    return button <= Button::kInsert;
}

// A ButtonId is one button: the strip counts for those that are in each (0 to 7; with kFaderTouch
// also kMasterFader) and is 0 for all others.
struct ButtonId {
    Button button;
    std::uint8_t strip = 0;

    bool operator==(const ButtonId&) const = default;
};

// Returns the button's name, in lower case, for instance "mute" or "channel left". No two are
// alike.
std::string_view ButtonName(Button button);

// The same with the strip's number as people count: "mute 3", "touch master".
std::string ButtonText(ButtonId id);

// Returns the name of a strip's fader as people count: "3", or "master".
std::string FaderName(std::uint8_t fader);

} // namespace Surface
