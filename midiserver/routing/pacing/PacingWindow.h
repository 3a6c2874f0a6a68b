#pragma once

#include "midiserver/routing/DriverLimits.h"

#include <chrono>
#include <cstddef>
#include <deque>

namespace MidiServer {

// What may be sent to a port without its throttle in the driver having to hold it back. The driver
// lets kBytes bytes of MIDI data through in any second and counts them as it lets them through.
// This window counts them as they are sent, which is a little earlier; it is wider than a second by
// kSlack, so bytes may reach the throttle later than others by as much before any has to wait.
//
// The caller supplies the times, which must not decrease. Not synchronised.
class PacingWindow {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr std::size_t kBytes = kDriverBytesPerSecond;
    static constexpr std::chrono::milliseconds kSlack{50};
    static constexpr std::chrono::milliseconds kLength = std::chrono::seconds(1) + kSlack;

    // The bytes that may be sent at this time.
    std::size_t Room(TimePoint now);
    void Add(TimePoint now, std::size_t bytes);
    // When so many bytes, at most kBytes, may be sent if none are before; maybe in the past.
    TimePoint TimeOfRoom(std::size_t bytes) const;

private:
    struct Sent {
        TimePoint when;
        std::size_t bytes;
    };

    std::deque<Sent> mSent;
    std::size_t mSentBytes = 0;
};

} // namespace MidiServer
