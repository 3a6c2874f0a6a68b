#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {

// The threads of both sides may set the errors, so they are read atomically.
unsigned int LoadError(std::uint8_t& error) {
    return std::atomic_ref(error).load(std::memory_order_relaxed);
}

} // namespace

CCircularBuffer::CCircularBuffer(unsigned int elemSize, unsigned int numElems,
                                 cb_malloc_func mallocFunc, cb_free_func freeFunc,
                                 cb_copy_func copyFunc) {
    cb_initialize(&mRing, elemSize, numElems, mallocFunc, freeFunc);
    cb_set_copy_func(mRing, copyFunc);
}

CCircularBuffer::~CCircularBuffer() {
    if (mRing != nullptr) {
        cb_destroy(mRing);
        mRing = nullptr;
    }
}

unsigned int CCircularBuffer::Write(const void* source, int& count) {
    return cb_write(mRing, source, &count);
}

unsigned int CCircularBuffer::Read(void* destination, int& count) {
    return cb_read_ex(mRing, 0, destination, &count, kCBConsume);
}

unsigned int CCircularBuffer::Peek(unsigned int index, void* destination, int& count) {
    return cb_peek(mRing, index, destination, &count);
}

unsigned int CCircularBuffer::Remove(int& count) {
    return cb_remove(mRing, &count);
}

unsigned int CCircularBuffer::GetFirstError() const {
    return mRing != nullptr ? LoadError(mRing->firstError) : kCBNullRing;
}

unsigned int CCircularBuffer::GetLastError() const {
    return mRing != nullptr ? LoadError(mRing->lastError) : kCBNullRing;
}

unsigned int CCircularBuffer::ClearErrors() {
    return cb_clear_errors(mRing);
}

unsigned int CCircularBuffer::GetFlags() const {
    return cb_get_flags(mRing);
}

unsigned int CCircularBuffer::SetFlags(unsigned char mask) {
    return cb_set_flags(mRing, mask);
}

unsigned int CCircularBuffer::ClearFlags(unsigned char mask) {
    return cb_clear_flags(mRing, mask);
}

unsigned int CCircularBuffer::SetCopyFunc(cb_copy_func copyFunc) {
    return cb_set_copy_func(mRing, copyFunc);
}

void* CCircularBuffer::MallocFunc(int size) {
    return size < 0 ? nullptr : std::malloc(static_cast<std::size_t>(size));
}

void CCircularBuffer::FreeFunc(void* block, int /*size*/) {
    std::free(block);
}

void* CCircularBuffer::CopyFunc(void* destination, const void* source, unsigned long size) {
    return std::memcpy(destination, source, size);
}
