#pragma once

#include "surface/event/Button.h"

#include <cstdint>
#include <optional>

namespace Surface::Hui {

// HUI addresses its buttons and lights by a zone and a port in it. The zones 0 to 7 are the strips.
inline constexpr std::uint8_t kZoneCount = 0x1E;
inline constexpr std::uint8_t kPortCount = 8;

struct ZonePort {
    std::uint8_t zone;
    std::uint8_t port;

    bool operator==(const ZonePort&) const = default;
};

// Returns the button at a place, or nothing if there is none.
std::optional<ButtonId> ButtonAt(ZonePort place);

// Returns the place of a button, or nothing if HUI has no such button. The master's fader is none.
std::optional<ZonePort> PlaceOfButton(ButtonId id);

} // namespace Surface::Hui
