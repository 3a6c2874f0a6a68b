#pragma once

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace HSL {

// Reads the fields of records from a ring of single bytes, in place:
//
//     CRecordReader reader(context.GetBuffer());
//     const auto marker = reader.Get<unsigned char>();
//     const auto sequence = reader.Get<std::int32_t>();
//     reader.Release();
//
// Only the ring's consumer may use a reader, and must not use the ring in any other way until it
// has called Release. Fields that are not there, because a record was cut or never fitted, read as
// zeros. A read position ahead of the first slot, which only an indexed read leaves behind, counts
// as the first slot.
//
// Release gives the room of what was read back to the writer. To do so field by field would have
// the two sides pull at one cache line. The room is given back as zeros. Cache lines that this side
// had only read would stay shared by both processors, and each of them would cost a log call a full
// round trip between the two, because the barriers in the call wait for its stores. A line that was
// written here belongs to this processor alone, so that the writer's prefetch brings it over in
// time.
class CRecordReader {
public:
    CRecordReader() = default;
    explicit CRecordReader(CCircularBuffer& buffer) : mRing(buffer.GetRing()) {
        if (mRing != nullptr) {
            // Relaxed: this side alone stores it.
            const std::uint32_t read =
                std::atomic_ref(mRing->readOffset).load(std::memory_order_relaxed);
            const bool isInDataArea = read >= mRing->startOffset && read <= mRing->lastSlotOffset;
            mPosition = Block() + (isInDataArea ? read : mRing->startOffset);
            mRunEnd = mPosition;
        }
    }

    template <typename T>
    T Get() {
        T value;
        if (static_cast<std::size_t>(mRunEnd - mPosition) >= sizeof value) [[likely]] {
            std::memcpy(&value, mPosition, sizeof value);
            mPosition += sizeof value;
        } else {
            GetBytes(&value, sizeof value);
        }
        return value;
    }

    void GetBytes(void* destination, std::size_t size) {
        auto* to = static_cast<unsigned char*>(destination);
        while (size > 0 && (mPosition != mRunEnd || FindRun())) {
            const std::size_t run = std::min(size, static_cast<std::size_t>(mRunEnd - mPosition));
            std::memcpy(to, mPosition, run);
            mPosition += run;
            to += run;
            size -= run;
        }
        std::memset(to, 0, size);
    }

    // Returns the next `size` bytes: where they lie, valid until Release, or, where they wrap or
    // are not all known to be stored, copied to `scratch`.
    const unsigned char* GetInPlace(std::size_t size, unsigned char* scratch) {
        if (static_cast<std::size_t>(mRunEnd - mPosition) >= size) {
            mPosition += size;
            return mPosition - size;
        }
        GetBytes(scratch, size);
        return scratch;
    }

    // Returns how many bytes were read and not released yet.
    std::size_t Unreleased() const {
        if (mRing == nullptr) {
            return 0;
        }
        const std::uint32_t read =
            std::atomic_ref(mRing->readOffset).load(std::memory_order_relaxed);
        const auto position = static_cast<std::uint32_t>(mPosition - Block());
        return position >= read ? position - read : position - mRing->startOffset + (End() - read);
    }

    // Gives the room of all bytes that were read back to the writer.
    void Release() {
        if (mRing == nullptr) {
            return;
        }
        if (mPosition == Block() + End()) {
            mPosition = Block() + mRing->startOffset;
            mRunEnd = mPosition;
        }
        const std::uint32_t read =
            std::atomic_ref(mRing->readOffset).load(std::memory_order_relaxed);
        const auto position = static_cast<std::uint32_t>(mPosition - Block());
        if (position >= read) {
            Clear(read, position);
        } else {
            Clear(read, End());
            Clear(mRing->startOffset, position);
        }
        // Release: all was read, and cleared, before the writer may write over it.
        std::atomic_ref(mRing->readOffset).store(position, std::memory_order_release);
    }

private:
    void Clear(std::uint32_t begin, std::uint32_t end) {
        std::memset(reinterpret_cast<unsigned char*>(mRing) + begin, 0, end - begin);
    }
    const unsigned char* Block() const { return reinterpret_cast<const unsigned char*>(mRing); }
    std::uint32_t End() const { return mRing->lastSlotOffset + 1; }

    // Goes on, at the end of a run, to the next bytes that are stored in one piece. Returns false
    // when there are none.
    bool FindRun() {
        if (mRing == nullptr) {
            return false;
        }
        // Acquire: who sees the position sees the bytes before it.
        const std::uint32_t write =
            std::atomic_ref(mRing->writeOffset).load(std::memory_order_acquire);
        if (mPosition == Block() + End()) {
            mPosition = Block() + mRing->startOffset;
        }
        const auto position = static_cast<std::uint32_t>(mPosition - Block());
        mRunEnd = Block() + (position <= write ? write : End());
        return mPosition != mRunEnd;
    }

    _t_circular_buffer* mRing = nullptr;
    const unsigned char* mPosition = nullptr;
    const unsigned char* mRunEnd = nullptr;
};

} // namespace HSL
