#pragma once

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"
#include "MidiDriver/worker/circular_buffer/InPlaceRoom.h"

#include <cstddef>
#include <cstring>

namespace HSL {

class CValue;

// Writes the fields of a record to a ring of single bytes:
//
//     CRecordWriter writer(context.GetBuffer());
//     writer.Put(kRecordMarker);
//     writer.PutText("late by %d us");
//
// It writes in place as long as there is room in one run of the ring, and gathers the rest in as
// few writes as it can. The last fields reach the ring with the destructor. Only the ring's
// producer may use a writer. It does not allocate.
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

    // Returns where the next `size` bytes of fields go, at most kLargestField. Advance says where
    // those that were written there end.
    static constexpr std::size_t kLargestField = 256;
    unsigned char* Room(std::size_t size) {
        if (static_cast<std::size_t>(mLimit - mEnd) < size) {
            Flush();
        }
        return mEnd;
    }
    void Advance(unsigned char* end) { mEnd = end; }

    // Writes a number as it lies in memory.
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

    // Writes a text as its 16-bit length and its bytes. Null is written as "<NULL>", and a longer
    // text is cut to its length modulo 65536.
    void PutText(const char* text);

    // Writes the kind byte and the payload of a value. See CValue::Serialize.
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
