// The connections between endpoints, ports and drivers. All functions: under the lock of World.
#pragma once

#include "platform/CoreMIDI/src/state/Change.h"

namespace CoreMIDI {

// Makes an endpoint's route anew after something that it depends on has changed: its connections,
// refCons, driver, advance schedule time. (Of a device's endpoints: of all of them.)
void UpdateRoute(const Endpoint& endpoint);
void UpdateRoutes(const PropertyObject& object);

// Calls `visit` for the device's, entity's or endpoint's endpoints.
template <typename Visit>
void ForEachEndpoint(const PropertyObject& object, const Visit& visit) {
    if (const auto* const device = dynamic_cast<const Device*>(&object)) {
        for (const Entity* entity : device->mEntities) {
            ForEachEndpoint(*entity, visit);
        }
    } else if (const auto* const entity = dynamic_cast<const Entity*>(&object)) {
        for (Endpoint* endpoint : entity->mSources) {
            visit(*endpoint);
        }
        for (Endpoint* endpoint : entity->mDestinations) {
            visit(*endpoint);
        }
    }
}

// Tells the driver of a source, if there is one, whether the source has listeners.
void TellListeners(const Endpoint& source, bool hasListeners);

// Take a connection out of its source and its port, as far as these exist. It is to be ended then.
void DropFromSource(const Connection& connection);
void DropFromPort(const Connection& connection);

// Ends an endpoint's connections and its read procedure, and destroys it.
void DestroyEndpoint(Change& change, Endpoint& endpoint);

} // namespace CoreMIDI
