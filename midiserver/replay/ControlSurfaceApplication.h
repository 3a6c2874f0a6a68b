#pragma once

#include <CoreMIDI/MIDIServices.h>

#include <functional>
#include <memory>
#include <vector>

namespace MidiServer {

// Listens to the driver as the control-surface application does: asks its message port for the
// unique IDs of the private sources, finds each source by its ID and connects to it.
class ControlSurfaceApplication {
public:
    // Receives what is forwarded for a port (0-based). Called on the driver's worker thread, which
    // waits meanwhile. The list is valid during the call.
    using Received = std::function<void(unsigned port, const MIDIPacketList& packets)>;

    explicit ControlSurfaceApplication(Received received);
    ~ControlSurfaceApplication();
    ControlSurfaceApplication(const ControlSurfaceApplication&) = delete;
    ControlSurfaceApplication& operator=(const ControlSurfaceApplication&) = delete;

    // Connects to the sources of ports 0 to portCount - 1. Blocks until the driver has answered,
    // so it must not be called on the thread whose run loop serves the driver's message port.
    // Throws HostError that says what failed.
    void Connect(unsigned portCount);
    // Received is not called any more once this has returned. Does nothing when not connected.
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
