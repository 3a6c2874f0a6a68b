#pragma once

#include <memory>
#include <string>

// A counting semaphore with a maximum, over a semaphore of the platform.
//
// `Wait` and `Raise`: any thread. `Create`, `destroy` and the destructor must not race with them.
// What a thread did before `Raise` is visible to the thread whose `Wait` takes that unit. Only
// `Wait` blocks; only the constructor and `Create` allocate.
class NySemaphore {
public:
    // As `Create`, its result dropped.
    NySemaphore(int initial, int maximum);
    ~NySemaphore();
    NySemaphore(const NySemaphore&) = delete;
    NySemaphore& operator=(const NySemaphore&) = delete;

    // Replaces the semaphore by one that holds `initial` units and never more than `maximum`.
    // False when the platform made none; there is no semaphore then.
    bool Create(int initial, int maximum);

    // Takes a unit; blocks for up to `timeoutMs` milliseconds, 0xFFFFFFFF without limit (from
    // 0x80000000 to 0xFFFFFFFE the number is negative to the platform, which counts microseconds).
    // False on time-out, on any failure and when there is no semaphore.
    bool Wait(unsigned int timeoutMs);

    // Gives a unit. False when the platform refused it, as it does a unit above the maximum. True
    // when there is no semaphore: intended, though `Wait` then fails.
    bool Raise();

    // Deletes the semaphore, if there is one.
    void destroy();

    const std::string& GetName() const { return mName; }

private:
    struct Holder;

    std::string mName; // always "unnamed"
    std::unique_ptr<Holder> mSemaphore;
};
