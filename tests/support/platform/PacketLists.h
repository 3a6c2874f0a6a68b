// Makes packet lists as they lie in memory: packed or padded, as the library that the test runs
// with lays them out.
#pragma once

#include "platform/packetlist/PacketListBuilder.h"

#include <cstddef>
#include <vector>

namespace TestSupport {

using Bytes = std::vector<unsigned char>;

// Returns the bytes of a list whose packets all have the same time stamp.
inline Bytes MakePacketList(const std::vector<Bytes>& packets, MIDITimeStamp timestamp = 0) {
    PacketListBuilder builder;
    for (const Bytes& packet : packets) {
        builder.Add(packet, timestamp);
    }
    return builder.Release();
}

inline MIDIPacketList* AsPacketList(Bytes& list) {
    return reinterpret_cast<MIDIPacketList*>(list.data());
}

// Returns that one of two sizes which holds for the library's lists.
inline std::size_t PackedOrPadded(std::size_t packed, std::size_t padded) {
    const Bytes two = MakePacketList({{1}, {}});
    return two.size() == 4 + 11 + 10 ? packed : padded;
}

} // namespace TestSupport
