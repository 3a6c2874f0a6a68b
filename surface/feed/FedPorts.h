#pragma once

#include "surface/event/SurfaceEvent.h"
#include "surface/event/UserAction.h"
#include "surface/feed/Feed.h"
#include "surface/model/SurfacePort.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Surface {

// The surfaces of some ports with the feed that they live on: what comes goes into their models,
// and what their users do, and what a DAW is owed, goes out.
//
//     FedPorts ports(feed, {1, 2}, std::nullopt);
//     ports.Take();                              // again and again
//     ports.Perform(0, FaderPushed{2, position});
//
// Not synchronised.
class FedPorts {
public:
    // Is told of each message after it has been applied. The event is valid during the call.
    using Hear =
        std::function<void(std::size_t index, SurfaceModel::Time time, const SurfaceEvent& event)>;

    // `numbers` are those of the feed's ports, from 1. With `protocol`, that counts, and not what
    // the feed says that the ports emulate. `feed` must outlive the object.
    FedPorts(Feed& feed, std::vector<std::size_t> numbers,
             std::optional<MidiServer::Protocol> protocol);

    // Takes what has come, and lets the meters fall to now. Returns whether anything came. A port
    // that emulates something else than before begins as a device does that was just switched on.
    bool Take(const Hear& hear = {});

    // Sends what the user does, and returns the messages.
    ShortMessages Perform(std::size_t index, const UserAction& action);

    std::size_t NumberOf(std::size_t index) const { return mNumbers[index]; }
    std::span<const SurfacePort> Ports() const { return mPorts; }
    // Whether a port shows something else than at the last call.
    bool TakeChange();

private:
    void FollowProtocols();
    void Receive(std::size_t index, SurfaceModel::Time time, std::span<const std::uint8_t> message,
                 const Hear& hear);

    Feed& mFeed;
    const std::vector<std::size_t> mNumbers;
    const std::optional<MidiServer::Protocol> mProtocol;
    std::vector<SurfacePort> mPorts;
};

} // namespace Surface
