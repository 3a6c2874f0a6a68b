#pragma once

namespace MidiServer {

// Makes sure, before a driver is loaded, that its buffers will find room. A driver reserves about
// 2.7 GB of address space and touches about 60 MB of it; one that gets less publishes ports that
// forward nothing. The address space reserved for the check is given back. Throws HostError, whose
// line says what to do.
void RequireAddressSpace();

} // namespace MidiServer
