#include "platform/CoreMIDI/src/interface/PacketList.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace CoreMIDI {

namespace {

// Whether the data is a System Exclusive message or a part of one, which stays a packet of its own.
bool IsSystemExclusive(const Byte* data, std::size_t length) {
    constexpr Byte kStatusBit = 0x80;
    constexpr Byte kSystemExclusiveStart = 0xF0;
    constexpr Byte kSystemExclusiveEnd = 0xF7;
    return length != 0 &&
           ((data[0] & kStatusBit) == 0 || std::any_of(data, data + length, [](Byte byte) {
                return byte == kSystemExclusiveStart || byte == kSystemExclusiveEnd;
            }));
}

} // namespace

} // namespace CoreMIDI

using CoreMIDI::IsSystemExclusive;

MIDIPacket* MIDIPacketListInit(MIDIPacketList* pktlist) {
    if (pktlist == nullptr) {
        return nullptr;
    }
    pktlist->numPackets = 0;
    return &pktlist->packet[0];
}

MIDIPacket* MIDIPacketListAdd(MIDIPacketList* pktlist, ByteCount listSize, MIDIPacket* curPacket,
                              MIDITimeStamp time, ByteCount nData, const Byte* data) {
    constexpr std::size_t kMaximumLength = std::numeric_limits<UInt16>::max();
    if (pktlist == nullptr || curPacket == nullptr || (data == nullptr && nData != 0) ||
        nData > kMaximumLength) {
        return nullptr;
    }
    const std::size_t room = std::min<std::size_t>(listSize, CoreMIDI::kMaximumListBytes);
    const auto bytesUntil = [pktlist](const void* place) {
        return reinterpret_cast<std::uintptr_t>(place) - reinterpret_cast<std::uintptr_t>(pktlist);
    };

    if (pktlist->numPackets != 0) {
        const std::size_t length = PacketLength(curPacket);
        Byte* const end = PacketData(curPacket) + length;
        if (PacketTime(curPacket) == time && length + nData <= kMaximumLength &&
            !IsSystemExclusive(PacketData(curPacket), length) && !IsSystemExclusive(data, nData)) {
            if (bytesUntil(end) + nData > room) {
                return nullptr;
            }
            std::copy_n(data, nData, end);
            SetPacketLength(curPacket, static_cast<UInt16>(length + nData));
            return curPacket;
        }
    }
    MIDIPacket* const packet = pktlist->numPackets == 0 ? curPacket : MIDIPacketNext(curPacket);
    if (bytesUntil(packet) + kPacketHeaderSize + nData > room) {
        return nullptr;
    }
    SetPacketTime(packet, time);
    SetPacketLength(packet, static_cast<UInt16>(nData));
    std::copy_n(data, nData, PacketData(packet));
    pktlist->numPackets = pktlist->numPackets + 1;
    return packet;
}
