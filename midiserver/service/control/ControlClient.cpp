#include "midiserver/service/control/ControlClient.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/host/CFText.h"
#include "midiserver/service/RuntimeFolder.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <string>

namespace MidiServer {

namespace {

using Json = nlohmann::ordered_json;

// Beyond what the service needs to start its driver on a slow machine.
constexpr CFTimeInterval kPatienceSeconds = 60.0;

std::string NoService() {
    return fmt::format("no service runs in {}; start one with \"midiserver run\"", RuntimeFolder());
}

} // namespace

ControlClient::ControlClient() {
    const CFOwned<CFStringRef> name = MakeCFString(kControlPortName);
    mPort = CFOwned<CFMessagePortRef>(CFMessagePortCreateRemote(kCFAllocatorDefault, name.Get()));
    if (!mPort) {
        throw ServiceStateError(NoService());
    }
}

Json ControlClient::Ask(ControlRequest request, const Json& arguments) const {
    const CFOwned<CFDataRef> data = ControlData(arguments);
    CFDataRef answer = nullptr;
    const SInt32 result = CFMessagePortSendRequest(mPort.Get(), static_cast<SInt32>(request),
                                                   data.Get(), kPatienceSeconds, kPatienceSeconds,
                                                   CFSTR("midiserver control"), &answer);
    const CFOwned<CFDataRef> owned(answer);
    if (result == kCFMessagePortIsInvalid || result == kCFMessagePortBecameInvalidError) {
        throw ServiceStateError(NoService());
    }
    if (result != kCFMessagePortSuccess || !owned) {
        throw HostError(fmt::format("the service does not answer (result {})", result));
    }
    Json reply = ControlMessage(owned.Get());
    if (!reply.is_object() || !reply.contains("ok") || !reply["ok"].is_boolean()) {
        throw HostError("the service's answer is not understood; is it of another version?");
    }
    if (!reply["ok"].get<bool>()) {
        throw InputError(reply.value("error", "the service refuses without a reason"));
    }
    return reply;
}

} // namespace MidiServer
