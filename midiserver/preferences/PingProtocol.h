#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace MidiServer {

// A control-surface protocol whose keep-alive pings the driver answers for a port.
enum class Protocol { kNone, kHui, kMackieControl };

// The protocol that a name in the preferences stands for: exactly "HUI" or "MackieControl".
Protocol ProtocolFromName(std::string_view name);
// The name as the preferences have it; "none" for kNone.
std::string_view ProtocolName(Protocol protocol);

// Whether a packet is a ping of the protocol; kNone has none.
bool IsPing(Protocol protocol, std::span<const std::uint8_t> packet);

// What a DAW that pings a port may expect from it: knows, independently of the driver, which
// messages are pings of the port's protocol and which answer each gets.
//
// Mackie Control: the first ping of the process decides the device byte, the answer and the port
// byte of all later answers, as the driver is meant to behave; so one object follows one loaded
// driver. Not synchronised.
class PingProtocol {
public:
    // `port` is the 0-based number of the port.
    PingProtocol(Protocol protocol, unsigned port) : mProtocol(protocol), mPort(port) {}

    // The answer that is due for a packet, or nothing when the packet is no ping. Packets must be
    // given in the order in which they are sent.
    std::optional<std::vector<std::uint8_t>> ExpectedReply(std::span<const std::uint8_t> packet);

private:
    Protocol mProtocol;
    unsigned mPort;
    std::vector<std::uint8_t> mMackieReply;
};

} // namespace MidiServer
