// The objects that references name. All fields are under the lock of World.
#pragma once

#include "platform/CoreMIDI/src/base/PropertyMap.h"
#include "platform/CoreMIDI/src/base/Route.h"

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

    MIDIObjectRef mReference = 0; // set by ObjectRegistry
};

struct Client : Object {
    std::shared_ptr<NotificationQueue> mNotifications; // null without a notify procedure
    std::vector<MIDIPortRef> mPorts;
    std::vector<MIDIEndpointRef> mEndpoints;
};

struct Port : Object {
    MIDIClientRef mClient = 0;
    MIDIReadProc mReadProcedure = nullptr; // of an input port, never null there
    void* mRefCon = nullptr;
    std::vector<std::shared_ptr<Connection>> mConnections;
};

struct DeviceList : Object {
    std::vector<MIDIDeviceRef> mDevices;
};

// A device, entity or endpoint.
struct PropertyObject : Object {
    // The object whose properties this one inherits; null for devices and virtual endpoints.
    virtual PropertyObject* Parent() const = 0;
    // The value that the object or one that it inherits from has; null when none has it.
    CFPropertyListRef Find(std::string_view name) const;
    // The value of such an integer, 0 when there is none.
    SInt32 Integer(std::string_view name) const;

    MIDIUniqueID mUniqueID = kMIDIInvalidUniqueID;
    PropertyMap mProperties; // without the unique ID
};

struct Endpoint;
struct Entity;

struct Device : PropertyObject {
    PropertyObject* Parent() const override { return nullptr; }

    bool mIsInSetup = false;
    MIDIDriverRef mOwner = nullptr;
    std::shared_ptr<DriverOutput> mOutput; // null while the owner is not attached
    // Properties that take the place of those of their names when it is detached: made when it is
    // attached, since detaching must not fail for want of memory.
    PropertyMap mWhenDetached;
    std::vector<Entity*> mEntities;
};

struct Entity : PropertyObject {
    PropertyObject* Parent() const override { return mDevice; }

    Device* mDevice = nullptr;
    std::vector<Endpoint*> mSources;
    std::vector<Endpoint*> mDestinations;
};

struct Endpoint : PropertyObject {
    PropertyObject* Parent() const override { return mEntity; }
    Device* DeviceOrNull() const { return mEntity == nullptr ? nullptr : mEntity->mDevice; }

    Entity* mEntity = nullptr; // null for a virtual endpoint
    MIDIClientRef mClient = 0; // of a virtual endpoint
    std::pair<void*, void*> mRefCons{nullptr, nullptr};
    std::shared_ptr<Connection> mReceiver;                 // of a virtual destination
    std::vector<std::shared_ptr<Connection>> mConnections; // of a source, in their order
};

} // namespace CoreMIDI
