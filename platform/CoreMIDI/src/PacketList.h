// Reading packet lists by their bytes.
#pragma once

#include <CoreMIDI/MIDIPackets.h>

#include <cstddef>
#include <cstring>

namespace CoreMIDI {

inline constexpr std::size_t kListHeaderBytes = offsetof(MIDIPacketList, packet);
inline constexpr std::size_t kPacketHeaderBytes = offsetof(MIDIPacket, data);
// No list may be longer than this.
inline constexpr std::size_t kMaximumListBytes = 65536;

static_assert(kListHeaderBytes == 4 && kPacketHeaderBytes == 10 && alignof(MIDIPacketList) == 1,
              "packets follow each other without padding");

inline std::size_t PacketBytes(const MIDIPacket& packet) {
    return kPacketHeaderBytes + packet.length;
}

// The bytes of a list; 0 for a list that is longer than the maximum, of which not more than that
// and one packet's header is read.
inline std::size_t ListBytes(const MIDIPacketList& list) {
    std::size_t bytes = kListHeaderBytes;
    const MIDIPacket* packet = &list.packet[0];
    for (UInt32 i = 0; i < list.numPackets; ++i) {
        if (bytes + kPacketHeaderBytes > kMaximumListBytes) {
            return 0;
        }
        bytes += PacketBytes(*packet);
        if (bytes > kMaximumListBytes) {
            return 0;
        }
        packet = MIDIPacketNext(packet);
    }
    return bytes;
}

} // namespace CoreMIDI
