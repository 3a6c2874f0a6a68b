#include "midiserver/preferences/PingProtocol.h"

#include <algorithm>

namespace MidiServer {

namespace {

constexpr std::string_view kHuiName = "HUI";
constexpr std::string_view kMackieControlName = "MackieControl";

constexpr std::array<std::uint8_t, 3> kHuiPing = {0x90, 0x00, 0x00};
constexpr std::array<std::uint8_t, 3> kHuiReply = {0x90, 0x00, 0x7F};
constexpr std::array<std::uint8_t, 4> kMackieHeader = {0xF0, 0x00, 0x00, 0x66};

bool IsMackiePing(std::span<const std::uint8_t> packet) {
    return packet.size() >= 7 &&
           std::equal(kMackieHeader.begin(), kMackieHeader.end(), packet.begin()) &&
           (packet[4] == 0x14 || packet[4] == 0x15) && (packet[5] == 0x00 || packet[5] == 0x1A) &&
           packet.back() == 0xF7;
}

} // namespace

Protocol ProtocolFromName(std::string_view name) {
    if (name == kHuiName) {
        return Protocol::kHui;
    }
    return name == kMackieControlName ? Protocol::kMackieControl : Protocol::kNone;
}

std::string_view ProtocolName(Protocol protocol) {
    switch (protocol) {
    case Protocol::kHui:
        return kHuiName;
    case Protocol::kMackieControl:
        return kMackieControlName;
    case Protocol::kNone:
        break;
    }
    return "none";
}

bool IsPing(Protocol protocol, std::span<const std::uint8_t> packet) {
    switch (protocol) {
    case Protocol::kHui:
        return std::equal(packet.begin(), packet.end(), kHuiPing.begin(), kHuiPing.end());
    case Protocol::kMackieControl:
        return IsMackiePing(packet);
    case Protocol::kNone:
        break;
    }
    return false;
}

std::optional<std::array<std::uint8_t, 3>> RestoredPing(Protocol protocol,
                                                        std::span<const std::uint8_t> message) {
    if (protocol == Protocol::kHui && message.size() == 3 && message[0] == 0x80 &&
        message[1] == 0x00 && (message[2] == 0x40 || message[2] == 0x00)) {
        return kHuiPing;
    }
    return std::nullopt;
}

std::optional<std::vector<std::uint8_t>>
PingProtocol::ExpectedReply(std::span<const std::uint8_t> packet) {
    if (!IsPing(mProtocol, packet)) {
        return std::nullopt;
    }
    if (mProtocol == Protocol::kHui) {
        return std::vector<std::uint8_t>(kHuiReply.begin(), kHuiReply.end());
    }
    if (mMackieReply.empty()) {
        const auto answer = static_cast<std::uint8_t>(packet[5] == 0x1A ? 0x1B : 0x01);
        const auto port = static_cast<std::uint8_t>(mPort & 0x7F);
        mMackieReply = {0xF0, 0x00, 0x00, 0x66, packet[4], answer, 0x00, 0x03, 0x00,
                        0x02, 0x01, 0x09, 0x05, 0x07,      port,   0x07, 0x07, 0xF7};
    }
    return mMackieReply;
}

} // namespace MidiServer
