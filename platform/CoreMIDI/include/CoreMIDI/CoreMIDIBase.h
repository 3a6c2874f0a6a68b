// References, results and object types of CoreMIDI.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#if defined(__cplusplus)
#define COREMIDI_EXPORT extern "C" __attribute__((visibility("default")))
#else
#define COREMIDI_EXPORT extern __attribute__((visibility("default")))
#endif

// A 32-bit reference, never 0, names an object. When an object is gone, its reference is not given
// to another object for millions of further creations, so that a stale reference is recognised:
// every function answers it with the status that its comment names, and never crashes.
#if !defined(QUORVEL_POINTER_REFERENCES)
typedef UInt32 MIDIObjectRef;
typedef MIDIObjectRef MIDIClientRef;
typedef MIDIObjectRef MIDIPortRef;
typedef MIDIObjectRef MIDIDeviceRef;
typedef MIDIObjectRef MIDIEntityRef;
typedef MIDIObjectRef MIDIEndpointRef;
typedef MIDIObjectRef MIDIDeviceListRef;
#else
// On the platform's 32-bit systems, references were pointers of distinct types. A source can be
// compiled against these to show that it is right for both; there is no library for them.
typedef void* MIDIObjectRef;
typedef struct MIDIClientObject* MIDIClientRef;
typedef struct MIDIPortObject* MIDIPortRef;
typedef struct MIDIDeviceObject* MIDIDeviceRef;
typedef struct MIDIEntityObject* MIDIEntityRef;
typedef struct MIDIEndpointObject* MIDIEndpointRef;
typedef struct MIDIDeviceListObject* MIDIDeviceListRef;
#endif

// A moment in host ticks: nanoseconds of the monotonic clock, as `UpTime` counts them. 0 means
// "now" where packets are sent (MIDISend) and has no meaning where they are received.
typedef UInt64 MIDITimeStamp;

// A number, never 0, that names a device, entity or endpoint for good, also after a restart.
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

// The results of the functions. Besides these, every function returns `paramErr` if a pointer that
// it needs is null, and `memFullErr` if memory or the 65535 objects are used up; nothing is changed
// then. The functions that return counts, objects by index or unique ID, and refCons need no
// memory, nor do those that dispose, disconnect or detach.
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
    kMIDISetupFormatErr = -10840,    // the file is not a setup's
    kMIDIWrongThread = -10841,       // the call would wait for its own thread
    kMIDIObjectNotFound = -10842,    // not the reference or unique ID of such an object
    kMIDIIDNotUnique = -10843,       // another object has this unique ID
    kMIDINotPermitted = -10844,      // the object or property does not allow it
};
