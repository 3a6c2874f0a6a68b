// The form that the setup has in its file. The file is a property list: a dictionary with the
// integer "version", which is 1, and the array "devices". A device is a dictionary with
// "properties", which include the unique ID, and "entities". An entity has "properties", "sources"
// and "destinations", and an endpoint has "properties".
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

// Returns the setup, or nothing if any part of the property list is wrong: a value of the wrong
// type, a property that cannot exist, or a unique ID that is missing or occurs twice.
std::optional<SetupDescription> ReadSetup(CFPropertyListRef propertyList);

// Returns the devices of the setup with the properties that are saved. Throws std::bad_alloc.
CFOwned<CFPropertyListRef> WriteSetup(const ServerState& state) QUORVEL_REQUIRES(sStateMutex);

// Returns an object's properties as MIDIObjectGetProperties gives them. Throws std::bad_alloc.
CFOwned<CFPropertyListRef> PropertiesOf(const PropertyObject& object, bool isDeep)
    QUORVEL_REQUIRES(sStateMutex);

} // namespace CoreMIDI
