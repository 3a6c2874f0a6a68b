#pragma once

#include <cstddef>
#include <cstring>

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"

namespace HSL {

class CValue;

// Gathers the fields of a record and writes them to a ring in as few pieces as it can: one, for all
// but long texts. On the stack; does not allocate. The ring's producer only.
class CRecordWriter {
public:
    explicit CRecordWriter(CCircularBuffer& buffer) : mBuffer(buffer) {}
    // Writes what is left.
    ~CRecordWriter() { Flush(); }
    CRecordWriter(const CRecordWriter&) = delete;
    CRecordWriter& operator=(const CRecordWriter&) = delete;

    // A number as it lies in memory.
    template <typename T>
    void Put(T value) {
        if (sizeof mPending - mSize < sizeof value) {
            Flush();
        }
        std::memcpy(mPending + mSize, &value, sizeof value);
        mSize += sizeof value;
    }

    void PutBytes(const void* bytes, std::size_t size) {
        if (sizeof mPending - mSize < size) {
            Flush();
            if (size > sizeof mPending) {
                Write(bytes, size);
                return;
            }
        }
        std::memcpy(mPending + mSize, bytes, size);
        mSize += size;
    }

    // A text as its 16-bit length and its bytes, null as "<NULL>", a longer text cut to its length
    // modulo 65536.
    void PutText(const char* text);

    // The kind byte and the payload.
    void PutValue(const CValue& value);

private:
    void PutWideText(const wchar_t* text);
    void Write(const void* bytes, std::size_t size);
    void Flush() {
        if (mSize > 0) {
            Write(mPending, mSize);
            mSize = 0;
        }
    }

    CCircularBuffer& mBuffer;
    std::size_t mSize = 0;
    unsigned char mPending[256]; // holds every record of ten numbers
};

} // namespace HSL
