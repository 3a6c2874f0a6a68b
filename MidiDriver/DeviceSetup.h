#pragma once

#include <CoreMIDI/MIDIDriver.h>

// Publishes the device "Quorvel MIDI" with one entity per configured port, makes one private
// virtual source per port and opens the message port on the current run loop.
//
// `devices` are the devices kept from the driver's last run: the first is reused when it has the
// right number of entities, otherwise all of them are removed. A further Start without a Stop
// reads the port count again and may replace the device; the virtual sources of the earlier start
// stay allocated, on purpose. Blocks and allocates as CoreMIDI's set-up calls do; the driving
// thread only.
//
// Returns noErr, also when the message port could not be made (the driver then runs without it),
// or kMIDINoCurrentSetup when any CoreMIDI call failed; what was made until then is left as it is.
OSStatus MIDIDriverStart(MIDIDriverRef self, MIDIDeviceListRef devices);

// Closes the message port and marks the driver stopped, so that it drops every packet. The device,
// the virtual sources, the client and the worker stay. Harmless when repeated; always noErr.
OSStatus MIDIDriverStop(MIDIDriverRef self);
