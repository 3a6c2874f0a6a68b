// The setup is the set of known devices, which a file keeps from one run to the next
// (`MIDIServerHostOpenSetup`). Any thread may call; the calls block while the file is written, and
// allocate.
#pragma once

#include <CoreMIDI/CoreMIDIBase.h>

// Makes a device part of the setup: it is listed, saved and served from then on. A device that is
// in the setup already stays there. Results: `kMIDIObjectNotFound`.
COREMIDI_EXPORT OSStatus MIDISetupAddDevice(MIDIDeviceRef device);

// Takes a device out of the setup and disposes of it with its entities and endpoints. Waits for
// read procedures as `MIDIEndpointDispose` does. Results: `kMIDIObjectNotFound`, also if the device
// is not in the setup.
COREMIDI_EXPORT OSStatus MIDISetupRemoveDevice(MIDIDeviceRef device);

// Adds an entity with the given numbers of sources and destinations to a device, whether that is in
// the setup or not. `name` is a string; the endpoints have no name of their own and therefore that
// of the entity. `newEntity` may be null. Results: `kMIDIObjectNotFound`.
COREMIDI_EXPORT OSStatus MIDIDeviceAddEntity(MIDIDeviceRef device, CFStringRef name,
                                             Boolean embedded, ItemCount numSourceEndpoints,
                                             ItemCount numDestinationEndpoints,
                                             MIDIEntityRef* newEntity);

// Removes an entity and its endpoints. Results: `kMIDIObjectNotFound`, also for an entity of
// another device.
COREMIDI_EXPORT OSStatus MIDIDeviceRemoveEntity(MIDIDeviceRef device, MIDIEntityRef entity);
