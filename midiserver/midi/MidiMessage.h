#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace MidiServer {

// Returns the number of bytes of a MIDI message with this status byte (0x80 to 0xFF, not 0xF7), or
// nothing for System Exclusive, whose last byte ends it.
std::optional<std::size_t> MidiMessageLength(std::uint8_t status);

} // namespace MidiServer
