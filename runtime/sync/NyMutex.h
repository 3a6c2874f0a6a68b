#pragma once

#include <cstdint>
#include <memory>
#include <string>

// A named, recursive mutex over a critical region of the platform.
//
// If the platform could not create the region, the mutex stays degenerate for life: every `Lock`
// returns true and every `Unlock` does nothing. That is intended for the sake of the callers, whom
// a failing platform call shall neither block nor fail.
//
// Any thread may lock; only the holder may unlock. Everything done before the last `Unlock` is
// visible to the thread that locks next. Only the constructors allocate.
//
//     NyMutex mutex("ports");
//     if (mutex.Lock(100)) { // waits for up to 100 ms
//         ++ports;
//         mutex.Unlock();
//     }
class NyMutex {
public:
    NyMutex(); // named "unnamed"
    explicit NyMutex(const char* name);
    virtual ~NyMutex(); // no thread may hold the mutex or wait for it
    NyMutex(const NyMutex&) = delete;
    NyMutex& operator=(const NyMutex&) = delete;

    // Takes the mutex. Blocks for up to `timeoutMs` milliseconds; 0xFFFFFFFF means without limit. A
    // value from 0x80000000 to 0xFFFFFFFE reaches the platform as a negative number, which the
    // platform reads as microseconds; this is kept. Returns false on time-out only: any other
    // failure of the platform counts as success.
    bool Lock(unsigned int timeoutMs);

    // Undoes one `Lock` that returned true.
    void Unlock();

    // Both are for diagnostics. The count is the number of locks that are not undone yet; only the
    // holder can rely on it.
    const std::string& GetName() const { return mName; }
    std::int32_t GetLockCount() const { return mLockCount; }

private:
    struct PlatformData;

    std::string mName;
    std::int32_t mLockCount = 0; // changed by the holder only, hence under the mutex itself
    std::unique_ptr<PlatformData> mPlatformData;
};
