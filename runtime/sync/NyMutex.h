#pragma once

#include <cstdint>
#include <memory>
#include <string>

// A named, recursive mutex over a critical region of the platform.
//
// A mutex whose region could not be created stays degenerate for life: every `Lock` returns true
// and every `Unlock` does nothing. That is intended: a failing platform call neither blocks nor
// fails a caller.
//
// Any thread may lock; only the holder may unlock. Everything done before the last `Unlock` is
// visible to the thread that locks next. Nothing allocates but the constructors.
class NyMutex {
public:
    NyMutex(); // named "unnamed"
    explicit NyMutex(const char* name);
    virtual ~NyMutex(); // no thread may hold or wait for the mutex
    NyMutex(const NyMutex&) = delete;
    NyMutex& operator=(const NyMutex&) = delete;

    // Takes the mutex; blocks for up to `timeoutMs` milliseconds, 0xFFFFFFFF without limit. Values
    // from 0x80000000 to 0xFFFFFFFE reach the platform as a negative number, which counts
    // microseconds (kept so). False on time-out only: any other failure of the platform counts as
    // success.
    bool Lock(unsigned int timeoutMs);

    // Undoes one `Lock` that returned true.
    void Unlock();

    // For diagnostics. The count of locks not yet undone is steady only for the holder.
    const std::string& GetName() const { return mName; }
    int32_t GetLockCount() const { return mLockCount; }

private:
    struct PlatformData;

    std::string mName;
    int32_t mLockCount = 0; // changed by the holder only, hence under the mutex itself
    std::unique_ptr<PlatformData> mPlatformData;
};
