// What a MIDI server does beyond a client: keep the setup in a file and serve drivers. Linux only;
// for hosts and tests, never for drivers.
//
// All functions: any thread, one at a time; block as said; allocate.
#pragma once

#include <CoreMIDI/CoreMIDI.h>
#include <CoreMIDI/MIDIDriver.h>

// Opens the setup that is kept in the file at `path` (UTF-8): its devices, their entities,
// endpoints, properties and unique IDs are there when the call returns, offline until their driver
// is attached. The devices of the setup that was open before are disposed of. From then on every
// change of the setup is written to the file before the call that made it returns; a failed write
// is reported by a line to syslog and tried again with the next change or
// `MIDIServerHostSaveSetup`. Null: the setup is kept in memory only, as it is when nothing was ever
// opened.
//
//  - noErr: also when there is no file yet; it is made, with its folder, by the first change.
//  - kMIDISetupFormatErr: the file is not a setup's. It is moved aside, to its name with ".broken"
//    and, if need be, a number behind it; the setup is empty and is kept at `path`. A line to
//    syslog names both files.
//  - kMIDINotPermitted: the file cannot be read or moved aside (errno tells). The setup is empty
//    and in memory only.
//
// Open the setup before drivers are attached.
COREMIDI_EXPORT OSStatus MIDIServerHostOpenSetup(CFStringRef path);

// Writes the setup now: to a temporary file beside it, synced and then put in its place, so that
// the file is always whole. It keeps the owner and mode that it has; where `path` is a symbolic
// link it is the file that the link leads to. kMIDINoCurrentSetup when the setup is kept in memory
// only; kMIDINotPermitted when the file cannot be written (errno tells).
COREMIDI_EXPORT OSStatus MIDIServerHostSaveSetup(void);

// From now on packets are handed to the driver. The devices that it created and will create carry
// `identity` (a string) as `kMIDIPropertyDriverOwner`; devices of the setup that carry it already
// become the driver's. They are online. kMIDINotPermitted when the driver is attached or another
// one has this identity, kMIDIServerStartErr when the driver I/O thread cannot be started.
COREMIDI_EXPORT OSStatus MIDIServerHostAttachDriver(MIDIDriverRef driver, CFStringRef identity);

// The devices of the setup that are the attached driver's, for its `Start`: a new list, for the
// caller to dispose of. 0 when the driver is not attached.
COREMIDI_EXPORT MIDIDeviceListRef MIDIServerHostCopyDeviceList(MIDIDriverRef driver);

// Ends the serving of a driver. Its devices go offline; `MIDISend` to them fails from now on. Then
// waits until the driver has taken what is queued for it (packets that wait for a later time are
// dropped). When it returns, no function of the driver's table is running or is called any more by
// this library. kMIDIObjectNotFound when the driver is not attached; kMIDIWrongThread on the driver
// I/O thread, with nothing changed.
COREMIDI_EXPORT OSStatus MIDIServerHostDetachDriver(MIDIDriverRef driver);
