// The run loop's and its sources' inner state.
//
// Locks, in the order in which they are taken: a source's `mScheduleMutex`, a loop's `mMutex`, a
// source's `mMutex`. Only the first is held while a callback (schedule or cancel) runs. A loop and
// the sources in it refer to each other; invalidating the source, removing it, or the end of the
// loop's thread undoes the circle.
#pragma once

#include "platform/CoreFoundation/src/CFRuntimeObject.h"

#include <CoreFoundation/CFRunLoop.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
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
        std::string mode;
    };

    const CFIndex mOrder;
    CFRunLoopSourceContext mContext; // constant once constructed

    // Held from a change of the source's places to the end of the callback that reports it, so that
    // schedule and cancel arrive in the order of the changes.
    std::recursive_mutex mScheduleMutex;

    mutable std::mutex mMutex;
    bool mValid = true;         // under mMutex
    std::vector<Place> mPlaces; // under mMutex

private:
    std::atomic<bool> mSignalled{false};
};

struct __CFRunLoop final : CFRuntimeObject {
    __CFRunLoop();
    ~__CFRunLoop() override;

    void AddSource(CFRunLoopSourceRef source, const std::string& mode);
    void RemoveSource(CFRunLoopSourceRef source, const std::string& mode);
    bool ContainsSource(CFRunLoopSourceRef source, const std::string& mode) const;
    void AddCommonMode(const std::string& mode);
    // `wasStopped` (may be null) tells whether the run was stopped, even if its result is another.
    CFRunLoopRunResult Run(const std::string& mode, CFTimeInterval seconds,
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
    std::shared_ptr<boost::asio::io_context> Context() const { return mContext; }

private:
    using SourceList = std::vector<CFRunLoopSourceRef>; // references are held; sorted by order

    struct Activation {
        std::string mode;
        bool stopped = false;
    };

    void AddToMode(CFRunLoopSourceRef source, const std::string& mode);
    void RemoveFromMode(CFRunLoopSourceRef source, const std::string& mode);
    bool ModeContains(CFRunLoopSourceRef source, const std::string& mode) const;
    bool ModeIsEmpty(const std::string& mode) const;
    bool InnermostIsStopped() const;
    bool PerformSources(const std::string& mode);
    void PollContext();

    mutable std::mutex mMutex;
    std::map<std::string, SourceList> mModes; // under mMutex, as all down to mDead
    std::vector<std::string> mCommonModes;
    SourceList mCommonSources;
    std::vector<Activation> mActivations;
    bool mDead = false;

    std::atomic<bool> mWaiting{false};
    // Set by the first of several wake-ups, cleared by the handler that it posted, so that waking a
    // loop that does not run does not pile up handlers.
    std::atomic<bool> mWakePosted{false};
    std::shared_ptr<boost::asio::io_context> mContext;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> mWorkGuard;
};
