// References, results and object types of CoreMIDI.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#if defined(__cplusplus)
#define COREMIDI_EXPORT extern "C" __attribute__((visibility("default")))
#else
#define COREMIDI_EXPORT extern __attribute__((visibility("default")))
#endif

// An object is named by a 32-bit reference, never 0. The reference of an object that is gone is not
// given to another object for millions of further creations, so that a stale reference is
// recognised; every function answers one with the status that it names, never with a crash.
#if !defined(QUORVEL_POINTER_REFERENCES)
typedef UInt32 MIDIObjectRef;
typedef MIDIObjectRef MIDIClientRef;
typedef MIDIObjectRef MIDIPortRef;
typedef MIDIObjectRef MIDIDeviceRef;
typedef MIDIObjectRef MIDIEntityRef;
typedef MIDIObjectRef MIDIEndpointRef;
typedef MIDIObjectRef MIDIDeviceListRef;
#else
// As they were on the platform's 32-bit systems: pointers of distinct types. To compile against,
// to see that a source holds for both; there is no library for it.
typedef void* MIDIObjectRef;
typedef struct MIDIClientObject* MIDIClientRef;
typedef struct MIDIPortObject* MIDIPortRef;
typedef struct MIDIDeviceObject* MIDIDeviceRef;
typedef struct MIDIEntityObject* MIDIEntityRef;
typedef struct MIDIEndpointObject* MIDIEndpointRef;
typedef struct MIDIDeviceListObject* MIDIDeviceListRef;
#endif

// Host ticks: nanoseconds of the monotonic clock, as counted by `UpTime`. 0 means now where packets
// are sent (MIDISend) and nothing where they are received.
typedef UInt64 MIDITimeStamp;

// Names a device, entity or endpoint for good, also after a restart. Never 0.
typedef SInt32 MIDIUniqueID;
enum { kMIDIInvalidUniqueID = 0 };

typedef SInt32 MIDIObjectType;
enum {
    kMIDIObjectType_Other = -1,
    kMIDIObjectType_Device = 0,
    kMIDIObjectType_Entity = 1,
    kMIDIObjectType_Source = 2,
    kMIDIObjectType_Destination = 3,
};

// Besides these, every function gives `paramErr` for a null pointer where it needs one and
// `memFullErr` when memory or the 65535 objects are used up; nothing is changed then. Counts,
// objects by index or unique ID and refCons are found without memory, and functions that dispose,
// disconnect or detach need none.
enum {
    kMIDIInvalidClient = -10830,     // not a client's reference
    kMIDIInvalidPort = -10831,       // not a port's, or a port of the other direction
    kMIDIWrongEndpointType = -10832, // a source where a destination is needed, or the reverse
    kMIDINoConnection = -10833,      // the port and the source are not connected
    kMIDIUnknownEndpoint = -10834,   // not an endpoint's reference
    kMIDIUnknownProperty = -10835,   // the object has no such property
    kMIDIWrongPropertyType = -10836, // the property is of another type
    kMIDINoCurrentSetup = -10837,    // there is no setup
    kMIDIMessageSendErr = -10838,    // nobody takes the packets
    kMIDIServerStartErr = -10839,    // the library's thread cannot be started
    kMIDISetupFormatErr = -10840,    // the setup's file is not one
    kMIDIWrongThread = -10841,       // the call would wait for its own thread
    kMIDIObjectNotFound = -10842,    // not the reference or unique ID of such an object
    kMIDIIDNotUnique = -10843,       // another object has this unique ID
    kMIDINotPermitted = -10844,      // the object or property does not allow it
};
