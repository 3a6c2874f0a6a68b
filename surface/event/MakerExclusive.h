#pragma once

#include "surface/event/SurfaceEvent.h"

#include <cstdint>
#include <optional>
#include <span>

namespace Surface {

// A System Exclusive message of the make that both protocols come from:
// F0 00 00 66 identity data F7.
struct MakerExclusive {
    std::uint8_t identity; // the device that it is for
    std::span<const std::uint8_t> data;
};

// Returns the parts of such a message, or nothing if it is none. There may be no data.
std::optional<MakerExclusive> MakerExclusiveOf(std::span<const std::uint8_t> message);

// Returns the event for a message that a decoder does not know: ForeignExclusive for System
// Exclusive of another make, UnknownMessage for anything else.
SurfaceEvent EventOfUnknown(std::span<const std::uint8_t> message);

// Returns bytes of a message as text.
std::string_view TextOf(std::span<const std::uint8_t> bytes);

} // namespace Surface
