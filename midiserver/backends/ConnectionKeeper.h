#pragma once

#include "midiserver/backends/Backend.h"

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace MidiServer {

// The ports and connections that there are on a backend's server at one moment.
struct ConnectionGraph {
    std::set<std::string> ports;                // all programs' and ours
    std::vector<BackendConnection> connections; // of our ports
    // Ports of other programs that were taken away since the last look, also if they are back.
    std::set<std::string> wereAway;
};

// A ConnectionKeeper knows which connections users want our ports to have. A connection is wanted
// from when someone makes it until someone breaks it. If it ends because a program or the server
// ends, it stays wanted: the keeper asks for it again as soon as both its ports are there.
//
// A connection may also end while both its ports are still there. Nobody can tell at once who broke
// it, because a program that quits disconnects its ports first. So the keeper waits for
// kAfterthought. If the ports are still there by then, a user broke the connection, and the keeper
// forgets it. It does not ask for the connection in the meantime. A port that was away between two
// looks was not there all the time, so nobody need wait for it.
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
    // Says that the server has ended, or that we took our ports away ourselves.
    void PortsGone();
    // Says that the user broke a connection through us, so that there is no doubt about it.
    // Returns whether it was wanted.
    bool Forget(const BackendConnection& connection);

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
