// The inner state of run loops and their sources.
//
// Threads take the locks in this order: a source's `mScheduleMutex`, a loop's `mMutex`, a source's
// `mMutex`. They hold only the first while a callback (schedule or cancel) runs. A loop and the
// sources in it keep references to each other; invalidating the source, removing it, or the end of
// the loop's thread breaks the circle.
#pragma once

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/support/Mutex.h"

#include <CoreFoundation/CFRunLoop.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

#include <atomic>
#include <vector>

struct __CFRunLoopSource final : CFRuntimeObject {
    __CFRunLoopSource(CFIndex order, const CFRunLoopSourceContext& context);
    ~__CFRunLoopSource() override;

    bool IsValid() const;
    void Invalidate();
    void Signal() { mSignalled.store(true, std::memory_order_release); }
    // Signals the source and wakes every loop that it is in.
    void SignalAndWake();
    bool IsSignalled() const { return mSignalled.load(std::memory_order_acquire); }
    bool TakeSignal() { return mSignalled.exchange(false, std::memory_order_acq_rel); }

    const CFIndex mOrder;
    CFRunLoopSourceContext mContext; // constant after construction

    // A thread that adds or removes the source holds it until the callback that reports the change
    // has ended, so that schedule and cancel arrive in the order of the changes.
    RecursiveMutex mScheduleMutex;

    mutable Mutex mMutex;
    bool mValid QUORVEL_GUARDED_BY(mMutex) = true;
    // The loops that it is in, each one retained and listed once for each mode.
    std::vector<CFRunLoopRef> mLoops QUORVEL_GUARDED_BY(mMutex);

private:
    // Returns a loop that it is in, retained, or null if it is in none any more.
    CFRunLoopRef InvalidateAndCopyAnyLoop();

    std::atomic<bool> mSignalled{false};
};

struct __CFRunLoop final : CFRuntimeObject {
    __CFRunLoop();
    ~__CFRunLoop() override;

    // Modes are strings, never null and never the common modes. Only AddSource needs memory; if
    // there is none, it throws std::bad_alloc and has added nothing. Every loop can therefore be
    // run, stopped and taken down without memory.
    void AddSource(CFRunLoopSourceRef source, CFRunLoopMode mode);
    void RemoveSource(CFRunLoopSourceRef source, CFRunLoopMode mode);
    // Removes the source from all modes. The caller holds a reference to both.
    void RemoveWholly(CFRunLoopSourceRef source) QUORVEL_REQUIRES(source->mScheduleMutex);
    bool ContainsSource(CFRunLoopSourceRef source, CFRunLoopMode mode);
    // `wasStopped` (may be null) tells whether the run was stopped, even if its result is another.
    CFRunLoopRunResult Run(CFRunLoopMode mode, CFTimeInterval seconds,
                           bool returnAfterSourceHandled, bool* wasStopped);
    void Stop();
    void WakeUp();
    bool IsWaiting() const { return mWaiting.load(std::memory_order_relaxed); }
    CFRunLoopMode CopyCurrentMode() const;

    // Removes every source; the loop accepts none any more. The loop's thread calls it as it ends.
    void TearDown();

    // Returns a duplicate of a descriptor, with which a caller waits for the descriptor to be
    // ready. Its handlers run on the loop's thread whenever the loop runs, in any mode: they may
    // signal sources but must not run callbacks. Closing the result cancels them. The loop must
    // outlive it. Throws std::bad_alloc, or a std::runtime_error if there is no descriptor left.
    boost::asio::posix::stream_descriptor Watch(int descriptor);

private:
    // A source in a mode.
    struct Entry {
        CFOwned<CFRunLoopSourceRef> source;
        CFOwned<CFRunLoopMode> mode;
        bool isDue = false; // the pass that is under way has still to perform it
    };

    // A run of the loop. It lies on the stack of the thread that runs the loop.
    struct Activation {
        const CFRunLoopMode mode;
        Activation* outer = nullptr;
        bool stopped = false;
    };

    // Removes the source from the mode or, if `mode` is null, from one of its modes. Returns false
    // if it is not there.
    bool RemoveFromOneMode(CFRunLoopSourceRef source, CFRunLoopMode mode)
        QUORVEL_REQUIRES(source->mScheduleMutex);
    // A null mode stands for any.
    std::vector<Entry>::iterator Find(CFRunLoopSourceRef source, CFRunLoopMode mode)
        QUORVEL_REQUIRES(mMutex);
    CFOwned<CFRunLoopSourceRef> CopyAnySource() const;
    bool ModeIsEmpty(CFRunLoopMode mode) const;
    bool InnermostIsStopped() const;
    // Performs each signalled source of the mode once; whether there was one.
    bool PerformSources(CFRunLoopMode mode);
    CFOwned<CFRunLoopSourceRef> TakeDueSource(CFRunLoopMode mode);
    void PollContext();

    mutable Mutex mMutex;
    std::vector<Entry> mEntries QUORVEL_GUARDED_BY(mMutex); // sorted by the sources' order
    Activation* mInnermost QUORVEL_GUARDED_BY(mMutex) QUORVEL_POINTEE_GUARDED_BY(mMutex) = nullptr;
    bool mDead QUORVEL_GUARDED_BY(mMutex) = false;

    std::atomic<bool> mWaiting{false};
    boost::asio::io_context mContext;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> mWorkGuard;
};
