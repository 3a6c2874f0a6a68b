#pragma once

#include <CoreMIDI/MIDIDriver.h>

// Publishes the device "Quorvel MIDI" with one entity per configured port, makes one private
// virtual source per port and opens the message port on the current run loop.
//
// `devices` are the devices that the server kept from the driver's last run. The first one is
// reused if it has the right number of entities; otherwise all of them are removed. A further Start
// without a Stop reads the port count again and may replace the device. The virtual sources of the
// earlier start stay allocated then, on purpose: a packet on its way may still go to one of them.
//
// Blocks and allocates as CoreMIDI's set-up calls do. Only the driving thread may call it.
//
// Returns noErr, or kMIDINoCurrentSetup when a CoreMIDI call failed; what was made until then is
// left as it is. A message port that could not be made is no failure: the driver then runs without
// it.
OSStatus MIDIDriverStart(MIDIDriverRef self, MIDIDeviceListRef devices);

// Closes the message port and marks the driver stopped, so that it drops every packet. The device,
// the virtual sources, the client and the worker stay. A repeated call does no harm. Always returns
// noErr.
OSStatus MIDIDriverStop(MIDIDriverRef self);
