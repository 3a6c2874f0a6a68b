// Mutexes whose use the compiler checks: Clang reports, as an error, whoever touches what a mutex
// guards without holding it. For other compilers the annotations are empty.
//
//     Mutex mMutex;
//     int mCount QUORVEL_GUARDED_BY(mMutex) = 0;
//     void Count() QUORVEL_REQUIRES(mMutex); // the caller holds it
//
//     const MutexLock lock(mMutex); // until the end of the block
//
// The analysis looks at one function at a time, and takes a lambda for a function of its own: one
// that touches guarded data under its caller's lock says so, by QUORVEL_REQUIRES behind its
// parameters. Constructors and destructors are not checked.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#ifdef __clang__
#define QUORVEL_THREAD_SAFETY(annotation) __attribute__((annotation))
#else
#define QUORVEL_THREAD_SAFETY(annotation)
#endif

// Mark data that may be used only with the mutex held: a variable, or what a pointer leads to.
#define QUORVEL_GUARDED_BY(mutex) QUORVEL_THREAD_SAFETY(guarded_by(mutex))
#define QUORVEL_POINTEE_GUARDED_BY(mutex) QUORVEL_THREAD_SAFETY(pt_guarded_by(mutex))
// Mark functions that may be called only with the mutexes held, or only without them.
#define QUORVEL_REQUIRES(...) QUORVEL_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define QUORVEL_EXCLUDES(...) QUORVEL_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
// Mark classes like MutexLock, and functions that lock or unlock a mutex.
#define QUORVEL_SCOPED_LOCK QUORVEL_THREAD_SAFETY(scoped_lockable)
#define QUORVEL_ACQUIRE(...) QUORVEL_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define QUORVEL_RELEASE(...) QUORVEL_THREAD_SAFETY(release_capability(__VA_ARGS__))

// A standard mutex. Locking blocks, and allocates nothing.
template <typename Standard>
class QUORVEL_THREAD_SAFETY(capability("mutex")) CheckedMutex {
public:
    constexpr CheckedMutex() = default;
    CheckedMutex(const CheckedMutex&) = delete;
    CheckedMutex& operator=(const CheckedMutex&) = delete;

    void Lock() QUORVEL_ACQUIRE() { mMutex.lock(); }
    void Unlock() QUORVEL_RELEASE() { mMutex.unlock(); }

private:
    friend class ConditionVariable;

    Standard mMutex;
};

using Mutex = CheckedMutex<std::mutex>;
// A mutex that the thread that holds it may lock again.
using RecursiveMutex = CheckedMutex<std::recursive_mutex>;

// Holds a mutex from its construction to its destruction, or to Unlock.
template <typename AnyMutex>
class QUORVEL_SCOPED_LOCK MutexLock {
public:
    explicit MutexLock(AnyMutex& mutex) QUORVEL_ACQUIRE(mutex) : mMutex(&mutex) { mutex.Lock(); }
    ~MutexLock() QUORVEL_RELEASE() {
        if (mMutex != nullptr) {
            mMutex->Unlock();
        }
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    // Unlocks early. May be called once.
    void Unlock() QUORVEL_RELEASE() {
        mMutex->Unlock();
        mMutex = nullptr;
    }

private:
    AnyMutex* mMutex;
};

// A standard condition variable. A wait unlocks the mutex while it lasts and may end without a
// notification, so the caller waits in a loop until its condition holds.
class ConditionVariable {
public:
    void Wait(Mutex& mutex) QUORVEL_REQUIRES(mutex) {
        std::unique_lock lock(mutex.mMutex, std::adopt_lock);
        mCondition.wait(lock);
        lock.release();
    }
    // Returns false if the time came first.
    bool WaitUntil(Mutex& mutex, std::chrono::steady_clock::time_point time)
        QUORVEL_REQUIRES(mutex) {
        std::unique_lock lock(mutex.mMutex, std::adopt_lock);
        const std::cv_status status = mCondition.wait_until(lock, time);
        lock.release();
        return status == std::cv_status::no_timeout;
    }
    void NotifyAll() { mCondition.notify_all(); }

private:
    std::condition_variable mCondition;
};
