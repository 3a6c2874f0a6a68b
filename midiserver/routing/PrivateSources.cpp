#include "midiserver/routing/PrivateSources.h"

#include "midiserver/host/CFText.h"
#include "midiserver/host/Host.h"
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
IdBlock AskForIds(CFMessagePortRef messagePort, unsigned port) {
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

struct PrivateSources::Connection {
    unsigned port;
};

PrivateSources::PrivateSources(Received received) : mReceived(std::move(received)) {}

PrivateSources::~PrivateSources() {
    Disconnect();
}

void PrivateSources::Connect(unsigned portCount) {
    const CFOwned<CFStringRef> portName = MakeCFString(kMessagePortName);
    const CFOwned<CFMessagePortRef> messagePort(
        CFMessagePortCreateRemote(kCFAllocatorDefault, portName.Get()));
    if (!messagePort) {
        throw HostError(
            fmt::format("the driver's message port \"{}\" is not there", kMessagePortName));
    }
    const CFOwned<CFStringRef> name = MakeCFString("midiserver private sources");
    OSStatus status = MIDIClientCreate(name.Get(), nullptr, nullptr, &mClient);
    if (status == noErr) {
        status = MIDIInputPortCreate(mClient, name.Get(), ReadProcedure, this, &mInput);
    }
    if (status != noErr) {
        throw HostError(fmt::format(
            "the MIDI client of the private sources cannot be made (status {})", status));
    }
    IdBlock ids{};
    for (unsigned port = 0; port < portCount; ++port) {
        if (port % kIdsPerReply == 0) {
            ids = AskForIds(messagePort.Get(), port + 1);
        }
        const SInt32 id = ids[port % kIdsPerReply];
        MIDIObjectRef source = 0;
        MIDIObjectType type = kMIDIObjectType_Other;
        status = MIDIObjectFindByUniqueID(id, &source, &type);
        if (status == noErr && type != kMIDIObjectType_Source) {
            status = kMIDIObjectNotFound;
        }
        if (status == noErr) {
            mConnections.push_back(std::make_unique<Connection>(Connection{port}));
            status = MIDIPortConnectSource(mInput, source, mConnections.back().get());
        }
        if (status != noErr) {
            throw HostError(
                fmt::format("the private source of port {} with the unique ID {} cannot "
                            "be connected (status {})",
                            port + 1, id, status));
        }
        mUniqueIds.push_back(id);
        Log(kRoutingLog[HSL::kChatty], "listening to private source %d of port %u", id, port + 1);
    }
}

void PrivateSources::Disconnect() {
    if (mInput != 0) {
        MIDIPortDispose(mInput);
        mInput = 0;
    }
    if (mClient != 0) {
        MIDIClientDispose(mClient);
        mClient = 0;
    }
    mConnections.clear();
    mUniqueIds.clear();
}

void PrivateSources::ReadProcedure(const MIDIPacketList* packets, void* sources, void* connection) {
    static_cast<PrivateSources*>(sources)->mReceived(static_cast<Connection*>(connection)->port,
                                                     *packets);
}

} // namespace MidiServer
