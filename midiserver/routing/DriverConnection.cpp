#include "midiserver/routing/DriverConnection.h"

#include "midiserver/host/CFText.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"
#include "midiserver/routing/PrivateSourceIds.h"

#include <fmt/format.h>

#include <utility>

namespace MidiServer {

DriverConnection::DriverConnection(const std::vector<DriverPort>& ports, Listeners listeners)
    : mListeners(std::move(listeners)) {
    const CFOwned<CFStringRef> name = MakeCFString("midiserver");
    const auto receive = [](const MIDIPacketList* packets, void*, void* connection) {
        const auto& source = *static_cast<const Source*>(connection);
        source.receive(source.port, *packets);
    };
    OSStatus status = MIDIClientCreate(name.Get(), nullptr, nullptr, &mClient.reference);
    if (status == noErr) {
        status = MIDIOutputPortCreate(mClient.reference, name.Get(), &mOutput);
    }
    if (status == noErr) {
        status = MIDIInputPortCreate(mClient.reference, name.Get(), receive, nullptr, &mInput);
    }
    if (status != noErr) {
        throw HostError(fmt::format("the host's MIDI client cannot be made (status {})", status));
    }
    ConnectPrivateSources(ports.size());
    for (const DriverPort& port : ports) {
        if (port.source != 0) {
            status = Listen(port.source, mListeners.fromPort, mDestinations.size());
        }
        if (status != noErr) {
            throw HostError(
                fmt::format("the driver's sources cannot be listened to (status {})", status));
        }
        mDestinations.push_back(port.destination);
    }
}

void DriverConnection::ConnectPrivateSources(std::size_t count) {
    mPrivateIds = AskForPrivateSourceIds(count);
    for (std::size_t port = 0; port < count; ++port) {
        const SInt32 id = mPrivateIds[port];
        MIDIObjectRef source = 0;
        MIDIObjectType type = kMIDIObjectType_Other;
        OSStatus status = MIDIObjectFindByUniqueID(id, &source, &type);
        if (status == noErr && type != kMIDIObjectType_Source) {
            status = kMIDIObjectNotFound;
        }
        if (status == noErr) {
            status = Listen(source, mListeners.fromPrivateSource, port);
        }
        if (status != noErr) {
            throw HostError(
                fmt::format("the private source of port {} with the unique ID {} cannot "
                            "be connected (status {})",
                            port + 1, id, status));
        }
        Log(kRoutingLog[HSL::kChatty], "listening to private source %d of port %u", id, port + 1);
    }
}

OSStatus DriverConnection::Listen(MIDIEndpointRef source, const Receive& receive,
                                  std::size_t port) {
    mSources.push_back({receive, port});
    return MIDIPortConnectSource(mInput, source, &mSources.back());
}

} // namespace MidiServer
