#pragma once

#include "midiserver/routing/pacing/PacingQueue.h"
#include "midiserver/routing/pacing/PacingWindow.h"
#include "platform/packetlist/PacketListBuilder.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace MidiServer {

// A packet list that may be sent to a port now.
struct PacedList {
    using TimePoint = std::chrono::steady_clock::time_point;

    std::size_t port = 0;
    PacketListBuilder list;    // a packet for each message, several for one of more than 256 bytes
    std::size_t dataBytes = 0; // of the messages alone
    std::vector<TimePoint> arrived; // of the messages that end in this list
};

// A pacer decides what is sent to the driver when. The driver's worker holds its one lock while it
// holds a port back, which stops all other ports and the thread that sends; and it forwards nothing
// ever again once a ring of it has overflowed. So every port has a queue here, which is let out at
// just below the driver's limit (PacingWindow.h), and the driver seldom has to hold anything back.
//
//     pacer.Add(0, message, arrived);
//     while (pacer.Next(now, list)) {
//         Send(list);
//     }
//     SleepUntil(pacer.Due());
//
// Ports take turns: each gets a list of at most kLargestList bytes, headers counted, in its turn.
// kPingReserve bytes of a port's window are for pings only, so that a port that uses all of its
// rate still has its pings answered at once.
//
// The caller supplies the times, which must not decrease. Not synchronised.
class Pacer {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr std::size_t kLargestPacket = 256;
    static constexpr std::size_t kLargestList = 1024;
    static constexpr std::size_t kPingReserve = 64;

    struct PortSettings {
        Protocol protocol = Protocol::kNone;
        bool coalescing = false;
    };

    // Sets the ports. What waits on ports that stay goes on waiting; what waits on others must have
    // been dropped (Clear) before.
    void Configure(const std::vector<PortSettings>& ports);

    std::size_t Ports() const { return mPorts.size(); }
    const PacingQueue& Queue(std::size_t port) const { return mPorts[port].queue; }

    // Adds one whole message to a port's queue. Returns false if it has no room.
    bool Add(std::size_t port, std::span<const std::uint8_t> message, TimePoint arrived) {
        return mPorts[port].queue.Add(message, arrived);
    }

    // Gives the list whose turn it is, and counts it as sent. Returns false if none may be sent
    // now.
    bool Next(TimePoint now, PacedList& list);

    // When Next may give a list: maybe in the past, and time_point::max() if nothing waits.
    TimePoint Due() const;

    void Clear(std::size_t port) { mPorts[port].queue.Clear(); }

private:
    struct Port {
        PacingQueue queue;
        PacingWindow window;
    };

    static bool Fill(Port& port, TimePoint now, PacedList& list);
    static std::size_t NeededRoom(const PacingQueue::Front& front);

    std::vector<Port> mPorts;
    std::size_t mTurn = 0;
};

} // namespace MidiServer
