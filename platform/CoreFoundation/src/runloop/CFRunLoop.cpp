#include "platform/CoreFoundation/src/base/Deadline.h"
#include "platform/CoreFoundation/src/runloop/CFRunLoopObject.h"
#include "platform/support/FileDescriptor.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <utility>

using Clock = std::chrono::steady_clock;

namespace {

// A pass runs at most so many handlers of the watched descriptors. Peers that keep descriptors
// ready can therefore not keep the loop from its sources, its time limit and a stop.
constexpr int kHandlersPerPass = 64;

extern "C" void EndRunLoopOfThread(void* value) {
    auto* const loop = static_cast<CFRunLoopRef>(value);
    // The process may go on after its main thread has ended, and others may ask for its loop.
    if (loop != CFRunLoopGetMain()) {
        loop->TearDown();
    }
    CFRelease(loop);
}

pthread_key_t CurrentLoopKey() {
    static const pthread_key_t key = [] {
        pthread_key_t made{};
        if (pthread_key_create(&made, EndRunLoopOfThread) != 0) {
            std::abort();
        }
        return made;
    }();
    return key;
}

} // namespace

const CFRunLoopMode kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");
const CFRunLoopMode kCFRunLoopCommonModes = CFSTR("kCFRunLoopCommonModes");

__CFRunLoop::__CFRunLoop()
    : CFRuntimeObject(CFRunLoopGetTypeID()), mWorkGuard(mContext.get_executor()) {}

__CFRunLoop::~__CFRunLoop() = default;

void __CFRunLoop::AddSource(CFRunLoopSourceRef source, CFRunLoopMode mode) {
    const MutexLock scheduleLock(source->mScheduleMutex);
    {
        const MutexLock lock(mMutex);
        const MutexLock sourceLock(source->mMutex);
        if (mDead || !source->mValid || Find(source, mode) != mEntries.end()) {
            return;
        }
        // Memory is reserved first: nothing may fail once one of the two knows the other.
        source->mLoops.reserve(source->mLoops.size() + 1);
        const auto after = std::upper_bound(
            mEntries.begin(), mEntries.end(), source->mOrder,
            [](CFIndex order, const Entry& entry) { return order < entry.source->mOrder; });
        mEntries.insert(after, Entry{CFOwned<CFRunLoopSourceRef>::Retained(source),
                                     CFOwned<CFRunLoopMode>::Retained(mode)});
        source->mLoops.push_back(this);
        CFRetain(this);
    }
    if (source->mContext.schedule != nullptr) {
        try {
            source->mContext.schedule(source->mContext.info, this, mode);
        } catch (...) { // only the library's own callback, that of a message port, throws
            RemoveFromOneMode(source, mode);
            throw;
        }
    }
    WakeUp();
}

bool __CFRunLoop::RemoveFromOneMode(CFRunLoopSourceRef source, CFRunLoopMode mode) {
    Entry removed;
    {
        const MutexLock lock(mMutex);
        const MutexLock sourceLock(source->mMutex);
        const auto entry = Find(source, mode);
        if (entry == mEntries.end()) {
            return false;
        }
        removed = std::move(*entry);
        mEntries.erase(entry);
        source->mLoops.erase(std::find(source->mLoops.begin(), source->mLoops.end(), this));
    }
    if (source->mContext.cancel != nullptr) {
        source->mContext.cancel(source->mContext.info, this, removed.mode.Get());
    }
    WakeUp(); // the source may have been the last one of the mode that is running
    CFRelease(this);
    return true;
}

void __CFRunLoop::RemoveSource(CFRunLoopSourceRef source, CFRunLoopMode mode) {
    CFRetain(this);
    CFRetain(source);
    {
        const MutexLock scheduleLock(source->mScheduleMutex);
        RemoveFromOneMode(source, mode);
    }
    CFRelease(source);
    CFRelease(this);
}

void __CFRunLoop::RemoveWholly(CFRunLoopSourceRef source) {
    while (RemoveFromOneMode(source, nullptr)) {
    }
}

std::vector<__CFRunLoop::Entry>::iterator __CFRunLoop::Find(CFRunLoopSourceRef source,
                                                            CFRunLoopMode mode) {
    return std::find_if(mEntries.begin(), mEntries.end(), [&](const Entry& entry) {
        return entry.source.Get() == source &&
               (mode == nullptr || CFEqual(entry.mode.Get(), mode) != 0);
    });
}

bool __CFRunLoop::ContainsSource(CFRunLoopSourceRef source, CFRunLoopMode mode) {
    const MutexLock lock(mMutex);
    return Find(source, mode) != mEntries.end();
}

bool __CFRunLoop::ModeIsEmpty(CFRunLoopMode mode) const {
    const MutexLock lock(mMutex);
    return std::none_of(mEntries.begin(), mEntries.end(), [mode](const Entry& entry) {
        return CFEqual(entry.mode.Get(), mode) != 0;
    });
}

bool __CFRunLoop::InnermostIsStopped() const {
    const MutexLock lock(mMutex);
    return mInnermost->stopped;
}

void __CFRunLoop::Stop() {
    {
        const MutexLock lock(mMutex);
        if (mInnermost == nullptr) {
            return;
        }
        mInnermost->stopped = true;
    }
    WakeUp();
}

void __CFRunLoop::WakeUp() {
    // The context stays stopped until the next pass of the loop restarts it, so that no wake-up is
    // lost: what was done before this call is seen by that pass. Unlike a posted handler, this
    // needs no memory, which matters since a source must come out of a loop without any.
    mContext.stop();
}

CFRunLoopMode __CFRunLoop::CopyCurrentMode() const {
    const MutexLock lock(mMutex);
    return mInnermost == nullptr ? nullptr : static_cast<CFRunLoopMode>(CFRetain(mInnermost->mode));
}

bool __CFRunLoop::PerformSources(CFRunLoopMode mode) {
    {
        const MutexLock lock(mMutex);
        for (Entry& entry : mEntries) {
            entry.isDue = entry.source->IsSignalled();
        }
    }
    bool handled = false;
    while (const CFOwned<CFRunLoopSourceRef> source = TakeDueSource(mode)) {
        handled = true;
        if (source->mContext.perform != nullptr) {
            source->mContext.perform(source->mContext.info);
        }
    }
    return handled;
}

CFOwned<CFRunLoopSourceRef> __CFRunLoop::TakeDueSource(CFRunLoopMode mode) {
    const MutexLock lock(mMutex);
    for (Entry& entry : mEntries) {
        // The loop of another thread may have taken the signal meanwhile.
        if (entry.isDue && CFEqual(entry.mode.Get(), mode) != 0 &&
            std::exchange(entry.isDue, false) && entry.source->TakeSignal()) {
            return entry.source;
        }
    }
    return {};
}

boost::asio::posix::stream_descriptor __CFRunLoop::Watch(int descriptor) {
    FileDescriptor duplicate(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    boost::asio::posix::stream_descriptor watch(mContext, duplicate.Get());
    duplicate.Release();
    return watch;
}

void __CFRunLoop::PollContext() {
    // A handler that lacks memory gives up what it would have done.
    const auto pollOne = [this] { return mContext.poll_one() != 0; };
    for (int i = 0; i < kHandlersPerPass && CFRuntimeGuard(false, pollOne); ++i) {
    }
}

CFRunLoopRunResult __CFRunLoop::Run(CFRunLoopMode mode, CFTimeInterval seconds,
                                    bool returnAfterSourceHandled, bool* wasStopped) {
    if (CFEqual(mode, kCFRunLoopCommonModes) != 0 || ModeIsEmpty(mode)) {
        return kCFRunLoopRunFinished;
    }
    const Clock::time_point deadline = DeadlineAfter(seconds);
    const bool hasDeadline = seconds < kLongestWait;
    CFRetain(this);
    // Sources that run the loop anew, and callers that ask for its mode, need the mode meanwhile.
    const auto kept = CFOwned<CFRunLoopMode>::Retained(mode);
    Activation activation{mode};
    {
        const MutexLock lock(mMutex);
        activation.outer = std::exchange(mInnermost, &activation);
    }
    CFRunLoopRunResult result = 0;
    while (result == 0) {
        mContext.restart();
        PollContext();
        const bool handled = PerformSources(mode);
        if (handled && returnAfterSourceHandled) {
            result = kCFRunLoopRunHandledSource;
        } else if (Clock::now() >= deadline) {
            result = kCFRunLoopRunTimedOut;
        } else if (InnermostIsStopped()) {
            result = kCFRunLoopRunStopped;
        } else if (ModeIsEmpty(mode)) {
            result = kCFRunLoopRunFinished;
        } else if (!handled) {
            // A source that was performed may have signalled others, so another pass comes first.
            mWaiting.store(true, std::memory_order_relaxed);
            CFRuntimeGuard([&] {
                // With a deadline, the thread wakes up once a second to look at the clock.
                hasDeadline ? mContext.run_one_until(deadline) : mContext.run_one();
            });
            mWaiting.store(false, std::memory_order_relaxed);
        }
    }
    {
        const MutexLock lock(mMutex);
        if (wasStopped != nullptr) {
            *wasStopped = activation.stopped;
        }
        mInnermost = activation.outer;
    }
    CFRelease(this);
    return result;
}

void __CFRunLoop::TearDown() {
    {
        const MutexLock lock(mMutex);
        mDead = true;
    }
    while (const CFOwned<CFRunLoopSourceRef> owned = CopyAnySource()) {
        const CFRunLoopSourceRef source = owned.Get();
        const MutexLock scheduleLock(source->mScheduleMutex);
        RemoveWholly(source);
    }
}

CFOwned<CFRunLoopSourceRef> __CFRunLoop::CopyAnySource() const {
    const MutexLock lock(mMutex);
    return mEntries.empty() ? CFOwned<CFRunLoopSourceRef>() : mEntries.front().source;
}

CFTypeID CFRunLoopGetTypeID() {
    static const CFTypeID id = CFRuntimeRegisterType("CFRunLoop");
    return id;
}

CFRunLoopRef CFRunLoopGetMain() {
    return CFRuntimeGuard<CFRunLoopRef>(nullptr, [] {
        // It is never freed: threads that outlive main's return may still ask for it.
        static const CFRunLoopRef main = new __CFRunLoop;
        return main;
    });
}

CFRunLoopRef CFRunLoopGetCurrent() {
    if (void* const known = pthread_getspecific(CurrentLoopKey())) {
        return static_cast<CFRunLoopRef>(known);
    }
    CFRunLoopRef loop = nullptr;
    if (gettid() == getpid()) {
        loop = CFRunLoopGetMain();
        if (loop != nullptr) {
            CFRetain(loop);
        }
    } else {
        loop = CFRuntimeCreate<__CFRunLoop>(nullptr);
    }
    if (loop != nullptr && pthread_setspecific(CurrentLoopKey(), loop) != 0) {
        CFRelease(loop);
        return nullptr;
    }
    return loop;
}

CFRunLoopMode CFRunLoopCopyCurrentMode(CFRunLoopRef rl) {
    const auto* loop = CFRuntimeArgument<__CFRunLoop>(rl, "rl");
    return loop == nullptr ? nullptr : loop->CopyCurrentMode();
}

void CFRunLoopRun() {
    CFRunLoopRunResult result = 0;
    do {
        result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLongestWait, false);
    } while (result == kCFRunLoopRunTimedOut);
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled) {
    if (mode == nullptr || !CFRuntimeIsArgument(mode, kCFRuntimeStringType, "mode")) {
        return kCFRunLoopRunFinished;
    }
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    return loop == nullptr ? CFRunLoopRunResult{kCFRunLoopRunFinished}
                           : loop->Run(mode, seconds, returnAfterSourceHandled != 0, nullptr);
}

void CFRunLoopStop(CFRunLoopRef rl) {
    if (auto* loop = CFRuntimeArgument<__CFRunLoop>(rl, "rl")) {
        loop->Stop();
    }
}

Boolean CFRunLoopIsWaiting(CFRunLoopRef rl) {
    const auto* loop = CFRuntimeArgument<__CFRunLoop>(rl, "rl");
    return loop != nullptr && loop->IsWaiting();
}

void CFRunLoopWakeUp(CFRunLoopRef rl) {
    if (auto* loop = CFRuntimeArgument<__CFRunLoop>(rl, "rl")) {
        loop->WakeUp();
    }
}

namespace {

// Calls `body` with the arguments of an exported function and returns its result. Returns false if
// one of them is not what it has to be or if there is no memory. The set of common modes holds only
// the default mode, which takes its place.
template <typename Body>
bool WithSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode, const Body& body,
                const char* function = __builtin_FUNCTION()) {
    auto* loop = CFRuntimeArgument<__CFRunLoop>(rl, "rl", function);
    auto* object = CFRuntimeArgument<__CFRunLoopSource>(source, "source", function);
    const bool isMode = CFRuntimeIsArgument(mode, kCFRuntimeStringType, "mode", function);
    return loop != nullptr && object != nullptr && isMode && CFRuntimeGuard(false, [&] {
               const bool isCommon = CFEqual(mode, kCFRunLoopCommonModes) != 0;
               return body(*loop, object, isCommon ? kCFRunLoopDefaultMode : mode);
           });
}

} // namespace

Boolean CFRunLoopContainsSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    return WithSource(rl, source, mode, [](auto& loop, auto* object, CFRunLoopMode in) {
        return loop.ContainsSource(object, in);
    });
}

void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    WithSource(rl, source, mode, [](auto& loop, auto* object, CFRunLoopMode to) {
        loop.AddSource(object, to);
        return true;
    });
}

void CFRunLoopRemoveSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    WithSource(rl, source, mode, [](auto& loop, auto* object, CFRunLoopMode from) {
        loop.RemoveSource(object, from);
        return true;
    });
}
