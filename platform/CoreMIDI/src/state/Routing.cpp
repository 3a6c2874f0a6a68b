#include "platform/CoreMIDI/src/state/Routing.h"

#include "platform/CoreMIDI/src/state/DriverIO.h"

#include <new>
#include <utility>
#include <vector>

namespace CoreMIDI {

namespace {

std::unique_ptr<Route> MakeRoute(const Endpoint& endpoint) QUORVEL_REQUIRES(sStateMutex) {
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
    return route;
}

} // namespace

void NewRoutes::Make(const PropertyObject& object) {
    if (const auto* const endpoint = dynamic_cast<const Endpoint*>(&object)) {
        mRoutes.emplace_back(endpoint->mReference, MakeRoute(*endpoint));
    } else {
        ForEachEndpoint(object,
                        [this](const Endpoint& part) QUORVEL_REQUIRES(sStateMutex) { Make(part); });
    }
}

void NewRoutes::PutIntoPlace() noexcept {
    for (auto& [endpoint, route] : mRoutes) {
        ServerState::Get().mObjects.SetRoute(endpoint, std::move(route));
    }
}

void UpdateRoutes(const PropertyObject& object) {
    NewRoutes routes;
    routes.Make(object);
    routes.PutIntoPlace();
}

void UpdateRoutesIfPossible(const PropertyObject& object) noexcept {
    try {
        UpdateRoutes(object);
    } catch (const std::bad_alloc&) {
        // As the header says.
    }
}

void TellListeners(const Endpoint& source, bool hasListeners, DriverItems room) noexcept {
    const Device* const device = source.DeviceOrNull();
    if (device != nullptr && device->mOutput != nullptr) {
        DriverItem& item = room.front();
        item.mTask =
            hasListeners ? DriverItem::Task::kEnableSource : DriverItem::Task::kDisableSource;
        item.mDriver = device->mOutput;
        item.mSource = source.mReference;
        DriverIO::Get().Post(std::move(room));
    }
}

namespace {

void Erase(std::vector<std::shared_ptr<Connection>>& connections, const Connection& connection) {
    std::erase_if(connections, [&connection](const std::shared_ptr<Connection>& other) {
        return other.get() == &connection;
    });
}

} // namespace

void DropFromSource(Connection& connection) noexcept {
    auto* const source = ServerState::Get().Find<Endpoint>(connection.mEndpoint);
    if (source == nullptr) {
        return;
    }
    Erase(source->mConnections, connection);
    UpdateRoutesIfPossible(*source);
    if (source->mConnections.empty()) {
        TellListeners(*source, false, std::move(connection.mRoomToDisable));
    }
}

void DropFromPort(const Connection& connection) noexcept {
    if (auto* const port = ServerState::Get().Find<Port>(connection.mOwner)) {
        Erase(port->mConnections, connection);
    }
}

void DestroyEndpoint(Transaction& transaction, Endpoint& endpoint) noexcept {
    for (const std::shared_ptr<Connection>& connection : endpoint.mConnections) {
        DropFromPort(*connection);
        transaction.End(connection);
    }
    if (endpoint.mReceiver != nullptr) {
        transaction.End(endpoint.mReceiver);
    }
    DriverIO::Get().DropWaiting(endpoint.mReference);
    ServerState::Get().Remove(endpoint);
}

} // namespace CoreMIDI
