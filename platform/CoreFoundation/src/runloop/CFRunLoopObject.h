// The run loop's and its sources' inner state.
//
// Locks, in the order in which they are taken: a source's `mScheduleMutex`, a loop's `mMutex`, a
// source's `mMutex`. Only the first is held while a callback (schedule or cancel) runs. A loop and
// the sources in it refer to each other; invalidating the source, removing it, or the end of the
// loop's thread undoes the circle.
#pragma once

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/support/Mutex.h"

#include <CoreFoundation/CFRunLoop.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

struct __CFRunLoopSource final : CFRuntimeObject {
    __CFRunLoopSource(CFIndex order, const CFRunLoopSourceContext& context);
    ~__CFRunLoopSource() override;

    bool Equals(const CFRuntimeObject& other) const override;
    CFHashCode Hash() const override;

    bool IsValid() const;
    void Invalidate();
    void Signal() { mSignalled.store(true, std::memory_order_release); }
    // Signals it and wakes every loop that it is in.
    void SignalAndWake();
    bool IsSignalled() const { return mSignalled.load(std::memory_order_acquire); }
    bool TakeSignal() { return mSignalled.exchange(false, std::memory_order_acq_rel); }

    struct Place {
        CFRunLoopRef loop; // a reference is held
        CFOwned<CFRunLoopMode> mode;
    };

    const CFIndex mOrder;
    CFRunLoopSourceContext mContext; // constant once constructed

    // Held from a change of the source's places to the end of the callback that reports it, so that
    // schedule and cancel arrive in the order of the changes.
    RecursiveMutex mScheduleMutex;

    mutable Mutex mMutex;
    bool mValid QUORVEL_GUARDED_BY(mMutex) = true;
    std::vector<Place> mPlaces QUORVEL_GUARDED_BY(mMutex);

private:
    // A loop that it is in, retained; null when there is none left.
    CFRunLoopRef InvalidateAndCopyAnyLoop();

    std::atomic<bool> mSignalled{false};
};

struct __CFRunLoop final : CFRuntimeObject {
    __CFRunLoop();
    ~__CFRunLoop() override;

    // Modes are strings, never null. What adds throws std::bad_alloc and has then added nothing;
    // nothing else needs memory, so that whatever is there can be run, stopped and taken down.
    void AddSource(CFRunLoopSourceRef source, CFRunLoopMode mode);
    void RemoveSource(CFRunLoopSourceRef source, CFRunLoopMode mode);
    // Out of all modes. The caller holds a reference to both.
    void RemoveWholly(CFRunLoopSourceRef source) QUORVEL_REQUIRES(source->mScheduleMutex);
    bool ContainsSource(CFRunLoopSourceRef source, CFRunLoopMode mode) const;
    void AddCommonMode(CFRunLoopMode mode);
    // `wasStopped` (may be null) tells whether the run was stopped, even if its result is another.
    CFRunLoopRunResult Run(CFRunLoopMode mode, CFTimeInterval seconds,
                           bool returnAfterSourceHandled, bool* wasStopped);
    void Stop();
    void WakeUp();
    bool IsWaiting() const { return mWaiting.load(std::memory_order_relaxed); }
    CFRunLoopMode CopyCurrentMode() const;

    // Takes every source out; the loop accepts none any more. Called as the loop's thread ends.
    void TearDown();

    // The descriptors that the loop watches are bound to this. Its handlers run on the loop's
    // thread whenever the loop runs, in whatever mode: they may signal sources but must not call
    // out.
    std::shared_ptr<boost::asio::io_context> Context() const {
        return {mContext, &mContext->context};
    }

private:
    using SourceList = std::vector<CFRunLoopSourceRef>; // references are held; sorted by order

    struct Mode {
        CFOwned<CFRunLoopMode> name;
        SourceList sources; // never empty
    };

    // A run of the loop; lies on the stack of the thread that runs it.
    struct Activation {
        const CFRunLoopMode mode;
        Activation* outer = nullptr;
        bool stopped = false;
    };

    // The handler that wakes the loop lies here and not on the heap: waking is part of taking a
    // source out, which must not fail. There is one at most.
    struct WakeContext {
        alignas(std::max_align_t) std::array<std::byte, 256> handler;
        // Set by the first of several wake-ups, cleared by the handler that it posted, so that
        // waking a loop that does not run does not pile up handlers.
        std::atomic<bool> posted{false};
        boost::asio::io_context context;
    };
    class WakeHandler;

    bool AddToMode(CFRunLoopSourceRef source, CFRunLoopMode mode)
        QUORVEL_REQUIRES(source->mScheduleMutex);
    bool RemoveFromOneMode(CFRunLoopSourceRef source, CFRunLoopMode modes)
        QUORVEL_REQUIRES(source->mScheduleMutex);
    bool RemoveFromCommonSources(CFRunLoopSourceRef source)
        QUORVEL_REQUIRES(source->mScheduleMutex);
    CFRunLoopSourceRef CopyAnySource() const;
    bool IsCommonMode(CFRunLoopMode mode) const QUORVEL_REQUIRES(mMutex);
    bool IsAmong(CFRunLoopMode mode, CFRunLoopMode modes) const QUORVEL_REQUIRES(mMutex);
    const Mode* FindMode(CFRunLoopMode mode) const QUORVEL_REQUIRES(mMutex);
    bool ModeIsEmpty(CFRunLoopMode mode) const;
    bool InnermostIsStopped() const;
    bool PerformSources(CFRunLoopMode mode);
    bool PerformSource(CFRunLoopSourceRef source, CFRunLoopMode mode);
    void PollContext();

    mutable Mutex mMutex;
    std::vector<Mode> mModes QUORVEL_GUARDED_BY(mMutex); // those with sources
    std::vector<CFOwned<CFRunLoopMode>> mCommonModes QUORVEL_GUARDED_BY(mMutex);
    SourceList mCommonSources QUORVEL_GUARDED_BY(mMutex);
    Activation* mInnermost QUORVEL_GUARDED_BY(mMutex) QUORVEL_POINTEE_GUARDED_BY(mMutex) = nullptr;
    bool mDead QUORVEL_GUARDED_BY(mMutex) = false;

    std::atomic<bool> mWaiting{false};
    const std::shared_ptr<WakeContext> mContext;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> mWorkGuard;
};
