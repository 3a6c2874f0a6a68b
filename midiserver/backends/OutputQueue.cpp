#include "midiserver/backends/OutputQueue.h"

#include <sys/mman.h>

#include <algorithm>
#include <new>

namespace MidiServer {

OutputQueue::OutputQueue(std::size_t bytes)
    : mRing(1, static_cast<unsigned>(bytes), CCircularBuffer::MallocFunc, CCircularBuffer::FreeFunc,
            nullptr),
      mCapacity(bytes) {
    if (mRing.GetRing() == nullptr) {
        throw std::bad_alloc();
    }
}

bool OutputQueue::LockMemory() noexcept {
    const std::uint32_t size = cb_calc_buffer_size(1, static_cast<std::uint32_t>(mCapacity));
    return mlock(mRing.GetRing(), size) == 0 && mlock(this, sizeof *this) == 0;
}

bool OutputQueue::Write(std::span<const std::uint8_t> event) noexcept {
    // The reader only ever makes more room, so what fits now still fits below.
    const std::size_t room = mCapacity - cb_get_num_elem_used(mRing.GetRing());
    if (room < kHeaderBytes || event.size() > room - kHeaderBytes) {
        return false;
    }
    const auto length = static_cast<std::uint32_t>(event.size());
    int count = kHeaderBytes;
    mRing.Write(&length, count);
    count = static_cast<int>(length);
    mRing.Write(event.data(), count);
    return true;
}

std::size_t OutputQueue::Next() noexcept {
    if (mLeft == 0) {
        std::uint32_t length = 0;
        int count = kHeaderBytes;
        mRing.Peek(0, &length, count);
        // The writer stores the header before the bytes, so the event may still be incomplete.
        if (count < static_cast<int>(kHeaderBytes) ||
            cb_get_num_elem_used(mRing.GetRing()) < kHeaderBytes + length) {
            return 0;
        }
        mRing.Read(&length, count);
        mLeft = length;
    }
    return mLeft;
}

void OutputQueue::Take(std::span<std::uint8_t> bytes) noexcept {
    int count = static_cast<int>(std::min(bytes.size(), mLeft));
    mRing.Read(bytes.data(), count);
    mLeft -= static_cast<std::size_t>(count);
}

std::size_t OutputQueue::Clear() noexcept {
    std::size_t events = 0;
    while (std::size_t size = Next()) {
        std::uint8_t dropped[256];
        for (; size != 0; size = mLeft) {
            Take(std::span(dropped).first(std::min(size, sizeof dropped)));
        }
        ++events;
    }
    return events;
}

} // namespace MidiServer
