#include "platform/CoreMIDI/src/state/ServerState.h"

#include "platform/CoreMIDI/src/state/DriverIO.h"
#include "platform/CoreMIDI/src/state/Notifications.h"

namespace CoreMIDI {

// Makes here what transactions need later, so that none fails half-way because it cannot be made.
ServerState::ServerState() {
    DriverIO::Get();
    NotificationCentre::Get();
}

ServerState& ServerState::Get() {
    static auto* const state = new ServerState;
    return *state;
}

CFPropertyListRef PropertyObject::Find(std::string_view name) const {
    for (const PropertyObject* object = this; object != nullptr; object = object->Parent()) {
        const auto found = object->mProperties.find(name);
        if (found != object->mProperties.end()) {
            return found->second.Get();
        }
    }
    return nullptr;
}

SInt32 PropertyObject::Integer(std::string_view name) const {
    return NumberOf(Find(name)).value_or(0);
}

Endpoint* ServerState::FindEndpoint(MIDIEndpointRef reference, Kind kind, OSStatus& status) const {
    auto* const endpoint = Find<Endpoint>(reference);
    if (endpoint == nullptr) {
        status = kMIDIUnknownEndpoint;
        return nullptr;
    }
    if (ObjectRegistry::KindOf(reference) != kind) {
        status = kMIDIWrongEndpointType;
        return nullptr;
    }
    status = noErr;
    return endpoint;
}

MIDIUniqueID ServerState::FreeUniqueID() {
    std::uniform_int_distribution<MIDIUniqueID> anyID(std::numeric_limits<MIDIUniqueID>::min(),
                                                      std::numeric_limits<MIDIUniqueID>::max());
    MIDIUniqueID uniqueID = kMIDIInvalidUniqueID;
    while (uniqueID == kMIDIInvalidUniqueID || mUniqueIDs.contains(uniqueID)) {
        uniqueID = anyID(mRandom);
    }
    return uniqueID;
}

bool ServerState::SetUniqueID(PropertyObject& object, MIDIUniqueID uniqueID) noexcept {
    const auto owner = mUniqueIDs.find(uniqueID);
    if (owner != mUniqueIDs.end()) {
        return owner->second == &object;
    }
    // Moving the object's entry, instead of adding one, needs no memory.
    auto entry = mUniqueIDs.extract(object.mUniqueID);
    entry.key() = uniqueID;
    mUniqueIDs.insert(std::move(entry));
    object.mUniqueID = uniqueID;
    return true;
}

void ServerState::TakeUniqueID(PropertyObject& object, MIDIUniqueID uniqueID) noexcept {
    if (!SetUniqueID(object, uniqueID)) {
        SetUniqueID(*mUniqueIDs.at(uniqueID), FreeUniqueID());
        SetUniqueID(object, uniqueID);
    }
}

void ServerState::Remove(Object& object) noexcept {
    if (const auto* const propertyObject = dynamic_cast<PropertyObject*>(&object)) {
        mUniqueIDs.erase(propertyObject->mUniqueID);
    }
    mObjects.Remove(object.mReference);
}

MIDIObjectType TypeOf(MIDIObjectRef reference) {
    switch (ObjectRegistry::KindOf(reference)) {
    case Kind::kDevice:
        return kMIDIObjectType_Device;
    case Kind::kEntity:
        return kMIDIObjectType_Entity;
    case Kind::kSource:
        return kMIDIObjectType_Source;
    case Kind::kDestination:
        return kMIDIObjectType_Destination;
    default:
        return kMIDIObjectType_Other;
    }
}

} // namespace CoreMIDI
