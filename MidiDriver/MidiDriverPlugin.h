#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <CoreMIDI/MIDIDriver.h>

// The plug-in's entry: what the bundle exports, and the names under which the driver appears.

extern const CFStringRef kDeviceName;      // "Quorvel MIDI"
extern const CFStringRef kManufName;       // "Quorvel"
extern const CFStringRef kModelName;       // "Control Surface"
extern const CFStringRef kReceivePortName; // "Quorvel Virtual Source IDs Port"

// The factory named in the bundle's property list and the bundle's only exported symbol.
//
// Initialises the runtime, whatever the type. For kMIDIDriverTypeID it builds the driver instance
// and returns it with one reference, which the caller gives back with Release through the function
// table; for any other type, and when memory runs out, it returns null. Call it on the thread that
// will drive the plug-in; at most one instance may exist at a time. Starts the worker's thread.
extern "C" __attribute__((visibility("default"))) void* MIDIPluginFactory(CFAllocatorRef allocator,
                                                                          CFUUIDRef typeID);
