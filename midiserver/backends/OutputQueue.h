#pragma once

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace MidiServer {

// An OutputQueue carries MIDI events from the thread that emits them on a port to the one that
// plays them there, for instance a JACK process thread. The writer adds an event whole. The reader
// may take it in pieces, because it may be larger than what one period carries.
//
//     queue.Write(event);                                  // the writer
//     for (std::size_t size; (size = queue.Next()) != 0;) { // the reader
//         queue.Take(std::span(room).first(std::min(size, room.size())));
//     }
//
// One thread writes and one reads. None of the calls but the constructor and LockMemory allocates,
// locks, logs or makes a system call.
class OutputQueue {
public:
    // Makes a queue for events of this many bytes together, each counted with kHeaderBytes more.
    // Throws std::bad_alloc.
    explicit OutputQueue(std::size_t bytes);

    static constexpr std::size_t kHeaderBytes = sizeof(std::uint32_t);

    // Locks everything that the reader touches into memory, where the limits allow it. Returns
    // false if they do not. To be called before the first Write.
    bool LockMemory() noexcept;

    // The writer's. Adds an event of at least one byte. Returns false, with nothing added, if there
    // is no room for all of it.
    bool Write(std::span<const std::uint8_t> event) noexcept;

    // The reader's.

    // Returns the number of bytes that are left of the oldest event, or 0 if there is none.
    std::size_t Next() noexcept;
    // Takes that event's next bytes, at most as many as Next returned. The event leaves the queue
    // with its last byte.
    void Take(std::span<std::uint8_t> bytes) noexcept;
    // Drops all events that are there. Returns how many, one of which was taken in part counted.
    std::size_t Clear() noexcept;

private:
    CCircularBuffer mRing;
    std::size_t mCapacity;
    std::size_t mLeft = 0; // the reader's: of an event whose header it has taken
};

} // namespace MidiServer
