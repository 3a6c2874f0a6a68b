#include "surface/hui/HuiButtons.h"

#include <algorithm>
#include <array>
#include <span>

namespace Surface::Hui {

namespace {

// A zone's buttons from port 0 on.
using Ports = std::span<const Button>;

constexpr auto kStrip = std::to_array<Button>({Button::kFaderTouch, Button::kSelect, Button::kMute,
                                               Button::kSolo, Button::kAutomation, Button::kPotPush,
                                               Button::kInsert, Button::kRecordReady});
constexpr auto kKeys =
    std::to_array<Button>({Button::kControl, Button::kShift, Button::kEditMode, Button::kUndo,
                           Button::kAlt, Button::kOption, Button::kEditTool, Button::kSave});
constexpr auto kWindows =
    std::to_array<Button>({Button::kWindowMix, Button::kWindowEdit, Button::kWindowTransport,
                           Button::kWindowMemory, Button::kWindowStatus, Button::kWindowAlternate});
constexpr auto kBanks = std::to_array<Button>(
    {Button::kChannelLeft, Button::kBankLeft, Button::kChannelRight, Button::kBankRight});
constexpr auto kAssignments = std::to_array<Button>(
    {Button::kAssignOutput, Button::kAssignInput, Button::kAssignPan, Button::kSendE,
     Button::kSendD, Button::kSendC, Button::kSendB, Button::kSendA});
constexpr auto kMoreAssignments = std::to_array<Button>(
    {Button::kAssign, Button::kDefault, Button::kSuspend, Button::kAssignShift, Button::kAssignMute,
     Button::kBypass, Button::kRecordReadyAll});
constexpr auto kCursor =
    std::to_array<Button>({Button::kDown, Button::kLeft, Button::kCursorMode, Button::kRight,
                           Button::kUp, Button::kScrub, Button::kShuttle});
constexpr auto kTransport =
    std::to_array<Button>({Button::kTalkback, Button::kRewind, Button::kForward, Button::kStop,
                           Button::kPlay, Button::kRecord});
constexpr auto kMoreTransport =
    std::to_array<Button>({Button::kReturnToZero, Button::kGoToEnd, Button::kOnLine, Button::kCycle,
                           Button::kQuickPunch});
constexpr auto kPunch = std::to_array<Button>(
    {Button::kAudition, Button::kPreRoll, Button::kPunchIn, Button::kPunchOut, Button::kPostRoll});
constexpr auto kRoomInputs =
    std::to_array<Button>({Button::kRoomInput3, Button::kRoomInput2, Button::kRoomInput1,
                           Button::kRoomMute, Button::kDiscrete});
constexpr auto kRoomOutputs =
    std::to_array<Button>({Button::kRoomOutput3, Button::kRoomOutput2, Button::kRoomOutput1,
                           Button::kDim, Button::kMono});
constexpr auto kNumbers =
    std::to_array<Button>({Button::kNumber0, Button::kNumber1, Button::kNumber4, Button::kNumber2,
                           Button::kNumber5, Button::kPoint, Button::kNumber3, Button::kNumber6});
constexpr auto kNumberEnd = std::to_array<Button>({Button::kEnter, Button::kPlus});
constexpr auto kMoreNumbers =
    std::to_array<Button>({Button::kNumber7, Button::kNumber8, Button::kNumber9, Button::kMinus,
                           Button::kClear, Button::kEquals, Button::kDivide, Button::kTimes});
constexpr auto kTimeLights = std::to_array<Button>(
    {Button::kLightTimecode, Button::kLightFeet, Button::kLightBeats, Button::kLightSolo});
constexpr auto kEnable =
    std::to_array<Button>({Button::kEnablePlugIn, Button::kEnablePan, Button::kEnableFader,
                           Button::kEnableSendMute, Button::kEnableSend, Button::kEnableMute});
constexpr auto kAutomationModes =
    std::to_array<Button>({Button::kTrim, Button::kLatch, Button::kRead, Button::kAutomationOff,
                           Button::kWrite, Button::kTouch});
constexpr auto kStatus =
    std::to_array<Button>({Button::kPhase, Button::kMonitor, Button::kGroupAutomation,
                           Button::kGroupSuspend, Button::kGroupCreate, Button::kGroup});
constexpr auto kEdit = std::to_array<Button>({Button::kPaste, Button::kCut, Button::kCapture,
                                              Button::kDelete, Button::kCopy, Button::kSeparate});
constexpr auto kFunctionKeys =
    std::to_array<Button>({Button::kF1, Button::kF2, Button::kF3, Button::kF4, Button::kF5,
                           Button::kF6, Button::kF7, Button::kF8});
constexpr auto kParameters = std::to_array<Button>(
    {Button::kParameterInsert, Button::kParameterAssign, Button::kParameterSelect1,
     Button::kParameterSelect2, Button::kParameterSelect3, Button::kParameterSelect4,
     Button::kParameterBypass, Button::kParameterCompare});
constexpr auto kSounds =
    std::to_array<Button>({Button::kRelay1, Button::kRelay2, Button::kRelayClick, Button::kBeep});

// The zones above those of the strips.
constexpr std::array<Ports, kZoneCount - kStripCount> kZones = {
    kKeys,      kWindows,       kBanks,      kAssignments, kMoreAssignments, kCursor,
    kTransport, kMoreTransport, kPunch,      kRoomInputs,  kRoomOutputs,     kNumbers,
    kNumberEnd, kMoreNumbers,   kTimeLights, kEnable,      kAutomationModes, kStatus,
    kEdit,      kFunctionKeys,  kParameters, kSounds};

// Returns the port of a button, or nothing if it is not among them.
std::optional<std::uint8_t> PortOf(Ports ports, Button button) {
    const auto port = std::find(ports.begin(), ports.end(), button);
    if (port == ports.end()) {
        return std::nullopt;
    }
    return static_cast<std::uint8_t>(port - ports.begin());
}

} // namespace

std::optional<ButtonId> ButtonAt(ZonePort place) {
    if (place.zone >= kZoneCount) {
        return std::nullopt;
    }
    const bool inStrip = place.zone < kStripCount;
    const Ports ports = inStrip ? Ports(kStrip) : kZones[place.zone - kStripCount];
    if (place.port >= ports.size()) {
        return std::nullopt;
    }
    return ButtonId{ports[place.port], inStrip ? place.zone : std::uint8_t{0}};
}

std::optional<ZonePort> PlaceOfButton(ButtonId id) {
    if (IsStripButton(id.button)) {
        const auto port = PortOf(kStrip, id.button);
        if (!port || id.strip >= kStripCount) {
            return std::nullopt;
        }
        return ZonePort{id.strip, *port};
    }
    for (std::size_t zone = 0; zone < kZones.size(); ++zone) {
        if (const auto port = PortOf(kZones[zone], id.button)) {
            return ZonePort{static_cast<std::uint8_t>(zone + kStripCount), *port};
        }
    }
    return std::nullopt;
}

} // namespace Surface::Hui
