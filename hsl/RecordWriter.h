#pragma once

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"
#include "MidiDriver/worker/circular_buffer/InPlaceRoom.h"

#include <cstddef>
#include <cstring>

namespace HSL {

class CValue;

// Writes the fields of a record to a ring of single bytes: in place as long as there is room in one
// run, and what is left then gathered in as few writes as it can. A field may reach the ring at any
// time until the end. On the stack; does not allocate. The ring's producer only.
class CRecordWriter {
public:
    explicit CRecordWriter(CCircularBuffer& buffer) : mBuffer(buffer) {
        _t_circular_buffer* const ring = buffer.GetRing();
        if (ring != nullptr) {
            const CInPlaceRoom room(*ring);
            if (room.Run() > 0) {
                mIsInPlace = true;
                mStart = mEnd = room.Start();
                mLimit = mStart + room.Run() - 1;
            }
        }
    }
    // Writes what is left.
    ~CRecordWriter() { Flush(); }
    CRecordWriter(const CRecordWriter&) = delete;
    CRecordWriter& operator=(const CRecordWriter&) = delete;

    // Where `size` bytes of fields go, at most kLargestField; Advance when they are there.
    static constexpr std::size_t kLargestField = 256;
    unsigned char* Room(std::size_t size) {
        if (static_cast<std::size_t>(mLimit - mEnd) < size) {
            Flush();
        }
        return mEnd;
    }
    void Advance(unsigned char* end) { mEnd = end; }

    // A number as it lies in memory.
    template <typename T>
    void Put(T value) {
        std::memcpy(Room(sizeof value), &value, sizeof value);
        mEnd += sizeof value;
    }

    void PutBytes(const void* bytes, std::size_t size) {
        if (static_cast<std::size_t>(mLimit - mEnd) < size) {
            Flush();
            if (size > sizeof mGathered) {
                Write(bytes, size);
                return;
            }
        }
        std::memcpy(mEnd, bytes, size);
        mEnd += size;
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
        if (mEnd != mStart) {
            if (mIsInPlace) {
                CInPlaceRoom::Store(*mBuffer.GetRing(), mEnd);
            } else {
                Write(mStart, static_cast<std::size_t>(mEnd - mStart));
            }
        }
        mIsInPlace = false;
        mStart = mEnd = mGathered;
        mLimit = mGathered + sizeof mGathered;
    }

    CCircularBuffer& mBuffer;
    bool mIsInPlace = false;
    unsigned char mGathered[kLargestField]; // holds every record of ten numbers
    unsigned char* mStart = mGathered;
    unsigned char* mEnd = mGathered;
    unsigned char* mLimit = mGathered + sizeof mGathered;
};

} // namespace HSL
