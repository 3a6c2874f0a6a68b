#include "midiserver/routing/pacing/Pacer.h"

#include <algorithm>

namespace MidiServer {

static_assert(PacingQueue::kLongestPing <= Pacer::kLargestPacket,
              "a ping must stay one packet, or the driver does not recognise it");

void Pacer::Configure(const std::vector<PortSettings>& ports) {
    mPorts.resize(ports.size());
    for (std::size_t port = 0; port < ports.size(); ++port) {
        mPorts[port].queue.Configure(ports[port].protocol, ports[port].coalescing);
    }
    mTurn = 0;
}

bool Pacer::Next(TimePoint now, PacedList& list) {
    for (std::size_t i = 0; i < mPorts.size(); ++i) {
        const std::size_t port = (mTurn + i) % mPorts.size();
        if (Fill(mPorts[port], now, list)) {
            list.port = port;
            mTurn = (port + 1) % mPorts.size();
            return true;
        }
    }
    return false;
}

// What the window must have room for before the next packet may go.
std::size_t Pacer::NeededRoom(const PacingQueue::Front& front) {
    return std::min(front.rest.size(), kLargestPacket) + (front.isPing ? 0 : kPingReserve);
}

bool Pacer::Fill(Port& port, TimePoint now, PacedList& list) {
    list.list.Clear();
    list.dataBytes = 0;
    list.arrived.clear();
    while (!port.queue.Empty()) {
        const std::size_t room = port.window.Room(now) - list.dataBytes;
        PacingQueue::Front front = port.queue.Next();
        const bool mustWait = NeededRoom(front) > room;
        if (mustWait) {
            port.queue.NoteDelay();
            if (!port.queue.HasOvertakingPing()) {
                break;
            }
            front = port.queue.NextPing();
        }
        const auto packet = front.rest.first(std::min(front.rest.size(), kLargestPacket));
        if (NeededRoom(front) > room ||
            (!list.list.Empty() && list.list.SizeWith(packet.size()) > kLargestList)) {
            break;
        }
        list.list.Add(packet);
        list.dataBytes += packet.size();
        if (mustWait) {
            list.arrived.push_back(front.arrived);
            port.queue.TakePing();
        } else if (port.queue.Advance(packet.size())) {
            list.arrived.push_back(front.arrived);
        }
    }
    if (list.list.Empty()) {
        return false;
    }
    port.window.Add(now, list.dataBytes);
    return true;
}

Pacer::TimePoint Pacer::Due() const {
    TimePoint due = TimePoint::max();
    for (const Port& port : mPorts) {
        if (!port.queue.Empty()) {
            due = std::min(due, port.window.TimeOfRoom(NeededRoom(port.queue.Next())));
            if (port.queue.HasOvertakingPing()) {
                due = std::min(due, port.window.TimeOfRoom(NeededRoom(port.queue.NextPing())));
            }
        }
    }
    return due;
}

} // namespace MidiServer
