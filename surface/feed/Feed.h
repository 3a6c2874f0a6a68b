#pragma once

#include "midiserver/preferences/PingProtocol.h"
#include "surface/model/SurfaceModel.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Surface {

// The state of a feed at one moment.
struct FeedState {
    bool isThere = false; // whether anything can come, and be sent, now
    bool isAtEnd = false; // whether nothing will come any more
    std::string detail;   // one line
    // What the ports emulate, by index.
    std::vector<MidiServer::Protocol> protocols;
    std::uint64_t lost = 0;   // messages from the DAW that did not get here, or not whole
    std::uint64_t unsent = 0; // messages to the DAW that got nowhere
};

// A Feed is where the messages of the surface's ports come from, and where its own go: a service
// that runs, or a capture. A port is known by its index. One thread uses it, and no call waits but
// Wait.
class Feed {
public:
    // Receives a whole message, which is valid during the call. `time` is that of Now.
    using Receive = std::function<void(std::size_t index, SurfaceModel::Time time,
                                       std::span<const std::uint8_t> message)>;

    virtual ~Feed() = default;

    virtual FeedState State() const = 0;

    // The time by which the feed goes, since its beginning.
    virtual SurfaceModel::Time Now() const = 0;

    // Hands over what has come since the last call, in the order in which it came.
    virtual void Take(const Receive& receive) = 0;

    // Sends a whole message to the DAWs at a port.
    virtual void Send(std::size_t index, std::span<const std::uint8_t> message) = 0;

    // Waits until there may be something to take, but at most so long; a signal ends it early.
    virtual void Wait(std::chrono::milliseconds longest) = 0;
};

} // namespace Surface
