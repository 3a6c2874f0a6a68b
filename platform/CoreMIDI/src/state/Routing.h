// The connections between endpoints, ports and drivers.
#pragma once

#include "platform/CoreMIDI/src/state/Transaction.h"

namespace CoreMIDI {

// Routes that are yet to be put into their places, which needs no memory.
class NewRoutes {
public:
    // Makes the route of an endpoint (of a device's: of each) as it has to be now. Throws
    // std::bad_alloc.
    void Make(const PropertyObject& object) QUORVEL_REQUIRES(sStateMutex);
    void PutIntoPlace() noexcept QUORVEL_REQUIRES(sStateMutex);

private:
    std::vector<std::pair<MIDIEndpointRef, std::unique_ptr<Route>>> mRoutes;
};

// Makes routes anew after something that they depend on has changed: the endpoint's connections,
// refCons, driver, advance schedule time. Throws std::bad_alloc, with all routes as they were.
void UpdateRoutes(const PropertyObject& object) QUORVEL_REQUIRES(sStateMutex);
// The same where less flows than before: routes that there is no memory for stay as they were, and
// what they name takes nothing any more (a connection that has ended, a driver that is detached).
void UpdateRoutesIfPossible(const PropertyObject& object) noexcept QUORVEL_REQUIRES(sStateMutex);

// Calls `visit` for the device's, entity's or endpoint's endpoints.
template <typename Visit>
void ForEachEndpoint(const PropertyObject& object, const Visit& visit)
    QUORVEL_REQUIRES(sStateMutex) {
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

// Tells the driver of a source, if there is one, whether the source has listeners. `room`: one
// item, for what is told.
void TellListeners(const Endpoint& source, bool hasListeners, DriverItems room) noexcept
    QUORVEL_REQUIRES(sStateMutex);

// Take a connection out of its source and its port, as far as these exist. It is to be ended then.
void DropFromSource(Connection& connection) noexcept QUORVEL_REQUIRES(sStateMutex);
void DropFromPort(const Connection& connection) noexcept QUORVEL_REQUIRES(sStateMutex);

// Ends an endpoint's connections and its read procedure, and destroys it.
void DestroyEndpoint(Transaction& transaction, Endpoint& endpoint) noexcept
    QUORVEL_REQUIRES(sStateMutex);

} // namespace CoreMIDI
