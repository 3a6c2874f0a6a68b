#pragma once

#include "midiserver/preferences/PingProtocol.h"

#include <cstdint>
#include <optional>
#include <span>
#include <tuple>

namespace MidiServer {

// A ValuePlace is what a message sets on a control surface: a fader, a pot's ring or some cells of
// a display. A later message for the same place makes an earlier one pointless.
struct ValuePlace {
    std::uint32_t group; // a fader, a ring, or the whole of a display
    std::uint32_t first; // the cells that are set, by their numbers within the group
    std::uint32_t last;

    bool operator==(const ValuePlace&) const = default;
    bool operator<(const ValuePlace& other) const {
        return std::tie(group, first, last) < std::tie(other.group, other.first, other.last);
    }

    bool Overlaps(const ValuePlace& other) const {
        return group == other.group && first <= other.last && other.first <= last;
    }
};

// Returns the place that a message of an emulated protocol sets: a fader, a pot's ring, digits, or
// cells of a display, as the surface's decoders understand it (docs/surface.md lists the messages).
// Returns nothing for any other message, and with kNone.
std::optional<ValuePlace> PlaceOf(Protocol protocol, std::span<const std::uint8_t> message);

// Return the place of a HUI fader. Its position comes in two messages: B0 0z and the high bits,
// then B0 2z and the low ones, where z is the zone (0 to 8). Each function returns nothing for any
// other message and protocol.
std::optional<ValuePlace> HighHalfPlace(Protocol protocol, std::span<const std::uint8_t> message);
std::optional<ValuePlace> LowHalfPlace(Protocol protocol, std::span<const std::uint8_t> message);

} // namespace MidiServer
