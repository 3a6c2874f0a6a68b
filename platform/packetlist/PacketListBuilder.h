#pragma once

#include "platform/packetlist/PacketListWalk.h"

#include <cstddef>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

// A builder makes a packet list as the platform lays it out, with one packet for each Add. It
// exists because CoreMIDI's own MIDIPacketListAdd may join packets of the same time, while a ping
// must stay a packet of its own to be recognised. It allocates only until the largest list has been
// built once.
//
//     PacketListBuilder builder;
//     builder.Add(note);
//     MIDISend(port, destination, builder.List());
class PacketListBuilder {
public:
    PacketListBuilder() { Clear(); }

    void Clear() {
        mBytes.assign(kPacketListHeaderSize, 0);
        mLast = 0;
    }

    // Appends a packet of at most 65535 bytes. Time stamp 0 means "now".
    void Add(std::span<const Byte> data, MIDITimeStamp time = 0) {
        const std::size_t start = SizeWith(0) - kPacketHeaderSize;
        mBytes.resize(start + kPacketHeaderSize + data.size());
        auto* const packet = reinterpret_cast<MIDIPacket*>(&mBytes[start]);
        SetPacketTime(packet, time);
        SetPacketLength(packet, static_cast<UInt16>(data.size()));
        if (!data.empty()) {
            std::memcpy(PacketData(packet), data.data(), data.size());
        }
        mLast = start;
        const UInt32 count = PacketCount(mBytes.data()) + 1;
        std::memcpy(mBytes.data(), &count, sizeof count);
    }

    std::size_t ByteSize() const { return mBytes.size(); }

    // Returns what ByteSize would be after an Add of so many bytes.
    std::size_t SizeWith(std::size_t dataBytes) const {
        std::size_t start = kPacketListHeaderSize;
        if (!Empty()) {
            const auto* const next = reinterpret_cast<const Byte*>(
                MIDIPacketNext(reinterpret_cast<const MIDIPacket*>(&mBytes[mLast])));
            start = static_cast<std::size_t>(next - mBytes.data());
        }
        return start + kPacketHeaderSize + dataBytes;
    }

    bool Empty() const { return mBytes.size() == kPacketListHeaderSize; }

    // Returns the list, which is valid until the next Clear or Add. It is not constant, because a
    // driver sets the time stamps in the list that it is sent.
    MIDIPacketList* List() { return reinterpret_cast<MIDIPacketList*>(mBytes.data()); }

    // Gives the list's bytes away. Only Clear may follow.
    std::vector<Byte> Release() { return std::move(mBytes); }

private:
    std::vector<Byte> mBytes; // from the allocator, and so at a multiple of 4
    std::size_t mLast = 0;    // where the last packet starts
};
