#pragma once

#include "MidiDriver/MacSonaretDefs.h"

#include <vector>

// What the driver takes from the control-surface system's preferences (any user, current host):
// how many ports to publish and which protocol each port emulates.
//
// Both functions read the preferences afresh, past the platform's cache if it has one, keep
// nothing and log nothing. They may block for as long as the platform takes to read the file. Call
// them on the thread that drives the plug-in.
//
// Nothing that stands in the preferences is trusted to be of the type that belongs there, since
// the platform's calls do not check what they are given: a list of applications that is no array,
// an application that is no dictionary and "MIDI Ports" that are no string count as missing.

// The last port of the highest of the eight four-port blocks ("1-4", "5-8", ... "29-32") that an
// application is configured for: 0, 4, 8, ... 32. 0 when there is nothing usable.
//
// A block boundary, not a count of used ports, and any other range ("1-2", "5-12") counts for
// nothing: both intended, although CopyEmulatedProtocols accepts any range.
unsigned int GetMidiConfigNumPorts();

// Fills entry i of `protocols` with a new string that names the protocol of the port with index i.
// The vector comes sized to 32 entries, all null; the caller releases every non-null entry.
//
// An application without "Protocol" is passed over. One whose "Protocol" is no string is not: its
// range is accepted and its ports get null, in place of what an earlier application named.
//
// Takes every range "first-last" with 1 <= first and 1 <= last <= 32; one whose first port lies
// behind its last names no port, but counts as accepted. Where two applications claim a port the
// later one wins and the earlier string is given up without being released: a small leak that is
// accepted. Returns whether at least one range was accepted.
bool CopyEmulatedProtocols(std::vector<CFStringRef>* protocols);
