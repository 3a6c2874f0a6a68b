#pragma once

#include "midiserver/preferences/PortConfiguration.h"

#include <bitset>
#include <string>

namespace MidiServer {

// Reads ports as a user lists them: "all", or numbers from 1 to kMaximumPorts and ranges of them,
// "1,3-5". Returns them by index. Throws InputError with a line that names what is wrong.
std::bitset<kMaximumPorts> ParsePortList(const std::string& text);

} // namespace MidiServer
