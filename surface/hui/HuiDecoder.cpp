#include "surface/hui/HuiDecoder.h"

#include "surface/event/MakerExclusive.h"
#include "surface/hui/HuiButtons.h"

#include <algorithm>

namespace Surface::Hui {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint8_t kIdentity = 0x05;

// Displays of System Exclusive messages.
constexpr std::uint8_t kSmallDisplay = 0x10;
constexpr std::uint8_t kTimecode = 0x11;
constexpr std::uint8_t kMainDisplay = 0x12;

// Controllers.
constexpr std::uint8_t kZoneSelect = 0x0C;
constexpr std::uint8_t kFirstRing = 0x10;
constexpr std::uint8_t kFirstFaderLow = 0x20;
constexpr std::uint8_t kPortSwitch = 0x2C;

constexpr std::size_t kNameCells = 4;
constexpr std::uint8_t kHuiTimecodeDigits = 8;

// 00 to 0F are the hexadecimal digits, 10 to 1F the same with a point; any other one is a blank.
Digit DigitOf(std::uint8_t byte) {
    if (byte >= 0x20) {
        return {};
    }
    return {"0123456789AbCdEF"[byte & 0x0FU], byte >= 0x10};
}

SurfaceEvent SmallDisplay(Bytes message, Bytes data) {
    if (data.size() != 1 + kNameCells || data[0] > kStripCount) {
        return UnknownMessage{message};
    }
    const std::string_view text = TextOf(data.subspan(1));
    if (data[0] == kStripCount) {
        return TextWritten{TextDisplay::kAssignment, 0, text};
    }
    return TextWritten{TextDisplay::kStripNames, static_cast<std::uint8_t>(data[0] * kNameCells),
                       text};
}

SurfaceEvent MainDisplay(Bytes message, Bytes data) {
    if (data.empty() || data.size() % ZonesWritten::kBytes != 0) {
        return UnknownMessage{message};
    }
    for (std::size_t at = 0; at < data.size(); at += ZonesWritten::kBytes) {
        if (data[at] >= ZonesWritten::kZones) {
            return UnknownMessage{message};
        }
    }
    return ZonesWritten{data};
}

SurfaceEvent Timecode(Bytes message, Bytes data) {
    if (data.empty() || data.size() > kHuiTimecodeDigits) {
        return UnknownMessage{message};
    }
    DigitsSet event{DigitDisplay::kTimecode, 0, static_cast<std::uint8_t>(data.size()), {}};
    std::transform(data.begin(), data.end(), event.digits.begin(), DigitOf);
    return event;
}

SurfaceEvent Exclusive(Bytes message) {
    const auto exclusive = MakerExclusiveOf(message);
    if (!exclusive || exclusive->identity != kIdentity || exclusive->data.size() < 2 ||
        exclusive->data[0] != 0x00) {
        return EventOfUnknown(message);
    }
    const Bytes data = exclusive->data.subspan(2);
    switch (exclusive->data[1]) {
    case kSmallDisplay:
        return SmallDisplay(message, data);
    case kTimecode:
        return Timecode(message, data);
    case kMainDisplay:
        return MainDisplay(message, data);
    default:
        return UnknownMessage{message};
    }
}

// The level 12 is the clip light.
SurfaceEvent Meter(Bytes message) {
    const auto side = static_cast<std::uint8_t>(message[2] >> 4U);
    const auto level = static_cast<std::uint8_t>(message[2] & 0x0FU);
    if (message[1] >= kStripCount || side > 1 || level > kHighestMeter) {
        return UnknownMessage{message};
    }
    return MeterSet{message[1], side == 0 ? MeterSide::kLeft : MeterSide::kRight, level,
                    level == kHighestMeter, false};
}

} // namespace

SurfaceEvent HuiDecoder::Decode(Bytes message) {
    if (message.empty()) {
        return UnknownMessage{message};
    }
    if (message[0] == 0xF0) {
        return Exclusive(message);
    }
    if (message.size() == 1 && message[0] == 0xFF) {
        *this = {};
        return ResetReceived{ResetKind::kAll};
    }
    if (message.size() != 3 || message[1] >= 0x80 || message[2] >= 0x80) {
        return UnknownMessage{message};
    }
    switch (message[0]) {
    case 0x90:
        if (message[1] == 0 && message[2] == 0) {
            return PingReceived{};
        }
        return UnknownMessage{message};
    case 0xA0:
        return Meter(message);
    case 0xB0:
        return DecodeController(message);
    default:
        return UnknownMessage{message};
    }
}

SurfaceEvent HuiDecoder::DecodeController(Bytes message) {
    const std::uint8_t controller = message[1];
    if (controller < kFaderCount) {
        mFaderHighs[controller] = message[2];
        return FaderHalfReceived{controller};
    }
    if (controller >= kFirstFaderLow && controller < kFirstFaderLow + kFaderCount) {
        const auto fader = static_cast<std::uint8_t>(controller - kFirstFaderLow);
        return FaderMoved{fader, static_cast<std::uint16_t>(mFaderHighs[fader] << 7U | message[2])};
    }
    if (controller >= kFirstRing && controller < kFirstRing + kPotCount) {
        if (const auto ring = RingOfByte(message[2])) {
            return PotRingSet{static_cast<std::uint8_t>(controller - kFirstRing), *ring};
        }
        return UnknownMessage{message};
    }
    if (controller == kZoneSelect) {
        // An unknown zone is kept too: what follows must not switch a light of the zone before.
        mZone = message[2];
        if (message[2] < kZoneCount) {
            return ZoneSelected{message[2]};
        }
        return UnknownMessage{message};
    }
    if (controller == kPortSwitch) {
        return DecodeSwitch(message);
    }
    return UnknownMessage{message};
}

SurfaceEvent HuiDecoder::DecodeSwitch(Bytes message) const {
    constexpr std::uint8_t kOn = 0x40;
    const auto port = static_cast<std::uint8_t>(message[2] & 0x3FU);
    if (mZone) {
        if (const auto button = ButtonAt({*mZone, port})) {
            return LightSet{*button, (message[2] & kOn) != 0 ? LightState::kOn : LightState::kOff};
        }
    }
    return UnknownMessage{message};
}

} // namespace Surface::Hui
