// MIDI clients: their ports and virtual endpoints, the devices that they find, and the way of
// packets.
//
// Everything is within the process: drivers, applications and the host share one set of objects.
//
//  - MIDIReceived: blocks only in the read procedures that it calls; does not allocate.
//  - MIDISend to a virtual destination: blocks only in the read procedure; allocates for packets
//    that have to wait for their time.
//  - MIDISend to a driver's destination: blocks while the driver's queue is full; allocates until
//    the queue has been as full once.
//  - Dispose and disconnect: block until read procedures on other threads have returned.
//  - All others: block for the time of other changes and, where they change the setup, while its
//    file is written; allocate.
//
// All functions may be called from any thread and from any procedure that this library calls.
#pragma once

#include <CoreMIDI/CoreMIDIBase.h>
#include <CoreMIDI/MIDINotification.h>
#include <CoreMIDI/MIDIPackets.h>
#include <CoreMIDI/MIDIProperties.h>

// Takes packets; `pktlist` is valid during the call and must not be changed. Called on the thread
// of `MIDIReceived` or `MIDISend`, or on the driver I/O thread for packets that had to wait for
// their time; by several threads at once if these send at once.
//
// Once MIDIPortDispose, MIDIPortDisconnectSource, MIDIEndpointDispose or MIDIClientDispose has
// returned, a procedure that it ended is not running and is not called any more. Only a call from
// within a read procedure of the same port or endpoint does not wait. Procedures of two ports that
// dispose of each other's port at once wait for each other for ever.
typedef void (*MIDIReadProc)(const MIDIPacketList* pktlist, void* readProcRefCon,
                             void* srcConnRefCon);

// Clients. A client's ports and virtual endpoints are disposed of with it. `name` is a string;
// `notifyProc` (MIDINotification.h) may be null. `kMIDIInvalidClient`.
COREMIDI_EXPORT OSStatus MIDIClientCreate(CFStringRef name, MIDINotifyProc notifyProc,
                                          void* notifyRefCon, MIDIClientRef* outClient);
COREMIDI_EXPORT OSStatus MIDIClientDispose(MIDIClientRef client);

// Virtual endpoints, which last as long as their client and are not part of the setup's file.
// `kMIDIInvalidClient`. What is sent to a virtual destination goes to `readProc` with a null
// connection refCon.
COREMIDI_EXPORT OSStatus MIDISourceCreate(MIDIClientRef client, CFStringRef name,
                                          MIDIEndpointRef* outSrc);
COREMIDI_EXPORT OSStatus MIDIDestinationCreate(MIDIClientRef client, CFStringRef name,
                                               MIDIReadProc readProc, void* refCon,
                                               MIDIEndpointRef* outDest);
// `kMIDIUnknownEndpoint`; `kMIDINotPermitted` for a device's endpoint.
COREMIDI_EXPORT OSStatus MIDIEndpointDispose(MIDIEndpointRef endpt);

// Ports, through which a client receives from any number of sources and sends to any destination.
// `kMIDIInvalidClient`, `kMIDIInvalidPort`.
COREMIDI_EXPORT OSStatus MIDIInputPortCreate(MIDIClientRef client, CFStringRef portName,
                                             MIDIReadProc readProc, void* refCon,
                                             MIDIPortRef* outPort);
COREMIDI_EXPORT OSStatus MIDIOutputPortCreate(MIDIClientRef client, CFStringRef portName,
                                              MIDIPortRef* outPort);
COREMIDI_EXPORT OSStatus MIDIPortDispose(MIDIPortRef port);

// Connects an input port to a source; connecting again replaces the refCon. `kMIDIInvalidPort`,
// `kMIDIUnknownEndpoint`, `kMIDIWrongEndpointType`; disconnecting also `kMIDINoConnection`. A
// driver's `EnableSource` is called, on the driver I/O thread, with a source's first connection and
// when its last one has gone.
COREMIDI_EXPORT OSStatus MIDIPortConnectSource(MIDIPortRef port, MIDIEndpointRef source,
                                               void* connRefCon);
COREMIDI_EXPORT OSStatus MIDIPortDisconnectSource(MIDIPortRef port, MIDIEndpointRef source);

// What there is. Get functions give 0 for an index that is not below the number and for a reference
// that is not such an object's. Devices are those of the setup, offline ones too. Sources and
// destinations are those of its devices, then the virtual ones, without the private and the
// offline.
COREMIDI_EXPORT ItemCount MIDIGetNumberOfDevices(void);
COREMIDI_EXPORT MIDIDeviceRef MIDIGetDevice(ItemCount deviceIndex0);
COREMIDI_EXPORT ItemCount MIDIGetNumberOfSources(void);
COREMIDI_EXPORT MIDIEndpointRef MIDIGetSource(ItemCount sourceIndex0);
COREMIDI_EXPORT ItemCount MIDIGetNumberOfDestinations(void);
COREMIDI_EXPORT MIDIEndpointRef MIDIGetDestination(ItemCount destIndex0);

COREMIDI_EXPORT ItemCount MIDIDeviceGetNumberOfEntities(MIDIDeviceRef device);
COREMIDI_EXPORT MIDIEntityRef MIDIDeviceGetEntity(MIDIDeviceRef device, ItemCount entityIndex0);
COREMIDI_EXPORT ItemCount MIDIEntityGetNumberOfSources(MIDIEntityRef entity);
COREMIDI_EXPORT MIDIEndpointRef MIDIEntityGetSource(MIDIEntityRef entity, ItemCount sourceIndex0);
COREMIDI_EXPORT ItemCount MIDIEntityGetNumberOfDestinations(MIDIEntityRef entity);
COREMIDI_EXPORT MIDIEndpointRef MIDIEntityGetDestination(MIDIEntityRef entity,
                                                         ItemCount destIndex0);

// Upwards. `kMIDIObjectNotFound` for a wrong reference; also, with a reference of 0, for the entity
// of a virtual endpoint.
COREMIDI_EXPORT OSStatus MIDIEntityGetDevice(MIDIEntityRef inEntity, MIDIDeviceRef* outDevice);
COREMIDI_EXPORT OSStatus MIDIEndpointGetEntity(MIDIEndpointRef inEndpoint,
                                               MIDIEntityRef* outEntity);

// Sends a list to a destination. The list is copied where it has to wait, so the caller keeps it.
//
// Packets whose time has come are handed on at once, the others when it comes, in the order of
// their times (of equal times, in the order of sending); a destination that schedules by itself
// (`kMIDIPropertyAdvanceScheduleTimeMuSec`) gets everything at once.
//
// A driver's destination: packets go into the queue of the driver I/O thread, the one thread that
// calls any driver's `Send`. The queue takes 65536 bytes of packet lists; `MIDISend` blocks while
// it is full, except on the driver I/O thread itself, which gets `kMIDIMessageSendErr`. Packets
// that wait for their time are kept apart, another 1 MiB; when that is full, the whole list is
// refused with `kMIDIMessageSendErr`.
//
// `kMIDIInvalidPort`, `kMIDIUnknownEndpoint`, `kMIDIWrongEndpointType`; `kMIDIMessageSendErr` also
// when no attached driver serves the destination, and for a list of more than 65536 bytes, of which
// nothing is sent. A list without packets is accepted and goes nowhere.
COREMIDI_EXPORT OSStatus MIDISend(MIDIPortRef port, MIDIEndpointRef dest,
                                  const MIDIPacketList* pktlist);

// Hands a list from a source to the read procedures of all ports connected to it, in the order of
// their connection, before it returns. For drivers (with their devices' sources) and for the owners
// of virtual sources. Only the number of packets is looked at; times are passed on as they are, a 0
// too, which says "now" to MIDISend alone; a list without packets goes nowhere.
// Takes no lock: changes elsewhere do not hold it up. A connection made or ended meanwhile may or
// may not get this list. `kMIDIUnknownEndpoint`, `kMIDIWrongEndpointType`.
COREMIDI_EXPORT OSStatus MIDIReceived(MIDIEndpointRef src, const MIDIPacketList* pktlist);

// Drops packets that wait for their time, of one destination or, for 0, of all, and calls `Flush`
// of the driver concerned on the driver I/O thread. `kMIDIUnknownEndpoint`,
// `kMIDIWrongEndpointType`.
COREMIDI_EXPORT OSStatus MIDIFlushOutput(MIDIEndpointRef dest);
