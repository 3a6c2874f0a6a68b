#include "midiserver/service/control/ControlPort.h"

#include "midiserver/errors/HostError.h"
#include "midiserver/errors/InputError.h"
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

Json Parse(CFDataRef data) {
    const UInt8* const bytes = CFDataGetBytePtr(data);
    Json arguments = Json::parse(bytes, bytes + CFDataGetLength(data), nullptr, false);
    if (!arguments.is_object()) {
        throw InputError("the request is no JSON object");
    }
    return arguments;
}

Json Refusal(const std::string& why) {
    return {{"ok", false}, {"error", OneLine(why)}};
}

CFDataRef DataOf(const Json& reply) {
    // A name may hold anything; what is no UTF-8 in it is replaced.
    const std::string text = reply.dump(-1, ' ', false, Json::error_handler_t::replace);
    return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                        static_cast<CFIndex>(text.size()));
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
        return DataOf(static_cast<ControlPort*>(info)->ReplyTo(request, data));
    } catch (const std::exception&) {
        return nullptr;
    }
}

Json ControlPort::ReplyTo(SInt32 request, CFDataRef data) const {
    try {
        Json reply = {{"ok", true}};
        reply.update(mAnswer(static_cast<ControlRequest>(request), Parse(data)));
        return reply;
    } catch (const Json::exception& error) {
        return Refusal(fmt::format("the request is not understood: {}", error.what()));
    } catch (const std::exception& error) {
        Log(kServiceLog[HSL::kChatty], "refused a request: %s", error.what());
        return Refusal(error.what());
    }
}

} // namespace MidiServer
