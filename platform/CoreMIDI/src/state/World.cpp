#include "platform/CoreMIDI/src/state/World.h"

namespace CoreMIDI {

World& World::Get() {
    static auto* const world = new World;
    return *world;
}

CFPropertyListRef PropertyObject::Find(const std::string& name) const {
    for (const PropertyObject* object = this; object != nullptr; object = object->Parent()) {
        const auto found = object->mProperties.find(name);
        if (found != object->mProperties.end()) {
            return found->second.Get();
        }
    }
    return nullptr;
}

SInt32 PropertyObject::Integer(const char* name) const {
    return NumberOf(Find(name)).value_or(0);
}

Endpoint* World::FindEndpoint(MIDIEndpointRef reference, Kind kind, OSStatus& status) const {
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

void World::AssignUniqueID(PropertyObject& object) {
    std::uniform_int_distribution<MIDIUniqueID> anyID(std::numeric_limits<MIDIUniqueID>::min(),
                                                      std::numeric_limits<MIDIUniqueID>::max());
    MIDIUniqueID uniqueID = kMIDIInvalidUniqueID;
    while (uniqueID == kMIDIInvalidUniqueID || !SetUniqueID(object, uniqueID)) {
        uniqueID = anyID(mRandom);
    }
}

bool World::SetUniqueID(PropertyObject& object, MIDIUniqueID uniqueID) {
    const auto [place, isNew] = mUniqueIDs.emplace(uniqueID, &object);
    if (!isNew) {
        return place->second == &object;
    }
    if (object.mUniqueID != kMIDIInvalidUniqueID) {
        mUniqueIDs.erase(object.mUniqueID);
    }
    object.mUniqueID = uniqueID;
    return true;
}

void World::TakeUniqueID(PropertyObject& object, MIDIUniqueID uniqueID) {
    while (!SetUniqueID(object, uniqueID)) {
        AssignUniqueID(*mUniqueIDs.at(uniqueID));
    }
}

void World::Remove(Object& object) {
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
