#pragma once

#include <cstddef>

namespace MidiServer {

// Bytes that a packet list in its packed form, and each of its packets, adds to the MIDI data: the
// number of packets; a time stamp of 8 bytes and a length of 2.
inline constexpr std::size_t kPacketListHeaderBytes = 4;
inline constexpr std::size_t kPacketHeaderBytes = 10;

} // namespace MidiServer
