#pragma once

#include "runtime/thread/NyAtStartFunctions.h"

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

struct NyTime;

// The base class of every thread of the system: a real-time thread with a priority level.
//
// `Start`, `WaitForExit` and the destructor belong to the owning thread. Statics and `GetId`: any
// thread.
class NyThread {
public:
    NyThread(); // named "unnamed", at normal priority

    // Neither stops nor joins: the owner makes the thread leave `Run` and joins it first.
    virtual ~NyThread();
    NyThread(const NyThread&) = delete;
    NyThread& operator=(const NyThread&) = delete;

    // Starts the thread: SCHED_FIFO at the priority that `mPriority` maps to. Where the platform
    // refuses that, the thread starts with the scheduling it inherits, and one syslog line per
    // loaded copy of the runtime says so. Does nothing while a started thread has not left `Run`.
    // What the owner did before is visible in `Run`.
    //
    // That no thread could be created is not reported here: `WaitForExit` then returns an error,
    // and `Start` does nothing any more.
    //
    // A thread that left `Run` can be started again; unless it was joined, `Start` joins it first.
    virtual void Start();

    // Blocks until the thread has ended; after that, what the thread did is visible here. Returns
    // 0, the error of pthread_join, or ESRCH when there is no thread to join: never started, failed
    // to start, or joined already. From its own `Run` it returns EDEADLK at once, and the thread is
    // still to be joined by the owner.
    virtual int WaitForExit();

    // The thread's body, supplied by the derived class.
    virtual void Run() = 0;

    // The thread last started; zero before. Known inside `Run` too.
    pthread_t GetId() const { return mPlatformData->mThread.load(std::memory_order_relaxed); }

    static pthread_t GetCurrentId() { return pthread_self(); }

    // The thread that called `Initialize`, the main thread; zero before.
    static pthread_t MainThreadID() { return msMainThreadID.load(std::memory_order_relaxed); }
    static bool IsMainThread();
    static void Initialize();

    // Blocks for that many microseconds.
    static void Sleep(int microseconds);

    // Does nothing and leaves both untouched, on purpose.
    void GetThreadTimes(NyTime& a, NyTime& b);

    // The body of every started thread: at-start functions, `Run` (unless `thread` is null),
    // release of the thread's log context.
    static void ThreadStart(NyThread* thread);

    // Run in order at the start of every thread, those included that are appended meanwhile. Filled
    // during NyInit, before threads start.
    static NyAtStartFunctions mAtStartFunctions;

protected:
    std::string mName;
    // Set before `Start`: from 1000 (lowest) over 1005 (normal) to 1015 (highest); anything else
    // counts as normal.
    int32_t mPriority;

private:
    struct PlatformData {
        // Stored by the owner and, in case it runs first, by the new thread; the same value, which
        // orders nothing.
        std::atomic<pthread_t> mThread{};
        // 1 from `Start` until `Run` has returned. The release by the ending thread and the acquire
        // by `Start` make what the ended `Run` did visible to the next one.
        std::atomic<int32_t> mRunning{0};
        // There is a thread that was not joined. The owner's alone.
        bool mJoinable = false;
    };

    static void* ThreadBody(void* argument);

    [[maybe_unused]] int32_t mSpare = -1; // read by nothing
    std::unique_ptr<PlatformData> mPlatformData;

    static std::atomic<pthread_t> msMainThreadID;
};
