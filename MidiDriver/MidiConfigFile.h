#pragma once

#include "MidiDriver/MacSonaretDefs.h"

#include <vector>

// What the driver takes from the control-surface system's preferences (any user, current host): how
// many ports to publish and which protocol each port emulates.
//
// Both functions read the preferences again at each call, past the platform's cache if it has one.
// They keep nothing and log nothing. They may block for as long as the platform takes to read the
// file. Call them on the thread that drives the plug-in.
//
// The preferences may hold values of a wrong type, and the platform's calls do not check what they
// are given; so the functions check every value. A list of applications that is no array, an
// application that is no dictionary and a "MIDI Ports" that is no string count as missing.

// Returns how many ports to publish: 0, 4, 8, ... 32. The system hands out ports in eight blocks of
// four ("1-4", "5-8", ... "29-32"); the result is the last port of the highest block that an
// application is configured for, and 0 when there is none. So one application on "5-8" makes 8.
//
// The result is the end of a block, not a count of used ports, and a range that is no such block
// ("1-2", "5-12") counts for nothing. Both are intended, because the applications write their
// ranges in these blocks; CopyEmulatedProtocols, in contrast, accepts any range.
unsigned int GetMidiConfigNumPorts();

// Fills entry i of `protocols` with a new string that names the protocol of the port with index i.
// The caller passes a vector of 32 null entries and releases every entry that is not null
// afterwards. Returns whether at least one range of ports was accepted.
//
// Every range "first-last" with 1 <= first and 1 <= last <= 32 is accepted. A range whose first
// port is higher than its last one names no port, but counts as accepted. An application without
// "Protocol" is passed over. An application whose "Protocol" is no string is not passed over: its
// range is accepted, and its ports get null, in place of what an earlier application named.
//
// When two applications claim a port, the later one wins. The string of the earlier one is then not
// released; this small leak is accepted.
bool CopyEmulatedProtocols(std::vector<CFStringRef>* protocols);
