// The functions that a driver plug-in implements and calls. Those that change the setup are in
// MIDISetup.h, which a driver includes itself.
#pragma once

#include <CoreMIDI/MIDIServices.h>

// Whether the table has the two members for event lists, which the platform added later than the
// rest (macOS 11). A source that defines this as 0 is compiled against the table as it was before.
// Nothing in this library calls the two members, so drivers built either way are served.
#if !defined(COREMIDI_HAS_EVENT_LISTS)
#define COREMIDI_HAS_EVENT_LISTS 1
#endif

// A driver is a plug-in object like those of COM. A reference to it is a pointer to an object whose
// first word is a pointer to the object's table of functions. So `*driver` is the table, and the
// driver itself is passed on as `self`: `(*driver)->Start(driver, devices)`.
typedef struct MIDIDriverInterface MIDIDriverInterface;
typedef MIDIDriverInterface** MIDIDriverRef;

// A list of MIDI 2.0 events, which this library has no use for.
typedef struct MIDIEventList MIDIEventList;

struct MIDIDriverInterface {
    // QueryInterface, AddRef and Release, as in every plug-in object.
    IUNKNOWN_C_GUTS;
    // Adds the devices that are there to the list. Only version 1 of the interface has this.
    OSStatus (*FindDevices)(MIDIDriverRef self, MIDIDeviceListRef devList);
    // Begins work. `devList` holds the devices of the driver's last run; the caller owns it.
    OSStatus (*Start)(MIDIDriverRef self, MIDIDeviceListRef devList);
    OSStatus (*Stop)(MIDIDriverRef self);
    OSStatus (*Configure)(MIDIDriverRef self, MIDIDeviceRef device);
    // Takes packets for a destination, whose refCons are given. Only the driver I/O thread calls
    // it. During the call the list belongs to the driver, which may set its time stamps.
    OSStatus (*Send)(MIDIDriverRef self, const MIDIPacketList* pktlist, void* endptRefCon1,
                     void* endptRefCon2);
    // Tells that a source got its first listener or lost its last one. The driver I/O thread calls
    // it.
    OSStatus (*EnableSource)(MIDIDriverRef self, MIDIEndpointRef src, Boolean enabled);
    // Drops the packets that a destination (0 for all) still has to send. The driver I/O thread
    // calls it.
    OSStatus (*Flush)(MIDIDriverRef self, MIDIEndpointRef dest, void* endptRefCon1,
                      void* endptRefCon2);
    // Not called by this library.
    OSStatus (*Monitor)(MIDIDriverRef self, MIDIEndpointRef dest, const MIDIPacketList* pktlist);
#if COREMIDI_HAS_EVENT_LISTS
    // Send and Monitor for lists of MIDI 2.0 events. May be null. Not called by this library.
    OSStatus (*SendPackets)(MIDIDriverRef self, const MIDIEventList* evtlist, void* endptRefCon1,
                            void* endptRefCon2);
    OSStatus (*MonitorEvents)(MIDIDriverRef self, MIDIEndpointRef dest,
                              const MIDIEventList* evtlist);
#endif
};

// ECDE9574-0FE4-11D4-BB1A-0050E4CEA526, the plug-in type of MIDI drivers.
#define kMIDIDriverTypeID                                                                          \
    CFUUIDGetConstantUUIDWithBytes(NULL, 0xEC, 0xDE, 0x95, 0x74, 0x0F, 0xE4, 0x11, 0xD4, 0xBB,     \
                                   0x1A, 0x00, 0x50, 0xE4, 0xCE, 0xA5, 0x26)

// 49DFCA9E-0FE5-11D4-950D-0050E4CEA526, the first version of the interface, in which FindDevices is
// called. This library's hosts do not ask for it.
#define kMIDIDriverInterfaceID                                                                     \
    CFUUIDGetConstantUUIDWithBytes(NULL, 0x49, 0xDF, 0xCA, 0x9E, 0x0F, 0xE5, 0x11, 0xD4, 0x95,     \
                                   0x0D, 0x00, 0x50, 0xE4, 0xCE, 0xA5, 0x26)

// 43C98C3C-306C-11D5-AF73-003065A8301E, its second version, the table above.
#define kMIDIDriverInterface2ID                                                                    \
    CFUUIDGetConstantUUIDWithBytes(NULL, 0x43, 0xC9, 0x8C, 0x3C, 0x30, 0x6C, 0x11, 0xD5, 0xAF,     \
                                   0x73, 0x00, 0x30, 0x65, 0xA8, 0x30, 0x1E)

// Any thread may call the functions below. They wait for other changes only, and allocate.

// Makes a device, which is not part of the setup yet. `owner` is its driver, or null if no driver
// serves it; the texts are strings. Packets are handed to the owner while it is attached
// (MIDIServerHost.h).
COREMIDI_EXPORT OSStatus MIDIDeviceCreate(MIDIDriverRef owner, CFStringRef name,
                                          CFStringRef manufacturer, CFStringRef model,
                                          MIDIDeviceRef* outDevice);
// Disposes of a device that is not part of the setup. Results: `kMIDIObjectNotFound`;
// `kMIDINotPermitted` if it is part of the setup, for which there is `MIDISetupRemoveDevice`.
COREMIDI_EXPORT OSStatus MIDIDeviceDispose(MIDIDeviceRef device);

// Lists of devices. A list keeps the references that were put into it, whatever becomes of the
// devices. The first two functions return 0 if the index is not below the number or the reference
// is not a list's; the others return `kMIDIObjectNotFound`, also if a device to be added does not
// exist.
COREMIDI_EXPORT ItemCount MIDIDeviceListGetNumberOfDevices(MIDIDeviceListRef devList);
COREMIDI_EXPORT MIDIDeviceRef MIDIDeviceListGetDevice(MIDIDeviceListRef devList, ItemCount index0);
COREMIDI_EXPORT OSStatus MIDIDeviceListAddDevice(MIDIDeviceListRef devList, MIDIDeviceRef dev);
COREMIDI_EXPORT OSStatus MIDIDeviceListDispose(MIDIDeviceListRef devList);

// Returns the devices of the setup that belong to a driver, in a new list that the caller disposes
// of, or 0 if the list cannot be made.
COREMIDI_EXPORT MIDIDeviceListRef MIDIGetDriverDeviceList(MIDIDriverRef driver);

// A driver keeps two values of its own, the refCons, in an endpoint; `Send` is given those of the
// destination. They are null at first. Packets that are queued already keep the values of the
// moment when they were sent. Either of the two addresses may be null in Get. Results:
// `kMIDIUnknownEndpoint`.
COREMIDI_EXPORT OSStatus MIDIEndpointSetRefCons(MIDIEndpointRef endpt, void* ref1, void* ref2);
COREMIDI_EXPORT OSStatus MIDIEndpointGetRefCons(MIDIEndpointRef endpt, void** ref1, void** ref2);

// Returns the run loop of the driver I/O thread, which is started if need be. Drivers may add
// sources to it. Returns null if the thread cannot be started. The caller owns no reference.
COREMIDI_EXPORT CFRunLoopRef MIDIGetDriverIORunLoop(void);
