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
// Only the owning thread may call `Start`, `WaitForExit` and the destructor. Any thread may call
// `GetId` and the static functions.
//
//     class Blinker : public NyThread {
//         void Run() override { Blink(); }
//     };
//     Blinker blinker;
//     blinker.Start();
//     blinker.WaitForExit();
class NyThread {
public:
    NyThread(); // named "unnamed", at normal priority

    // Neither stops nor joins the thread. The owner must first make it leave `Run` and join it.
    virtual ~NyThread();
    NyThread(const NyThread&) = delete;
    NyThread& operator=(const NyThread&) = delete;

    // Starts the thread under SCHED_FIFO, at the priority that `mPriority` maps to. Where the
    // platform refuses that, the thread starts with the scheduling that it inherits, and one syslog
    // line per loaded copy of the runtime says so. What the owner did before is visible in `Run`.
    //
    // Does nothing while a started thread has not left `Run`. A thread that left `Run` can be
    // started again; unless it was joined, `Start` joins it first.
    //
    // If no thread could be created, `Start` does not report it. `WaitForExit` then returns an
    // error, and any later `Start` does nothing.
    virtual void Start();

    // Blocks until the thread has ended; everything that the thread did is then visible here.
    // Returns 0, the error of pthread_join, or ESRCH when there is no thread to join, because it
    // was never started, failed to start or was joined already. When the thread calls this from its
    // own `Run`, it returns EDEADLK at once, and the owner still has to join the thread.
    virtual int WaitForExit();

    // The thread's body, supplied by the derived class.
    virtual void Run() = 0;

    // The thread that was started last; zero before the first. `Run` may ask for it too.
    pthread_t GetId() const { return mPlatformData->mThread.load(std::memory_order_relaxed); }

    static pthread_t GetCurrentId() { return pthread_self(); }

    // Initialize records the calling thread as the main thread. MainThreadID is that thread, zero
    // before. IsMainThread says whether the calling thread is it.
    static void Initialize();
    static pthread_t MainThreadID() { return msMainThreadID.load(std::memory_order_relaxed); }
    static bool IsMainThread();

    // Blocks for that many microseconds.
    static void Sleep(int microseconds);

    // Does nothing and leaves both untouched. This is intended: the call is kept for those who make
    // it, and no platform's times are offered.
    void GetThreadTimes(NyTime& a, NyTime& b);

    // The body of every started thread. Runs the at-start functions, then `Run` unless `thread` is
    // null, and then releases the calling thread's log context.
    static void ThreadStart(NyThread* thread);

    // The functions that every thread runs as it starts, in this order. Functions that are appended
    // meanwhile are run as well. NyInit fills the list before threads start.
    static NyAtStartFunctions mAtStartFunctions;

protected:
    std::string mName;
    // The priority level, set before `Start`: 1000 is the lowest, 1005 is normal and 1015 is the
    // highest. Any other value counts as normal.
    std::int32_t mPriority;

private:
    struct PlatformData {
        // Stored by the owner and by the new thread, whichever comes first. Both store the same
        // value, which orders nothing.
        std::atomic<pthread_t> mThread{};
        // 1 from `Start` until `Run` has returned. The ending thread releases it and `Start`
        // acquires it, so that the next `Run` sees what the ended one did.
        std::atomic<std::int32_t> mRunning{0};
        // Whether there is a thread that was not joined. Only the owner touches this.
        bool mJoinable = false;
    };

    static void* ThreadBody(void* argument);

    [[maybe_unused]] std::int32_t mSpare = -1; // read by nothing
    std::unique_ptr<PlatformData> mPlatformData;

    static std::atomic<pthread_t> msMainThreadID;
};
