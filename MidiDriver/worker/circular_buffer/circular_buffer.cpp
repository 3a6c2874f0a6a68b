#include "MidiDriver/worker/circular_buffer/circular_buffer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <limits>

// How the two sides work together. Only the producer stores writeOffset, and only the consumer
// stores readOffset. Each operation loads the other side's position once and decides everything by
// that value, as if all of it happened at that moment.
//
// - The producer copies elements in, then stores writeOffset with release; the consumer loads it
//   with acquire before it copies out. So a consumer that sees the position sees the bytes before
//   it.
// - The consumer copies elements out, then stores readOffset with release; the producer loads it
//   with acquire before it copies in. So a slot is overwritten only after its bytes were read.
// - Each side loads its own position relaxed, because no other thread stores it.
//
// On x86 these are plain loads and stores. PowerPC may reorder stores and run loads ahead; there a
// release is an lwsync before the store, and an acquire is a barrier after the load.
//
// The flags and the error bytes order nothing, so they are relaxed.

namespace {

using Ring = _t_circular_buffer;

static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free);
static_assert(std::atomic_ref<std::uint8_t>::is_always_lock_free);
static_assert(std::atomic_ref<std::uint32_t>::required_alignment == alignof(std::uint32_t));

// Writes of up to this many bytes do not use the copy function.
constexpr std::int64_t kLargestElementPathBytes = 32;

template <typename T>
T Load(const T& field, std::memory_order order) {
    // An atomic reference needs an object that is not const. Nothing is stored through this one.
    return std::atomic_ref<T>(const_cast<T&>(field)).load(order);
}

void Publish(std::uint32_t& offset, std::uint32_t value) {
    std::atomic_ref(offset).store(value, std::memory_order_release);
}

std::uint64_t CalcSize(std::uint32_t elemSize, std::uint32_t numElems) {
    // This is at most (2^32 - 1) * 2^32 + 64, so it does not overflow.
    return std::uint64_t{elemSize} * (std::uint64_t{numElems} + 1) + kCBHeaderSize;
}

unsigned int LastError(const Ring& ring) {
    return Load(ring.lastError, std::memory_order_relaxed);
}

// Both sides may record an error at the same time. An exchange decides which one came first and
// stays.
unsigned int RecordError(Ring& ring, std::uint8_t error) {
    std::uint8_t none = kCBNoError;
    std::atomic_ref(ring.firstError)
        .compare_exchange_strong(none, error, std::memory_order_relaxed);
    std::atomic_ref(ring.lastError).store(error, std::memory_order_relaxed);
    return error;
}

unsigned int Overflow(Ring& ring) {
    if ((Load(ring.flags, std::memory_order_relaxed) & kCBNoOverflowError) != 0) {
        return LastError(ring);
    }
    return RecordError(ring, kCBOverflow);
}

// The sums of offsets and sizes below fit 32 bits, because the size of the whole block does.

// Says whether the read position lies in the data area. It always does, unless an indexed read has
// wrapped backwards and left it ahead of the first slot.
bool IsInDataArea(const Ring& ring, std::uint32_t read) {
    return read - ring.startOffset <= ring.lastSlotOffset - ring.startOffset;
}

// Returns the read position as a number, which is negative for a position ahead of the block. Such
// a position is stored modulo 2^32 and so lies beyond the end of the block, where no other position
// is.
std::int64_t PositionOf(const Ring& ring, std::uint32_t read) {
    return read <= ring.lastSlotOffset ? std::int64_t{read}
                                       : std::int64_t{read} - (std::int64_t{1} << 32);
}

// Returns the number as a read position. In a ring of more than 2 GB a position may lie so far
// ahead that its stored form would fall into the block; the nearest position that does not replaces
// it.
std::uint32_t OffsetOf(const Ring& ring, std::int64_t position) {
    const std::int64_t end = std::int64_t{ring.lastSlotOffset} + ring.elemSize;
    const std::int64_t first = end + 1 - (std::int64_t{1} << 32);
    if (position < first) {
        position += (first - position + ring.elemSize - 1) / ring.elemSize * ring.elemSize;
    }
    return static_cast<std::uint32_t>(position);
}

bool IsFull(const Ring& ring, std::uint32_t read, std::uint32_t write) {
    return write + ring.elemSize == read ||
           (write == ring.lastSlotOffset && read == ring.startOffset);
}

std::uint32_t UsedBytes(const Ring& ring, std::uint32_t read, std::uint32_t write) {
    if (read <= write) {
        return write - read;
    }
    return (write - ring.startOffset) + (ring.lastSlotOffset + ring.elemSize - read);
}

// The same, wherever the read position lies. If it lies ahead of the first slot, the bytes in
// between count as well, and the result may be more than the ring holds.
std::uint64_t StoredBytes(const Ring& ring, std::uint32_t read, std::uint32_t write) {
    if (!IsInDataArea(ring, read)) [[unlikely]] {
        return static_cast<std::uint64_t>(write - PositionOf(ring, read));
    }
    return UsedBytes(ring, read, write);
}

unsigned char* Block(Ring& ring) {
    return reinterpret_cast<unsigned char*>(&ring);
}

// Copies the control block as it was when `write` was loaded. Fields that the other side may store
// meanwhile are loaded atomically.
std::array<unsigned char, kCBHeaderSize> CopyOfControlBlock(Ring& ring, std::uint32_t write) {
    std::array<unsigned char, kCBHeaderSize> copy;
    const auto copyRange = [&](std::size_t from, std::size_t to) {
        std::memcpy(copy.data() + from, Block(ring) + from, to - from);
    };
    const std::uint32_t read = Load(ring.readOffset, std::memory_order_relaxed);
    copyRange(0, offsetof(Ring, readOffset));
    std::memcpy(copy.data() + offsetof(Ring, readOffset), &read, sizeof read);
    std::memcpy(copy.data() + offsetof(Ring, writeOffset), &write, sizeof write);
    copyRange(offsetof(Ring, mallocFunc), offsetof(Ring, flags));
    copy[offsetof(Ring, flags)] = Load(ring.flags, std::memory_order_relaxed);
    copy[offsetof(Ring, firstError)] = Load(ring.firstError, std::memory_order_relaxed);
    copy[offsetof(Ring, lastError)] = Load(ring.lastError, std::memory_order_relaxed);
    copyRange(offsetof(Ring, lastError) + 1, kCBHeaderSize);
    return copy;
}

template <std::size_t Size>
void CopyEnds(unsigned char* destination, const unsigned char* source, std::size_t size) {
    unsigned char first[Size];
    unsigned char last[Size];
    std::memcpy(first, source, Size);
    std::memcpy(last, source + size - Size, Size);
    std::memcpy(destination, first, Size);
    std::memcpy(destination + size - Size, last, Size);
}

// Copies an element. Most elements are small, and a library call would cost more than the copying.
// For each range of sizes two moves of a fixed size, which may overlap, are enough.
void CopyBytes(unsigned char* destination, const unsigned char* source, std::size_t size) {
    if (size > 32) {
        std::memcpy(destination, source, size);
    } else if (size >= 16) {
        CopyEnds<16>(destination, source, size);
    } else if (size >= 8) {
        CopyEnds<8>(destination, source, size);
    } else if (size >= 4) {
        CopyEnds<4>(destination, source, size);
    } else if (size >= 2) {
        CopyEnds<2>(destination, source, size);
    } else if (size == 1) {
        *destination = *source;
    }
}

// Stores `size` bytes, which must fit, one element after the other from `write` on. Returns the
// position after them.
std::uint32_t CopyIn(Ring& ring, std::uint32_t write, const unsigned char* source,
                     std::uint32_t size) {
    const std::uint32_t end = ring.lastSlotOffset + ring.elemSize;
    const std::uint32_t run = end - write;
    if (size < run) [[likely]] {
        CopyBytes(Block(ring) + write, source, size);
        return write + size;
    }
    CopyBytes(Block(ring) + write, source, run);
    CopyBytes(Block(ring) + ring.startOffset, source + run, size - run);
    return ring.startOffset + (size - run);
}

// Copies `size` bytes, which must be stored, out from `read` on. Returns the position after them.
std::uint32_t CopyOut(Ring& ring, std::uint32_t read, unsigned char* destination,
                      std::uint32_t size) {
    const std::uint32_t end = ring.lastSlotOffset + ring.elemSize;
    const std::uint32_t run = end - read;
    if (size < run) [[likely]] {
        CopyBytes(destination, Block(ring) + read, size);
        return read + size;
    }
    CopyBytes(destination, Block(ring) + read, run);
    CopyBytes(destination + run, Block(ring) + ring.startOffset, size - run);
    return ring.startOffset + (size - run);
}

// Stores elements until all are stored or the ring is full. The outcome is that of a loop over
// single elements, but elements that lie together are copied together.
unsigned int WriteElements(Ring& ring, std::uint32_t read, std::uint32_t write,
                           const unsigned char* source, std::int64_t size, int* count) {
    if (size <= 0) {
        *count = 0;
        return LastError(ring);
    }
    const std::uint32_t capacity = ring.lastSlotOffset - ring.startOffset;
    const std::uint32_t room = capacity - UsedBytes(ring, read, write);
    if (size <= room) [[likely]] {
        Publish(ring.writeOffset, CopyIn(ring, write, source, static_cast<std::uint32_t>(size)));
        return LastError(ring);
    }
    Publish(ring.writeOffset, CopyIn(ring, write, source, room));
    *count = static_cast<int>(room / ring.elemSize);
    return Overflow(ring);
}

// Does the same when the read position lies ahead of the first slot. No write position ever reaches
// it, so all elements are stored, round after round.
unsigned int WriteElementsAround(Ring& ring, std::uint32_t write, const unsigned char* source,
                                 std::int64_t size, int* count) {
    if (size <= 0) {
        *count = 0;
        return LastError(ring);
    }
    const std::uint32_t end = ring.lastSlotOffset + ring.elemSize;
    while (size > 0) {
        const std::int64_t run = std::min<std::int64_t>(size, end - write);
        std::memcpy(Block(ring) + write, source, static_cast<std::size_t>(run));
        source += run;
        size -= run;
        write += static_cast<std::uint32_t>(run);
        if (write == end) {
            write = ring.startOffset;
        }
    }
    Publish(ring.writeOffset, write);
    return LastError(ring);
}

unsigned int WriteBlocks(Ring& ring, std::uint32_t read, std::uint32_t write,
                         const unsigned char* source, std::int64_t size, int* count) {
    std::int64_t stored = 0;
    std::uint32_t position = write;
    if (write >= read) {
        // One slot must stay free. It is the last one while the oldest element is in the first one.
        const std::uint32_t room =
            ring.lastSlotOffset - write + (read == ring.startOffset ? 0 : ring.elemSize);
        stored = std::min<std::int64_t>(room, size);
        ring.copyFunc(Block(ring) + write, source, static_cast<unsigned long>(stored));
        position += static_cast<std::uint32_t>(stored);
        if (position > ring.lastSlotOffset) {
            position = ring.startOffset;
        }
    }
    bool overflowed = false;
    // If the first run ends at the end because the oldest element is in the first slot, the write
    // ends here. Then no overflow is recorded, even if elements are left over; see the header.
    if (stored < size && position < read) {
        const std::uint32_t room = read - position - ring.elemSize;
        const std::int64_t run = std::min<std::int64_t>(room, size - stored);
        if (run > 0) {
            ring.copyFunc(Block(ring) + position, source + stored, static_cast<unsigned long>(run));
            position += static_cast<std::uint32_t>(run);
            stored += run;
        }
        overflowed = stored < size;
    }
    Publish(ring.writeOffset, position);
    if (stored < size) {
        *count = static_cast<int>(stored / ring.elemSize);
    }
    return overflowed ? Overflow(ring) : LastError(ring);
}

void SetUp(Ring& ring, std::uint32_t elemSize, std::uint32_t numElems) {
    std::memset(Block(ring), 0, kCBHeaderSize);
    ring.elemSize = elemSize;
    ring.numElems = numElems;
    ring.startOffset = kCBHeaderSize;
    ring.lastSlotOffset = kCBHeaderSize + numElems * elemSize;
    ring.readOffset = kCBHeaderSize;
    ring.writeOffset = kCBHeaderSize;
}

// Copies `size` bytes out from a position ahead of the first slot, or from one in the data area if
// all of them lie in one run. Ahead of the first slot lies the control block, which is copied as it
// is. Ahead of the control block lies memory of others, which is not touched and reads as zeros.
void CopyOutFromAhead(Ring& ring, std::int64_t position, std::uint32_t write,
                      unsigned char* destination, std::int64_t size) {
    const auto take = [&](std::int64_t limit, auto copy) {
        const std::int64_t run = std::min(size, limit - position);
        if (run > 0) {
            copy(static_cast<std::size_t>(run));
            destination += run;
            position += run;
            size -= run;
        }
    };
    take(0, [&](std::size_t run) { std::memset(destination, 0, run); });
    take(ring.startOffset, [&](std::size_t run) {
        std::memcpy(destination, CopyOfControlBlock(ring, write).data() + position, run);
    });
    take(write, [&](std::size_t run) { std::memcpy(destination, Block(ring) + position, run); });
}

// Reads up to `*count` elements from such a position up to the write position.
unsigned int ReadFromAhead(Ring& ring, std::int64_t position, std::uint32_t write,
                           unsigned char* destination, int* count, bool consume) {
    const std::int64_t available = write - position;
    std::int64_t size = std::int64_t{ring.elemSize} * *count;
    if (size > available) {
        size = available;
        *count = static_cast<int>(available / ring.elemSize);
    }
    CopyOutFromAhead(ring, position, write, destination, size);
    if (consume) {
        Publish(ring.readOffset, OffsetOf(ring, position + size));
    }
    return LastError(ring);
}

// Copies up to `*count` of the elements in the `stored` bytes from `position` on. Returns the
// position after them.
std::uint32_t CopyOutElements(Ring& ring, std::uint32_t position, std::uint32_t stored,
                              unsigned char* destination, int* count) {
    const std::uint64_t size = std::uint64_t{ring.elemSize} * static_cast<unsigned int>(*count);
    if (size <= stored) [[likely]] {
        return CopyOut(ring, position, destination, static_cast<std::uint32_t>(size));
    }
    *count = static_cast<int>(stored / ring.elemSize);
    return CopyOut(ring, position, destination, stored);
}

unsigned int ReadFrom(Ring& ring, unsigned int start, unsigned char* destination, int* count,
                      bool consume) {
    const std::uint32_t read = Load(ring.readOffset, std::memory_order_relaxed);
    const std::uint32_t write = Load(ring.writeOffset, std::memory_order_acquire);
    if (read == write) {
        *count = 0;
        return LastError(ring);
    }
    // Computed in 64 bits, so that no index wraps.
    const std::uint64_t skipped = std::uint64_t{start} * ring.elemSize;
    const std::uint64_t stored = StoredBytes(ring, read, write);
    if (skipped > stored) {
        return RecordError(ring, kCBIndexBeyondStored);
    }
    if (*count < 0) {
        *count = 0;
    }
    const std::int64_t wanted = PositionOf(ring, read) + static_cast<std::int64_t>(skipped);
    if (!IsInDataArea(ring, read)) [[unlikely]] {
        return ReadFromAhead(ring, wanted, write, destination, count, consume);
    }
    if (wanted > ring.lastSlotOffset) [[unlikely]] {
        // A start beyond the last slot becomes a position as far before the first one; see the
        // header.
        return ReadFromAhead(ring, ring.startOffset - (wanted - ring.lastSlotOffset), write,
                             destination, count, consume);
    }
    const std::uint32_t position =
        CopyOutElements(ring, static_cast<std::uint32_t>(wanted),
                        static_cast<std::uint32_t>(stored - skipped), destination, count);
    if (consume) {
        Publish(ring.readOffset, position);
    }
    return LastError(ring);
}

} // namespace

std::uint32_t cb_calc_buffer_size(std::uint32_t elemSize, std::uint32_t numElems) {
    constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::min(CalcSize(elemSize, numElems), kLargest));
}

unsigned int cb_initialize(_t_circular_buffer** ring, std::uint32_t elemSize,
                           std::uint32_t numElems, cb_malloc_func mallocFunc,
                           cb_free_func freeFunc) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    *ring = nullptr;
    const std::uint64_t size = CalcSize(elemSize, numElems);
    // The allocator takes an int. A size that is cut to an int would make too small a block.
    if (mallocFunc == nullptr || size > std::numeric_limits<int>::max()) {
        return kCBAllocationFailed;
    }
    *ring = static_cast<_t_circular_buffer*>(mallocFunc(static_cast<int>(size)));
    if (*ring == nullptr) {
        return kCBAllocationFailed;
    }
    SetUp(**ring, elemSize, numElems);
    (*ring)->mallocFunc = mallocFunc;
    (*ring)->freeFunc = freeFunc;
    (*ring)->flags = kCBOwned;
    return kCBNoError;
}

unsigned int cb_initialize_with_buffer(_t_circular_buffer* ring, std::uint32_t elemSize,
                                       std::uint32_t numElems) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    if (CalcSize(elemSize, numElems) > std::numeric_limits<std::uint32_t>::max()) {
        std::memset(Block(*ring), 0, kCBHeaderSize);
        return kCBAllocationFailed;
    }
    SetUp(*ring, elemSize, numElems);
    return kCBNoError;
}

unsigned int cb_set_copy_func(_t_circular_buffer* ring, cb_copy_func copyFunc) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    ring->copyFunc = copyFunc;
    return kCBNoError;
}

unsigned int cb_set_flags(_t_circular_buffer* ring, unsigned char mask) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    std::atomic_ref(ring->flags).fetch_or(mask, std::memory_order_relaxed);
    return kCBNoError;
}

unsigned int cb_clear_flags(_t_circular_buffer* ring, unsigned char mask) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    std::atomic_ref(ring->flags)
        .fetch_and(static_cast<std::uint8_t>(~mask), std::memory_order_relaxed);
    return kCBNoError;
}

unsigned int cb_get_flags(const _t_circular_buffer* ring) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    return Load(ring->flags, std::memory_order_relaxed);
}

unsigned int cb_clear_errors(_t_circular_buffer* ring) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    // The exchange reads and clears in one step, so that an error which is being recorded cannot
    // get lost between a load and a store.
    const unsigned int first =
        std::atomic_ref(ring->firstError).exchange(kCBNoError, std::memory_order_relaxed);
    std::atomic_ref(ring->lastError)
        .store(static_cast<std::uint8_t>(kCBNoError), std::memory_order_relaxed);
    return first;
}

unsigned int cb_is_full(const _t_circular_buffer* ring) {
    if (ring == nullptr) {
        return 0;
    }
    return IsFull(*ring, Load(ring->readOffset, std::memory_order_acquire),
                  Load(ring->writeOffset, std::memory_order_acquire))
               ? 1
               : 0;
}

unsigned int cb_get_num_elem_used(const _t_circular_buffer* ring) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    // Both are acquired, because the caller may be on either side.
    const std::uint32_t read = Load(ring->readOffset, std::memory_order_acquire);
    const std::uint32_t write = Load(ring->writeOffset, std::memory_order_acquire);
    if (!IsInDataArea(*ring, read)) [[unlikely]] {
        return static_cast<unsigned int>(StoredBytes(*ring, read, write) / ring->elemSize);
    }
    const std::uint32_t used = UsedBytes(*ring, read, write);
    return used == 0 ? 0 : used / ring->elemSize;
}

unsigned int cb_write(_t_circular_buffer* ring, const void* source, int* count) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    const std::uint32_t write = Load(ring->writeOffset, std::memory_order_relaxed);
    const std::uint32_t read = Load(ring->readOffset, std::memory_order_acquire);
    if (IsFull(*ring, read, write)) {
        *count = 0;
        return Overflow(*ring);
    }
    const auto* bytes = static_cast<const unsigned char*>(source);
    // Computed in 64 bits, so that neither a large count nor a negative one wraps.
    const std::int64_t size = std::int64_t{ring->elemSize} * *count;
    const bool inElements = ring->copyFunc == nullptr || size <= kLargestElementPathBytes;
    if (!IsInDataArea(*ring, read)) [[unlikely]] {
        // A write in blocks ends its first run at the end of the data area. It makes no difference
        // to it how far ahead of the first slot the read position lies.
        return inElements ? WriteElementsAround(*ring, write, bytes, size, count)
                          : WriteBlocks(*ring, 0, write, bytes, size, count);
    }
    return inElements ? WriteElements(*ring, read, write, bytes, size, count)
                      : WriteBlocks(*ring, read, write, bytes, size, count);
}

unsigned int cb_read(_t_circular_buffer* ring, void* destination, int* count) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    return ReadFrom(*ring, 0, static_cast<unsigned char*>(destination), count, true);
}

unsigned int cb_read_ex(_t_circular_buffer* ring, unsigned int start, void* destination, int* count,
                        unsigned int options) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    return ReadFrom(*ring, start, static_cast<unsigned char*>(destination), count,
                    (options & kCBConsume) != 0);
}

unsigned int cb_peek(_t_circular_buffer* ring, unsigned int start, void* destination, int* count) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    return ReadFrom(*ring, start, static_cast<unsigned char*>(destination), count, false);
}

unsigned int cb_remove(_t_circular_buffer* ring, int* count) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    const std::uint32_t read = Load(ring->readOffset, std::memory_order_relaxed);
    const std::uint32_t write = Load(ring->writeOffset, std::memory_order_acquire);
    if (read == write) {
        *count = 0;
        return LastError(*ring);
    }
    // A ring that holds something has slots of at least one byte and less than 4 GB in all, so this
    // fits 64 bits easily.
    const std::int64_t from = PositionOf(*ring, read);
    std::int64_t position = from + std::int64_t{ring->elemSize} * *count;
    if (position > ring->lastSlotOffset) {
        // One slot less than the ring's length; see the header.
        position -= ring->lastSlotOffset - ring->startOffset;
    }
    // The write position is the upper bound. Only a negative count could move the position past the
    // first slot, or further ahead of it.
    position =
        std::clamp<std::int64_t>(position, std::min<std::int64_t>(from, ring->startOffset), write);
    Publish(ring->readOffset, OffsetOf(*ring, position));
    return LastError(*ring);
}

unsigned int cb_destroy(_t_circular_buffer* ring) {
    if (ring == nullptr) {
        return kCBNullRing;
    }
    const std::uint64_t size = CalcSize(ring->elemSize, ring->numElems);
    const cb_free_func freeFunc = ring->freeFunc;
    const bool owned = (ring->flags & kCBOwned) != 0;
    std::memset(Block(*ring), 0, kCBHeaderSize);
    if (owned && freeFunc != nullptr) {
        // The size fits an int, because the block was allocated with it.
        freeFunc(ring, static_cast<int>(size));
    }
    return kCBNoError;
}
