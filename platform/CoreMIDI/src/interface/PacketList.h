#pragma once

#include "platform/packetlist/PacketListWalk.h"

namespace CoreMIDI {

// No list may be longer than this.
inline constexpr std::size_t kMaximumListBytes = 65536;

// The bytes of a list; 0 for a list that is longer than the maximum, of which no more is read.
inline std::size_t ListBytes(const MIDIPacketList* list) {
    const PacketListExtent extent =
        ForEachPacket(list, kMaximumListBytes, [](const MIDIPacket*) {});
    return extent.packets == PacketCount(list) ? extent.bytes : 0;
}

} // namespace CoreMIDI
