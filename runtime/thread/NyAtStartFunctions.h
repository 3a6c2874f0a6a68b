#pragma once

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>

// A list of plain functions that only grows: what every starting thread is to run.
//
// The list is built at compile time and has no destructor, so that a thread that starts while the
// process ends or the module is unloaded still finds it whole. For the same reason it never frees
// what it allocates. The first segment lies in the list itself, so that a module which is loaded,
// initialised and unloaded over and over leaves nothing behind.
//
// Any thread may append and read at any time. A thread that finds a function also finds everything
// that was done before the function was appended.
//
//     for (std::size_t i = 0; i < list.Size(); ++i) {
//         list.At(i)();
//     }
class NyAtStartFunctions {
public:
    using Function = void (*)();

    // Adds a function, which must not be null, at the end. Waits for other threads that append.
    // Throws std::bad_alloc, with nothing changed, when there is no memory to grow.
    void Append(Function function);

    // The number of functions. Neither this nor At blocks or allocates.
    std::size_t Size() const { return mSize.load(std::memory_order_acquire); }

    // The function at `index`, which must be below a size that this thread has seen.
    Function At(std::size_t index) const;

private:
    struct Segment {
        std::array<Function, 32> mFunctions{};
        Segment* mNext = nullptr;
    };

    // A function, and the link to its segment, are written before the size that admits them
    // (release, acquire) and never change afterwards.
    Segment mFirst;
    std::atomic<std::size_t> mSize{0};
    pthread_mutex_t mAppending = PTHREAD_MUTEX_INITIALIZER;
};
