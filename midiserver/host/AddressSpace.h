#pragma once

namespace MidiServer {

// Makes sure, before a driver is loaded, that its buffers will find room: a driver reserves about
// 2.7 GB of address space and touches about 60 MB of it, and one that gets less publishes ports
// that forward nothing. What is tried is given back. Throws HostError, which says what to do.
void RequireAddressSpace();

} // namespace MidiServer
