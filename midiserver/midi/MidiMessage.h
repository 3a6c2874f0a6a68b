#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace MidiServer {

// The bytes between which a System Exclusive message has its data.
inline constexpr std::uint8_t kStartOfExclusive = 0xF0;
inline constexpr std::uint8_t kEndOfExclusive = 0xF7;

inline bool IsDataByte(std::uint8_t byte) {
    return byte < 0x80;
}

// Whether the byte is a message of its own that may stand within another one.
inline bool IsRealTime(std::uint8_t byte) {
    return byte >= 0xF8;
}

// Whether a piece of a stream, which holds one message or a part of one, goes on with a System
// Exclusive message that an earlier piece began.
inline bool ContinuesExclusive(std::span<const std::uint8_t> piece) {
    return IsDataByte(piece.front()) || piece.front() == kEndOfExclusive;
}

// Whether such a piece is a System Exclusive message or a part of one.
inline bool IsExclusive(std::span<const std::uint8_t> piece) {
    return piece.front() == kStartOfExclusive || ContinuesExclusive(piece);
}

// Returns the number of bytes of a MIDI message with this status byte (0x80 to 0xFF, not 0xF7), or
// nothing for System Exclusive, whose last byte ends it.
std::optional<std::size_t> MidiMessageLength(std::uint8_t status);

// Whether these bytes are exactly one message, with its status byte.
bool IsWholeMessage(std::span<const std::uint8_t> bytes);

} // namespace MidiServer
