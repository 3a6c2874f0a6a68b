#include "midiserver/routing/PingRestorer.h"

namespace MidiServer {

std::optional<std::array<std::uint8_t, 3>> RestoredPing(Protocol protocol,
                                                        std::span<const std::uint8_t> message) {
    if (protocol == Protocol::kHui && message.size() == 3 && message[0] == 0x80 &&
        message[1] == 0x00 && (message[2] == 0x40 || message[2] == 0x00)) {
        return std::array<std::uint8_t, 3>{0x90, 0x00, 0x00};
    }
    return std::nullopt;
}

} // namespace MidiServer
