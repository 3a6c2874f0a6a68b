#pragma once

#include "surface/event/SurfaceEvent.h"

#include <cstdint>
#include <span>

namespace Surface::Mackie {

// The devices that Mackie Control's messages are for. A port shows one surface, whatever name it is
// called by, so the decoder understands them all alike.
inline constexpr std::uint8_t kLogicControl = 0x10;
inline constexpr std::uint8_t kLogicControlExtender = 0x11;
inline constexpr std::uint8_t kMackieControl = 0x14;
inline constexpr std::uint8_t kMackieControlExtender = 0x15;
// HUI's own; DAWs use it that have a device answer as HUI and speak Mackie Control to it.
inline constexpr std::uint8_t kHuiIdentity = 0x05;

// Returns what a DAW's message means to a Mackie Control. docs/surface.md lists the messages.
//
// `message` is one whole MIDI message with its status byte, as MessageAssembler gives it; anything
// else is an UnknownMessage. Keeps nothing between the calls, allocates nothing, and may be called
// from any thread. The event is valid as long as the message's bytes are.
SurfaceEvent Decode(std::span<const std::uint8_t> message);

} // namespace Surface::Mackie
