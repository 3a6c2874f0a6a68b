#pragma once

#include "midiserver/replay/LatencyDistribution.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace MidiServer {

// The messages of DAWs that never reached the control-surface application, by the reason.
struct DroppedMessages {
    std::uint64_t queueFull = 0; // the port's pacing queue had no room
    std::uint64_t tooLong = 0;   // longer than MessageAssembler::kLongestMessage
    // System Exclusive that another message or a loss cut off
    std::uint64_t incomplete = 0;
    std::uint64_t malformed = 0; // bytes that belong to no message; a run of them counts once
    std::uint64_t lostInBackend =
        0;                          // events, of one or more messages, lost before the input thread
    std::uint64_t refused = 0;      // the driver's server did not take them
    std::uint64_t lostInDriver = 0; // the driver took them and did not forward them
    std::uint64_t stopped = 0;      // they waited when the routing ended or the port went away

    std::uint64_t Total() const {
        return queueFull + tooLong + incomplete + malformed + lostInBackend + refused +
               lostInDriver + stopped;
    }
};

// The traffic of one port since the service started. A message is a whole one, whatever number of
// packets carries it; its bytes are those of the message alone.
struct PortCounters {
    // From DAWs to the port, dropped messages included as far as they came whole.
    std::uint64_t messagesIn = 0;
    std::uint64_t bytesIn = 0;
    std::uint64_t delayedMessages = 0;   // waited for the port's rate
    std::uint64_t coalescedMessages = 0; // superseded by a later value while they waited
    std::uint64_t restoredPings = 0;     // HUI pings that a bridge had rewritten
    std::optional<std::chrono::steady_clock::time_point> lastPing;

    // Now: those that wait for the port's rate, and those that the driver has and will forward.
    std::uint64_t queuedMessages = 0;
    std::uint64_t queuedBytes = 0;
    std::uint64_t messagesInDriver = 0;

    // Out of the port's private source, to the control-surface application.
    std::uint64_t forwardedMessages = 0;
    std::uint64_t forwardedBytes = 0;
    // From the moment when a message came from the DAW until it is out of the private source.
    LatencyDistribution::Percentiles forwarding;

    // Out of the port's own source, to DAWs: the driver emits nothing else there.
    std::uint64_t answeredPings = 0;

    DroppedMessages dropped;
};

} // namespace MidiServer
