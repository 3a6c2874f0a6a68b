// Devices with their entities and endpoints. All functions: under the lock of World. Throw
// std::bad_alloc, with the tree as it was.
#pragma once

#include "platform/CoreMIDI/src/state/Change.h"

namespace CoreMIDI {

Entity& AddEntity(Device& device);
// Appends a source or destination.
Endpoint& AddEndpoint(Entity& entity, Kind kind);

// Take the object out of whatever holds it, with all that it holds.
void DestroyDevice(Change& change, Device& device) noexcept;
void DestroyEntity(Change& change, Entity& entity) noexcept;

// Makes an attached driver serve the devices, all or none, and tells it of the sources that have
// listeners.
void GiveToDriver(const std::vector<Device*>& devices, const std::shared_ptr<DriverOutput>& driver);
// Nobody serves the device any more, and it is offline.
void TakeFromDriver(Device& device) noexcept;

} // namespace CoreMIDI
