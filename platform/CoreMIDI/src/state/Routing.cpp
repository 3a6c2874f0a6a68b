#include "platform/CoreMIDI/src/state/Routing.h"

#include "platform/CoreMIDI/src/state/DriverIO.h"

namespace CoreMIDI {

void UpdateRoute(const Endpoint& endpoint) {
    auto route = std::make_unique<Route>();
    route->mConnections = endpoint.mConnections;
    const Device* const device = endpoint.DeviceOrNull();
    if (ObjectRegistry::KindOf(endpoint.mReference) == Kind::kDestination &&
        (endpoint.mReceiver != nullptr || (device != nullptr && device->mOutput != nullptr))) {
        auto target = std::make_shared<OutputTarget>();
        target->mEndpoint = endpoint.mReference;
        target->mSchedulesItself = endpoint.Integer(kAdvanceScheduleTimeProperty) > 0;
        target->mReceiver = endpoint.mReceiver;
        if (device != nullptr) {
            target->mDriver = device->mOutput;
            target->mDevice = device->mReference;
        }
        target->mRefCons = endpoint.mRefCons;
        route->mTarget = std::move(target);
    }
    World::Get().mObjects.SetRoute(endpoint.mReference, std::move(route));
}

void UpdateRoutes(const PropertyObject& object) {
    if (const auto* const endpoint = dynamic_cast<const Endpoint*>(&object)) {
        UpdateRoute(*endpoint);
    } else {
        ForEachEndpoint(object, [](const Endpoint& part) { UpdateRoute(part); });
    }
}

void TellListeners(const Endpoint& source, bool hasListeners) {
    const Device* const device = source.DeviceOrNull();
    if (device != nullptr && device->mOutput != nullptr) {
        DriverIO::Get().PostEnableSource(device->mOutput, source.mReference, hasListeners);
    }
}

namespace {

void Erase(std::vector<std::shared_ptr<Connection>>& connections, const Connection& connection) {
    std::erase_if(connections, [&connection](const std::shared_ptr<Connection>& other) {
        return other.get() == &connection;
    });
}

} // namespace

void DropFromSource(const Connection& connection) {
    if (auto* const source = World::Get().Find<Endpoint>(connection.mEndpoint)) {
        Erase(source->mConnections, connection);
        UpdateRoute(*source);
        if (source->mConnections.empty()) {
            TellListeners(*source, false);
        }
    }
}

void DropFromPort(const Connection& connection) {
    if (auto* const port = World::Get().Find<Port>(connection.mOwner)) {
        Erase(port->mConnections, connection);
    }
}

void DestroyEndpoint(Change& change, Endpoint& endpoint) {
    for (const std::shared_ptr<Connection>& connection : endpoint.mConnections) {
        DropFromPort(*connection);
        change.End(connection);
    }
    if (endpoint.mReceiver != nullptr) {
        change.End(endpoint.mReceiver);
    }
    DriverIO::Get().DropWaiting(endpoint.mReference);
    World::Get().Remove(endpoint);
}

} // namespace CoreMIDI
