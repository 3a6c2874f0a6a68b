#include "midiserver/service/control/ControlPort.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/host/CFText.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"

#include <CoreFoundation/CFMessagePortHost.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <string>
#include <utility>

namespace MidiServer {

namespace {

using Json = nlohmann::ordered_json;

Json Refusal(const std::string& why) {
    return {{"ok", false}, {"error", OneLine(why)}};
}

} // namespace

ControlPort::ControlPort(Answer answer) : mAnswer(std::move(answer)) {
    const CFOwned<CFStringRef> name = MakeCFString(kControlPortName);
    CFMessagePortContext context{};
    context.info = this;
    mPort = CFOwned<CFMessagePortRef>(
        CFMessagePortCreateLocal(kCFAllocatorDefault, name.Get(), Called, &context, nullptr));
    if (!mPort) {
        const CFOwned<CFStringRef> failure(CFMessagePortHostCopyLocalFailure(name.Get()));
        throw HostError(fmt::format("the control port cannot be made: {}", TextOf(failure.Get())));
    }
    mSource = CFOwned<CFRunLoopSourceRef>(
        CFMessagePortCreateRunLoopSource(kCFAllocatorDefault, mPort.Get(), 0));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), mSource.Get(), kCFRunLoopDefaultMode);
}

ControlPort::~ControlPort() {
    CFMessagePortInvalidate(mPort.Get());
}

CFDataRef ControlPort::Called(CFMessagePortRef, SInt32 request, CFDataRef data, void* info) {
    // No exception may pass through the run loop. A reply for which there is no memory is none.
    try {
        return ControlData(static_cast<ControlPort*>(info)->ReplyTo(request, data)).Release();
    } catch (const std::exception&) {
        return nullptr;
    }
}

Json ControlPort::ReplyTo(SInt32 request, CFDataRef data) const {
    try {
        const Json arguments = ControlMessage(data);
        if (!arguments.is_object()) {
            throw InputError("the request is no JSON object");
        }
        Json reply = {{"ok", true}};
        reply.update(mAnswer(static_cast<ControlRequest>(request), arguments));
        return reply;
    } catch (const Json::exception& error) {
        return Refusal(fmt::format("the request is not understood: {}", error.what()));
    } catch (const std::exception& error) {
        Log(kServiceLog[HSL::kChatty], "refused a request: %s", error.what());
        return Refusal(error.what());
    }
}

} // namespace MidiServer
