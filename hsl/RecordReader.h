#pragma once

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace HSL {

// Reads the fields of records back, in place from a ring of single bytes. What is not there,
// because a record was cut or never fitted, reads as zeros. The ring's consumer only, which uses
// the ring in no other way between the reader's making and Release. A read position ahead of the
// first slot, which only an indexed read leaves behind, counts as the first slot.
//
// The writer gets the room of what was read back with Release and not before: handing it over field
// by field would have the two sides pull at one cache line. It gets it back as zeros: lines that
// this side had merely read would stay shared by both processors, and each of them would then cost
// a log call a full round trip between them, because the barriers in it wait for its stores. No
// processor fetches ahead what its cache still holds; lines that were taken away it does.
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

    // The next `size` bytes: where they lie, valid until Release, or else in `scratch`.
    const unsigned char* GetInPlace(std::size_t size, unsigned char* scratch) {
        if (static_cast<std::size_t>(mRunEnd - mPosition) >= size) {
            mPosition += size;
            return mPosition - size;
        }
        GetBytes(scratch, size);
        return scratch;
    }

    // How many bytes were read that the writer has not got back.
    std::size_t Unreleased() const {
        if (mRing == nullptr) {
            return 0;
        }
        const std::uint32_t read =
            std::atomic_ref(mRing->readOffset).load(std::memory_order_relaxed);
        const auto position = static_cast<std::uint32_t>(mPosition - Block());
        return position >= read ? position - read : position - mRing->startOffset + (End() - read);
    }

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

    // At the end of a run: what is stored behind it in one piece. False when nothing is.
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
