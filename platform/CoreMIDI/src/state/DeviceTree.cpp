#include "platform/CoreMIDI/src/state/DeviceTree.h"

#include "platform/CoreMIDI/src/state/DriverIO.h"
#include "platform/CoreMIDI/src/state/Routing.h"

#include <memory>
#include <utility>

namespace CoreMIDI {

namespace {

// What a driver's service of a device consists of; see Device.
struct Service {
    MIDIDriverRef mOwner;
    std::shared_ptr<DriverOutput> mOutput;
    PropertyMap mProperties;
    PropertyMap mWhenDetached;
};

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
    auto& entity = ServerState::Get().Add<Entity>(Kind::kEntity);
    entity.mDevice = &device;
    device.mEntities.push_back(&entity);
    return entity;
}

Endpoint& AddEndpoint(Entity& entity, Kind kind) {
    auto& siblings = kind == Kind::kSource ? entity.mSources : entity.mDestinations;
    MakeRoom(siblings);
    ServerState& state = ServerState::Get();
    auto& endpoint = state.Add<Endpoint>(kind);
    const OnFailure remove([&]() QUORVEL_REQUIRES(sStateMutex) {
        std::erase(siblings, &endpoint);
        state.Remove(endpoint);
    });
    endpoint.mEntity = &entity;
    siblings.push_back(&endpoint);
    UpdateRoutes(endpoint);
    return endpoint;
}

void DestroyEntity(Transaction& transaction, Entity& entity) noexcept {
    for (Endpoint* source : entity.mSources) {
        DestroyEndpoint(transaction, *source);
    }
    for (Endpoint* destination : entity.mDestinations) {
        DestroyEndpoint(transaction, *destination);
    }
    std::erase(entity.mDevice->mEntities, &entity);
    ServerState::Get().Remove(entity);
}

void DestroyDevice(Transaction& transaction, Device& device) noexcept {
    while (!device.mEntities.empty()) {
        DestroyEntity(transaction, *device.mEntities.back());
    }
    ServerState& state = ServerState::Get();
    std::erase(state.mSetupDevices, &device);
    state.Remove(device);
}

void GiveToDriver(const std::vector<Device*>& devices,
                  const std::shared_ptr<DriverOutput>& driver) {
    std::vector<Service> services;
    for (const Device* device : devices) {
        Service service{driver->mDriver, driver, device->mProperties, {}};
        service.mProperties[kOfflineProperty] = CFOwned<CFPropertyListRef>(MakeNumber(0).Release());
        service.mProperties[kDriverOwnerProperty] =
            CFOwned<CFPropertyListRef>(MakeString(driver->mIdentity).Release());
        service.mWhenDetached[kOfflineProperty] =
            CFOwned<CFPropertyListRef>(MakeNumber(1).Release());
        services.push_back(std::move(service));
    }
    const auto exchange = [&]() QUORVEL_REQUIRES(sStateMutex) noexcept {
        for (std::size_t i = 0; i < devices.size(); ++i) {
            std::swap(devices[i]->mOwner, services[i].mOwner);
            std::swap(devices[i]->mOutput, services[i].mOutput);
            std::swap(devices[i]->mProperties, services[i].mProperties);
            std::swap(devices[i]->mWhenDetached, services[i].mWhenDetached);
        }
    };
    exchange();
    const OnFailure undo(exchange);
    NewRoutes routes;
    std::vector<std::pair<const Endpoint*, DriverItems>> listenedTo;
    for (const Device* device : devices) {
        routes.Make(*device);
        ForEachEndpoint(*device,
                        [&listenedTo](const Endpoint& endpoint) QUORVEL_REQUIRES(sStateMutex) {
                            if (!endpoint.mConnections.empty()) {
                                listenedTo.emplace_back(&endpoint, DriverItems(1));
                            }
                        });
    }
    // From here on nothing fails.
    routes.PutIntoPlace();
    for (auto& [endpoint, room] : listenedTo) {
        TellListeners(*endpoint, true, std::move(room));
    }
}

void TakeFromDriver(Device& device) noexcept {
    device.mOwner = nullptr;
    device.mOutput.reset();
    for (const auto& [name, value] : device.mWhenDetached) {
        device.mProperties.erase(name);
    }
    device.mProperties.merge(device.mWhenDetached);
    UpdateRoutesIfPossible(device);
}

} // namespace CoreMIDI
