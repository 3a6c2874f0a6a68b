// Notifications tell a client's notify procedure what has changed.
//
// They come on the run loop of the thread that created the oldest client that the process still
// has, in its default mode; that thread must run its loop to get any. They come after the call that
// caused them has changed the objects. No lock is held, so the procedure may call anything.
// `kMIDIMsgSetupChanged` follows the notifications of one change. If more than 1024 notifications
// wait for a client, or there is no memory for one, a single `kMIDIMsgSetupChanged` replaces them.
#pragma once

#include <CoreMIDI/CoreMIDIBase.h>

typedef SInt32 MIDINotificationMessageID;
enum {
    kMIDIMsgSetupChanged = 1,    // an object or a property has changed
    kMIDIMsgObjectAdded = 2,     // MIDIObjectAddRemoveNotification
    kMIDIMsgObjectRemoved = 3,   // MIDIObjectAddRemoveNotification
    kMIDIMsgPropertyChanged = 4, // MIDIObjectPropertyChangeNotification
    kMIDIMsgIOError = 7,         // MIDIIOErrorNotification
};

// The head of each notification: its kind and its size in bytes.
typedef struct MIDINotification {
    MIDINotificationMessageID messageID;
    UInt32 messageSize;
} MIDINotification;

// `parent` is 0 for a device and for a virtual endpoint. Only objects of the setup and virtual
// endpoints are notified of; a device stands for all that it holds.
typedef struct MIDIObjectAddRemoveNotification {
    MIDINotificationMessageID messageID;
    UInt32 messageSize;
    MIDIObjectRef parent;
    MIDIObjectType parentType;
    MIDIObjectRef child;
    MIDIObjectType childType;
} MIDIObjectAddRemoveNotification;

// `propertyName` is valid during the call.
typedef struct MIDIObjectPropertyChangeNotification {
    MIDINotificationMessageID messageID;
    UInt32 messageSize;
    MIDIObjectRef object;
    MIDIObjectType objectType;
    CFStringRef propertyName;
} MIDIObjectPropertyChangeNotification;

// A driver answered `Send` with an error, after `MIDISend` had returned.
typedef struct MIDIIOErrorNotification {
    MIDINotificationMessageID messageID;
    UInt32 messageSize;
    MIDIDeviceRef driverDevice;
    OSStatus errorCode;
} MIDIIOErrorNotification;

typedef void (*MIDINotifyProc)(const MIDINotification* message, void* refCon);
