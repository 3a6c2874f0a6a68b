#pragma once

#include "surface/event/SurfaceEvent.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace Surface::Hui {

// A HuiDecoder says what the messages that a DAW sends to one port mean to a HUI. docs/surface.md
// lists them.
//
//     HuiDecoder decoder;
//     SurfaceEvent event = decoder.Decode(message);
//
// A light takes two messages (zone, then port and state) and so does a fader (high half, then low
// half), so the decoder keeps the zone and the high halves between the calls: 0 until one came. A
// port and state without a zone before are an UnknownMessage. The zone holds until another one is
// selected.
//
// Not synchronised; allocates nothing.
class HuiDecoder {
public:
    // `message` is one whole MIDI message with its status byte, as MessageAssembler gives it;
    // anything else is an UnknownMessage. The event is valid as long as the message's bytes are.
    SurfaceEvent Decode(std::span<const std::uint8_t> message);

private:
    SurfaceEvent DecodeController(std::span<const std::uint8_t> message);
    SurfaceEvent DecodeSwitch(std::span<const std::uint8_t> message) const;

    std::optional<std::uint8_t> mZone;
    std::array<std::uint8_t, kFaderCount> mFaderHighs{};
};

} // namespace Surface::Hui
