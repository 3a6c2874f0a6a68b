#include "midiserver/routing/pacing/ValuePlace.h"

#include <algorithm>
#include <array>

namespace MidiServer {

namespace {

// The kinds of groups, above the number of the fader, ring or display.
constexpr std::uint32_t kFader = 0x100;
constexpr std::uint32_t kController = 0x200;
constexpr std::uint32_t kMackieText = 0x300;
constexpr std::uint32_t kHuiSmallDisplay = 0x400;
constexpr std::uint32_t kHuiMainDisplay = 0x500;

constexpr std::uint8_t kLastMackieFader = 0xE8;
constexpr std::uint8_t kControlChange = 0xB0;
constexpr std::array<std::uint8_t, 4> kMakerHeader = {0xF0, 0x00, 0x00, 0x66};
constexpr std::size_t kMackieTextHeader = 7; // up to the offset
constexpr std::uint8_t kLastHuiFader = 8;

bool IsWithin(std::uint8_t value, std::uint8_t first, std::uint8_t last) {
    return value >= first && value <= last;
}

bool HasMakerHeader(std::span<const std::uint8_t> message) {
    return message.size() > kMakerHeader.size() + 3 &&
           std::equal(kMakerHeader.begin(), kMakerHeader.end(), message.begin());
}

ValuePlace Single(std::uint32_t group) {
    return {group, 0, 0};
}

std::optional<ValuePlace> MackiePlace(std::span<const std::uint8_t> message) {
    if (message.size() == 3 && IsWithin(message[0], 0xE0, kLastMackieFader)) {
        return Single(kFader | message[0]);
    }
    if (message.size() == 3 && message[0] == kControlChange &&
        (IsWithin(message[1], 0x30, 0x37) || IsWithin(message[1], 0x40, 0x4B))) {
        return Single(kController | message[1]);
    }
    if (HasMakerHeader(message) && IsWithin(message[4], 0x14, 0x15) && message[5] == 0x12 &&
        message.size() > kMackieTextHeader + 1) {
        const auto characters = static_cast<std::uint32_t>(message.size() - kMackieTextHeader - 1);
        return ValuePlace{kMackieText | message[4], message[6], message[6] + characters - 1};
    }
    return std::nullopt;
}

std::optional<ValuePlace> HuiPlace(std::span<const std::uint8_t> message) {
    if (message.size() == 3 && message[0] == kControlChange && IsWithin(message[1], 0x10, 0x1B)) {
        return Single(kController | message[1]);
    }
    if (HasMakerHeader(message) && message[4] == 0x05 && message[5] == 0x00) {
        if (message[6] == 0x10 && message.size() == 13) {
            return ValuePlace{kHuiSmallDisplay, message[7], message[7]};
        }
        if (message[6] == 0x12 && message.size() == 19) {
            return ValuePlace{kHuiMainDisplay, message[7], message[7]};
        }
    }
    return std::nullopt;
}

std::optional<ValuePlace> HalfPlace(Protocol protocol, std::span<const std::uint8_t> message,
                                    std::uint8_t first) {
    if (protocol == Protocol::kHui && message.size() == 3 && message[0] == kControlChange &&
        IsWithin(message[1], first, static_cast<std::uint8_t>(first + kLastHuiFader))) {
        return Single(kFader | static_cast<std::uint32_t>(message[1] - first));
    }
    return std::nullopt;
}

} // namespace

std::optional<ValuePlace> PlaceOf(Protocol protocol, std::span<const std::uint8_t> message) {
    switch (protocol) {
    case Protocol::kMackieControl:
        return MackiePlace(message);
    case Protocol::kHui:
        return HuiPlace(message);
    case Protocol::kNone:
        break;
    }
    return std::nullopt;
}

std::optional<ValuePlace> HighHalfPlace(Protocol protocol, std::span<const std::uint8_t> message) {
    return HalfPlace(protocol, message, 0x00);
}

std::optional<ValuePlace> LowHalfPlace(Protocol protocol, std::span<const std::uint8_t> message) {
    return HalfPlace(protocol, message, 0x20);
}

} // namespace MidiServer
