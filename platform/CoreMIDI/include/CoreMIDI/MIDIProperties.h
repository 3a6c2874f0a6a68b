// Properties of devices, entities and endpoints.
//
// A property has a name and a value: an integer, a string, data or a dictionary. The names below
// have the type that is given with them, other names any. An object that lacks a property has that
// of its entity, or else its device; only the unique ID is always an object's own.
//
// All functions: any thread; block for the time of other calls that change objects; allocate.
// `kMIDIObjectNotFound` for a reference that is not a device's, entity's or endpoint's,
// `kMIDIUnknownProperty` when there is no such property, `kMIDIWrongPropertyType` when it is of
// another type. Changes of an object in the setup are saved before the call returns.
#pragma once

#include <CoreMIDI/CoreMIDIBase.h>

COREMIDI_EXPORT const CFStringRef kMIDIPropertyName;         // string
COREMIDI_EXPORT const CFStringRef kMIDIPropertyManufacturer; // string
COREMIDI_EXPORT const CFStringRef kMIDIPropertyModel;        // string
// Integer. Random at first; may be set to any value but 0 that no other object has
// (`kMIDIIDNotUnique`, and `kMIDINotPermitted` for 0).
COREMIDI_EXPORT const CFStringRef kMIDIPropertyUniqueID;
COREMIDI_EXPORT const CFStringRef kMIDIPropertyDeviceID;         // integer, for System Exclusive
COREMIDI_EXPORT const CFStringRef kMIDIPropertyReceiveChannels;  // integer, a bit per channel
COREMIDI_EXPORT const CFStringRef kMIDIPropertyTransmitChannels; // integer, a bit per channel
COREMIDI_EXPORT const CFStringRef kMIDIPropertyMaxSysExSpeed;    // integer, bytes per second
// Integer, microseconds. When it is above 0, packets go to the destination as soon as they are
// sent, and its owner keeps to their times.
COREMIDI_EXPORT const CFStringRef kMIDIPropertyAdvanceScheduleTimeMuSec;
COREMIDI_EXPORT const CFStringRef kMIDIPropertyIsEmbeddedEntity;     // integer, 0 or 1
COREMIDI_EXPORT const CFStringRef kMIDIPropertyIsBroadcast;          // integer, 0 or 1
COREMIDI_EXPORT const CFStringRef kMIDIPropertySingleRealtimeEntity; // integer, an entity's index
COREMIDI_EXPORT const CFStringRef kMIDIPropertyConnectionUniqueID;   // integer or data
// Integer, 0 or 1: the device is known but not there now. The driver's to set, for its devices,
// entities or endpoints; others may set it too. The library sets it to 0 for a driver's devices as
// the driver is attached, and to 1 as it is detached. Never saved. Offline endpoints are not
// listed.
COREMIDI_EXPORT const CFStringRef kMIDIPropertyOffline;
// Integer, 0 or 1: the endpoint is not listed, but found by its unique ID.
COREMIDI_EXPORT const CFStringRef kMIDIPropertyPrivate;
// String: the identity that the owner was attached under. Set by the library; clients get
// `kMIDINotPermitted`.
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
// String, derived: an endpoint's name with its device's before it, unless it begins with that; the
// name of any other object. Setting it sets the name.
COREMIDI_EXPORT const CFStringRef kMIDIPropertyDisplayName;

COREMIDI_EXPORT OSStatus MIDIObjectGetIntegerProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                      SInt32* outValue);
COREMIDI_EXPORT OSStatus MIDIObjectSetIntegerProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                      SInt32 value);

// The caller releases what it gets. What is set is retained.
COREMIDI_EXPORT OSStatus MIDIObjectGetStringProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                     CFStringRef* str);
COREMIDI_EXPORT OSStatus MIDIObjectSetStringProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                     CFStringRef str);
COREMIDI_EXPORT OSStatus MIDIObjectGetDataProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                   CFDataRef* outData);
COREMIDI_EXPORT OSStatus MIDIObjectSetDataProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                   CFDataRef data);
// A dictionary must be a property list: `kMIDIWrongPropertyType` otherwise. It is copied.
COREMIDI_EXPORT OSStatus MIDIObjectGetDictionaryProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                         CFDictionaryRef* outDict);
COREMIDI_EXPORT OSStatus MIDIObjectSetDictionaryProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                                         CFDictionaryRef dict);

// Removes an object's own property; one that it only inherits is unknown. `kMIDINotPermitted` for
// the unique ID, the driver's identity and what is derived.
COREMIDI_EXPORT OSStatus MIDIObjectRemoveProperty(MIDIObjectRef obj, CFStringRef propertyID);

// A dictionary of the object's own properties, to be released by the caller. With `deep`, a device
// also gives "entities", an array, and an entity "sources" and "destinations".
COREMIDI_EXPORT OSStatus MIDIObjectGetProperties(MIDIObjectRef obj,
                                                 CFPropertyListRef* outProperties, Boolean deep);

// The device, entity or endpoint of that unique ID, listed or not; `kMIDIObjectNotFound` and a
// reference of 0 when there is none. `outObjectType` may be null.
COREMIDI_EXPORT OSStatus MIDIObjectFindByUniqueID(MIDIUniqueID inUniqueID, MIDIObjectRef* outObject,
                                                  MIDIObjectType* outObjectType);
