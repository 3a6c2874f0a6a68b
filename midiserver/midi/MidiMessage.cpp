#include "midiserver/midi/MidiMessage.h"

namespace MidiServer {

std::optional<std::size_t> MidiMessageLength(std::uint8_t status) {
    if (status < 0xF0) {
        return (status & 0xE0) == 0xC0 ? 2 : 3;
    }
    switch (status) {
    case 0xF0:
        return std::nullopt;
    case 0xF1:
    case 0xF3:
    case 0xF5: // the port selection of some interfaces
        return 2;
    case 0xF2:
        return 3;
    default:
        return 1;
    }
}

} // namespace MidiServer
