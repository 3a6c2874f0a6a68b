#pragma once

#include "MidiDriver/worker/circular_buffer/circular_buffer.h"

#include <algorithm>
#include <atomic>
#include <cstdint>

// The room at the write position of a ring of single bytes, where the producer may write in place.
// Until the producer's next write the room can only grow. The consumer sees nothing of what is
// written until it is stored. A producer may use this and the cb_ functions in turn.
//
//     const CInPlaceRoom room(ring);
//     if (room.Run() > size) {
//         std::memcpy(room.Start(), source, size);
//         CInPlaceRoom::Store(ring, room.Start() + size);
//     }
class CInPlaceRoom {
public:
    explicit CInPlaceRoom(_t_circular_buffer& ring) {
        // Acquire: the consumer has read everything that lies before the position that it stored.
        const std::uint32_t read = std::atomic_ref(ring.readOffset).load(std::memory_order_acquire);
        const std::uint32_t write =
            std::atomic_ref(ring.writeOffset).load(std::memory_order_relaxed);
        const std::uint32_t end = ring.lastSlotOffset + 1;
        mStart = reinterpret_cast<unsigned char*>(&ring) + write;
        // A position beyond the last slot stands for one ahead of the block (see cb_read_ex), and a
        // position in the control block lies ahead of the first slot. In both cases no slot is in
        // the way.
        if (read <= write || read > ring.lastSlotOffset) {
            mUsed = write - read;
            mRun = end - write - (read == ring.startOffset ? 1 : 0);
        } else {
            mUsed = write - ring.startOffset + end - read;
            mRun = read - write - 1;
        }
    }

    // The number of bytes that are stored, at most: the consumer may have taken some meanwhile.
    std::uint32_t Used() const { return mUsed; }
    // The number of bytes that may be written from `Start` on, in one run. There may be more room
    // at the start of the ring.
    std::uint32_t Run() const { return mRun; }
    unsigned char* Start() const { return mStart; }

    // Stores what was written up to `end`, which must lie before the end of the run.
    static void Store(_t_circular_buffer& ring, const unsigned char* end) {
        const auto* const block = reinterpret_cast<const unsigned char*>(&ring);
        const auto offset = static_cast<std::uint32_t>(end - block);
        // Fetches, for writing, as many bytes as were just written, from a little further on. They
        // were last used by the processor of the consumer, and the fetch brings them here before
        // they are needed.
        const std::uint32_t begin =
            std::atomic_ref(ring.writeOffset).load(std::memory_order_relaxed);
        for (std::uint32_t ahead = begin; ahead < offset; ahead += kCacheLine) {
            __builtin_prefetch(block + std::min(ahead + kFetchedAhead, ring.lastSlotOffset), 1);
        }
        // Release: a thread that sees the position also sees the bytes before it.
        std::atomic_ref(ring.writeOffset).store(offset, std::memory_order_release);
    }

private:
    // The length of a cache line on most processors. Where lines are longer, some are fetched
    // twice.
    static constexpr std::uint32_t kCacheLine = 64;
    // As many bytes as small records fill in a few hundred nanoseconds.
    static constexpr std::uint32_t kFetchedAhead = 512;

    unsigned char* mStart;
    std::uint32_t mRun;
    std::uint32_t mUsed;
};
