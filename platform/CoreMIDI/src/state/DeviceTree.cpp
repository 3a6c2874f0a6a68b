#include "platform/CoreMIDI/src/state/DeviceTree.h"

#include "platform/CoreMIDI/src/state/DriverIO.h"
#include "platform/CoreMIDI/src/state/Routing.h"

namespace CoreMIDI {

namespace {

// Makes room for one more, so that adding it cannot fail.
template <typename Part>
void MakeRoom(std::vector<Part*>& parts) {
    if (parts.size() == parts.capacity()) {
        parts.reserve(2 * parts.size() + 1);
    }
}

} // namespace

Entity& AddEntity(Device& device) {
    MakeRoom(device.mEntities);
    auto& entity = World::Get().Add<Entity>(Kind::kEntity);
    entity.mDevice = &device;
    device.mEntities.push_back(&entity);
    return entity;
}

Endpoint& AddEndpoint(Entity& entity, Kind kind) {
    auto& siblings = kind == Kind::kSource ? entity.mSources : entity.mDestinations;
    MakeRoom(siblings);
    auto& endpoint = World::Get().Add<Endpoint>(kind);
    endpoint.mEntity = &entity;
    siblings.push_back(&endpoint);
    UpdateRoute(endpoint);
    return endpoint;
}

void DestroyEntity(Change& change, Entity& entity) {
    for (Endpoint* source : entity.mSources) {
        DestroyEndpoint(change, *source);
    }
    for (Endpoint* destination : entity.mDestinations) {
        DestroyEndpoint(change, *destination);
    }
    std::erase(entity.mDevice->mEntities, &entity);
    World::Get().Remove(entity);
}

void DestroyDevice(Change& change, Device& device) {
    while (!device.mEntities.empty()) {
        DestroyEntity(change, *device.mEntities.back());
    }
    World& world = World::Get();
    std::erase(world.mSetupDevices, &device);
    world.Remove(device);
}

void GiveToDriver(Device& device, const std::shared_ptr<DriverOutput>& driver) {
    device.mOutput = driver;
    device.mOwner = driver == nullptr ? nullptr : driver->mDriver;
    device.mProperties[kOfflineProperty] =
        CFOwned<CFPropertyListRef>(MakeNumber(driver == nullptr ? 1 : 0).Release());
    if (driver != nullptr) {
        device.mProperties[kDriverOwnerProperty] =
            CFOwned<CFPropertyListRef>(MakeString(driver->mIdentity).Release());
    }
    UpdateRoutes(device);
    if (driver != nullptr) {
        ForEachEndpoint(device, [](const Endpoint& endpoint) {
            if (!endpoint.mConnections.empty()) {
                TellListeners(endpoint, true);
            }
        });
    }
}

} // namespace CoreMIDI
