#pragma once

#include "midiserver/preferences/PingProtocol.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace MidiServer {

// Returns the ping that a bridge outside has rewritten into this message, or nothing if the message
// is none. Some bridges turn a note-on with velocity 0 into a note-off, which means the same to
// instruments but is no HUI ping any more: 90 00 00 becomes 80 00 40 or 80 00 00. A port that
// emulates HUI has no other use for that note-off, so the driver gets the ping back.
std::optional<std::array<std::uint8_t, 3>> RestoredPing(Protocol protocol,
                                                        std::span<const std::uint8_t> message);

} // namespace MidiServer
