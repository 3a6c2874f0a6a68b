// Clients and their virtual endpoints.
#include "platform/CoreMIDI/src/base/OnFailure.h"
#include "platform/CoreMIDI/src/state/Routing.h"
#include "platform/CoreMIDI/src/state/Transaction.h"

#include <CoreMIDI/MIDIServices.h>

#include <algorithm>
#include <utility>

namespace CoreMIDI {

namespace {

// Ends a port's connections and destroys it.
void DestroyPort(Transaction& transaction, Port& port) noexcept QUORVEL_REQUIRES(sStateMutex) {
    for (const std::shared_ptr<Connection>& connection : port.mConnections) {
        DropFromSource(*connection);
        transaction.End(connection);
    }
    ServerState::Get().Remove(port);
}

// Destroys a virtual endpoint and takes it out of its client. Notifies nobody.
void DestroyVirtualEndpoint(Transaction& transaction, Endpoint& endpoint) noexcept
    QUORVEL_REQUIRES(sStateMutex) {
    ServerState& state = ServerState::Get();
    std::erase(state.Find<Client>(endpoint.mClient)->mEndpoints, endpoint.mReference);
    std::erase(state.mVirtualEndpoints, &endpoint);
    DestroyEndpoint(transaction, endpoint);
}

// Adds a virtual endpoint. `readProc` is null for a source.
OSStatus AddVirtualEndpoint(MIDIClientRef client, Kind kind, CFStringRef name,
                            MIDIReadProc readProc, void* refCon, MIDIEndpointRef* out) {
    if (!IsName(name) || out == nullptr) {
        return paramErr;
    }
    return ChangeObject<Client>(
        client, kMIDIInvalidClient,
        [&](Transaction& transaction, Client& owner) QUORVEL_REQUIRES(sStateMutex) {
            ServerState& state = ServerState::Get();
            auto& endpoint = state.Add<Endpoint>(kind);
            endpoint.mClient = client;
            const OnFailure remove([&]() QUORVEL_REQUIRES(sStateMutex) {
                DestroyVirtualEndpoint(transaction, endpoint);
            });
            endpoint.mProperties[kNameProperty] = CFOwned<CFPropertyListRef>::Retained(name);
            state.mVirtualEndpoints.push_back(&endpoint);
            owner.mEndpoints.push_back(endpoint.mReference);
            if (readProc != nullptr) {
                endpoint.mReceiver = std::make_shared<Connection>(
                    endpoint.mReference, endpoint.mReference, readProc, refCon, nullptr);
            }
            UpdateRoutes(endpoint);
            transaction.NotifyAdded(endpoint);
            *out = endpoint.mReference;
            return noErr;
        });
}

OSStatus AddPort(MIDIClientRef client, CFStringRef portName, Kind kind, MIDIReadProc readProc,
                 void* refCon, MIDIPortRef* outPort) {
    if (!IsName(portName) || outPort == nullptr) {
        return paramErr;
    }
    return ChangeObject<Client>(
        client, kMIDIInvalidClient, [&](Transaction&, Client& owner) QUORVEL_REQUIRES(sStateMutex) {
            ServerState& state = ServerState::Get();
            auto& port = state.Add<Port>(kind);
            const OnFailure remove([&]() QUORVEL_REQUIRES(sStateMutex) { state.Remove(port); });
            port.mClient = client;
            port.mReadProcedure = readProc;
            port.mRefCon = refCon;
            owner.mPorts.push_back(port.mReference);
            *outPort = port.mReference;
            return noErr;
        });
}

// An input port and a source that a caller names, and the connection between them.
struct PortAndSource {
    PortAndSource(MIDIPortRef port, MIDIEndpointRef source) QUORVEL_REQUIRES(sStateMutex)
        : mPort(ServerState::Get().FindPort(port, Kind::kInputPort)) {
        if (mPort == nullptr) {
            mStatus = kMIDIInvalidPort;
            return;
        }
        mSource = ServerState::Get().FindEndpoint(source, Kind::kSource, mStatus);
        const auto found = std::ranges::find(mPort->mConnections, source,
                                             [](const auto& each) { return each->mEndpoint; });
        if (found != mPort->mConnections.end()) {
            mConnection = *found;
        }
    }

    Port* mPort = nullptr;
    Endpoint* mSource = nullptr;
    OSStatus mStatus = noErr;                // says which of the two does not exist
    std::shared_ptr<Connection> mConnection; // null if they are not connected
};

} // namespace

} // namespace CoreMIDI

using namespace CoreMIDI;

OSStatus MIDIClientCreate(CFStringRef name, MIDINotifyProc notifyProc, void* notifyRefCon,
                          MIDIClientRef* outClient) {
    return Answer([&]() -> OSStatus {
        if (!IsName(name) || outClient == nullptr) {
            return paramErr;
        }
        const Transaction transaction;
        ServerState& state = ServerState::Get();
        auto& client = state.Add<Client>(Kind::kClient);
        const OnFailure remove([&]() QUORVEL_REQUIRES(sStateMutex) { state.Remove(client); });
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
        ServerState& state = ServerState::Get();
        std::shared_ptr<NotificationQueue> notifications;
        {
            Transaction transaction;
            auto* const found = state.Find<Client>(client);
            if (found == nullptr) {
                return kMIDIInvalidClient;
            }
            for (const MIDIPortRef port : found->mPorts) {
                DestroyPort(transaction, *state.Find<Port>(port));
            }
            while (!found->mEndpoints.empty()) {
                auto* const endpoint = state.Find<Endpoint>(found->mEndpoints.front());
                transaction.NotifyRemoved(*endpoint);
                DestroyVirtualEndpoint(transaction, *endpoint);
            }
            notifications = found->mNotifications;
            NotificationCentre::Get().RemoveClient(notifications);
            state.Remove(*found);
        }
        if (notifications != nullptr) {
            notifications->Close();
        }
        return noErr;
    });
}

OSStatus MIDISourceCreate(MIDIClientRef client, CFStringRef name, MIDIEndpointRef* outSrc) {
    return AddVirtualEndpoint(client, Kind::kSource, name, nullptr, nullptr, outSrc);
}

OSStatus MIDIDestinationCreate(MIDIClientRef client, CFStringRef name, MIDIReadProc readProc,
                               void* refCon, MIDIEndpointRef* outDest) {
    return readProc == nullptr
               ? OSStatus{paramErr}
               : AddVirtualEndpoint(client, Kind::kDestination, name, readProc, refCon, outDest);
}

OSStatus MIDIEndpointDispose(MIDIEndpointRef endpt) {
    return ChangeObject<Endpoint>(endpt, kMIDIUnknownEndpoint,
                                  [](Transaction& transaction, Endpoint& endpoint)
                                      QUORVEL_REQUIRES(sStateMutex) -> OSStatus {
                                          if (endpoint.mEntity != nullptr) {
                                              return kMIDINotPermitted;
                                          }
                                          transaction.NotifyRemoved(endpoint);
                                          DestroyVirtualEndpoint(transaction, endpoint);
                                          return noErr;
                                      });
}

OSStatus MIDIInputPortCreate(MIDIClientRef client, CFStringRef portName, MIDIReadProc readProc,
                             void* refCon, MIDIPortRef* outPort) {
    return readProc == nullptr
               ? OSStatus{paramErr}
               : AddPort(client, portName, Kind::kInputPort, readProc, refCon, outPort);
}

OSStatus MIDIOutputPortCreate(MIDIClientRef client, CFStringRef portName, MIDIPortRef* outPort) {
    return AddPort(client, portName, Kind::kOutputPort, nullptr, nullptr, outPort);
}

OSStatus MIDIPortDispose(MIDIPortRef port) {
    return ChangeObject<Port>(
        port, kMIDIInvalidPort,
        [&](Transaction& transaction, Port& found) QUORVEL_REQUIRES(sStateMutex) {
            std::erase(ServerState::Get().Find<Client>(found.mClient)->mPorts, port);
            DestroyPort(transaction, found);
            return noErr;
        });
}

OSStatus MIDIPortConnectSource(MIDIPortRef port, MIDIEndpointRef source, void* connRefCon) {
    return Answer([&]() -> OSStatus {
        Transaction transaction;
        const PortAndSource ends(port, source);
        if (ends.mStatus != noErr) {
            return ends.mStatus;
        }
        Port& input = *ends.mPort;
        Endpoint& endpoint = *ends.mSource;
        const auto connection = std::make_shared<Connection>(port, source, input.mReadProcedure,
                                                             input.mRefCon, connRefCon);
        connection->mRoomToDisable.emplace_back();
        if (ends.mConnection != nullptr) {
            const auto replace = [&](const auto& a, const auto& b) QUORVEL_REQUIRES(sStateMutex) {
                std::ranges::replace(endpoint.mConnections, a, b);
                std::ranges::replace(input.mConnections, a, b);
            };
            replace(ends.mConnection, connection);
            const OnFailure undo(
                [&]() QUORVEL_REQUIRES(sStateMutex) { replace(connection, ends.mConnection); });
            UpdateRoutes(endpoint);
            transaction.End(ends.mConnection);
            return noErr;
        }
        const OnFailure undo([&]() QUORVEL_REQUIRES(sStateMutex) {
            std::erase(input.mConnections, connection);
            std::erase(endpoint.mConnections, connection);
        });
        input.mConnections.push_back(connection);
        endpoint.mConnections.push_back(connection);
        DriverItems room(1);
        UpdateRoutes(endpoint);
        if (endpoint.mConnections.size() == 1) {
            TellListeners(endpoint, true, std::move(room));
        }
        return noErr;
    });
}

OSStatus MIDIPortDisconnectSource(MIDIPortRef port, MIDIEndpointRef source) {
    return Answer([&]() -> OSStatus {
        Transaction transaction;
        const PortAndSource ends(port, source);
        if (ends.mStatus != noErr) {
            return ends.mStatus;
        }
        if (ends.mConnection == nullptr) {
            return kMIDINoConnection;
        }
        DropFromPort(*ends.mConnection);
        DropFromSource(*ends.mConnection);
        transaction.End(ends.mConnection);
        return noErr;
    });
}
