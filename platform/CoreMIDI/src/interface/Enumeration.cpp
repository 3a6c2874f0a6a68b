// What there is, by index and by relation.
#include "platform/CoreMIDI/src/state/Routing.h"

#include <CoreMIDI/MIDIServices.h>

namespace CoreMIDI {

namespace {

// Looks at something under the lock of the state; 0 when that fails.
template <typename Result, typename Look>
Result LookAt(const Look& look) noexcept {
    return AnswerOrZero([&]() -> Result {
        ServerState& state = ServerState::Get();
        const MutexLock lock(sStateMutex);
        return look(state);
    });
}

// Counts the listed endpoints of a kind, and sets `found` to the one at an index if there is one.
ItemCount Listed(Kind kind, ItemCount index, MIDIEndpointRef& found) {
    return LookAt<ItemCount>([&](const ServerState& state) QUORVEL_REQUIRES(sStateMutex) {
        ItemCount count = 0;
        const auto look = [&](const Endpoint& endpoint) QUORVEL_REQUIRES(sStateMutex) {
            if (ObjectRegistry::KindOf(endpoint.mReference) == kind &&
                endpoint.Integer(kPrivateProperty) == 0 &&
                endpoint.Integer(kOfflineProperty) == 0 && count++ == index) {
                found = endpoint.mReference;
            }
        };
        for (const Device* device : state.mSetupDevices) {
            ForEachEndpoint(*device, look);
        }
        for (const Endpoint* endpoint : state.mVirtualEndpoints) {
            look(*endpoint);
        }
        return count;
    });
}

ItemCount CountListed(Kind kind) {
    MIDIEndpointRef unused = 0;
    return Listed(kind, 0, unused);
}

MIDIEndpointRef ListedAt(Kind kind, ItemCount index) {
    MIDIEndpointRef found = 0;
    Listed(kind, index, found);
    return found;
}

// The number of an object's parts, and the part at an index, from the vector that `member` names.
template <typename Type, typename Part>
ItemCount CountParts(MIDIObjectRef reference, std::vector<Part*> Type::*member) {
    return LookAt<ItemCount>([&](const ServerState& state) QUORVEL_REQUIRES(sStateMutex) {
        const auto* const object = state.Find<Type>(reference);
        return object == nullptr ? 0 : static_cast<ItemCount>((object->*member).size());
    });
}

template <typename Type, typename Part>
MIDIObjectRef PartAt(MIDIObjectRef reference, std::vector<Part*> Type::*member, ItemCount index) {
    return LookAt<MIDIObjectRef>([&](const ServerState& state) QUORVEL_REQUIRES(sStateMutex) {
        const auto* const object = state.Find<Type>(reference);
        return object == nullptr || index >= (object->*member).size()
                   ? 0
                   : (object->*member)[index]->mReference;
    });
}

// The object above an entity or endpoint.
template <typename Type>
OSStatus ParentOf(MIDIObjectRef reference, MIDIObjectRef* parent) {
    if (parent == nullptr) {
        return paramErr;
    }
    *parent = LookAt<MIDIObjectRef>([&](const ServerState& state) QUORVEL_REQUIRES(sStateMutex) {
        const auto* const object = state.Find<Type>(reference);
        return object == nullptr || object->Parent() == nullptr ? 0 : object->Parent()->mReference;
    });
    return *parent == 0 ? OSStatus{kMIDIObjectNotFound} : OSStatus{noErr};
}

} // namespace

} // namespace CoreMIDI

using namespace CoreMIDI;

ItemCount MIDIGetNumberOfDevices(void) {
    return LookAt<ItemCount>([](const ServerState& state) QUORVEL_REQUIRES(sStateMutex) {
        return static_cast<ItemCount>(state.mSetupDevices.size());
    });
}

MIDIDeviceRef MIDIGetDevice(ItemCount deviceIndex0) {
    return LookAt<MIDIDeviceRef>([&](const ServerState& state) QUORVEL_REQUIRES(sStateMutex) {
        return deviceIndex0 < state.mSetupDevices.size()
                   ? state.mSetupDevices[deviceIndex0]->mReference
                   : 0;
    });
}

ItemCount MIDIGetNumberOfSources(void) {
    return CountListed(Kind::kSource);
}

MIDIEndpointRef MIDIGetSource(ItemCount sourceIndex0) {
    return ListedAt(Kind::kSource, sourceIndex0);
}

ItemCount MIDIGetNumberOfDestinations(void) {
    return CountListed(Kind::kDestination);
}

MIDIEndpointRef MIDIGetDestination(ItemCount destIndex0) {
    return ListedAt(Kind::kDestination, destIndex0);
}

ItemCount MIDIDeviceGetNumberOfEntities(MIDIDeviceRef device) {
    return CountParts(device, &Device::mEntities);
}

MIDIEntityRef MIDIDeviceGetEntity(MIDIDeviceRef device, ItemCount entityIndex0) {
    return PartAt(device, &Device::mEntities, entityIndex0);
}

ItemCount MIDIEntityGetNumberOfSources(MIDIEntityRef entity) {
    return CountParts(entity, &Entity::mSources);
}

MIDIEndpointRef MIDIEntityGetSource(MIDIEntityRef entity, ItemCount sourceIndex0) {
    return PartAt(entity, &Entity::mSources, sourceIndex0);
}

ItemCount MIDIEntityGetNumberOfDestinations(MIDIEntityRef entity) {
    return CountParts(entity, &Entity::mDestinations);
}

MIDIEndpointRef MIDIEntityGetDestination(MIDIEntityRef entity, ItemCount destIndex0) {
    return PartAt(entity, &Entity::mDestinations, destIndex0);
}

OSStatus MIDIEntityGetDevice(MIDIEntityRef inEntity, MIDIDeviceRef* outDevice) {
    return ParentOf<Entity>(inEntity, outDevice);
}

OSStatus MIDIEndpointGetEntity(MIDIEndpointRef inEndpoint, MIDIEntityRef* outEntity) {
    return ParentOf<Endpoint>(inEndpoint, outEntity);
}
