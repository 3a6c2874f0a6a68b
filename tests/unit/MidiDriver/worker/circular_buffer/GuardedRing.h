#pragma once

#include "MidiDriver/worker/circular_buffer/circular_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <numeric>
#include <utility>
#include <vector>

using Bytes = std::vector<unsigned char>;

// `size` bytes that count up from `first`.
inline Bytes Counting(std::size_t size, unsigned char first = 1) {
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

// A ring in the test's own memory, with guard bytes around the block that must stay as they are.
class GuardedRing {
public:
    static constexpr unsigned char kUnwritten = 0xAA; // what the data area holds at first

    GuardedRing(std::uint32_t elemSize, std::uint32_t numElems)
        : mSize(cb_calc_buffer_size(elemSize, numElems)),
          mMemory(new unsigned char[mSize + 2 * kGuardSize]) {
        std::memset(mMemory.get(), kGuard, mSize + 2 * kGuardSize);
        std::memset(mMemory.get() + kGuardSize, kUnwritten, mSize);
        EXPECT_EQ(cb_initialize_with_buffer(Get(), elemSize, numElems), 0u);
    }
    ~GuardedRing() { EXPECT_TRUE(IsIntact()) << "something was written outside the block"; }
    GuardedRing(const GuardedRing&) = delete;
    GuardedRing& operator=(const GuardedRing&) = delete;

    _t_circular_buffer* Get() const {
        return reinterpret_cast<_t_circular_buffer*>(mMemory.get() + kGuardSize);
    }
    operator _t_circular_buffer*() const { return Get(); }
    _t_circular_buffer* operator->() const { return Get(); }

    unsigned char* Data() const { return mMemory.get() + kGuardSize + kCBHeaderSize; }
    std::size_t DataSize() const { return mSize - kCBHeaderSize; }

    // Positions in slots. That of the oldest element may lie ahead of the first slot, and so may
    // its offset ahead of the block.
    std::int64_t ReadSlot() const {
        const std::int64_t start = kCBHeaderSize;
        return (static_cast<std::int32_t>(Get()->readOffset) - start) / Get()->elemSize;
    }
    std::int64_t WriteSlot() const {
        return (Get()->writeOffset - kCBHeaderSize) / Get()->elemSize;
    }

    // What slots `from` to 0 ahead of the first one hold: zeros before the block, and in it the
    // control block.
    Bytes AheadOfFirstSlot(std::int64_t from) const {
        Bytes bytes(static_cast<std::size_t>(-from) * Get()->elemSize);
        const std::size_t inBlock = std::min<std::size_t>(bytes.size(), kCBHeaderSize);
        std::memcpy(bytes.data() + bytes.size() - inBlock, Data() - inBlock, inBlock);
        return bytes;
    }

    // Writes all of `bytes`; the result and the number of elements stored.
    std::pair<unsigned int, int> Write(const Bytes& bytes) {
        int count = static_cast<int>(bytes.size() / Get()->elemSize);
        const unsigned int result = cb_write(Get(), bytes.data(), &count);
        return {result, count};
    }

    // Reads up to `count` elements, which must return `result`.
    Bytes Read(int count, unsigned int result = 0) {
        Bytes bytes(static_cast<std::size_t>(count) * Get()->elemSize);
        EXPECT_EQ(cb_read(Get(), bytes.data(), &count), result);
        bytes.resize(static_cast<std::size_t>(count) * Get()->elemSize);
        return bytes;
    }

    // Peeks at up to `count` elements from `start`, which must succeed.
    Bytes Peek(unsigned int start, int count) {
        Bytes bytes(static_cast<std::size_t>(count) * Get()->elemSize);
        EXPECT_EQ(cb_peek(Get(), start, bytes.data(), &count), 0u);
        bytes.resize(static_cast<std::size_t>(count) * Get()->elemSize);
        return bytes;
    }

    // Moves the positions of an empty ring on to the slot, so that contents wrap where a test
    // wants them to.
    void StartAt(std::uint32_t slot) {
        ASSERT_EQ(cb_get_num_elem_used(Get()), 0u);
        const Bytes element(Get()->elemSize, kUnwritten);
        while (ReadSlot() != slot) {
            ASSERT_EQ(Write(element), std::pair(0u, 1));
            ASSERT_EQ(Read(1), element);
        }
    }

private:
    static constexpr std::size_t kGuardSize = 128;
    static constexpr unsigned char kGuard = 0xC5;

    bool IsIntact() const {
        const auto isGuard = [](unsigned char byte) { return byte == kGuard; };
        const unsigned char* behind = mMemory.get() + kGuardSize + mSize;
        return std::all_of(mMemory.get(), mMemory.get() + kGuardSize, isGuard) &&
               std::all_of(behind, behind + kGuardSize, isGuard);
    }

    std::size_t mSize;
    std::unique_ptr<unsigned char[]> mMemory;
};

// A copy function for the block path that keeps a list of its calls.
class CopyCalls {
public:
    struct Call {
        void* destination;
        const void* source;
        unsigned long size;
        bool operator==(const Call&) const = default;
    };

    CopyCalls() { msCalls.clear(); }

    static void* Copy(void* destination, const void* source, unsigned long size) {
        msCalls.push_back({destination, source, size});
        return std::memcpy(destination, source, size);
    }
    const std::vector<Call>& All() const { return msCalls; }

private:
    inline static std::vector<Call> msCalls;
};
