#pragma once

#include "midiserver/PacketListLayout.h"

#include <CoreMIDI/MIDIServices.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace MidiServer {

// Builds a packet list in its packed form, one packet per Add. CoreMIDI's own MIDIPacketListAdd
// may join packets of the same time, and a ping must stay a packet of its own to be recognised.
// Allocates only until the largest list has been built once.
class PacketListBuilder {
public:
    PacketListBuilder() { Clear(); }

    void Clear() { mBuffer.assign(kPacketListHeaderBytes, 0); }

    // Appends a packet with time stamp 0 ("now"). At most 65535 bytes.
    void Add(std::span<const std::uint8_t> bytes) {
        const std::size_t start = mBuffer.size();
        mBuffer.resize(start + kPacketHeaderBytes + bytes.size());
        const auto length = static_cast<UInt16>(bytes.size());
        std::memcpy(&mBuffer[start + 8], &length, sizeof length);
        if (!bytes.empty()) {
            std::memcpy(&mBuffer[start + kPacketHeaderBytes], bytes.data(), bytes.size());
        }
        UInt32 count = 0;
        std::memcpy(&count, mBuffer.data(), sizeof count);
        ++count;
        std::memcpy(mBuffer.data(), &count, sizeof count);
    }

    std::size_t ByteSize() const { return mBuffer.size(); }
    bool Empty() const { return mBuffer.size() == kPacketListHeaderBytes; }

    // The list; valid until the next Clear or Add. Not constant, because a driver stamps the
    // packets' times in the list that it is sent.
    MIDIPacketList* List() { return reinterpret_cast<MIDIPacketList*>(mBuffer.data()); }

private:
    std::vector<std::uint8_t> mBuffer;
};

// The data of a list's packets, in order, as spans into the list.
inline std::vector<std::span<const std::uint8_t>> PacketsOf(const MIDIPacketList& list) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&list);
    UInt32 count = 0;
    std::memcpy(&count, bytes, sizeof count);
    bytes += kPacketListHeaderBytes;
    std::vector<std::span<const std::uint8_t>> packets;
    packets.reserve(count);
    for (UInt32 i = 0; i < count; ++i) {
        UInt16 length = 0;
        std::memcpy(&length, bytes + 8, sizeof length);
        packets.emplace_back(bytes + kPacketHeaderBytes, length);
        bytes += kPacketHeaderBytes + length;
    }
    return packets;
}

} // namespace MidiServer
