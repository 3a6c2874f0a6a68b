#pragma once

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"
#include "midiserver/backends/WakeUpSignal.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace MidiServer {

// What a backend received on a port: one or more whole messages, or a piece of a System Exclusive
// message.
struct InputEvent {
    std::uint64_t time = 0;   // when it arrived, in nanoseconds of the monotonic clock
    bool followsLoss = false; // events that came before it on its port are missing
    std::vector<std::uint8_t> bytes;
};

// How many events of a port never reached the reader.
struct InputLoss {
    std::uint32_t noRoom = 0;   // the ring was full, or the event was larger than a ring
    std::uint32_t upstream = 0; // the backend said so (CountLost)
};

// An InputQueue carries what DAWs send from one backend to the input thread. It has a ring for each
// port, so a port that floods takes no room from the others.
//
//     queue.Write(0, now, bytes); // in the process callback
//     queue.Wake();               // after it
//
//     while (queue.Read(0, event)) { // the input thread
//         Take(event);
//     }
//
// One thread writes and one reads. The queue lives as long as its backend: what comes while the
// driver is restarted waits in it.
class InputQueue {
public:
    // The bytes of a port's ring, and of the largest event, which is a period's whole buffer with
    // periods of up to 8192 frames.
    static constexpr std::size_t kRingBytes = 65536;
    static constexpr std::size_t kLargestEvent = kRingBytes - 16;

    // `reader` wakes the reading thread, which may read several queues; it must outlive the queue.
    // Throws std::bad_alloc.
    InputQueue(std::size_t ports, WakeUpSignal& reader);

    std::size_t Ports() const { return mPorts; }

    // Locks everything that Write touches into memory, where the limits allow it. Returns false if
    // they do not. To be called before the first Write; what was locked stays so until the queue is
    // destroyed.
    bool LockMemory() noexcept;

    // The writer's. All of them leave a port that is not there alone.

    // The bytes of the largest event that Write takes now; nothing if not even an empty one fits.
    std::optional<std::size_t> Room(std::size_t port) const noexcept;
    // Adds what the backend received in one event on a port. Real-time safe: it neither allocates,
    // locks, logs nor makes a system call. If the ring has no room, the event is dropped whole and
    // counted, and the next event that fits tells the reader that it follows a loss. Returns
    // whether the event went in.
    bool Write(std::size_t port, std::uint64_t time, std::span<const std::uint8_t> bytes) noexcept;
    // Counts events that were lost before they reached this queue. Real-time safe.
    void CountLost(std::size_t port, std::uint32_t events) noexcept;
    // Counts one event as lost on each port that was written to since the last such call: the
    // backend has lost events, and nobody knows whose. Real-time safe.
    void CountLostSomewhere() noexcept;
    // Wakes the reader if something was written or lost since the last call. It may make a system
    // call, so it does not belong into a process callback.
    void Wake() noexcept;

    // The reader's.

    // Takes the oldest event of a port. Returns false, and leaves `event` alone, if there is none.
    // Allocates only until `event` has held the largest event.
    bool Read(std::size_t port, InputEvent& event);
    // Takes the number of events that were lost since the last call.
    InputLoss TakeLoss(std::size_t port) noexcept;

private:
    struct PortRing {
        PortRing()
            : ring(1, kRingBytes, CCircularBuffer::MallocFunc, CCircularBuffer::FreeFunc, nullptr) {
        }

        CCircularBuffer ring;
        // The writer's: the next event follows a loss; see CountLostSomewhere.
        bool lossPending = false;
        bool isInUse = false;
        // Relaxed: they order nothing. The reader learns from the events where the losses lie.
        std::atomic<std::uint32_t> noRoom{0};
        std::atomic<std::uint32_t> upstream{0};
    };

    std::size_t mPorts;
    std::unique_ptr<PortRing[]> mRings;
    WakeUpSignal& mReader;
    bool mChanged = false; // the writer's
};

} // namespace MidiServer
