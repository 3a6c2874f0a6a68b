#include "surface/feed/FedPorts.h"

#include <utility>

namespace Surface {

FedPorts::FedPorts(Feed& feed, std::vector<std::size_t> numbers,
                   std::optional<MidiServer::Protocol> protocol)
    : mFeed(feed), mNumbers(std::move(numbers)), mProtocol(protocol) {
    for (std::size_t i = 0; i < mNumbers.size(); ++i) {
        mPorts.emplace_back(mProtocol.value_or(MidiServer::Protocol::kNone));
    }
}

void FedPorts::FollowProtocols() {
    const FeedState state = mFeed.State();
    for (std::size_t i = 0; i < mPorts.size() && i < state.protocols.size(); ++i) {
        const MidiServer::Protocol protocol = mProtocol.value_or(state.protocols[i]);
        if (mPorts[i].Protocol() != protocol) {
            mPorts[i] = SurfacePort(protocol);
        }
    }
}

bool FedPorts::Take(const Hear& hear) {
    FollowProtocols();
    bool hasCome = false;
    mFeed.Take(
        [&](std::size_t index, SurfaceModel::Time time, std::span<const std::uint8_t> message) {
            hasCome = true;
            Receive(index, time, message, hear);
        });
    for (SurfacePort& port : mPorts) {
        port.Model().Advance(mFeed.Now());
    }
    return hasCome;
}

void FedPorts::Receive(std::size_t index, SurfaceModel::Time time,
                       std::span<const std::uint8_t> message, const Hear& hear) {
    const SurfaceEvent event = mPorts[index].Receive(message, time);
    if (const auto answer = mPorts[index].AnswerTo(event, MIDISERVER_VERSION)) {
        mFeed.Send(index, *answer);
    }
    if (hear) {
        hear(index, time, event);
    }
}

ShortMessages FedPorts::Perform(std::size_t index, const UserAction& action) {
    ShortMessages messages = mPorts[index].Perform(action);
    for (const auto& message : messages) {
        mFeed.Send(index, message);
    }
    return messages;
}

bool FedPorts::TakeChange() {
    bool any = false;
    for (SurfacePort& port : mPorts) {
        any |= port.Model().TakeChanges().Any();
    }
    return any;
}

} // namespace Surface
