// The driver's own reading of the preferences, in the form in which the host describes it.
#pragma once

#include "MidiDriver/MidiConfigFile.h"
#include "midiserver/host/CFText.h"
#include "midiserver/preferences/PortConfiguration.h"

#include <vector>

namespace MidiServer {

inline PortConfiguration DriversConfiguration() {
    PortConfiguration configuration;
    if (const unsigned ports = GetMidiConfigNumPorts(); ports != 0) {
        configuration.publishedPorts = ports;
        configuration.portsFromPreferences = true;
    }
    std::vector<CFStringRef> protocols(kMaximumPorts, nullptr);
    CopyEmulatedProtocols(&protocols);
    for (std::size_t port = 0; port < kMaximumPorts; ++port) {
        const CFOwned<CFStringRef> protocol(protocols[port]);
        configuration.protocols[port] = ProtocolFromName(TextOf(protocol.Get()));
    }
    return configuration;
}

} // namespace MidiServer
