// The objects that clients and drivers name by references.
#pragma once

#include "platform/CoreMIDI/src/base/PropertyMap.h"
#include "platform/CoreMIDI/src/base/Route.h"
#include "platform/CoreMIDI/src/base/StateMutex.h"

#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace CoreMIDI {

class NotificationQueue;

struct Object {
    Object() = default;
    virtual ~Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    MIDIObjectRef mReference QUORVEL_GUARDED_BY(sStateMutex) = 0; // set by ObjectRegistry
};

struct Client : Object {
    // Null if the client has no notify procedure.
    std::shared_ptr<NotificationQueue> mNotifications QUORVEL_GUARDED_BY(sStateMutex);
    std::vector<MIDIPortRef> mPorts QUORVEL_GUARDED_BY(sStateMutex);
    std::vector<MIDIEndpointRef> mEndpoints QUORVEL_GUARDED_BY(sStateMutex);
};

struct Port : Object {
    MIDIClientRef mClient QUORVEL_GUARDED_BY(sStateMutex) = 0;
    // Set for an input port, null for an output port.
    MIDIReadProc mReadProcedure QUORVEL_GUARDED_BY(sStateMutex) = nullptr;
    void* mRefCon QUORVEL_GUARDED_BY(sStateMutex) = nullptr;
    std::vector<std::shared_ptr<Connection>> mConnections QUORVEL_GUARDED_BY(sStateMutex);
};

struct DeviceList : Object {
    std::vector<MIDIDeviceRef> mDevices QUORVEL_GUARDED_BY(sStateMutex);
};

// A device, entity or endpoint.
struct PropertyObject : Object {
    // The object whose properties this one inherits; null for devices and virtual endpoints.
    virtual PropertyObject* Parent() const QUORVEL_REQUIRES(sStateMutex) = 0;
    // Returns the value of a property, which may be inherited, or null if there is none.
    CFPropertyListRef Find(std::string_view name) const QUORVEL_REQUIRES(sStateMutex);
    // Does the same for an integer, and returns 0 if there is none.
    SInt32 Integer(std::string_view name) const QUORVEL_REQUIRES(sStateMutex);

    MIDIUniqueID mUniqueID QUORVEL_GUARDED_BY(sStateMutex) = kMIDIInvalidUniqueID;
    PropertyMap mProperties QUORVEL_GUARDED_BY(sStateMutex); // without the unique ID
};

struct Endpoint;
struct Entity;

struct Device : PropertyObject {
    PropertyObject* Parent() const override QUORVEL_REQUIRES(sStateMutex) { return nullptr; }

    bool mIsInSetup QUORVEL_GUARDED_BY(sStateMutex) = false;
    MIDIDriverRef mOwner QUORVEL_GUARDED_BY(sStateMutex) = nullptr;
    // Null while the owner is not attached.
    std::shared_ptr<DriverOutput> mOutput QUORVEL_GUARDED_BY(sStateMutex);
    // The values that some properties take when the driver is detached. They are made when it is
    // attached, because detaching must not fail for want of memory.
    PropertyMap mWhenDetached QUORVEL_GUARDED_BY(sStateMutex);
    std::vector<Entity*> mEntities QUORVEL_GUARDED_BY(sStateMutex);
};

struct Entity : PropertyObject {
    PropertyObject* Parent() const override QUORVEL_REQUIRES(sStateMutex) { return mDevice; }

    Device* mDevice QUORVEL_GUARDED_BY(sStateMutex) = nullptr;
    std::vector<Endpoint*> mSources QUORVEL_GUARDED_BY(sStateMutex);
    std::vector<Endpoint*> mDestinations QUORVEL_GUARDED_BY(sStateMutex);
};

struct Endpoint : PropertyObject {
    PropertyObject* Parent() const override QUORVEL_REQUIRES(sStateMutex) { return mEntity; }
    Device* DeviceOrNull() const QUORVEL_REQUIRES(sStateMutex) {
        return mEntity == nullptr ? nullptr : mEntity->mDevice;
    }

    Entity* mEntity QUORVEL_GUARDED_BY(sStateMutex) = nullptr; // null for a virtual endpoint
    MIDIClientRef mClient QUORVEL_GUARDED_BY(sStateMutex) = 0; // of a virtual endpoint
    std::pair<void*, void*> mRefCons QUORVEL_GUARDED_BY(sStateMutex){nullptr, nullptr};
    // The read procedure of a virtual destination, null for other endpoints.
    std::shared_ptr<Connection> mReceiver QUORVEL_GUARDED_BY(sStateMutex);
    // The connections of a source, in the order in which they were made.
    std::vector<std::shared_ptr<Connection>> mConnections QUORVEL_GUARDED_BY(sStateMutex);
};

} // namespace CoreMIDI
