#include "midiserver/backends/OutputStream.h"

#include "midiserver/midi/MidiMessage.h"
#include "platform/packetlist/PacketListWalk.h"

namespace MidiServer {

void OutputStream::Open() {
    // What was written just as the stream closed.
    mLost.fetch_add(mEvents.Clear(), std::memory_order_relaxed);
    mOpening.store(++mOpenings, std::memory_order_relaxed);
}

void OutputStream::Close() {
    mOpening.store(0, std::memory_order_relaxed);
    mLost.fetch_add(mEvents.Clear(), std::memory_order_relaxed);
}

void OutputStream::Emit(const MIDIPacketList& packets) {
    ForEachPacket(&packets, kUnknownListSize, [this](const MIDIPacket* packet) {
        mSplitter.Split({PacketData(packet), PacketLength(packet)},
                        [this](std::span<const std::uint8_t> event) { Write(event); });
    });
}

void OutputStream::Write(std::span<const std::uint8_t> event) {
    const std::uint32_t opening = mOpening.load(std::memory_order_relaxed);
    // A later piece of a System Exclusive message goes only where the pieces before it went.
    const bool isContinued = ContinuesExclusive(event);
    if (isContinued && (mMessageOpening == 0 || mMessageOpening != opening)) {
        if (mMessageOpening != 0) {
            mMessageOpening = 0;
            mLost.fetch_add(1, std::memory_order_relaxed);
        }
        return;
    }
    const bool written = opening != 0 && mEvents.Write(event);
    if (!written) {
        mLost.fetch_add(1, std::memory_order_relaxed);
    }
    if (isContinued || event.front() == kStartOfExclusive) {
        mMessageOpening = written ? opening : 0;
    }
}

} // namespace MidiServer
