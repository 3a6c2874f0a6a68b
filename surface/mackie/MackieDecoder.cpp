#include "surface/mackie/MackieDecoder.h"

#include "surface/event/MakerExclusive.h"
#include "surface/mackie/MackieButtons.h"

#include <algorithm>

namespace Surface::Mackie {

namespace {

using Bytes = std::span<const std::uint8_t>;

// Commands of System Exclusive messages.
enum Command : std::uint8_t {
    kDeviceQuery = 0x00,
    kHostConnectionReply = 0x02,
    kResetByHost = 0x08,
    kTransportClick = 0x0A,
    kBacklight = 0x0B,
    kTouchlessFaders = 0x0C,
    kTouchSensitivity = 0x0E,
    kGoOffline = 0x0F,
    kTimecodeText = 0x10,
    kAssignmentText = 0x11,
    kDisplayText = 0x12,
    kVersionRequest = 0x13,
    kSerialNumberQuery = 0x1A,
    kMeterMode = 0x20,
    kMeterDirection = 0x21,
    kAllFadersDown = 0x61,
    kAllLightsOff = 0x62,
    kReset = 0x63,
};

// The controllers of rings and digits.
constexpr std::uint8_t kFirstRing = 0x30;
constexpr std::uint8_t kFirstTimecodeDigit = 0x40;
constexpr std::uint8_t kFirstAssignmentDigit = 0x4A;

constexpr std::uint8_t kFlashing = 0x01;
constexpr std::uint8_t kSetOverload = 0x0E;
constexpr std::uint8_t kClearOverload = 0x0F;

bool IsIdentity(std::uint8_t identity) {
    return identity == kLogicControl || identity == kLogicControlExtender ||
           identity == kMackieControl || identity == kMackieControlExtender ||
           identity == kHuiIdentity;
}

// Bits 0 to 5 are ASCII without its bit 6, so 00 to 1F are the letters; bit 6 is the point.
Digit DigitOf(std::uint8_t byte) {
    const auto code = static_cast<std::uint8_t>(byte & 0x3FU);
    constexpr std::uint8_t kFirstOfAscii = 0x20;
    // Seven segments show no '@', the character of 00: it is a blank.
    const char character = code == 0              ? ' '
                           : code < kFirstOfAscii ? static_cast<char>(code + 0x40)
                                                  : static_cast<char>(code);
    return {character, (byte & 0x40U) != 0};
}

// Returns the event for digits from `first` on; those beyond the display's end are left out.
SurfaceEvent Digits(Bytes message, DigitDisplay display, std::uint8_t first, Bytes data) {
    const std::uint8_t digits =
        display == DigitDisplay::kTimecode ? kTimecodeDigits : kAssignmentDigits;
    const std::size_t count = std::min<std::size_t>(data.size(), digits - first);
    if (count == 0) {
        return UnknownMessage{message};
    }
    DigitsSet event{display, first, static_cast<std::uint8_t>(count), {}};
    std::transform(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(count),
                   event.digits.begin(), DigitOf);
    return event;
}

SurfaceEvent Controller(Bytes message) {
    const std::uint8_t controller = message[1];
    if (controller >= kFirstRing && controller < kFirstRing + kStripCount) {
        if (const auto ring = RingOfByte(message[2])) {
            return PotRingSet{static_cast<std::uint8_t>(controller - kFirstRing), *ring};
        }
    } else if (controller >= kFirstTimecodeDigit && controller < kFirstAssignmentDigit) {
        return Digits(message, DigitDisplay::kTimecode,
                      static_cast<std::uint8_t>(controller - kFirstTimecodeDigit),
                      message.subspan(2));
    } else if (controller >= kFirstAssignmentDigit &&
               controller < kFirstAssignmentDigit + kAssignmentDigits) {
        return Digits(message, DigitDisplay::kAssignment,
                      static_cast<std::uint8_t>(controller - kFirstAssignmentDigit),
                      message.subspan(2));
    }
    return UnknownMessage{message};
}

SurfaceEvent Light(Bytes message, bool off) {
    const auto button = ButtonOfNote(message[1]);
    if (!button) {
        return UnknownMessage{message};
    }
    if (off || message[2] == 0) {
        return LightSet{*button, LightState::kOff};
    }
    return LightSet{*button, message[2] == kFlashing ? LightState::kFlashing : LightState::kOn};
}

SurfaceEvent Meter(Bytes message) {
    MeterSet event{static_cast<std::uint8_t>(message[1] >> 4U), MeterSide::kLeft, {}, {}, true};
    const auto value = static_cast<std::uint8_t>(message[1] & 0x0FU);
    if (value <= kHighestMeter) {
        event.level = value;
    } else if (value == kSetOverload || value == kClearOverload) {
        event.overload = value == kSetOverload;
    } else {
        return UnknownMessage{message};
    }
    return event;
}

SurfaceEvent Text(Bytes message, Bytes data) {
    constexpr std::size_t kCells = CellsOf(TextDisplay::kStrips);
    if (data.size() < 2 || data[0] >= kCells) {
        return UnknownMessage{message};
    }
    const Bytes characters = data.subspan(1, std::min(data.size() - 1, kCells - data[0]));
    return TextWritten{TextDisplay::kStrips, data[0], TextOf(characters)};
}

SurfaceEvent Exclusive(Bytes message) {
    const auto exclusive = MakerExclusiveOf(message);
    if (!exclusive || !IsIdentity(exclusive->identity) || exclusive->data.empty()) {
        return EventOfUnknown(message);
    }
    const std::uint8_t identity = exclusive->identity;
    const Bytes data = exclusive->data.subspan(1);
    switch (exclusive->data[0]) {
    case kDeviceQuery:
        // Under HUI's identity 00 begins its own messages.
        if (identity != kHuiIdentity) {
            return DeviceQueried{identity, false};
        }
        break;
    case kSerialNumberQuery:
        return DeviceQueried{identity, true};
    case kHostConnectionReply:
        if (data.size() >= 7) {
            return HostConnectionReplied{identity, data.first<7>()};
        }
        break;
    case kVersionRequest:
        return VersionRequested{identity};
    case kResetByHost:
    case kReset:
        return ResetReceived{ResetKind::kAll};
    case kGoOffline:
        return ResetReceived{ResetKind::kOffline};
    case kAllFadersDown:
        return ResetReceived{ResetKind::kFadersDown};
    case kAllLightsOff:
        return ResetReceived{ResetKind::kLightsOff};
    case kTransportClick:
    case kBacklight:
    case kTouchlessFaders:
        if (data.size() == 1) {
            const Setting setting = exclusive->data[0] == kTransportClick ? Setting::kTransportClick
                                    : exclusive->data[0] == kBacklight    ? Setting::kBacklight
                                                                       : Setting::kTouchlessFaders;
            return SettingChanged{setting, data[0], 0};
        }
        break;
    case kTouchSensitivity:
        if (data.size() == 2 && data[0] < kFaderCount) {
            return SettingChanged{Setting::kTouchSensitivity, data[1], data[0]};
        }
        break;
    case kTimecodeText:
        return Digits(message, DigitDisplay::kTimecode, 0, data);
    case kAssignmentText:
        return Digits(message, DigitDisplay::kAssignment, 0, data);
    case kDisplayText:
        return Text(message, data);
    case kMeterMode:
        if (data.size() == 2 && data[0] < kStripCount) {
            return MeterModeSet{data[0], (data[1] & 1U) != 0, (data[1] & 2U) != 0,
                                (data[1] & 4U) != 0};
        }
        break;
    case kMeterDirection:
        if (data.size() == 1) {
            return MeterDirectionSet{data[0] != 0};
        }
        break;
    default:
        break;
    }
    return UnknownMessage{message};
}

} // namespace

SurfaceEvent Decode(Bytes message) {
    if (message.empty()) {
        return UnknownMessage{message};
    }
    const std::uint8_t status = message[0];
    if (status == 0xF0) {
        return Exclusive(message);
    }
    if (message.size() == 2 && status == 0xD0 && message[1] < 0x80) {
        return Meter(message);
    }
    if (message.size() != 3 || message[1] >= 0x80 || message[2] >= 0x80) {
        return UnknownMessage{message};
    }
    switch (status) {
    case 0x80: // what some bridges make of a note-on with velocity 0
    case 0x90:
        return Light(message, status == 0x80);
    case 0xB0:
        return Controller(message);
    default:
        if (status >= 0xE0 && status < 0xE0 + kFaderCount) {
            return FaderMoved{static_cast<std::uint8_t>(status - 0xE0),
                              static_cast<std::uint16_t>(message[1] | message[2] << 7U)};
        }
        return UnknownMessage{message};
    }
}

} // namespace Surface::Mackie
