#pragma once

#include <CoreFoundation/CFBase.h>

#include <cstddef>
#include <vector>

namespace MidiServer {

// Asks the driver that runs for the unique IDs of the private sources of its first `count` ports,
// as the control-surface application does: through the driver's message port, four at a time. The
// ID of a port that is not there is 0.
//
// Blocks until the driver has answered, for ten seconds at most for each four. Meanwhile the
// calling thread's run loop runs in the default mode, so the thread that serves the message port
// may call as well. Throws a HostError that says what failed.
std::vector<SInt32> AskForPrivateSourceIds(std::size_t count);

} // namespace MidiServer
