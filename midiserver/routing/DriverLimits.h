#pragma once

#include <cstddef>

namespace MidiServer {

// The limits of the driver's output worker, which forwards what DAWs send.

// The bytes of MIDI data that the worker lets through on one port in one second. It holds its lock
// while it holds a port back, which stops all ports and the thread that sends.
inline constexpr std::size_t kDriverBytesPerSecond = 14336;

// The bytes of the worker's ring. The packet lists that it has not forwarded yet lie there one
// after the other. Once the ring has overflowed, the worker forwards nothing ever again.
inline constexpr std::size_t kDriverRingBytes = 524288;

// The most bytes of packet lists, headers counted, that a sender has under way. A worker that does
// not get to run, however long, then still loses nothing.
inline constexpr std::size_t kMostBytesInDriver = kDriverRingBytes / 4;

} // namespace MidiServer
