#pragma once

#include "platform/packetlist/PacketListWalk.h"

#include <cstdint>
#include <span>
#include <vector>

namespace MidiServer {

// Returns the data of a list's packets in order, as spans into the list.
inline std::vector<std::span<const std::uint8_t>> PacketsOf(const MIDIPacketList& list) {
    std::vector<std::span<const std::uint8_t>> packets;
    ForEachPacket(&list, kUnknownListSize, [&packets](const MIDIPacket* packet) {
        packets.emplace_back(PacketData(packet), PacketLength(packet));
    });
    return packets;
}

} // namespace MidiServer
