#include "midiserver/routing/DriverPorts.h"

#include "midiserver/host/CFText.h"

#include <fmt/format.h>

#include <utility>

namespace MidiServer {

struct DriverPorts::Connection {
    std::size_t port;
    MIDIEndpointRef source;
    MIDIEndpointRef destination;
};

DriverPorts::DriverPorts(FromDriver fromDriver) : mFromDriver(std::move(fromDriver)) {
    const CFOwned<CFStringRef> name = MakeCFString("midiserver driver ports");
    OSStatus status = MIDIClientCreate(name.Get(), nullptr, nullptr, &mClient);
    if (status == noErr) {
        status = MIDIOutputPortCreate(mClient, name.Get(), &mOutput);
    }
    if (status != noErr) {
        MIDIClientDispose(mClient);
        throw HostError(fmt::format("the host's MIDI client cannot be made (status {})", status));
    }
}

DriverPorts::~DriverPorts() {
    Disconnect();
    MIDIPortDispose(mOutput);
    MIDIClientDispose(mClient);
}

void DriverPorts::Connect(const std::vector<DriverPort>& ports) {
    const CFOwned<CFStringRef> name = MakeCFString("from the driver");
    OSStatus status = MIDIInputPortCreate(mClient, name.Get(), ReadProcedure, this, &mInput);
    for (const DriverPort& port : ports) {
        mConnections.push_back(std::make_unique<Connection>(
            Connection{mConnections.size(), port.source, port.destination}));
        if (status == noErr && port.source != 0) {
            status = MIDIPortConnectSource(mInput, port.source, mConnections.back().get());
        }
    }
    if (status != noErr) {
        Disconnect();
        throw HostError(
            fmt::format("the driver's sources cannot be listened to (status {})", status));
    }
}

void DriverPorts::Disconnect() {
    if (mInput != 0) {
        MIDIPortDispose(mInput);
        mInput = 0;
    }
    mConnections.clear();
}

OSStatus DriverPorts::Send(std::size_t port, MIDIPacketList& packets) {
    if (port >= mConnections.size()) {
        return kMIDIInvalidPort;
    }
    return MIDISend(mOutput, mConnections[port]->destination, &packets);
}

void DriverPorts::ReadProcedure(const MIDIPacketList* packets, void* driverPorts,
                                void* connection) {
    static_cast<DriverPorts*>(driverPorts)
        ->mFromDriver(static_cast<Connection*>(connection)->port, *packets);
}

} // namespace MidiServer
