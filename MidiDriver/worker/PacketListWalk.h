// Reading the bytes of a CoreMIDI packet list: a 32-bit count, then packets of a 64-bit time stamp,
// a 16-bit length and that many MIDI bytes. All of it in the host's byte order, packed, at any
// address, and never trusted beyond the bytes at hand.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

inline constexpr std::size_t kPacketListHeaderSize = 4;
inline constexpr std::size_t kPacketLengthOffset = 8;
inline constexpr std::size_t kPacketHeaderSize = 10;

/// The packet count that the list states; 0 when the list is too short to state one.
inline uint32_t PacketCount(const unsigned char* list, std::size_t size) {
    uint32_t count = 0;
    if (size >= kPacketListHeaderSize) {
        std::memcpy(&count, list, sizeof count);
    }
    return count;
}

/// Calls visit(bytes, length) for each packet that lies whole within the list's `size` bytes, in
/// order, and stops at the first that does not.
template <typename Visit>
void ForEachPacket(const unsigned char* list, std::size_t size, Visit visit) {
    std::size_t offset = kPacketListHeaderSize;
    for (uint32_t left = PacketCount(list, size); left > 0; --left) {
        if (size - offset < kPacketHeaderSize) {
            return;
        }
        uint16_t length = 0;
        std::memcpy(&length, list + offset + kPacketLengthOffset, sizeof length);
        offset += kPacketHeaderSize;
        if (size - offset < length) {
            return;
        }
        visit(list + offset, static_cast<unsigned int>(length));
        offset += length;
    }
}

/// The list's bytes without its own header and those of the packets that it states: its MIDI data.
/// 0 when it states more packets than it has room for.
inline unsigned int CountMIDIBytes(const unsigned char* list, unsigned int size) {
    const uint64_t headers =
        kPacketListHeaderSize + uint64_t{kPacketHeaderSize} * PacketCount(list, size);
    return static_cast<unsigned int>(size - std::min<uint64_t>(size, headers));
}
