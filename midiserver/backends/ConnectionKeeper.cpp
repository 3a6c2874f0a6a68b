#include "midiserver/backends/ConnectionKeeper.h"

#include <algorithm>
#include <utility>

namespace MidiServer {

namespace {

bool IsSame(const BackendConnection& a, const BackendConnection& b) {
    return a.port == b.port && a.peer == b.peer;
}

bool Contains(const std::vector<BackendConnection>& connections, const BackendConnection& one) {
    return std::any_of(connections.begin(), connections.end(),
                       [&](const BackendConnection& other) { return IsSame(one, other); });
}

} // namespace

ConnectionKeeper::ConnectionKeeper(const std::vector<BackendConnection>& wanted) {
    for (const BackendConnection& connection : wanted) {
        mWishes.push_back({connection, false, std::nullopt});
    }
}

std::vector<BackendConnection> ConnectionKeeper::Update(const ConnectionGraph& graph, Time now) {
    std::vector<BackendConnection> missing;
    std::vector<Wish> wishes;
    for (Wish& wish : mWishes) {
        const bool isThere = Contains(graph.connections, wish.connection);
        const bool arePortsThere = graph.ports.count(wish.connection.port) != 0 &&
                                   graph.ports.count(wish.connection.peer) != 0;
        if (graph.wereAway.count(wish.connection.peer) != 0) {
            wish.isMade = false;
            wish.brokenSince.reset();
        }
        if (isThere || !arePortsThere) {
            wish.isMade = isThere;
            wish.brokenSince.reset();
        } else if (wish.isMade) {
            wish.isMade = false;
            wish.brokenSince = now;
        } else if (!wish.brokenSince) {
            missing.push_back(wish.connection);
        } else if (now - *wish.brokenSince >= kAfterthought) {
            mChanged = true;
            continue;
        }
        wishes.push_back(std::move(wish));
    }
    mWishes = std::move(wishes);
    for (const BackendConnection& connection : graph.connections) {
        if (std::none_of(mWishes.begin(), mWishes.end(),
                         [&](const Wish& wish) { return IsSame(wish.connection, connection); })) {
            mWishes.push_back({connection, true, std::nullopt});
            mChanged = true;
        }
    }
    return missing;
}

void ConnectionKeeper::PortsGone() {
    for (Wish& wish : mWishes) {
        wish.isMade = false;
        wish.brokenSince.reset();
    }
}

bool ConnectionKeeper::Forget(const BackendConnection& connection) {
    const std::size_t erased = std::erase_if(
        mWishes, [&](const Wish& wish) { return IsSame(wish.connection, connection); });
    mChanged = mChanged || erased != 0;
    return erased != 0;
}

std::vector<BackendConnection> ConnectionKeeper::Wanted() const {
    std::vector<BackendConnection> wanted;
    for (const Wish& wish : mWishes) {
        wanted.push_back(wish.connection);
    }
    return wanted;
}

bool ConnectionKeeper::TakeChange() {
    return std::exchange(mChanged, false);
}

std::optional<ConnectionKeeper::Time> ConnectionKeeper::NextUpdate() const {
    std::optional<Time> next;
    for (const Wish& wish : mWishes) {
        if (wish.brokenSince) {
            const Time due = *wish.brokenSince + kAfterthought;
            next = next ? std::min(*next, due) : due;
        }
    }
    return next;
}

} // namespace MidiServer
