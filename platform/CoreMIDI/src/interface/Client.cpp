// Clients and their virtual endpoints.
#include "platform/CoreMIDI/src/state/Change.h"
#include "platform/CoreMIDI/src/state/Routing.h"

#include <CoreMIDI/MIDIServices.h>

#include <algorithm>

namespace CoreMIDI {

namespace {

// Ends a port's connections and destroys it.
void DestroyPort(Change& change, Port& port) {
    for (const std::shared_ptr<Connection>& connection : port.mConnections) {
        DropFromSource(*connection);
        change.End(connection);
    }
    World::Get().Remove(port);
}

Endpoint& AddVirtualEndpoint(Change& change, Client& client, Kind kind, CFStringRef name) {
    World& world = World::Get();
    auto& endpoint = world.Add<Endpoint>(kind);
    endpoint.mClient = client.mReference;
    endpoint.mProperties[kNameProperty] = CFOwned<CFPropertyListRef>::Retained(name);
    world.mVirtualEndpoints.push_back(&endpoint);
    client.mEndpoints.push_back(endpoint.mReference);
    change.NotifyAdded(endpoint);
    return endpoint;
}

void DestroyVirtualEndpoint(Change& change, Endpoint& endpoint) {
    std::erase(World::Get().mVirtualEndpoints, &endpoint);
    change.NotifyRemoved(endpoint);
    DestroyEndpoint(change, endpoint);
}

OSStatus AddPort(MIDIClientRef client, CFStringRef portName, Kind kind, MIDIReadProc readProc,
                 void* refCon, MIDIPortRef* outPort) {
    if (!IsName(portName) || outPort == nullptr) {
        return paramErr;
    }
    const Change change;
    World& world = World::Get();
    auto* const owner = world.Find<Client>(client);
    if (owner == nullptr) {
        return kMIDIInvalidClient;
    }
    auto& port = world.Add<Port>(kind);
    port.mClient = client;
    port.mReadProcedure = readProc;
    port.mRefCon = refCon;
    owner->mPorts.push_back(port.mReference);
    *outPort = port.mReference;
    return noErr;
}

} // namespace

} // namespace CoreMIDI

using namespace CoreMIDI;

OSStatus MIDIClientCreate(CFStringRef name, MIDINotifyProc notifyProc, void* notifyRefCon,
                          MIDIClientRef* outClient) {
    return Answer([&]() -> OSStatus {
        if (!IsName(name) || outClient == nullptr) {
            return paramErr;
        }
        const Change change;
        auto& client = World::Get().Add<Client>(Kind::kClient);
        if (notifyProc != nullptr) {
            client.mNotifications =
                std::make_shared<NotificationQueue>(client.mReference, notifyProc, notifyRefCon);
        }
        NotificationCentre::Get().AddClient(client.mNotifications);
        *outClient = client.mReference;
        return noErr;
    });
}

OSStatus MIDIClientDispose(MIDIClientRef client) {
    return Answer([&]() -> OSStatus {
        World& world = World::Get();
        std::shared_ptr<NotificationQueue> notifications;
        {
            Change change;
            auto* const found = world.Find<Client>(client);
            if (found == nullptr) {
                return kMIDIInvalidClient;
            }
            for (const MIDIPortRef port : found->mPorts) {
                DestroyPort(change, *world.Find<Port>(port));
            }
            for (const MIDIEndpointRef endpoint : found->mEndpoints) {
                DestroyVirtualEndpoint(change, *world.Find<Endpoint>(endpoint));
            }
            notifications = found->mNotifications;
            NotificationCentre::Get().RemoveClient(notifications);
            world.Remove(*found);
        }
        if (notifications != nullptr) {
            notifications->Close();
        }
        return noErr;
    });
}

OSStatus MIDISourceCreate(MIDIClientRef client, CFStringRef name, MIDIEndpointRef* outSrc) {
    return Answer([&]() -> OSStatus {
        if (!IsName(name) || outSrc == nullptr) {
            return paramErr;
        }
        Change change;
        auto* const owner = World::Get().Find<Client>(client);
        if (owner == nullptr) {
            return kMIDIInvalidClient;
        }
        const Endpoint& source = AddVirtualEndpoint(change, *owner, Kind::kSource, name);
        UpdateRoute(source);
        *outSrc = source.mReference;
        return noErr;
    });
}

OSStatus MIDIDestinationCreate(MIDIClientRef client, CFStringRef name, MIDIReadProc readProc,
                               void* refCon, MIDIEndpointRef* outDest) {
    return Answer([&]() -> OSStatus {
        if (!IsName(name) || readProc == nullptr || outDest == nullptr) {
            return paramErr;
        }
        Change change;
        auto* const owner = World::Get().Find<Client>(client);
        if (owner == nullptr) {
            return kMIDIInvalidClient;
        }
        Endpoint& destination = AddVirtualEndpoint(change, *owner, Kind::kDestination, name);
        destination.mReceiver = std::make_shared<Connection>(
            destination.mReference, destination.mReference, readProc, refCon, nullptr);
        UpdateRoute(destination);
        *outDest = destination.mReference;
        return noErr;
    });
}

OSStatus MIDIEndpointDispose(MIDIEndpointRef endpt) {
    return Answer([&]() -> OSStatus {
        World& world = World::Get();
        Change change;
        auto* const endpoint = world.Find<Endpoint>(endpt);
        if (endpoint == nullptr) {
            return kMIDIUnknownEndpoint;
        }
        if (endpoint->mEntity != nullptr) {
            return kMIDINotPermitted;
        }
        std::erase(world.Find<Client>(endpoint->mClient)->mEndpoints, endpt);
        DestroyVirtualEndpoint(change, *endpoint);
        return noErr;
    });
}

OSStatus MIDIInputPortCreate(MIDIClientRef client, CFStringRef portName, MIDIReadProc readProc,
                             void* refCon, MIDIPortRef* outPort) {
    return Answer([&]() -> OSStatus {
        if (readProc == nullptr) {
            return paramErr;
        }
        return AddPort(client, portName, Kind::kInputPort, readProc, refCon, outPort);
    });
}

OSStatus MIDIOutputPortCreate(MIDIClientRef client, CFStringRef portName, MIDIPortRef* outPort) {
    return Answer(
        [&] { return AddPort(client, portName, Kind::kOutputPort, nullptr, nullptr, outPort); });
}

OSStatus MIDIPortDispose(MIDIPortRef port) {
    return Answer([&]() -> OSStatus {
        World& world = World::Get();
        Change change;
        auto* const found = world.Find<Port>(port);
        if (found == nullptr) {
            return kMIDIInvalidPort;
        }
        std::erase(world.Find<Client>(found->mClient)->mPorts, port);
        DestroyPort(change, *found);
        return noErr;
    });
}

OSStatus MIDIPortConnectSource(MIDIPortRef port, MIDIEndpointRef source, void* connRefCon) {
    return Answer([&]() -> OSStatus {
        World& world = World::Get();
        Change change;
        auto* const input = world.FindPort(port, Kind::kInputPort);
        if (input == nullptr) {
            return kMIDIInvalidPort;
        }
        OSStatus status = noErr;
        auto* const endpoint = world.FindEndpoint(source, Kind::kSource, status);
        if (endpoint == nullptr) {
            return status;
        }
        const auto connection = std::make_shared<Connection>(port, source, input->mReadProcedure,
                                                             input->mRefCon, connRefCon);
        const auto sameSource = [source](const std::shared_ptr<Connection>& other) {
            return other->mEndpoint == source;
        };
        const auto present = std::ranges::find_if(input->mConnections, sameSource);
        if (present != input->mConnections.end()) {
            std::ranges::replace(endpoint->mConnections, *present, connection);
            change.End(*present);
            *present = connection;
            UpdateRoute(*endpoint);
            return noErr;
        }
        input->mConnections.push_back(connection);
        endpoint->mConnections.push_back(connection);
        UpdateRoute(*endpoint);
        if (endpoint->mConnections.size() == 1) {
            TellListeners(*endpoint, true);
        }
        return noErr;
    });
}

OSStatus MIDIPortDisconnectSource(MIDIPortRef port, MIDIEndpointRef source) {
    return Answer([&]() -> OSStatus {
        World& world = World::Get();
        Change change;
        auto* const input = world.FindPort(port, Kind::kInputPort);
        if (input == nullptr) {
            return kMIDIInvalidPort;
        }
        OSStatus status = noErr;
        if (world.FindEndpoint(source, Kind::kSource, status) == nullptr) {
            return status;
        }
        for (const std::shared_ptr<Connection>& connection : input->mConnections) {
            if (connection->mEndpoint == source) {
                const auto dropped = connection;
                DropFromPort(*dropped);
                DropFromSource(*dropped);
                change.End(dropped);
                return noErr;
            }
        }
        return kMIDINoConnection;
    });
}
