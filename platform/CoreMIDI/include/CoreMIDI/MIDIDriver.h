// What a driver plug-in implements and calls. What it needs of the setup it includes itself
// (MIDISetup.h).
#pragma once

#include <CoreMIDI/MIDIServices.h>

// Whether the table has the two members for event lists, which the platform added later than the
// rest (macOS 11). Defined as 0 it gives the table as it was before, to compile against. Nothing in
// this library calls them, so drivers built either way are served.
#if !defined(COREMIDI_HAS_EVENT_LISTS)
#define COREMIDI_HAS_EVENT_LISTS 1
#endif

// A driver is a plug-in object in the manner of COM: a reference to it is a pointer to an object
// whose first word is a pointer to its table of functions. So `*driver` is the table, and the
// driver itself is passed on as `self`: `(*driver)->Start(driver, devices)`.
typedef struct MIDIDriverInterface MIDIDriverInterface;
typedef MIDIDriverInterface** MIDIDriverRef;

// A list of MIDI 2.0 events, which this library has no use for.
typedef struct MIDIEventList MIDIEventList;

struct MIDIDriverInterface {
    // QueryInterface, AddRef and Release, as in every plug-in object.
    IUNKNOWN_C_GUTS;
    // Version 1 of the interface only: adds the devices that are there to the list.
    OSStatus (*FindDevices)(MIDIDriverRef self, MIDIDeviceListRef devList);
    // Begins work. `devList` has the devices of the driver's last run; it is the caller's.
    OSStatus (*Start)(MIDIDriverRef self, MIDIDeviceListRef devList);
    OSStatus (*Stop)(MIDIDriverRef self);
    OSStatus (*Configure)(MIDIDriverRef self, MIDIDeviceRef device);
    // Takes packets for a destination, whose refCons are given. On the driver I/O thread only.
    // The list is the driver's during the call, who may set its time stamps.
    OSStatus (*Send)(MIDIDriverRef self, const MIDIPacketList* pktlist, void* endptRefCon1,
                     void* endptRefCon2);
    // A source got its first listener or lost its last one. On the driver I/O thread.
    OSStatus (*EnableSource)(MIDIDriverRef self, MIDIEndpointRef src, Boolean enabled);
    // Drops what a destination (0 for all) still has to send. On the driver I/O thread.
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

// The functions below: any thread; block only for the time of other changes; allocate.

// Makes a device, which is not part of the setup yet. `owner` is its driver, null for a device that
// no driver serves; the texts are strings. Packets are handed to the owner while it is attached
// (MIDIServerHost.h).
COREMIDI_EXPORT OSStatus MIDIDeviceCreate(MIDIDriverRef owner, CFStringRef name,
                                          CFStringRef manufacturer, CFStringRef model,
                                          MIDIDeviceRef* outDevice);
// Disposes of a device that is not part of the setup. `kMIDIObjectNotFound`; `kMIDINotPermitted`
// for one that is: `MIDISetupRemoveDevice` takes that.
COREMIDI_EXPORT OSStatus MIDIDeviceDispose(MIDIDeviceRef device);

// Lists of devices. A list keeps the references that were put into it, whatever becomes of the
// devices. 0 for an index that is not below the number and for a reference that is not a list's.
// `kMIDIObjectNotFound`, also when a device to be added does not exist.
COREMIDI_EXPORT ItemCount MIDIDeviceListGetNumberOfDevices(MIDIDeviceListRef devList);
COREMIDI_EXPORT MIDIDeviceRef MIDIDeviceListGetDevice(MIDIDeviceListRef devList, ItemCount index0);
COREMIDI_EXPORT OSStatus MIDIDeviceListAddDevice(MIDIDeviceListRef devList, MIDIDeviceRef dev);
COREMIDI_EXPORT OSStatus MIDIDeviceListDispose(MIDIDeviceListRef devList);

// The devices of the setup that belong to a driver, in a new list for the caller to dispose of; 0
// when it cannot be made.
COREMIDI_EXPORT MIDIDeviceListRef MIDIGetDriverDeviceList(MIDIDriverRef driver);

// Two values of the driver's own in an endpoint; a destination's are given to `Send`. Null at
// first. Packets that are queued already keep the values of the time when they were sent. Either of
// the two addresses may be null in Get. `kMIDIUnknownEndpoint`.
COREMIDI_EXPORT OSStatus MIDIEndpointSetRefCons(MIDIEndpointRef endpt, void* ref1, void* ref2);
COREMIDI_EXPORT OSStatus MIDIEndpointGetRefCons(MIDIEndpointRef endpt, void** ref1, void** ref2);

// The run loop of the driver I/O thread, which is started if need be. Drivers may add sources to
// it. Null when the thread cannot be started. The caller owns no reference.
COREMIDI_EXPORT CFRunLoopRef MIDIGetDriverIORunLoop(void);
