#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace MidiServer {

// A control-surface protocol whose keep-alive pings the driver answers for a port.
enum class Protocol { kNone, kHui, kMackieControl };

// Returns the protocol that a name in the preferences stands for. The names are exactly "HUI" and
// "MackieControl"; any other name stands for kNone.
Protocol ProtocolFromName(std::string_view name);
// Returns a protocol's name in the preferences, or "none" for kNone.
std::string_view ProtocolName(Protocol protocol);

// Whether a packet is a ping of the protocol. No packet is a ping of kNone.
bool IsPing(Protocol protocol, std::span<const std::uint8_t> packet);

// Returns the ping that a bridge outside has rewritten into this message, or nothing if the message
// is none. Some bridges turn a note-on with velocity 0 into a note-off, which means the same to
// instruments but is no HUI ping any more: 90 00 00 becomes 80 00 40 or 80 00 00. A port that
// emulates HUI has no other use for that note-off, so the driver gets the ping back.
std::optional<std::array<std::uint8_t, 3>> RestoredPing(Protocol protocol,
                                                        std::span<const std::uint8_t> message);

// A PingProtocol knows what a DAW that pings a port may expect: which messages are pings of the
// port's protocol and which answer each gets. It works that out independently of the driver.
//
//     PingProtocol protocol(Protocol::kHui, 0);
//     protocol.ExpectedReply(packet); // {0x90, 0x00, 0x7F} if the packet is {0x90, 0x00, 0x00}
//
// With Mackie Control the first ping of the process decides the device byte, the answer and the
// port byte of all later answers; the driver is meant to behave so. One object therefore follows
// one loaded driver. Not synchronised.
class PingProtocol {
public:
    // `port` is the 0-based number of the port.
    PingProtocol(Protocol protocol, unsigned port) : mProtocol(protocol), mPort(port) {}

    // Returns the answer that is due for a packet, or nothing if the packet is not a ping. The
    // caller must pass the packets in the order in which they are sent.
    std::optional<std::vector<std::uint8_t>> ExpectedReply(std::span<const std::uint8_t> packet);

private:
    Protocol mProtocol;
    unsigned mPort;
    std::vector<std::uint8_t> mMackieReply;
};

} // namespace MidiServer
