#pragma once

#include "midiserver/host/Host.h"

#include <CoreMIDI/MIDIServices.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace MidiServer {

// The DAWs' side of a driver's ports: sends to their destinations and listens to their sources, as
// a client of the process's MIDI server.
//
//     DriverPorts driverPorts([](std::size_t port, const MIDIPacketList& packets) { ... });
//     driverPorts.Connect(host.Ports());
//     driverPorts.Send(0, packets);
//     driverPorts.Disconnect();
//
// One thread connects and disconnects; between the two, one thread at a time sends.
class DriverPorts {
public:
    // Receives what the driver emits on the own source of a port; `port` is the port's index in the
    // connected list. Called on the driver's threads. It must not block for long and must not
    // disconnect. `packets` is valid during the call.
    using FromDriver = std::function<void(std::size_t port, const MIDIPacketList& packets)>;

    // Throws HostError if the platform gives no MIDI client or no output port.
    explicit DriverPorts(FromDriver fromDriver);
    ~DriverPorts();
    DriverPorts(const DriverPorts&) = delete;
    DriverPorts& operator=(const DriverPorts&) = delete;

    // Starts to listen to the ports' sources. Throws HostError, with nothing connected, if a source
    // cannot be listened to.
    void Connect(const std::vector<DriverPort>& ports);
    // FromDriver is not called any more once this has returned. Does nothing if nothing is
    // connected.
    void Disconnect();

    // Sends a packet list to the destination of a port. The driver overwrites the times
    // in it. Blocks while the platform's queue to the driver is full. Returns the status of
    // MIDISend, or kMIDIInvalidPort if no such port is connected.
    OSStatus Send(std::size_t port, MIDIPacketList& packets);

private:
    struct Connection;

    static void ReadProcedure(const MIDIPacketList* packets, void* driverPorts, void* connection);

    FromDriver mFromDriver;
    MIDIClientRef mClient = 0;
    MIDIPortRef mOutput = 0;
    MIDIPortRef mInput = 0;
    std::vector<std::unique_ptr<Connection>> mConnections;
};

} // namespace MidiServer
