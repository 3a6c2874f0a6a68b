#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace MidiServer {

// Returns what puts the text's lines in the place of everything that a terminal shows, without the
// flicker of an empty screen. Lines that are too long are cut; if there are too many lines, the
// last one says how many are missing.
std::string ScreenText(std::string_view text, std::size_t rows, std::size_t columns);

} // namespace MidiServer
