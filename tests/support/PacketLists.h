// Packet lists as they lie in memory: packed, in the host's byte order.
#pragma once

#include <CoreMIDI/MIDIServices.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace TestSupport {

using Bytes = std::vector<unsigned char>;

template <typename T>
void AppendBytesOf(Bytes& bytes, T value) {
    const std::size_t at = bytes.size();
    bytes.resize(at + sizeof value);
    std::memcpy(bytes.data() + at, &value, sizeof value);
}

// The list's bytes; every packet has the same time stamp.
inline Bytes MakePacketList(const std::vector<Bytes>& packets, std::uint64_t timestamp = 0) {
    Bytes list;
    AppendBytesOf(list, static_cast<std::uint32_t>(packets.size()));
    for (const Bytes& packet : packets) {
        AppendBytesOf(list, timestamp);
        AppendBytesOf(list, static_cast<std::uint16_t>(packet.size()));
        list.insert(list.end(), packet.begin(), packet.end());
    }
    return list;
}

inline MIDIPacketList* AsPacketList(Bytes& list) {
    return reinterpret_cast<MIDIPacketList*>(list.data());
}

} // namespace TestSupport
