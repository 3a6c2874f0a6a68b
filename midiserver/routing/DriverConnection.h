#pragma once

#include "midiserver/host/Host.h"

#include <CoreMIDI/MIDIServices.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <vector>

namespace MidiServer {

// A DriverConnection is the way between this process and a driver that runs. As a DAW does, it
// sends to the destinations of the driver's ports and listens to their sources. As the
// control-surface application does, it asks the driver's message port for the unique IDs of the
// private sources and listens to these.
//
//     DriverConnection driver(host.Ports(), {
//         .fromPort = [](std::size_t port, const MIDIPacketList& packets) { ... },
//         .fromPrivateSource = [](std::size_t port, const MIDIPacketList& packets) { ... }});
//     driver.Send(0, packets);
//
// One thread makes and destroys it; in between, one thread at a time sends.
class DriverConnection {
public:
    // Receives what the driver emits on a source of the port with this index. It is called on the
    // driver's threads, which wait meanwhile. `packets` is valid during the call.
    using Receive = std::function<void(std::size_t port, const MIDIPacketList& packets)>;
    struct Listeners {
        Receive fromPort;          // from the port's own source, to DAWs
        Receive fromPrivateSource; // from its private source, to the application
    };

    // Connects to all sources, and blocks until the driver has answered. Meanwhile the calling
    // thread's run loop runs in the default mode, so the thread that serves the driver's message
    // port may call as well. Throws a HostError that says what failed.
    DriverConnection(const std::vector<DriverPort>& ports, Listeners listeners);
    // The listeners are not called any more once this has returned.
    ~DriverConnection() = default;
    DriverConnection(const DriverConnection&) = delete;
    DriverConnection& operator=(const DriverConnection&) = delete;

    // Sends a packet list to the destination of a port. The driver overwrites the times in it.
    // Blocks while the platform's queue to the driver is full. Returns the status of MIDISend.
    OSStatus Send(std::size_t port, const MIDIPacketList& packets) const {
        return MIDISend(mOutput, mDestinations[port], &packets);
    }

    // The unique IDs of the private sources, by port.
    const std::vector<SInt32>& PrivateIds() const { return mPrivateIds; }

private:
    // A source's port and listener, which the read procedure gets with its packets.
    struct Source {
        const Receive& receive;
        std::size_t port;
    };
    // Disposes of the client's ports too, and waits for the read procedures that run.
    struct Client {
        ~Client() { MIDIClientDispose(reference); }
        MIDIClientRef reference = 0;
    };

    void ConnectPrivateSources(std::size_t count);
    OSStatus Listen(MIDIEndpointRef source, const Receive& receive, std::size_t port);

    const Listeners mListeners;
    std::vector<MIDIEndpointRef> mDestinations; // by port
    std::vector<SInt32> mPrivateIds;
    std::deque<Source> mSources; // which stay at their places
    MIDIPortRef mOutput = 0;
    MIDIPortRef mInput = 0;
    Client mClient; // last: its read procedures use the others
};

} // namespace MidiServer
