// The functions for MIDI clients: their ports and virtual endpoints, the devices that they find,
// and the packets that they send and receive.
//
// Everything stays within the process: drivers, applications and the host share one set of objects.
//
//  - MIDIReceived: blocks only in the read procedures that it calls; does not allocate.
//  - MIDISend to a virtual destination: blocks only in the read procedure; allocates for packets
//    that have to wait for their time.
//  - MIDISend to a driver's destination: blocks while the driver's queue is full; allocates until
//    the queue has been as full once.
//  - Dispose and disconnect: block until read procedures on other threads have returned.
//  - All others: block while other changes are made and, if they change the setup, while its file
//  is
//    written; allocate.
//
// All functions may be called from any thread and from any procedure that this library calls.
#pragma once

#include <CoreMIDI/CoreMIDIBase.h>
#include <CoreMIDI/MIDINotification.h>
#include <CoreMIDI/MIDIPackets.h>
#include <CoreMIDI/MIDIProperties.h>

// A read procedure takes packets. `pktlist` is valid during the call and must not be changed. It is
// called on the thread that called `MIDIReceived` or `MIDISend`, or on the driver I/O thread for
// packets that had to wait for their time. Several threads call it at the same time if they send at
// the same time.
//
// Once MIDIPortDispose, MIDIPortDisconnectSource, MIDIEndpointDispose or MIDIClientDispose has
// returned, a read procedure that it ended does not run and is not called any more. Only a call
// from within a read procedure of the same port or endpoint does not wait for that. If the
// procedures of two ports dispose of each other's port at the same time, they wait for each other
// for ever.
typedef void (*MIDIReadProc)(const MIDIPacketList* pktlist, void* readProcRefCon,
                             void* srcConnRefCon);

// Make and dispose of a client, whose ports and virtual endpoints are disposed of with it. `name`
// is a string; `notifyProc` (MIDINotification.h) may be null. Results: `kMIDIInvalidClient`.
COREMIDI_EXPORT OSStatus MIDIClientCreate(CFStringRef name, MIDINotifyProc notifyProc,
                                          void* notifyRefCon, MIDIClientRef* outClient);
COREMIDI_EXPORT OSStatus MIDIClientDispose(MIDIClientRef client);

// Make virtual endpoints, which last as long as their client and are not part of the setup's file.
// Packets that are sent to a virtual destination go to `readProc` with a null connection refCon.
// Results: `kMIDIInvalidClient`.
COREMIDI_EXPORT OSStatus MIDISourceCreate(MIDIClientRef client, CFStringRef name,
                                          MIDIEndpointRef* outSrc);
COREMIDI_EXPORT OSStatus MIDIDestinationCreate(MIDIClientRef client, CFStringRef name,
                                               MIDIReadProc readProc, void* refCon,
                                               MIDIEndpointRef* outDest);
// Disposes of a virtual endpoint. Results: `kMIDIUnknownEndpoint`; `kMIDINotPermitted` for an
// endpoint of a device.
COREMIDI_EXPORT OSStatus MIDIEndpointDispose(MIDIEndpointRef endpt);

// Make and dispose of ports, through which a client receives from any number of sources and sends
// to any destination. Results: `kMIDIInvalidClient`, `kMIDIInvalidPort`.
COREMIDI_EXPORT OSStatus MIDIInputPortCreate(MIDIClientRef client, CFStringRef portName,
                                             MIDIReadProc readProc, void* refCon,
                                             MIDIPortRef* outPort);
COREMIDI_EXPORT OSStatus MIDIOutputPortCreate(MIDIClientRef client, CFStringRef portName,
                                              MIDIPortRef* outPort);
COREMIDI_EXPORT OSStatus MIDIPortDispose(MIDIPortRef port);

// Connect an input port to a source and disconnect it; connecting again replaces the refCon. The
// driver I/O thread calls the `EnableSource` of a source's driver with the first connection and
// after the last one has gone. Results: `kMIDIInvalidPort`, `kMIDIUnknownEndpoint`,
// `kMIDIWrongEndpointType`; for disconnecting also `kMIDINoConnection`.
COREMIDI_EXPORT OSStatus MIDIPortConnectSource(MIDIPortRef port, MIDIEndpointRef source,
                                               void* connRefCon);
COREMIDI_EXPORT OSStatus MIDIPortDisconnectSource(MIDIPortRef port, MIDIEndpointRef source);

// List the objects. A Get function returns 0 if the index is not below the number, or if the
// reference is not that of such an object. The devices are those of the setup, offline ones too.
// The sources and destinations are those of these devices and then the virtual ones; private and
// offline endpoints are left out.
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

// Look up the parent of an entity or an endpoint. Results: `kMIDIObjectNotFound` for a wrong
// reference and, with the parent set to 0, for a virtual endpoint, which has no entity.
COREMIDI_EXPORT OSStatus MIDIEntityGetDevice(MIDIEntityRef inEntity, MIDIDeviceRef* outDevice);
COREMIDI_EXPORT OSStatus MIDIEndpointGetEntity(MIDIEndpointRef inEndpoint,
                                               MIDIEntityRef* outEntity);

// Sends a list to a destination. The library copies the packets that have to wait, so the caller
// keeps the list.
//
// Packets whose time has come are handed on at once. The others are handed on when their time
// comes, in the order of their times; packets of the same time keep the order of sending. A
// destination that schedules by itself (`kMIDIPropertyAdvanceScheduleTimeMuSec`) gets everything at
// once.
//
// Packets to a driver's destination go into the queue of the driver I/O thread, the only thread
// that calls a driver's `Send`. The queue takes 65536 bytes of packet lists. `MIDISend` blocks
// while it is full, except on the driver I/O thread itself, which gets `kMIDIMessageSendErr`.
// Packets that wait for their time are kept apart, in another 1 MiB; if that is full, the whole
// list is refused with `kMIDIMessageSendErr`.
//
// Results: `kMIDIInvalidPort`, `kMIDIUnknownEndpoint`, `kMIDIWrongEndpointType`;
// `kMIDIMessageSendErr` also if no attached driver serves the destination, and if the list has more
// than 65536 bytes, of which nothing is sent. A list without packets is accepted and goes nowhere.
COREMIDI_EXPORT OSStatus MIDISend(MIDIPortRef port, MIDIEndpointRef dest,
                                  const MIDIPacketList* pktlist);

// Hands a list from a source to the read procedures of all ports that are connected to it, in the
// order of their connection, before it returns. Drivers call it with the sources of their devices,
// and the owners of virtual sources with these. It looks only at the number of packets and passes
// all times on as they are, even 0, which means "now" to MIDISend alone. A list without packets
// goes nowhere.
//
// It takes no lock, so that changes elsewhere do not hold it up. A connection that is made or ended
// meanwhile may or may not get this list. Results: `kMIDIUnknownEndpoint`,
// `kMIDIWrongEndpointType`.
COREMIDI_EXPORT OSStatus MIDIReceived(MIDIEndpointRef src, const MIDIPacketList* pktlist);

// Drops the packets that wait for their time, of one destination or, for 0, of all. The driver I/O
// thread then calls `Flush` of the drivers concerned. Results: `kMIDIUnknownEndpoint`,
// `kMIDIWrongEndpointType`.
COREMIDI_EXPORT OSStatus MIDIFlushOutput(MIDIEndpointRef dest);
