#pragma once

#include "midiserver/host/Host.h"

#include <CoreMIDI/MIDIServices.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace MidiServer {

// Puts a driver's ports before the DAWs. This one stays within the process: the DAW is the caller
// itself, and no service of the machine is needed.
//
// Every backend has this interface. Publish and withdraw on one thread; deliver from one thread at
// a time, between the two.
class Backend {
public:
    // Receives what the driver emits on a port's own source (the port's index in the published
    // list). Called on the driver's threads; must not block for long and must not withdraw. The
    // list is valid during the call.
    using FromDriver = std::function<void(std::size_t port, const MIDIPacketList& packets)>;

    // Throws HostError when the platform gives no client or port.
    explicit Backend(FromDriver fromDriver);
    ~Backend();
    Backend(const Backend&) = delete;
    Backend& operator=(const Backend&) = delete;

    // Makes the ports known to DAWs and starts to listen to their sources. Throws HostError.
    void PublishPorts(const std::vector<DriverPort>& ports);
    // Takes the ports back; FromDriver is not called any more once this has returned. Does nothing
    // when nothing is published.
    void WithdrawPorts();

    // Sends a list to a published port's destination; times in it are overwritten. Blocks while
    // the platform's queue to the driver is full. The status is that of MIDISend;
    // kMIDIInvalidPort for a port that is not published.
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
