#pragma once

#include "midiserver/routing/DriverLimits.h"

#include <chrono>
#include <cstddef>
#include <deque>

namespace MidiServer {

// A PacingWindow tells how much may be sent to a port so that the driver need not hold the port
// back. The driver lets kBytes bytes of MIDI data through in any second, and counts them when it
// lets them through. This window counts them when they are sent, which is a little earlier. It is
// wider than a second by kSlack, the time by which one byte may take longer to the driver's
// throttle than another before any byte has to wait there.
//
//     if (bytes <= window.Room(now)) {
//         Send();
//         window.Add(now, bytes);
//     }
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
