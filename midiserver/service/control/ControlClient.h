#pragma once

#include "midiserver/service/control/ControlProtocol.h"
#include "platform/support/CFOwned.h"

#include <CoreFoundation/CFMessagePort.h>

#include <nlohmann/json_fwd.hpp>

namespace MidiServer {

// A ControlClient asks the service that runs in this user's runtime folder (see ControlProtocol.h).
//
//     const ControlClient service;
//     service.Ask(ControlRequest::kStatus, nlohmann::ordered_json::object())["status"];
//
// One thread uses it.
class ControlClient {
public:
    // Throws ServiceStateError if no service runs.
    ControlClient();

    // Returns the reply's members. Waits for it for up to a minute; meanwhile the calling thread's
    // run loop runs in a mode of its own. Throws InputError with the service's reason if it
    // refuses, ServiceStateError if it has ended, and HostError if it does not answer.
    nlohmann::ordered_json Ask(ControlRequest request,
                               const nlohmann::ordered_json& arguments) const;

private:
    CFOwned<CFMessagePortRef> mPort;
};

} // namespace MidiServer
