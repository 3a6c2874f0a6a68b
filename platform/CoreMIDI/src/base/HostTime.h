#pragma once

#include <CoreMIDI/CoreMIDIBase.h>

#include <chrono>

namespace CoreMIDI {

// Returns the present moment as a time stamp, in nanoseconds.
inline MIDITimeStamp HostTimeNow() {
    return static_cast<MIDITimeStamp>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}

} // namespace CoreMIDI
