#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "MidiDriver/worker/circular_buffer/circular_buffer.h"

// Room for the producer of a ring of single bytes to write to in place, as it was found at the
// write position. It can only grow until the producer's next write. The consumer sees nothing of
// what is written before it is stored. May be mixed with the cb_ functions.
class CInPlaceRoom {
public:
    explicit CInPlaceRoom(_t_circular_buffer& ring) {
        // Acquire: the consumer is done with what lies before the position that it stored.
        const std::uint32_t read = std::atomic_ref(ring.readOffset).load(std::memory_order_acquire);
        const std::uint32_t write =
            std::atomic_ref(ring.writeOffset).load(std::memory_order_relaxed);
        const std::uint32_t end = ring.lastSlotOffset + 1;
        mStart = reinterpret_cast<unsigned char*>(&ring) + write;
        // Beyond the last slot stands for ahead of the block: see cb_read_ex. No slot is in the way
        // then, nor with a position in the control block.
        if (read <= write || read > ring.lastSlotOffset) {
            mUsed = write - read;
            mRun = end - write - (read == ring.startOffset ? 1 : 0);
        } else {
            mUsed = write - ring.startOffset + end - read;
            mRun = read - write - 1;
        }
    }

    // How many bytes are stored, at most.
    std::uint32_t Used() const { return mUsed; }
    // How many bytes may be written from `Start` on, all in one run; further room may follow at the
    // start of the ring.
    std::uint32_t Run() const { return mRun; }
    unsigned char* Start() const { return mStart; }

    // Stores what was written up to `end`, which lies before the end of the run.
    static void Store(_t_circular_buffer& ring, const unsigned char* end) {
        const auto* const block = reinterpret_cast<const unsigned char*>(&ring);
        const auto offset = static_cast<std::uint32_t>(end - block);
        // As many bytes as were written, of those that come a little later: so that they are on
        // their way, for writing, from the processor of the consumer before they are needed.
        const std::uint32_t begin =
            std::atomic_ref(ring.writeOffset).load(std::memory_order_relaxed);
        for (std::uint32_t ahead = begin; ahead < offset; ahead += kCacheLine) {
            __builtin_prefetch(block + std::min(ahead + kFetchedAhead, ring.lastSlotOffset), 1);
        }
        // Release: who sees the position sees the bytes before it.
        std::atomic_ref(ring.writeOffset).store(offset, std::memory_order_release);
    }

private:
    // Of most processors; where lines are longer, some are asked for twice.
    static constexpr std::uint32_t kCacheLine = 64;
    // A few hundred nanoseconds of small records.
    static constexpr std::uint32_t kFetchedAhead = 512;

    unsigned char* mStart;
    std::uint32_t mRun;
    std::uint32_t mUsed;
};
