#pragma once

#include <cstddef>
#include <cstdint>

// A ring of fixed-size elements in one block of memory: a control block and, behind it, the data
// area of numElems + 1 slots, one of which stays free so that a full ring and an empty one differ.
// Positions are byte offsets from the start of the block, so the block may lie at a different
// address in every mapping of it.
//
// Errors are sticky: the first and the last one stay recorded until `cb_clear_errors`, no success
// clears them, and most operations return the last one. A result that is not 0 therefore says that
// something went wrong on this ring since it was cleared, not that this call failed; what a call
// did is told by its count. After one overflow every read and write returns 2.
//
// Threads. One producer and one consumer may use a ring at the same time without a lock:
//
//   producer only      cb_write
//   consumer only      cb_read, cb_read_ex, cb_peek, cb_remove
//   any thread         cb_is_full, cb_get_num_elem_used, cb_get_flags, cb_set_flags,
//                      cb_clear_flags, cb_clear_errors
//   no other user      cb_initialize, cb_initialize_with_buffer, cb_set_copy_func, cb_destroy
//
// What the producer wrote before `cb_write` returned is visible to a consumer that sees the
// elements, and a slot is written again only after its reader is done with it. What the counting
// functions tell goes out of date at once: to the consumer at least so many elements are stored, to
// the producer at most so many. No operation blocks, and none but `cb_initialize` and `cb_destroy`
// allocates or frees.
//
// A null ring yields 4 unless stated otherwise. A count pointer is never null; a count is in
// elements, and one that is 0 or negative stores or copies nothing. Source and destination hold at
// least count * elemSize bytes, have no alignment and do not overlap the ring.

using cb_malloc_func = void* (*)(int size);
using cb_free_func = void (*)(void* block, int size);
using cb_copy_func = void* (*)(void* destination, const void* source, unsigned long size);

// The control block at the start of the block. Its layout is fixed; outside the cb_ functions, and
// those that do a side's part in place (InPlaceRoom.h, HSL's record reader), it is there to be
// looked at, not changed. Integers are in the host's byte order.
struct _t_circular_buffer {
    std::uint32_t elemSize;       // bytes per element
    std::uint32_t numElems;       // capacity in elements
    std::uint32_t startOffset;    // first slot
    std::uint32_t lastSlotOffset; // last slot = startOffset + numElems * elemSize
    std::uint32_t readOffset;     // oldest stored element; stored by the consumer only
    std::uint32_t writeOffset;    // next slot to be written; stored by the producer only
    cb_malloc_func mallocFunc;    // null for the caller's own memory
    cb_free_func freeFunc;        // null for the caller's own memory
    cb_copy_func copyFunc;        // null: nothing but the element path
    std::uint8_t flags;           // kCBOwned, kCBNoOverflowError
    std::uint8_t firstError;      // first error since the errors were cleared
    std::uint8_t lastError;       // latest error since the errors were cleared
};

// Bytes from the start of the block to the data area.
inline constexpr std::uint32_t kCBHeaderSize = sizeof(void*) == 4 ? 48 : 64;

static_assert(sizeof(_t_circular_buffer) <= kCBHeaderSize);
static_assert(kCBHeaderSize % alignof(std::max_align_t) == 0);
static_assert(offsetof(_t_circular_buffer, elemSize) == 0);
static_assert(offsetof(_t_circular_buffer, numElems) == 4);
static_assert(offsetof(_t_circular_buffer, startOffset) == 8);
static_assert(offsetof(_t_circular_buffer, lastSlotOffset) == 12);
static_assert(offsetof(_t_circular_buffer, readOffset) == 16);
static_assert(offsetof(_t_circular_buffer, writeOffset) == 20);
static_assert(offsetof(_t_circular_buffer, mallocFunc) == 24);
static_assert(offsetof(_t_circular_buffer, freeFunc) == 24 + sizeof(void*));
static_assert(offsetof(_t_circular_buffer, copyFunc) == 24 + 2 * sizeof(void*));
static_assert(offsetof(_t_circular_buffer, flags) == 24 + 3 * sizeof(void*));
static_assert(offsetof(_t_circular_buffer, firstError) == 25 + 3 * sizeof(void*));
static_assert(offsetof(_t_circular_buffer, lastError) == 26 + 3 * sizeof(void*));

enum tCBError : unsigned int {
    kCBNoError = 0,
    kCBAllocationFailed = 1,  // returned by the initialisers, never recorded
    kCBOverflow = 2,          // a write could not store all its elements
    kCBIndexBeyondStored = 3, // a start index lies beyond the stored elements
    kCBNullRing = 4,          // returned, never recorded
};

enum tCBFlags : unsigned char {
    kCBOwned = 0x01,           // the ring allocated its block and `cb_destroy` frees it
    kCBNoOverflowError = 0x02, // a write that does not fit is not recorded as an error
};

enum tCBReadOptions : unsigned int {
    kCBConsume = 0x01, // what was passed over and copied leaves the ring
};

// elemSize * (numElems + 1) + kCBHeaderSize, in bytes; 0xFFFFFFFF when that takes more than 32
// bits.
std::uint32_t cb_calc_buffer_size(std::uint32_t elemSize, std::uint32_t numElems);

// Makes an empty ring in a block from `mallocFunc`, which aligns as malloc does and is called once
// with the block's size; `freeFunc` may be null, then the block outlives the ring. Returns 0. When
// there is no memory, or the size does not fit an int, `*ring` becomes null and the result is 1. A
// null `ring` yields 4.
unsigned int cb_initialize(_t_circular_buffer** ring, std::uint32_t elemSize,
                           std::uint32_t numElems, cb_malloc_func mallocFunc,
                           cb_free_func freeFunc);

// Makes an empty ring in the caller's memory of `cb_calc_buffer_size` bytes, aligned as the control
// block. Returns 0. A ring that takes more than 32 bits of size is refused: the control block is
// cleared, which leaves a ring without capacity, and the result is 1.
unsigned int cb_initialize_with_buffer(_t_circular_buffer* ring, std::uint32_t elemSize,
                                       std::uint32_t numElems);

// Sets the function that copies writes of more than 32 bytes, null for none. Returns 0.
unsigned int cb_set_copy_func(_t_circular_buffer* ring, cb_copy_func copyFunc);

// Set and clear the bits of `mask`. Return 0.
unsigned int cb_set_flags(_t_circular_buffer* ring, unsigned char mask);
unsigned int cb_clear_flags(_t_circular_buffer* ring, unsigned char mask);

// The flags.
unsigned int cb_get_flags(const _t_circular_buffer* ring);

// Forgets the errors and returns the first one. An error that the other thread records at this very
// moment is either returned or left as the first one to the next call.
unsigned int cb_clear_errors(_t_circular_buffer* ring);

// 1 when no further element fits, else 0. A null ring yields 0.
unsigned int cb_is_full(const _t_circular_buffer* ring);

// The number of stored elements. A null ring yields 4, as four elements do; this is intended.
unsigned int cb_get_num_elem_used(const _t_circular_buffer* ring);

// Stores up to `*count` elements from `source`, sets `*count` to the number stored and returns the
// last error. A ring that is full at the outset stores nothing and records the overflow, whatever
// the count. With a copy function, writes of more than 32 bytes go through it in at most two runs.
// Such a write that fills the ring in its first run, up to a read position not behind it, is not
// recorded as an overflow though it stored less than offered; this is intended. The short count
// tells.
unsigned int cb_write(_t_circular_buffer* ring, const void* source, int* count);

// Moves up to `*count` elements to `destination`, sets `*count` to the number copied and returns
// the last error.
unsigned int cb_read(_t_circular_buffer* ring, void* destination, int* count);

// The same from the element with the index `start`, 0 being the oldest. The elements leave the ring
// only with the option `kCBConsume`; those before `start` leave with them. `start` may equal the
// number of stored elements; beyond that error 3 is recorded and returned, with `*count` unchanged.
// An empty ring is no error.
//
// A start position beyond the last slot wraps by intention to as far before the first slot as it
// lay beyond the last one, and copying goes on from there up to the write position. Only index 0
// serves data that wraps. What this reads and leaves behind is told at the end of this file.
unsigned int cb_read_ex(_t_circular_buffer* ring, unsigned int start, void* destination, int* count,
                        unsigned int options);

// `cb_read_ex` without options.
unsigned int cb_peek(_t_circular_buffer* ring, unsigned int start, void* destination, int* count);

// Discards `*count` elements, which stays unchanged, and returns the last error; on an empty ring
// `*count` becomes 0. As many elements as are stored empty the ring. Any other count does as it
// says only if the contents do not wrap and it stays within them. A removal that does not pass the
// end of the data area empties a ring whose contents wrap; one that passes it ends one slot further
// than is due, which may be among contents that do not wrap. This is intended. A negative count
// moves the read position back, to the first slot at most.
unsigned int cb_remove(_t_circular_buffer* ring, int* count);

// Clears the control block and frees the block if the ring owns it and has a `freeFunc`, which gets
// the size that was allocated. Returns 0.
unsigned int cb_destroy(_t_circular_buffer* ring);

// A read position ahead of the first slot. An indexed start that wraps lies there, and a consuming
// read leaves the position where it stopped. What lies within the block, which is the control
// block, is copied as it is; what would lie before the block reads as zeros. Nothing outside the
// block is ever touched. All operations go on by their rules, with these consequences:
//
// - What lies between counts as stored, so that there may be more than `numElems` elements.
// - The ring is never full. A write in elements stores all that is offered and overwrites what it
//   comes round to; one in blocks ends at the end of the data area with no overflow recorded.
// - The producer does not keep clear of what the consumer reads: the two must take turns until the
//   read position has reached the first slot.
// - `cb_remove` with a negative count leaves the position where it is.
// - In a ring of more than 2 GB the position may lie too far before the block to be stored. It is
//   then the nearest that can be.
