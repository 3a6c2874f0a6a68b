#pragma once

#include "midiserver/backends/Backend.h"

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace MidiServer {

// Which ports and connections there are on a backend's server at a moment.
struct ConnectionGraph {
    std::set<std::string> ports;                // all programs' and ours
    std::vector<BackendConnection> connections; // of our ports
};

// Knows the connections that users want our ports to have: those that someone made, until someone
// breaks them. A connection that ends because a program or the server ends stays wanted, and is to
// be made again as soon as both its ports are there.
//
// Of a connection that ended while both its ports are still there it cannot be told at once who
// broke it: a program that quits disconnects its ports first. So it is forgotten only when the
// ports have stayed for kAfterthought more. Meanwhile it is not made again either.
//
//     ConnectionKeeper keeper(saved.Load());
//     for (const BackendConnection& missing : keeper.Update(graph, now)) { Connect(missing); }
//     if (keeper.TakeChange()) { saved.Store(keeper.Wanted()); }
//
// One thread at a time uses it.
class ConnectionKeeper {
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::seconds kAfterthought{10};

    explicit ConnectionKeeper(const std::vector<BackendConnection>& wanted);

    // Takes note of what there is now. Returns the wanted connections that have to be made.
    std::vector<BackendConnection> Update(const ConnectionGraph& graph, Time now);
    // The server has ended, or our ports were taken away by ourselves.
    void PortsGone();
    // The user breaks a connection through us, so there is no doubt.
    void Forget(const BackendConnection& connection);

    std::vector<BackendConnection> Wanted() const;
    // Whether what is wanted has changed since the last call.
    bool TakeChange();
    // When Update has to be called again even if nothing changes.
    std::optional<Time> NextUpdate() const;

private:
    struct Wish {
        BackendConnection connection;
        bool isMade = false;             // it was there at the last look
        std::optional<Time> brokenSince; // it was there before, and both ports still are
    };

    std::vector<Wish> mWishes;
    bool mChanged = false;
};

} // namespace MidiServer
