// The setup as a property list: a dictionary of "version", 1, and "devices". A device has
// "properties" (the unique ID among them) and "entities", an entity "properties", "sources" and
// "destinations", an endpoint "properties".
#pragma once

#include "platform/CoreMIDI/src/state/ServerState.h"

#include <optional>
#include <vector>

namespace CoreMIDI {

// An object as the file describes it.
struct PartDescription {
    MIDIUniqueID mUniqueID = kMIDIInvalidUniqueID;
    PropertyMap mProperties;
};
struct EntityDescription : PartDescription {
    std::vector<PartDescription> mSources;
    std::vector<PartDescription> mDestinations;
};
struct DeviceDescription : PartDescription {
    std::vector<EntityDescription> mEntities;
};
using SetupDescription = std::vector<DeviceDescription>;

// Nothing when the property list is not a setup in every respect: wrong types, properties that
// cannot be, no unique ID or one that occurs twice.
std::optional<SetupDescription> ReadSetup(CFPropertyListRef propertyList);

// The devices of the setup, without what is not saved. Throws std::bad_alloc.
CFOwned<CFPropertyListRef> WriteSetup(const ServerState& state) QUORVEL_REQUIRES(sStateMutex);

// An object's properties in the form of MIDIObjectGetProperties. Throws std::bad_alloc.
CFOwned<CFPropertyListRef> PropertiesOf(const PropertyObject& object, bool isDeep)
    QUORVEL_REQUIRES(sStateMutex);

} // namespace CoreMIDI
