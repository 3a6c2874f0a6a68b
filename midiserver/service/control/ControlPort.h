#pragma once

#include "midiserver/service/control/ControlProtocol.h"
#include "platform/support/CFOwned.h"

#include <CoreFoundation/CFMessagePort.h>

#include <nlohmann/json_fwd.hpp>

#include <functional>

namespace MidiServer {

// A ControlPort is the service's end of the control port (ControlProtocol.h). The thread that makes
// it serves it with its run loop, in the default mode, and destroys it.
//
//     const ControlPort port([](ControlRequest request, const nlohmann::ordered_json& arguments) {
//         return nlohmann::ordered_json{{"status", ...}};
//     });
class ControlPort {
public:
    // Answers a request: returns the reply's members without `ok`. An exception becomes the reply's
    // `error`, and so does an argument that is missing or of another type.
    using Answer = std::function<nlohmann::ordered_json(ControlRequest request,
                                                        const nlohmann::ordered_json& arguments)>;

    // Throws HostError if the port cannot be made.
    explicit ControlPort(Answer answer);
    ~ControlPort();
    ControlPort(const ControlPort&) = delete;
    ControlPort& operator=(const ControlPort&) = delete;

private:
    static CFDataRef Called(CFMessagePortRef port, SInt32 request, CFDataRef data, void* info);
    nlohmann::ordered_json ReplyTo(SInt32 request, CFDataRef data) const;

    Answer mAnswer;
    CFOwned<CFMessagePortRef> mPort;
    CFOwned<CFRunLoopSourceRef> mSource;
};

} // namespace MidiServer
