#pragma once

#include "midiserver/host/Host.h"

#include <CoreMIDI/MIDIServices.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace MidiServer {

// A backend shows a driver's ports to DAWs and carries MIDI both ways. The embedded backend stays
// within the process: the caller itself is the DAW, and no service of the machine is needed.
//
//     Backend backend([](std::size_t port, const MIDIPacketList& packets) { ... });
//     backend.PublishPorts(host.Ports());
//     backend.DeliverToDriver(0, packets);
//     backend.WithdrawPorts();
//
// Every backend has this interface. One thread publishes and withdraws; between the two, one thread
// at a time delivers.
class Backend {
public:
    // Receives what the driver emits on the own source of a port; `port` is the port's index in the
    // published list. The backend calls it on the driver's threads. It must not block for long and
    // must not withdraw the ports. `packets` is valid during the call.
    using FromDriver = std::function<void(std::size_t port, const MIDIPacketList& packets)>;

    // Throws HostError if the platform gives no MIDI client or no output port.
    explicit Backend(FromDriver fromDriver);
    ~Backend();
    Backend(const Backend&) = delete;
    Backend& operator=(const Backend&) = delete;

    // Shows the ports to DAWs and starts to listen to their sources. Throws HostError, with nothing
    // published, if a source cannot be listened to.
    void PublishPorts(const std::vector<DriverPort>& ports);
    // Takes the ports away from the DAWs. FromDriver is not called any more once this has returned.
    // Does nothing if nothing is published.
    void WithdrawPorts();

    // Sends a packet list to the destination of a published port. The driver overwrites the times
    // in it. Blocks while the platform's queue to the driver is full. Returns the status of
    // MIDISend, or kMIDIInvalidPort if no such port is published.
    OSStatus DeliverToDriver(std::size_t port, MIDIPacketList& packets);

private:
    struct Connection;

    static void ReadProcedure(const MIDIPacketList* packets, void* backend, void* connection);

    FromDriver mFromDriver;
    MIDIClientRef mClient = 0;
    MIDIPortRef mOutput = 0;
    MIDIPortRef mInput = 0;
    std::vector<std::unique_ptr<Connection>> mConnections;
};

} // namespace MidiServer
