#pragma once

#include "midiserver/backends/OutputQueue.h"
#include "midiserver/midi/EventSplitter.h"

#include <CoreMIDI/MIDIServices.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace MidiServer {

// An OutputStream takes what a driver emits on one port to the thread that plays it for a backend.
// It splits the packet lists into events, which wait in an OutputQueue. It drops a message that
// cannot go whole, and counts it.
//
//     stream.Open();                // once the server is there
//     stream.Emit(packets);         // the driver's thread
//     Play(stream.Events());        // the backend's
//     stream.Close();
//
// A stream starts closed. One thread emits at a time; one plays; the thread that opens and closes
// does it while nobody plays. Any thread may read the count.
class OutputStream {
public:
    // Throws std::bad_alloc. `queueBytes` as OutputQueue takes it.
    explicit OutputStream(std::size_t queueBytes) : mEvents(queueBytes) {}

    // While the stream is closed, all that is emitted is lost. Closing also drops, and counts, what
    // still waits: when a server comes back, it is out of date. Of a System Exclusive message that
    // was cut by this, the rest is not played when the stream is open again.
    void Open();
    void Close();

    // Neither blocks nor waits for the thread that plays.
    void Emit(const MIDIPacketList& packets);

    OutputQueue& Events() { return mEvents; }

    // Messages that were lost so far.
    std::uint64_t Lost() const { return mLost.load(std::memory_order_relaxed); }

private:
    void Write(std::span<const std::uint8_t> event);

    OutputQueue mEvents;
    EventSplitter mSplitter;
    // The number of the opening, or 0 while the stream is closed. Relaxed, as it orders nothing: an
    // event that is written just as the stream closes stays in the queue until the next opening.
    std::atomic<std::uint32_t> mOpening{0};
    std::uint32_t mOpenings = 0;
    std::atomic<std::uint64_t> mLost{0};
    // The emitting thread's: the opening in which it wrote the beginning of the System Exclusive
    // message that is going on; 0 if that was lost.
    std::uint32_t mMessageOpening = 0;
};

} // namespace MidiServer
