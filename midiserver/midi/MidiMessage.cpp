#include "midiserver/midi/MidiMessage.h"

#include <algorithm>

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

bool IsWholeMessage(std::span<const std::uint8_t> bytes) {
    if (bytes.empty() || ContinuesExclusive(bytes)) {
        return false;
    }
    const std::optional<std::size_t> length = MidiMessageLength(bytes.front());
    if (length ? bytes.size() != *length : bytes.size() < 2 || bytes.back() != kEndOfExclusive) {
        return false;
    }
    const auto data = bytes.subspan(1, length ? *length - 1 : bytes.size() - 2);
    return std::all_of(data.begin(), data.end(), IsDataByte);
}

} // namespace MidiServer
