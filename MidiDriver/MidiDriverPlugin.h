#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <CoreMIDI/MIDIDriver.h>

// The plug-in's entry point, which the bundle exports, and the names under which the driver
// appears.

extern const CFStringRef kDeviceName;      // "Quorvel MIDI"
extern const CFStringRef kManufName;       // "Quorvel"
extern const CFStringRef kModelName;       // "Control Surface"
extern const CFStringRef kReceivePortName; // "Quorvel Virtual Source IDs Port"

// The factory that the bundle's property list names. It is the only symbol that the bundle exports.
//
// Initialises the runtime, whatever the type is. For kMIDIDriverTypeID it builds the driver
// instance, which starts the worker's thread, and returns the instance with one reference. The
// caller gives that reference back by calling Release through the function table. For any other
// type, and when memory runs out, the factory returns null.
//
// Call it on the thread that will drive the plug-in. At most one instance may exist at a time.
extern "C" __attribute__((visibility("default"))) void* MIDIPluginFactory(CFAllocatorRef allocator,
                                                                          CFUUIDRef typeID);
