#pragma once

#include <cstddef>
#include <cstdint>

// A ring of fixed-size elements in one block of memory. The block begins with a control block, and
// the data area follows it. The data area has numElems + 1 slots; one slot always stays free, so
// that a full ring differs from an empty one. Positions are byte offsets from the start of the
// block, so the block may lie at a different address in every mapping of it.
//
//     _t_circular_buffer* ring = nullptr;
//     cb_initialize(&ring, sizeof(Record), 100, allocate, release);
//     int count = 1;
//     cb_write(ring, &record, &count); // the producer; count is 0 if the ring was full
//     count = 1;
//     cb_read(ring, &record, &count); // the consumer; count is 0 if the ring was empty
//     cb_destroy(ring);
//
// Errors are sticky. The first and the last error stay recorded until `cb_clear_errors`, no success
// clears them, and most operations return the last one. So a result other than 0 says that
// something has gone wrong on this ring since its errors were cleared; it does not say that this
// call failed. What a call did shows in its count. After one overflow every read and write returns
// 2.
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
// elements. A slot is written again only after its reader is done with it. The result of a counting
// function may be out of date at once: the consumer can rely on at least so many stored elements,
// and the producer on at most so many. No operation blocks. Only `cb_initialize` and `cb_destroy`
// allocate or free.
//
// A null ring yields 4 unless stated otherwise. A count pointer must not be null. A count is in
// elements; a count of 0 or less stores or copies nothing. Source and destination must hold at
// least count * elemSize bytes and must not overlap the ring; they need no alignment.

using cb_malloc_func = void* (*)(int size);
using cb_free_func = void (*)(void* block, int size);
using cb_copy_func = void* (*)(void* destination, const void* source, unsigned long size);

// The control block at the start of the block. Its layout is fixed. Only the cb_ functions may
// change it, and the code that does the part of one side in place (InPlaceRoom.h and HSL's record
// reader); all others may read it. Integers are in the host's byte order.
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

// Returns the size of a ring's block in bytes: elemSize * (numElems + 1) + kCBHeaderSize, or
// 0xFFFFFFFF when that takes more than 32 bits.
std::uint32_t cb_calc_buffer_size(std::uint32_t elemSize, std::uint32_t numElems);

// Makes an empty ring in a block from `mallocFunc`, which is called once with the block's size and
// must align as malloc does. `freeFunc` may be null; then the block outlives the ring. Returns 0.
// When there is no memory, or the size does not fit an int, `*ring` becomes null and the result is
// 1. A null `ring` yields 4.
unsigned int cb_initialize(_t_circular_buffer** ring, std::uint32_t elemSize,
                           std::uint32_t numElems, cb_malloc_func mallocFunc,
                           cb_free_func freeFunc);

// Makes an empty ring in the caller's memory, which must have `cb_calc_buffer_size` bytes and the
// alignment of the control block. Returns 0. If the size takes more than 32 bits, the result is 1:
// the control block is then cleared, which leaves a ring without capacity.
unsigned int cb_initialize_with_buffer(_t_circular_buffer* ring, std::uint32_t elemSize,
                                       std::uint32_t numElems);

// Sets the function that copies writes of more than 32 bytes; null means none. Returns 0.
unsigned int cb_set_copy_func(_t_circular_buffer* ring, cb_copy_func copyFunc);

// Set and clear the bits of `mask`. Return 0.
unsigned int cb_set_flags(_t_circular_buffer* ring, unsigned char mask);
unsigned int cb_clear_flags(_t_circular_buffer* ring, unsigned char mask);

// Returns the flags.
unsigned int cb_get_flags(const _t_circular_buffer* ring);

// Clears the errors and returns the first one. If the other thread records an error at the same
// time, this call returns it, or the next call does.
unsigned int cb_clear_errors(_t_circular_buffer* ring);

// Returns 1 when no further element fits, else 0. A null ring yields 0.
unsigned int cb_is_full(const _t_circular_buffer* ring);

// Returns the number of stored elements. A null ring yields 4, and so does a ring with four
// elements. This is intended, so that a null ring has the same result here as elsewhere.
unsigned int cb_get_num_elem_used(const _t_circular_buffer* ring);

// Stores up to `*count` elements from `source`, sets `*count` to the number stored and returns the
// last error. A ring that is full at the outset stores nothing and records the overflow, whatever
// the count. With a copy function, writes of more than 32 bytes go through it in at most two runs.
// Such a write ends after its first run if the write position is then not lower than the read
// position. No overflow is recorded in that case, even if the write stored less than was offered.
// This is intended and kept for the callers that write blocks: they go by the count.
unsigned int cb_write(_t_circular_buffer* ring, const void* source, int* count);

// Moves up to `*count` of the oldest elements to `destination`, sets `*count` to the number copied
// and returns the last error.
unsigned int cb_read(_t_circular_buffer* ring, void* destination, int* count);

// Does the same from the element with the index `start`; index 0 is the oldest element. The
// elements leave the ring only with the option `kCBConsume`; those before `start` then leave as
// well. `start` may equal the number of stored elements. If it is higher, error 3 is recorded and
// returned, and `*count` stays unchanged. An empty ring is no error.
//
// If the start position lies beyond the last slot, it becomes a position as far before the first
// slot as it lay beyond the last one, and copying goes on from there up to the write position. So
// only index 0 gives correct data when the contents wrap. This is intended and kept for the users
// of the ring, who know it. The end of this file tells what such a read gives and leaves.
unsigned int cb_read_ex(_t_circular_buffer* ring, unsigned int start, void* destination, int* count,
                        unsigned int options);

// Does what `cb_read_ex` does without options.
unsigned int cb_peek(_t_circular_buffer* ring, unsigned int start, void* destination, int* count);

// Discards `*count` of the oldest elements and returns the last error. `*count` stays unchanged; on
// an empty ring it becomes 0. A count of all stored elements empties the ring.
//
// Any other count removes that many elements only if the contents do not wrap and are at least as
// many. If the contents wrap, a removal that does not pass the end of the data area empties the
// ring. A removal that passes the end goes one slot too far, which may be among contents that do
// not wrap. A negative count moves the read position back, to the first slot at most. All this is
// intended and kept for the users of the ring, who know it.
unsigned int cb_remove(_t_circular_buffer* ring, int* count);

// Clears the control block. If the ring owns its block and has a `freeFunc`, the block is freed;
// the function gets the size that was allocated. Returns 0.
unsigned int cb_destroy(_t_circular_buffer* ring);

// A read position ahead of the first slot. An indexed start that wraps lies there, and a read that
// consumes leaves the position where it stopped. From there on, the bytes of the control block are
// copied as they are, and bytes that would lie before the block read as zeros. Nothing outside the
// block is ever touched. All operations keep to their rules, with these consequences:
//
// - The bytes ahead of the first slot count as stored, so there may be more than `numElems`
// elements.
// - The ring is never full. A write in elements stores everything that is offered and may overwrite
//   what it has just stored; a write in blocks ends at the end of the data area and records no
//   overflow.
// - The producer does not keep clear of what the consumer reads. The two must take turns until the
//   read position has reached the first slot.
// - `cb_remove` with a negative count leaves the position where it is.
// - In a ring of more than 2 GB the position may lie too far before the block to be stored. It is
//   then the nearest that can be.
