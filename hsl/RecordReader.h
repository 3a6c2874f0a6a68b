#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"

namespace HSL {

// Reads the fields of a record back from a ring. What is not there, because a record was cut or
// never fitted, reads as zeros. The ring's consumer only.
class CRecordReader {
public:
    explicit CRecordReader(CCircularBuffer& buffer) : mBuffer(buffer) {}

    template <typename T>
    T Get() {
        T value;
        GetBytes(&value, sizeof value);
        return value;
    }

    void GetBytes(void* destination, std::size_t size) {
        int count = static_cast<int>(size);
        if (mBuffer.Read(destination, count) == kCBNullRing) {
            count = 0;
        }
        const auto got = static_cast<std::size_t>(std::max(count, 0));
        std::memset(static_cast<unsigned char*>(destination) + got, 0, size - got);
    }

private:
    CCircularBuffer& mBuffer;
};

} // namespace HSL
