#include "platform/packetlist/PacketListWalk.h"

#include <cstdint>

// The one place that knows how packets lie behind one another.
MIDIPacket* MIDIPacketNext(const MIDIPacket* packet) {
    const Byte* next = PacketData(packet) + PacketLength(packet);
#if defined(QUORVEL_PAD_PACKETS)
    next += -reinterpret_cast<std::uintptr_t>(next) % alignof(MIDIPacket);
#endif
    return reinterpret_cast<MIDIPacket*>(const_cast<Byte*>(next));
}
