#pragma once

#include <string>

namespace MidiServer {

// Returns the folder of this user's message ports (see CFMessagePort.h), which is made if it is
// missing. Throws HostError with what to do if it cannot be used. Any thread may call.
std::string RuntimeFolder();

} // namespace MidiServer
