// These functions read packet lists in place. The driver, the host, the library and the tests all
// walk over packets by them. They need only the platform's own header, so macOS builds them too.
//
//     ForEachPacket(list, size, [](const MIDIPacket* packet) {
//         Parse(PacketData(packet), PacketLength(packet));
//     });
//
// Only MIDIPacketNext knows where the next packet lies, since some platforms pack the packets and
// some pad them. In a packed list all packets but the first may lie at odd addresses, so their
// fields are copied byte by byte. Nothing beyond the list's `size` is read, whatever the list says.
#pragma once

#include <CoreMIDI/MIDIServices.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

inline constexpr std::size_t kPacketListHeaderSize = offsetof(MIDIPacketList, packet);
inline constexpr std::size_t kPacketHeaderSize = offsetof(MIDIPacket, data);
static_assert(kPacketListHeaderSize == 4 && kPacketHeaderSize == 10);
static_assert(offsetof(MIDIPacket, timeStamp) == 0 && offsetof(MIDIPacket, length) == 8);
static_assert(sizeof(MIDIPacket) == 268 && sizeof(MIDIPacketList) == 272);
static_assert(alignof(MIDIPacket) == 4 && alignof(MIDIPacketList) == 4);

// The size to pass for a list that comes without one, as the lists from CoreMIDI do.
inline constexpr std::size_t kUnknownListSize = std::numeric_limits<std::size_t>::max();

inline MIDITimeStamp PacketTime(const MIDIPacket* packet) {
    MIDITimeStamp time = 0;
    std::memcpy(&time, packet, sizeof time);
    return time;
}

inline void SetPacketTime(MIDIPacket* packet, MIDITimeStamp time) {
    std::memcpy(static_cast<void*>(packet), &time, sizeof time);
}

inline UInt16 PacketLength(const MIDIPacket* packet) {
    UInt16 length = 0;
    std::memcpy(&length, reinterpret_cast<const Byte*>(packet) + offsetof(MIDIPacket, length),
                sizeof length);
    return length;
}

inline void SetPacketLength(MIDIPacket* packet, UInt16 length) {
    std::memcpy(reinterpret_cast<Byte*>(packet) + offsetof(MIDIPacket, length), &length,
                sizeof length);
}

inline const Byte* PacketData(const MIDIPacket* packet) {
    return reinterpret_cast<const Byte*>(packet) + kPacketHeaderSize;
}

inline Byte* PacketData(MIDIPacket* packet) {
    return reinterpret_cast<Byte*>(packet) + kPacketHeaderSize;
}

// Returns the packet count that a list of `size` bytes states, or 0 if it is too short to state
// one.
inline UInt32 PacketCount(const void* list, std::size_t size = kUnknownListSize) {
    UInt32 count = 0;
    if (size >= kPacketListHeaderSize) {
        std::memcpy(&count, list, sizeof count);
    }
    return count;
}

// The extent tells how far a walk came.
struct PacketListExtent {
    std::size_t bytes = 0; // from the list's start to the end of the last packet's data
    UInt32 packets = 0;
};

// Calls visit(const MIDIPacket*) for each packet that lies whole within the list's `size` bytes,
// in order, and stops at the first that does not. `list` may lie at any address. The visit must
// leave the packets' lengths alone.
template <typename Visit>
PacketListExtent ForEachPacket(const void* list, std::size_t size, Visit visit) {
    PacketListExtent extent;
    const UInt32 count = PacketCount(list, size);
    const auto* const start = static_cast<const Byte*>(list);
    extent.bytes = size < kPacketListHeaderSize ? 0 : kPacketListHeaderSize;
    std::size_t offset = kPacketListHeaderSize;
    while (extent.packets < count && offset <= size && size - offset >= kPacketHeaderSize) {
        const auto* const packet = reinterpret_cast<const MIDIPacket*>(start + offset);
        const std::size_t end = offset + kPacketHeaderSize + PacketLength(packet);
        if (end > size) {
            break;
        }
        visit(packet);
        extent.bytes = end;
        ++extent.packets;
        if (extent.packets < count) {
            const auto* const next = reinterpret_cast<const Byte*>(MIDIPacketNext(packet));
            offset = static_cast<std::size_t>(next - start);
        }
    }
    return extent;
}

// Returns the size of a list that comes without it: from its start to the end of its last packet's
// data.
inline std::size_t PacketListSize(const MIDIPacketList* list) {
    return ForEachPacket(list, kUnknownListSize, [](const MIDIPacket*) {}).bytes;
}

// Returns the number of MIDI bytes in a list of `size` bytes, which is the sum of its packets'
// lengths.
inline unsigned int CountMIDIBytes(const void* list, std::size_t size) {
    unsigned int bytes = 0;
    ForEachPacket(list, size,
                  [&bytes](const MIDIPacket* packet) { bytes += PacketLength(packet); });
    return bytes;
}
