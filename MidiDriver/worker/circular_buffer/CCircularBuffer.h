#pragma once

#include "MidiDriver/worker/circular_buffer/circular_buffer.h"

// Owns one ring; see `circular_buffer.h` for what the operations do and which thread may call them.
// Without a ring (default constructed, or no memory) every operation returns 4 and leaves its
// arguments alone.
class CCircularBuffer {
public:
    CCircularBuffer() = default;

    // A ring of `numElems` elements of `elemSize` bytes. Whether the block could be allocated is
    // told only by later results.
    CCircularBuffer(unsigned int elemSize, unsigned int numElems, cb_malloc_func mallocFunc,
                    cb_free_func freeFunc, cb_copy_func copyFunc);
    virtual ~CCircularBuffer();
    CCircularBuffer(const CCircularBuffer&) = delete;
    CCircularBuffer& operator=(const CCircularBuffer&) = delete;

    unsigned int Write(const void* source, int& count);                   // producer
    unsigned int Read(void* destination, int& count);                     // consumer
    unsigned int Peek(unsigned int index, void* destination, int& count); // consumer
    unsigned int Remove(int& count);                                      // consumer

    // The sticky errors; any thread.
    unsigned int GetFirstError() const;
    unsigned int GetLastError() const;
    unsigned int ClearErrors();

    // Bits of tCBFlags; any thread.
    unsigned int GetFlags() const;
    unsigned int SetFlags(unsigned char mask);
    unsigned int ClearFlags(unsigned char mask);

    // Not while another thread uses the ring.
    unsigned int SetCopyFunc(cb_copy_func copyFunc);

    // The ring, still owned by this object; null without one.
    _t_circular_buffer* GetRing() const { return mRing; }

    // malloc, free and memcpy, to be handed to the constructor. `size` is ignored by `FreeFunc`.
    static void* MallocFunc(int size);
    static void FreeFunc(void* block, int size);
    static void* CopyFunc(void* destination, const void* source, unsigned long size);

private:
    _t_circular_buffer* mRing = nullptr;
};
