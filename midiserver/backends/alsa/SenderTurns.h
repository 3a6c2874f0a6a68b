#pragma once

#include "midiserver/backends/alsa/SequencerClient.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <span>
#include <vector>

namespace MidiServer {

// Keeps apart what several programs send to one port. System Exclusive messages arrive in pieces,
// and the pieces of two senders, or a note of another one in between, would spoil a message: while
// one is open, what the others send waits until its end. Real-time messages may stand anywhere and
// never wait.
//
//     turns.Take(sender, now, bytes, deliver); // deliver(time, bytes), now or in a later call
//     turns.EndOverdue(now, deliver);
//
// One thread uses the object.
class SenderTurns {
public:
    using Time = std::chrono::steady_clock::time_point;
    // `time` is that of Take.
    using Deliver = std::function<void(Time time, std::span<const std::uint8_t> bytes)>;

    // What waits at most, in bytes. It is much more than others send while a message goes on.
    static constexpr std::size_t kMostWaiting = 65536;
    // A sender whose next piece is not there after this time has lost its turn.
    static constexpr std::chrono::seconds kLongestPause{2};

    // Takes one event: whole messages, or a piece of a System Exclusive message. Returns false if
    // it would have to wait and there is no room: then it is dropped.
    bool Take(PortAddress sender, Time now, std::span<const std::uint8_t> bytes,
              const Deliver& deliver);
    // The client is gone: its message will not end.
    void Leave(int client, const Deliver& deliver);
    // Ends the turn of a sender that pauses for too long.
    void EndOverdue(Time now, const Deliver& deliver);
    // Events were lost, whose is not known: nobody's message goes on for sure.
    void EndAll(const Deliver& deliver);

    // When EndOverdue has something to do; nothing while nobody waits.
    std::optional<Time> Due() const;

private:
    struct Waiting {
        PortAddress sender;
        Time time;
        std::vector<std::uint8_t> bytes;
    };

    void Pass(PortAddress sender, Time time, std::span<const std::uint8_t> bytes,
              const Deliver& deliver);
    void PassWaiting(const Deliver& deliver);

    std::optional<PortAddress> mOpen; // the sender whose message is open
    Time mLastPiece;
    std::list<Waiting> mWaiting;
    std::size_t mWaitingBytes = 0;
};

} // namespace MidiServer
