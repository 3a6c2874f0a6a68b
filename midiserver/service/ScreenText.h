#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace MidiServer {

// Returns the text with control sequences that make a terminal show it in place of all that it
// shows, without the flicker of an empty screen. Lines that are too long are cut. If there are too
// many lines, the last one says how many are missing.
std::string ScreenText(std::string_view text, std::size_t rows, std::size_t columns);

} // namespace MidiServer
