// The connections between endpoints, ports and drivers.
#pragma once

#include "platform/CoreMIDI/src/state/Transaction.h"

namespace CoreMIDI {

// NewRoutes makes the routes of endpoints first and puts them into place later. Only the first step
// needs memory, so that a change which needs several routes is made wholly or not at all.
class NewRoutes {
public:
    // Makes a route for the endpoint, or for each endpoint of the device or entity, from its
    // present connections and driver. Throws std::bad_alloc.
    void Make(const PropertyObject& object) QUORVEL_REQUIRES(sStateMutex);
    void PutIntoPlace() noexcept QUORVEL_REQUIRES(sStateMutex);

private:
    std::vector<std::pair<MIDIEndpointRef, std::unique_ptr<Route>>> mRoutes;
};

// Makes and replaces the routes of an endpoint, or of each endpoint of a device or entity. To be
// called when something that routes depend on has changed: the connections, the refCons, the driver
// or the advance schedule time. Throws std::bad_alloc and then leaves all routes as they were.
void UpdateRoutes(const PropertyObject& object) QUORVEL_REQUIRES(sStateMutex);
// Does the same after a change that only takes receivers away. If there is no memory, the old
// routes stay; that does no harm, because a connection that has ended and a driver that is detached
// refuse the packets that the old routes bring them.
void UpdateRoutesIfPossible(const PropertyObject& object) noexcept QUORVEL_REQUIRES(sStateMutex);

// Calls `visit` for each endpoint of a device or entity.
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

// Tells the driver of a source, if there is one, whether the source has listeners. `room` holds one
// item, which carries the message, so that no memory is needed here.
void TellListeners(const Endpoint& source, bool hasListeners, DriverItems room) noexcept
    QUORVEL_REQUIRES(sStateMutex);

// Take a connection out of its source, and out of its port, if these still exist. The caller then
// ends the connection (Transaction::End).
void DropFromSource(Connection& connection) noexcept QUORVEL_REQUIRES(sStateMutex);
void DropFromPort(const Connection& connection) noexcept QUORVEL_REQUIRES(sStateMutex);

// Ends an endpoint's connections and its read procedure, and destroys it.
void DestroyEndpoint(Transaction& transaction, Endpoint& endpoint) noexcept
    QUORVEL_REQUIRES(sStateMutex);

} // namespace CoreMIDI
