// The functions of a MIDI server, which keeps the setup in a file and serves drivers. Linux only;
// for hosts and tests, never for drivers.
//
// Any thread may call, one at a time. The functions block as their comments say, and allocate.
#pragma once

#include <CoreMIDI/CoreMIDI.h>
#include <CoreMIDI/MIDIDriver.h>

// Opens the setup that is kept in the file at `path` (UTF-8). Its devices, with their entities,
// endpoints, properties and unique IDs, exist when the call returns, and are offline until their
// driver is attached. The devices of the setup that was open before are disposed of. From then on,
// every change of the setup is written to the file before the call that made the change returns. If
// a write fails, syslog gets a line, and the write is tried again with the next change or
// `MIDIServerHostSaveSetup`. If `path` is null, the setup is kept in memory only, as it is before
// any setup is opened.
//
//  - noErr: also if there is no file yet; the first change makes it, with its folder.
//  - kMIDISetupFormatErr: the file is not a setup's. It is renamed to its name with ".broken" and,
//  if
//    need be, a number behind it; the setup is empty and is kept at `path`. A line in syslog names
//    both files.
//  - kMIDINotPermitted: the file cannot be read or moved aside (errno tells). The setup is empty
//    and in memory only.
//
// Open the setup before drivers are attached.
COREMIDI_EXPORT OSStatus MIDIServerHostOpenSetup(CFStringRef path);

// Writes the setup now. It writes a temporary file beside the setup's file, flushes it to the disk
// and puts it in the file's place, so that the file is always whole. The file keeps its owner and
// mode; if `path` is a symbolic link, the file that the link leads to is written. Results:
// kMIDINoCurrentSetup if the setup is kept in memory only; kMIDINotPermitted if the file cannot be
// written (errno tells why).
COREMIDI_EXPORT OSStatus MIDIServerHostSaveSetup(void);

// Attaches a driver: from now on, packets are handed to it. The devices that it created and will
// create carry `identity` (a string) as `kMIDIPropertyDriverOwner`; devices of the setup that carry
// it already become the driver's. All of these are online. Results: kMIDINotPermitted if the driver
// is attached already or another one has this identity; kMIDIServerStartErr if the driver I/O
// thread cannot be started.
COREMIDI_EXPORT OSStatus MIDIServerHostAttachDriver(MIDIDriverRef driver, CFStringRef identity);

// Returns the devices of the setup that belong to an attached driver, to be passed to its `Start`.
// The caller disposes of the list. Returns 0 if the driver is not attached.
COREMIDI_EXPORT MIDIDeviceListRef MIDIServerHostCopyDeviceList(MIDIDriverRef driver);

// Detaches a driver. Its devices go offline, and `MIDISend` to them fails from now on. The call
// then waits until the driver has taken the packets that are queued for it; packets that wait for a
// later time are dropped. When it returns, this library runs no function of the driver's table and
// calls none any more. Results: kMIDIObjectNotFound if the driver is not attached;
// kMIDIWrongThread, with nothing changed, on the driver I/O thread.
COREMIDI_EXPORT OSStatus MIDIServerHostDetachDriver(MIDIDriverRef driver);
