// Devices with their entities and endpoints. All functions: under the lock of World. Throw
// std::bad_alloc, with the tree as it was.
#pragma once

#include "platform/CoreMIDI/src/state/Change.h"

namespace CoreMIDI {

Entity& AddEntity(Device& device);
// Appends a source or destination.
Endpoint& AddEndpoint(Entity& entity, Kind kind);

// Take the object out of whatever holds it, with all that it holds.
void DestroyDevice(Change& change, Device& device);
void DestroyEntity(Change& change, Entity& entity);

// Makes an attached driver serve the device; null: nobody does any more and the device is offline.
void GiveToDriver(Device& device, const std::shared_ptr<DriverOutput>& driver);

} // namespace CoreMIDI
