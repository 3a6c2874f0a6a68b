// Devices, from their making to their removal, and what else drivers call.
#include "platform/CoreMIDI/src/state/DeviceTree.h"
#include "platform/CoreMIDI/src/state/DriverIO.h"
#include "platform/CoreMIDI/src/state/Routing.h"

#include <CoreMIDI/MIDIDriver.h>
#include <CoreMIDI/MIDISetup.h>

using namespace CoreMIDI;

OSStatus MIDIDeviceCreate(MIDIDriverRef owner, CFStringRef name, CFStringRef manufacturer,
                          CFStringRef model, MIDIDeviceRef* outDevice) {
    return Answer([&]() -> OSStatus {
        if (!IsName(name) || !IsName(manufacturer) || !IsName(model) || outDevice == nullptr) {
            return paramErr;
        }
        Transaction transaction;
        ServerState& state = ServerState::Get();
        auto& device = state.Add<Device>(Kind::kDevice);
        const OnFailure remove(
            [&]() QUORVEL_REQUIRES(sStateMutex) { DestroyDevice(transaction, device); });
        device.mProperties[kNameProperty] = CFOwned<CFPropertyListRef>::Retained(name);
        device.mProperties[kManufacturerProperty] =
            CFOwned<CFPropertyListRef>::Retained(manufacturer);
        device.mProperties[kModelProperty] = CFOwned<CFPropertyListRef>::Retained(model);
        device.mOwner = owner;
        for (const std::shared_ptr<DriverOutput>& driver : state.mDrivers) {
            if (driver->mDriver == owner) {
                GiveToDriver({&device}, driver);
            }
        }
        *outDevice = device.mReference;
        return noErr;
    });
}

OSStatus MIDIDeviceDispose(MIDIDeviceRef device) {
    return ChangeObject<Device>(device, kMIDIObjectNotFound,
                                [](Transaction& transaction, Device& found)
                                    QUORVEL_REQUIRES(sStateMutex) -> OSStatus {
                                        if (found.mIsInSetup) {
                                            return kMIDINotPermitted;
                                        }
                                        DestroyDevice(transaction, found);
                                        return noErr;
                                    });
}

OSStatus MIDIDeviceAddEntity(MIDIDeviceRef device, CFStringRef name, Boolean embedded,
                             ItemCount numSourceEndpoints, ItemCount numDestinationEndpoints,
                             MIDIEntityRef* newEntity) {
    if (!IsName(name)) {
        return paramErr;
    }
    return ChangeObject<Device>(
        device, kMIDIObjectNotFound,
        [&](Transaction& transaction, Device& found) QUORVEL_REQUIRES(sStateMutex) {
            Entity& entity = AddEntity(found);
            const OnFailure remove(
                [&]() QUORVEL_REQUIRES(sStateMutex) { DestroyEntity(transaction, entity); });
            entity.mProperties[kNameProperty] = CFOwned<CFPropertyListRef>::Retained(name);
            entity.mProperties[kEmbeddedProperty] =
                CFOwned<CFPropertyListRef>(MakeNumber(embedded != 0 ? 1 : 0).Release());
            for (ItemCount i = 0; i < numSourceEndpoints; ++i) {
                AddEndpoint(entity, Kind::kSource);
            }
            for (ItemCount i = 0; i < numDestinationEndpoints; ++i) {
                AddEndpoint(entity, Kind::kDestination);
            }
            transaction.NotifyAdded(entity);
            transaction.SetupChanged(entity);
            if (newEntity != nullptr) {
                *newEntity = entity.mReference;
            }
            return noErr;
        });
}

OSStatus MIDIDeviceRemoveEntity(MIDIDeviceRef device, MIDIEntityRef entity) {
    return ChangeObject<Entity>(entity, kMIDIObjectNotFound,
                                [&](Transaction& transaction, Entity& found)
                                    QUORVEL_REQUIRES(sStateMutex) -> OSStatus {
                                        if (found.mDevice->mReference != device) {
                                            return kMIDIObjectNotFound;
                                        }
                                        transaction.NotifyRemoved(found);
                                        transaction.SetupChanged(found);
                                        DestroyEntity(transaction, found);
                                        return noErr;
                                    });
}

OSStatus MIDISetupAddDevice(MIDIDeviceRef device) {
    return ChangeObject<Device>(device, kMIDIObjectNotFound,
                                [](Transaction& transaction, Device& found)
                                    QUORVEL_REQUIRES(sStateMutex) {
                                        if (!found.mIsInSetup) {
                                            ServerState::Get().mSetupDevices.push_back(&found);
                                            found.mIsInSetup = true;
                                            transaction.NotifyAdded(found);
                                            transaction.SetupChanged(found);
                                        }
                                        return noErr;
                                    });
}

OSStatus MIDISetupRemoveDevice(MIDIDeviceRef device) {
    return ChangeObject<Device>(device, kMIDIObjectNotFound,
                                [](Transaction& transaction, Device& found)
                                    QUORVEL_REQUIRES(sStateMutex) -> OSStatus {
                                        if (!found.mIsInSetup) {
                                            return kMIDIObjectNotFound;
                                        }
                                        transaction.NotifyRemoved(found);
                                        transaction.SetupChanged(found);
                                        DestroyDevice(transaction, found);
                                        return noErr;
                                    });
}

OSStatus MIDIEndpointSetRefCons(MIDIEndpointRef endpt, void* ref1, void* ref2) {
    return ChangeObject<Endpoint>(
        endpt, kMIDIUnknownEndpoint,
        [&](Transaction&, Endpoint& endpoint) QUORVEL_REQUIRES(sStateMutex) {
            const auto before = std::exchange(endpoint.mRefCons, {ref1, ref2});
            const OnFailure undo([&]()
                                     QUORVEL_REQUIRES(sStateMutex) { endpoint.mRefCons = before; });
            UpdateRoutes(endpoint);
            return noErr;
        });
}

OSStatus MIDIEndpointGetRefCons(MIDIEndpointRef endpt, void** ref1, void** ref2) {
    return WithObject<Endpoint>(endpt, kMIDIUnknownEndpoint,
                                [&](const Endpoint& endpoint) QUORVEL_REQUIRES(sStateMutex) {
                                    if (ref1 != nullptr) {
                                        *ref1 = endpoint.mRefCons.first;
                                    }
                                    if (ref2 != nullptr) {
                                        *ref2 = endpoint.mRefCons.second;
                                    }
                                    return noErr;
                                });
}

CFRunLoopRef MIDIGetDriverIORunLoop(void) {
    return AnswerOrZero([] { return DriverIO::Get().Loop(); });
}
