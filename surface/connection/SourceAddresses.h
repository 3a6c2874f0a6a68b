#pragma once

#include "surface/connection/Listener.h"

#include <string>
#include <vector>

namespace Surface {

// Asks the service where a backend of it shows these sources, which it finds by their unique IDs.
// Returns their places on the backend's server, in the server's spelling. Throws HostError if they
// are not all there, and what ControlClient throws.
//
// The service is asked, and not the server: ALSA's has no place for unique IDs, and PipeWire's JACK
// library does not tell a program that runs already about those of new ports.
std::vector<std::string> SourceAddresses(const std::vector<PrivateSource>& sources,
                                         const MidiServer::ControlClient& service,
                                         const std::string& backend);

} // namespace Surface
