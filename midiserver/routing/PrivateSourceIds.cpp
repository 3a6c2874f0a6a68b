#include "midiserver/routing/PrivateSourceIds.h"

#include "midiserver/host/CFText.h"
#include "midiserver/host/Host.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"
#include "platform/support/CFOwned.h"

#include <CoreFoundation/CFMessagePort.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>

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

std::vector<SInt32> AskForPrivateSourceIds(std::size_t count) {
    const CFOwned<CFStringRef> name = MakeCFString(kMessagePortName);
    const CFOwned<CFMessagePortRef> messagePort(
        CFMessagePortCreateRemote(kCFAllocatorDefault, name.Get()));
    if (!messagePort) {
        throw HostError(
            fmt::format("the driver's message port \"{}\" is not there", kMessagePortName));
    }
    std::vector<SInt32> ids;
    while (ids.size() < count) {
        const IdBlock block = AskForIds(messagePort.Get(), ids.size() + 1);
        ids.insert(ids.end(), block.begin(),
                   block.begin() +
                       static_cast<std::ptrdiff_t>(std::min(block.size(), count - ids.size())));
    }
    return ids;
}

} // namespace MidiServer
