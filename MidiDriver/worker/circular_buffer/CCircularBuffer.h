#pragma once

#include "MidiDriver/worker/circular_buffer/circular_buffer.h"

// Owns one ring; `circular_buffer.h` tells what the operations do and which thread may call them.
// An object that was default constructed, or for which there was no memory, has no ring: every
// operation then returns 4 and leaves its arguments alone.
//
//     CCircularBuffer ring(sizeof(Record), 100, CCircularBuffer::MallocFunc,
//                          CCircularBuffer::FreeFunc, nullptr);
//     int count = 1;
//     ring.Write(&record, count); // count is 0 if the ring was full
class CCircularBuffer {
public:
    CCircularBuffer() = default;

    // Makes a ring of `numElems` elements of `elemSize` bytes. Only later results tell whether the
    // block could be allocated.
    CCircularBuffer(unsigned int elemSize, unsigned int numElems, cb_malloc_func mallocFunc,
                    cb_free_func freeFunc, cb_copy_func copyFunc);
    virtual ~CCircularBuffer();
    CCircularBuffer(const CCircularBuffer&) = delete;
    CCircularBuffer& operator=(const CCircularBuffer&) = delete;

    unsigned int Write(const void* source, int& count);                   // producer
    unsigned int Read(void* destination, int& count);                     // consumer
    unsigned int Peek(unsigned int index, void* destination, int& count); // consumer
    unsigned int Remove(int& count);                                      // consumer

    // The sticky errors. Any thread may call these.
    unsigned int GetFirstError() const;
    unsigned int GetLastError() const;
    unsigned int ClearErrors();

    // The flags, bits of tCBFlags. Any thread may call these.
    unsigned int GetFlags() const;
    unsigned int SetFlags(unsigned char mask);
    unsigned int ClearFlags(unsigned char mask);

    // Sets the function that copies large writes. No other thread may use the ring meanwhile.
    unsigned int SetCopyFunc(cb_copy_func copyFunc);

    // The ring, which this object still owns; null if there is none.
    _t_circular_buffer* GetRing() const { return mRing; }

    // The functions malloc, free and memcpy in the form that the constructor takes. `FreeFunc`
    // ignores `size`.
    static void* MallocFunc(int size);
    static void FreeFunc(void* block, int size);
    static void* CopyFunc(void* destination, const void* source, unsigned long size);

private:
    _t_circular_buffer* mRing = nullptr;
};
