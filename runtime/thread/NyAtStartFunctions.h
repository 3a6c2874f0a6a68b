#pragma once

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <limits>

// A vector of plain functions that only grows.
//
// It is built at compile time and has no destructor, so that a thread that starts while the process
// ends or the module is unloaded still finds it whole. What it allocates, beyond the first
// `kInPlace` entries, is for that reason never freed.
//
// Any thread may append and read at any time; who finds a function finds what was done before it
// was appended.
class NyAtStartFunctions {
public:
    using Function = void (*)();
    static constexpr std::size_t kInPlace = 32;

    // Adds a function, which is not null, at the end. Waits for other threads that append. Throws
    // std::bad_alloc, with nothing changed, when there is no memory to grow.
    void Append(Function function);

    // How many functions there are. Neither this nor `At` blocks or allocates.
    std::size_t Size() const { return mSize.load(std::memory_order_acquire); }

    // The function at `index`, which is below a size that this thread has seen.
    Function At(std::size_t index) const;

private:
    // Where an entry beyond those in place lies: each segment is twice as large as the one before,
    // so that none of them ever moves under a reader.
    struct Place {
        explicit Place(std::size_t index);
        std::size_t mSegment;
        std::size_t mSegmentSize;
        std::size_t mIndex;
    };

    // An entry and its segment are written before the size that admits them (release, acquire) and
    // not touched again.
    std::array<Function, kInPlace> mFirst{};
    std::array<Function*, std::numeric_limits<std::size_t>::digits> mSegments{};
    std::atomic<std::size_t> mSize{0};
    pthread_mutex_t mAppending = PTHREAD_MUTEX_INITIALIZER;
};
