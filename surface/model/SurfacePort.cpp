#include "surface/model/SurfacePort.h"

#include "surface/hui/HuiEncoder.h"
#include "surface/mackie/MackieDecoder.h"
#include "surface/mackie/MackieEncoder.h"

#include <algorithm>

namespace Surface {

namespace {

template <class... Kinds>
bool IsOneOf(const SurfaceEvent& event) {
    return (std::holds_alternative<Kinds>(event) || ...);
}

// Whether a message is HUI's ping or would be but for its velocity.
bool IsPingNote(std::span<const std::uint8_t> message) {
    return message.size() == 3 && (message[0] == 0x90 || message[0] == 0x80) && message[1] == 0x00;
}

} // namespace

SurfacePort::SurfacePort(MidiServer::Protocol protocol) : mProtocol(protocol) {}

SurfaceEvent SurfacePort::Receive(std::span<const std::uint8_t> message, SurfaceModel::Time now) {
    const SurfaceEvent event = Decode(message);
    ++mCounts.messages;
    if (std::equal(message.begin(), message.end(), mLast.begin(), mLast.end())) {
        ++mCounts.repeated;
    }
    mLast.assign(message.begin(), message.end());
    if (IsOneOf<PingReceived, DeviceQueried>(event)) {
        ++mCounts.pings;
    } else if (IsOneOf<ForeignExclusive>(event)) {
        ++mCounts.foreignExclusive;
    } else if (IsOneOf<UnknownMessage>(event)) {
        ++mCounts.unknown;
    }
    mModel.Apply(event, now);
    return event;
}

SurfaceEvent SurfacePort::Decode(std::span<const std::uint8_t> message) {
    if (mProtocol != MidiServer::Protocol::kHui) {
        return Mackie::Decode(message);
    }
    const SurfaceEvent event = mHuiDecoder.Decode(message);
    if (!IsOneOf<UnknownMessage>(event)) {
        // A ping is no sign of either.
        mHeardMackieControl &= IsOneOf<PingReceived, ForeignExclusive>(event);
        return event;
    }
    if (IsPingNote(message)) {
        return event;
    }
    const SurfaceEvent other = Mackie::Decode(message);
    // Queries come to every device, whatever it is.
    if (!IsOneOf<UnknownMessage, DeviceQueried>(other)) {
        mHeardMackieControl = true;
    }
    return other;
}

bool SurfacePort::SpeaksHui() const {
    return mProtocol == MidiServer::Protocol::kHui && !mHeardMackieControl;
}

std::optional<std::vector<std::uint8_t>> SurfacePort::AnswerTo(const SurfaceEvent& event,
                                                               std::string_view version) const {
    return Mackie::AnswerTo(event, version);
}

ShortMessages SurfacePort::Perform(const UserAction& action) {
    ShortMessages messages = SpeaksHui() ? Hui::Encode(action) : Mackie::Encode(action);
    if (const auto* pushed = std::get_if<FaderPushed>(&action); pushed && !messages.empty()) {
        mModel.SetFader(pushed->fader, pushed->position);
    }
    return messages;
}

} // namespace Surface
