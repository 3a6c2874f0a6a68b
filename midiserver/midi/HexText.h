#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace MidiServer {

// MIDI bytes as text for captures and the control port: two hexadecimal digits in upper case for
// each byte, with one character between two bytes, for instance "90 3C 40".

std::string HexText(std::span<const std::uint8_t> bytes);

// Returns the bytes of such a text. Throws InputError if it is none.
std::vector<std::uint8_t> BytesOfHexText(std::string_view text);

} // namespace MidiServer
