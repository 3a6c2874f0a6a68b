// Devices with their entities and endpoints. What throws std::bad_alloc leaves the tree as it was.
#pragma once

#include "platform/CoreMIDI/src/state/Transaction.h"

namespace CoreMIDI {

Entity& AddEntity(Device& device) QUORVEL_REQUIRES(sStateMutex);
// Appends a source or destination.
Endpoint& AddEndpoint(Entity& entity, Kind kind) QUORVEL_REQUIRES(sStateMutex);

// Take the object out of whatever holds it, with all that it holds.
void DestroyDevice(Transaction& transaction, Device& device) noexcept QUORVEL_REQUIRES(sStateMutex);
void DestroyEntity(Transaction& transaction, Entity& entity) noexcept QUORVEL_REQUIRES(sStateMutex);

// Makes an attached driver serve the devices, all or none, and tells it of the sources that have
// listeners.
void GiveToDriver(const std::vector<Device*>& devices, const std::shared_ptr<DriverOutput>& driver)
    QUORVEL_REQUIRES(sStateMutex);
// Nobody serves the device any more, and it is offline.
void TakeFromDriver(Device& device) noexcept QUORVEL_REQUIRES(sStateMutex);

} // namespace CoreMIDI
