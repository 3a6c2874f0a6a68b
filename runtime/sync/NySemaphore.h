#pragma once

#include <memory>
#include <string>

// A counting semaphore with a maximum, over a semaphore of the platform.
//
// Any thread may call `Wait` and `Raise`. `Create`, `destroy` and the destructor must not run at
// the same time as those. What a thread did before `Raise` is visible to the thread whose `Wait`
// takes that unit. Only `Wait` blocks; only the constructor and `Create` allocate.
//
//     NySemaphore queued(0, 100);
//     queued.Raise();          // on one thread: there is one item more
//     if (queued.Wait(500)) {} // on another one: takes an item, waits for it for up to 500 ms
class NySemaphore {
public:
    // Does what `Create` does and drops its result.
    NySemaphore(int initial, int maximum);
    ~NySemaphore();
    NySemaphore(const NySemaphore&) = delete;
    NySemaphore& operator=(const NySemaphore&) = delete;

    // Replaces the semaphore by one that holds `initial` units and never more than `maximum`.
    // Returns false when the platform made none; there is no semaphore then.
    bool Create(int initial, int maximum);

    // Takes a unit. Blocks for up to `timeoutMs` milliseconds; 0xFFFFFFFF means without limit, and
    // a value from 0x80000000 to 0xFFFFFFFE reaches the platform as a negative number, which the
    // platform reads as microseconds. Returns false on time-out, on any failure and when there is
    // no semaphore.
    bool Wait(unsigned int timeoutMs);

    // Gives a unit. Returns false when the platform refused it, as it refuses a unit above the
    // maximum. Returns true when there is no semaphore, although `Wait` then returns false. That is
    // intended for the sake of those who give units: a missing semaphore is no failure of theirs.
    bool Raise();

    // Deletes the semaphore, if there is one.
    void destroy();

    const std::string& GetName() const { return mName; }

private:
    struct Holder;

    std::string mName; // always "unnamed"
    std::unique_ptr<Holder> mSemaphore;
};
