#include "midiserver/routing/DriverConnection.h"

#include "midiserver/host/CFText.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"

#include <CoreFoundation/CFMessagePort.h>

#include <fmt/format.h>

#include <array>
#include <cstring>
#include <utility>

namespace MidiServer {

namespace {

constexpr unsigned kIdsPerReply = 4;
constexpr CFTimeInterval kTimeoutSeconds = 10.0;

using IdBlock = std::array<SInt32, kIdsPerReply>;

const char* Meaning(SInt32 result) {
    switch (result) {
    case kCFMessagePortSendTimeout:
    case kCFMessagePortReceiveTimeout:
        return "its time ran out";
    case kCFMessagePortIsInvalid:
    case kCFMessagePortBecameInvalidError:
        return "the driver closed it";
    default:
        return "what came back is no answer";
    }
}

// Asks for the IDs of four ports, `port` (1-based) and the three after it.
IdBlock AskForIds(CFMessagePortRef messagePort, std::size_t port) {
    CFDataRef data = nullptr;
    const SInt32 result =
        CFMessagePortSendRequest(messagePort, static_cast<SInt32>(port), nullptr, kTimeoutSeconds,
                                 kTimeoutSeconds, kCFRunLoopDefaultMode, &data);
    const CFOwned<CFDataRef> reply(data);
    if (result != kCFMessagePortSuccess || !reply) {
        throw HostError(fmt::format("the driver's message port \"{}\" did not answer: {} (result "
                                    "{})",
                                    kMessagePortName, Meaning(result), result));
    }
    IdBlock ids{};
    const CFIndex length = CFDataGetLength(reply.Get());
    if (length != static_cast<CFIndex>(sizeof ids)) {
        throw HostError(fmt::format("the driver's message port \"{}\" answered {} bytes, {} are "
                                    "expected",
                                    kMessagePortName, length, sizeof ids));
    }
    std::memcpy(ids.data(), CFDataGetBytePtr(reply.Get()), sizeof ids);
    Log(kRoutingLog[HSL::kInfo],
        "the driver's message port gave the IDs %d, %d, %d, %d from port %u on", ids[0], ids[1],
        ids[2], ids[3], port);
    return ids;
}

} // namespace

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
    const CFOwned<CFStringRef> name = MakeCFString(kMessagePortName);
    const CFOwned<CFMessagePortRef> messagePort(
        CFMessagePortCreateRemote(kCFAllocatorDefault, name.Get()));
    if (!messagePort) {
        throw HostError(
            fmt::format("the driver's message port \"{}\" is not there", kMessagePortName));
    }
    IdBlock ids{};
    for (std::size_t port = 0; port < count; ++port) {
        if (port % kIdsPerReply == 0) {
            ids = AskForIds(messagePort.Get(), port + 1);
        }
        const SInt32 id = ids.at(port % kIdsPerReply);
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
        mPrivateIds.push_back(id);
        Log(kRoutingLog[HSL::kChatty], "listening to private source %d of port %u", id, port + 1);
    }
}

OSStatus DriverConnection::Listen(MIDIEndpointRef source, const Receive& receive,
                                  std::size_t port) {
    mSources.push_back({receive, port});
    return MIDIPortConnectSource(mInput, source, &mSources.back());
}

} // namespace MidiServer
