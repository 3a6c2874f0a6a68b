// The setup: the devices that are known, kept in a file from one run to the next
// (`MIDIServerHostOpenSetup`). Any thread; blocks while the file is written; allocates.
#pragma once

#include <CoreMIDI/CoreMIDIBase.h>

// Makes a device part of the setup: it is listed, saved and served from then on. A device that is
// in the setup already stays there. `kMIDIObjectNotFound`.
COREMIDI_EXPORT OSStatus MIDISetupAddDevice(MIDIDeviceRef device);

// Takes a device out of the setup and disposes of it with its entities and endpoints; waits for
// read procedures as `MIDIEndpointDispose` does. `kMIDIObjectNotFound`, also when the device is not
// in the setup.
COREMIDI_EXPORT OSStatus MIDISetupRemoveDevice(MIDIDeviceRef device);

// Adds an entity with so many sources and destinations to a device, in the setup or not. `name` is
// a string; the endpoints have no name of their own and so that of the entity. `newEntity` may be
// null. `kMIDIObjectNotFound`.
COREMIDI_EXPORT OSStatus MIDIDeviceAddEntity(MIDIDeviceRef device, CFStringRef name,
                                             Boolean embedded, ItemCount numSourceEndpoints,
                                             ItemCount numDestinationEndpoints,
                                             MIDIEntityRef* newEntity);

// Removes an entity and its endpoints. `kMIDIObjectNotFound`, also for an entity of another device.
COREMIDI_EXPORT OSStatus MIDIDeviceRemoveEntity(MIDIDeviceRef device, MIDIEntityRef entity);
