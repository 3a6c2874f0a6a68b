// Properties of devices, entities and endpoints.
//
// A property has a name and a value: an integer, a string, data or a dictionary. The properties
// named below have the type that is given with them; others may have any type. An object that lacks
// a property has that of its entity or, if the entity lacks it too, of its device. Only the unique
// ID is always an object's own.
//
// Any thread may call the functions. They block while other calls change objects, and they
// allocate. They return `kMIDIObjectNotFound` if the reference is not that of a device, entity or
// endpoint, `kMIDIUnknownProperty` if there is no such property, and `kMIDIWrongPropertyType` if it
// has another type. Changes of an object in the setup are saved before the call returns.
#pragma once

#include <CoreMIDI/CoreMIDIBase.h>

COREMIDI_EXPORT const CFStringRef kMIDIPropertyName;         // string
COREMIDI_EXPORT const CFStringRef kMIDIPropertyManufacturer; // string
COREMIDI_EXPORT const CFStringRef kMIDIPropertyModel;        // string
// Integer. It is random at first and may be set to any value but 0 (`kMIDINotPermitted`) that no
// other object has (`kMIDIIDNotUnique`).
COREMIDI_EXPORT const CFStringRef kMIDIPropertyUniqueID;
COREMIDI_EXPORT const CFStringRef kMIDIPropertyDeviceID;         // integer, for System Exclusive
COREMIDI_EXPORT const CFStringRef kMIDIPropertyReceiveChannels;  // integer, a bit per channel
COREMIDI_EXPORT const CFStringRef kMIDIPropertyTransmitChannels; // integer, a bit per channel
COREMIDI_EXPORT const CFStringRef kMIDIPropertyMaxSysExSpeed;    // integer, bytes per second
// Integer, in microseconds. If it is above 0, packets go to the destination as soon as they are
// sent, and the destination's owner plays them at their times.
COREMIDI_EXPORT const CFStringRef kMIDIPropertyAdvanceScheduleTimeMuSec;
COREMIDI_EXPORT const CFStringRef kMIDIPropertyIsEmbeddedEntity;     // integer, 0 or 1
COREMIDI_EXPORT const CFStringRef kMIDIPropertyIsBroadcast;          // integer, 0 or 1
COREMIDI_EXPORT const CFStringRef kMIDIPropertySingleRealtimeEntity; // integer, an entity's index
COREMIDI_EXPORT const CFStringRef kMIDIPropertyConnectionUniqueID;   // integer or data
// Integer, 0 or 1. 1 means that the device is known but not there now. A driver sets it for its
// devices, entities or endpoints; others may set it too. The library sets it to 0 for a driver's
// devices when the driver is attached, and to 1 when it is detached. It is never saved. Offline
// endpoints are not listed.
COREMIDI_EXPORT const CFStringRef kMIDIPropertyOffline;
// Integer, 0 or 1. 1 means that the endpoint is not listed, and is found by its unique ID only.
COREMIDI_EXPORT const CFStringRef kMIDIPropertyPrivate;
// String: the identity under which the owner was attached. The library sets it; a client that
// sets it gets `kMIDINotPermitted`.
COREMIDI_EXPORT const CFStringRef kMIDIPropertyDriverOwner;
COREMIDI_EXPORT const CFStringRef kMIDIPropertyNameConfiguration;     // dictionary
COREMIDI_EXPORT const CFStringRef kMIDIPropertyImage;                 // string, a file's path
COREMIDI_EXPORT const CFStringRef kMIDIPropertyDriverVersion;         // integer
COREMIDI_EXPORT const CFStringRef kMIDIPropertySupportsGeneralMIDI;   // integer, 0 or 1
COREMIDI_EXPORT const CFStringRef kMIDIPropertySupportsMMC;           // integer, 0 or 1
COREMIDI_EXPORT const CFStringRef kMIDIPropertyCanRoute;              // integer, 0 or 1
COREMIDI_EXPORT const CFStringRef kMIDIPropertyReceivesClock;         // integer, 0 or 1
COREMIDI_EXPORT const CFStringRef kMIDIPropertyReceivesMTC;           // integer, 0 or 1
COREMIDI_EXPORT const CFStringRef kMIDIPropertyTransmitsClock;        // integer, 0 or 1
COREMIDI_EXPORT const CFStringRef kMIDIPropertyTransmitsMTC;          // integer, 0 or 1
COREMIDI_EXPORT const CFStringRef kMIDIPropertyDriverDeviceEditorApp; // string, a file's path
COREMIDI_EXPORT const CFStringRef kMIDIPropertySupportsShowControl;   // integer, 0 or 1
// String, derived from other properties. For an endpoint it is the name with the device's name
// before it, unless the name begins with that already; for other objects it is the name. Setting it
// sets the name.
COREMIDI_EXPORT const CFStringRef kMIDIPropertyDisplayName;

COREMIDI_EXPORT OSStatus MIDIObjectGetIntegerProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                      SInt32* outValue);
COREMIDI_EXPORT OSStatus MIDIObjectSetIntegerProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                      SInt32 value);

// The caller releases the value that it gets. A value that is set is retained.
COREMIDI_EXPORT OSStatus MIDIObjectGetStringProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                     CFStringRef* str);
COREMIDI_EXPORT OSStatus MIDIObjectSetStringProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                     CFStringRef str);
COREMIDI_EXPORT OSStatus MIDIObjectGetDataProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                   CFDataRef* outData);
COREMIDI_EXPORT OSStatus MIDIObjectSetDataProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                   CFDataRef data);
// A dictionary must be a property list, otherwise the result is `kMIDIWrongPropertyType`. It is
// copied.
COREMIDI_EXPORT OSStatus MIDIObjectGetDictionaryProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                         CFDictionaryRef* outDict);
COREMIDI_EXPORT OSStatus MIDIObjectSetDictionaryProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                         CFDictionaryRef dict);

// Removes an object's own property; one that it only inherits counts as unknown. The result is
// `kMIDINotPermitted` for the unique ID, the driver's identity and derived properties.
COREMIDI_EXPORT OSStatus MIDIObjectRemoveProperty(MIDIObjectRef obj, CFStringRef propertyID);

// Gives a dictionary of the object's own properties, which the caller releases. With `deep`, that
// of a device also has "entities", an array, and that of an entity "sources" and "destinations".
COREMIDI_EXPORT OSStatus MIDIObjectGetProperties(MIDIObjectRef obj,
                                                 CFPropertyListRef* outProperties, Boolean deep);

// Finds the device, entity or endpoint with the unique ID, listed or not. If there is none, the
// result is `kMIDIObjectNotFound` and the reference 0. `outObjectType` may be null.
COREMIDI_EXPORT OSStatus MIDIObjectFindByUniqueID(MIDIUniqueID inUniqueID, MIDIObjectRef* outObject,
                                                  MIDIObjectType* outObjectType);
