#pragma once

#include "midiserver/preferences/PingProtocol.h"
#include "surface/event/UserAction.h"
#include "surface/hui/HuiDecoder.h"
#include "surface/model/SurfaceModel.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace Surface {

// How many messages a port received, and of what kind.
struct MessageCounts {
    std::uint64_t messages = 0; // all
    std::uint64_t pings = 0;    // queries and pings that the driver answers among them
    std::uint64_t foreignExclusive = 0;
    std::uint64_t unknown = 0;
    // The same bytes as the message just before. They are decoded as ever: a DAW repeats itself
    // when nothing has changed, and a MIDI server when it forgets to empty a buffer.
    std::uint64_t repeated = 0;
};

// A SurfacePort is the surface of one port of the driver: it decodes what the DAW sends in the
// port's protocol, fills the model and counts, and it encodes what the user does.
//
//     SurfacePort port(MidiServer::Protocol::kMackieControl);
//     assembler.Add(bytes, [&](auto message) {
//         const SurfaceEvent event = port.Receive(message, now);
//         log(EventText(event));
//         if (auto answer = port.AnswerTo(event, "0.1.0")) { send(*answer); }
//     });
//     for (const auto& message : port.Perform(FaderPushed{2, position})) { send(message); }
//
// A port without a protocol is taken for a Mackie Control. On a HUI port, messages of Mackie
// Control are understood as well where HUI has none of its own, because some DAWs have HUI's ping
// answered and then speak Mackie Control; 90 00 stays the ping there. From such a message
// on, the user's actions are sent as Mackie Control's too, until one comes that is HUI's own.
//
// Not synchronised.
class SurfacePort {
public:
    explicit SurfacePort(MidiServer::Protocol protocol);

    // Takes one whole message with its status byte, as MidiServer::MessageAssembler gives it. The
    // event is valid as long as the message's bytes are.
    SurfaceEvent Receive(std::span<const std::uint8_t> message, SurfaceModel::Time now);

    // Returns the message that the application owes the DAW for an event, if any; see
    // Mackie::AnswerTo. Pings are the driver's to answer.
    std::optional<std::vector<std::uint8_t>> AnswerTo(const SurfaceEvent& event,
                                                      std::string_view version) const;

    // Returns the messages to send for what the user does, and moves the model's fader if it is a
    // fader's move that the protocol has. Lights are the DAW's to switch.
    ShortMessages Perform(const UserAction& action);

    SurfaceModel& Model() { return mModel; }
    const SurfaceModel& Model() const { return mModel; }
    const MessageCounts& Counts() const { return mCounts; }
    MidiServer::Protocol Protocol() const { return mProtocol; }

private:
    SurfaceEvent Decode(std::span<const std::uint8_t> message);
    bool SpeaksHui() const;

    MidiServer::Protocol mProtocol;
    bool mHeardMackieControl = false; // on a HUI port
    Hui::HuiDecoder mHuiDecoder;
    SurfaceModel mModel;
    MessageCounts mCounts;
    std::vector<std::uint8_t> mLast; // the message before
};

} // namespace Surface
