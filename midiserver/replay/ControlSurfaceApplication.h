#pragma once

#include <CoreMIDI/MIDIServices.h>

#include <functional>
#include <memory>
#include <vector>

namespace MidiServer {

// This class stands in for the control-surface application: it asks the driver's message port for
// the unique IDs of the private sources, finds each source by its ID and connects to it.
//
//     ControlSurfaceApplication application(
//         [](unsigned port, const MIDIPacketList& packets) { ... });
//     application.Connect(4); // to the sources of ports 0 to 3
//     application.Disconnect();
class ControlSurfaceApplication {
public:
    // Receives the packets that the driver forwards for a port (0-based). It is called on the
    // driver's worker thread, which waits meanwhile. `packets` is valid during the call.
    using Received = std::function<void(unsigned port, const MIDIPacketList& packets)>;

    explicit ControlSurfaceApplication(Received received);
    ~ControlSurfaceApplication();
    ControlSurfaceApplication(const ControlSurfaceApplication&) = delete;
    ControlSurfaceApplication& operator=(const ControlSurfaceApplication&) = delete;

    // Connects to the sources of ports 0 to portCount - 1. Blocks until the driver has answered,
    // so it must not be called on the thread whose run loop serves the driver's message port.
    // Throws a HostError that says what failed.
    void Connect(unsigned portCount);
    // Ends the connections; Received is not called any more once this has returned. Does nothing if
    // there are none.
    void Disconnect();

private:
    struct Connection;

    static void ReadProcedure(const MIDIPacketList* packets, void* application, void* connection);

    Received mReceived;
    MIDIClientRef mClient = 0;
    MIDIPortRef mInput = 0;
    std::vector<std::unique_ptr<Connection>> mConnections;
};

} // namespace MidiServer
