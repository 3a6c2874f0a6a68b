// Builds and takes apart devices with their entities and endpoints. A function that throws
// std::bad_alloc changes nothing.
#pragma once

#include "platform/CoreMIDI/src/state/Transaction.h"

namespace CoreMIDI {

Entity& AddEntity(Device& device) QUORVEL_REQUIRES(sStateMutex);
// Appends a source or destination.
Endpoint& AddEndpoint(Entity& entity, Kind kind) QUORVEL_REQUIRES(sStateMutex);

// Destroy a device or entity with its parts, and take it out of what it is part of.
void DestroyDevice(Transaction& transaction, Device& device) noexcept QUORVEL_REQUIRES(sStateMutex);
void DestroyEntity(Transaction& transaction, Entity& entity) noexcept QUORVEL_REQUIRES(sStateMutex);

// Makes an attached driver serve the devices and tells it which of their sources have listeners.
// Throws std::bad_alloc; the driver then serves none of them.
void GiveToDriver(const std::vector<Device*>& devices, const std::shared_ptr<DriverOutput>& driver)
    QUORVEL_REQUIRES(sStateMutex);
// Ends the driver's service of the device and marks the device as offline.
void TakeFromDriver(Device& device) noexcept QUORVEL_REQUIRES(sStateMutex);

} // namespace CoreMIDI
