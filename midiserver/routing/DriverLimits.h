#pragma once

#include <cstddef>

namespace MidiServer {

// What the driver's worker takes.

// The bytes of MIDI data that it lets through on one port in one second. It holds its lock while it
// holds a port back, which stops all ports and the thread that sends.
inline constexpr std::size_t kDriverBytesPerSecond = 14336;

// The bytes of its ring, in which the packet lists that it has not forwarded yet lie one after the
// other. Once that has overflowed, it forwards nothing ever again.
inline constexpr std::size_t kDriverRingBytes = 524288;

// The bytes of packet lists, headers counted, that a sender has under way at most, so that a worker
// that does not get to run, however long, still loses nothing.
inline constexpr std::size_t kMostBytesInDriver = kDriverRingBytes / 4;

} // namespace MidiServer
