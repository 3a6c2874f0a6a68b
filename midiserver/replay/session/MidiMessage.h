#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace MidiServer {

// How many bytes a MIDI message with this status byte (80 to FF, not F7) has; nothing for System
// Exclusive, which ends itself.
std::optional<std::size_t> MidiMessageLength(std::uint8_t status);

} // namespace MidiServer
