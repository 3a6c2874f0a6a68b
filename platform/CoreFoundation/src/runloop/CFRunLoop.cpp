#include "platform/CoreFoundation/src/base/Deadline.h"
#include "platform/CoreFoundation/src/runloop/CFRunLoopObject.h"

#include <boost/asio/post.hpp>

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

using Clock = std::chrono::steady_clock;

namespace {

// What one pass takes from the watched descriptors, so that peers that keep them ready cannot keep
// the loop from its sources, its time and a stop.
constexpr int kHandlersPerPass = 64;

bool IsCommonModes(CFRunLoopMode mode) {
    return CFEqual(mode, kCFRunLoopCommonModes) != 0;
}

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

// Lies in the loop's context, which lives as long as it does.
class __CFRunLoop::WakeHandler {
public:
    template <typename T>
    struct Allocator {
        using value_type = T;
        explicit Allocator(WakeContext& owner) : context(&owner) {}
        template <typename Other>
        Allocator(const Allocator<Other>& other) : context(other.context) {}
        T* allocate(std::size_t count) {
            static_assert(alignof(T) <= alignof(std::max_align_t));
            static_assert(sizeof(T) <= sizeof(WakeContext::handler));
            if (count != 1) {
                throw std::bad_alloc();
            }
            return reinterpret_cast<T*>(context->handler.data());
        }
        void deallocate(T* /*memory*/, std::size_t /*count*/) {}
        template <typename Other>
        bool operator==(const Allocator<Other>& other) const {
            return context == other.context;
        }

        WakeContext* context;
    };
    using allocator_type = Allocator<void*>;

    explicit WakeHandler(WakeContext& context) : mContext(&context) {}
    allocator_type get_allocator() const { return allocator_type(*mContext); }
    // Its memory has been given back by now, so that the next may be posted.
    void operator()() const { mContext->posted.exchange(false, std::memory_order_acq_rel); }

private:
    WakeContext* mContext;
};

__CFRunLoop::__CFRunLoop()
    : CFRuntimeObject(CFRunLoopGetTypeID()),
      mContext(std::make_shared<WakeContext>()),
      mWorkGuard(mContext->context.get_executor()) {
    mCommonModes.push_back(CFOwned<CFRunLoopMode>::Retained(kCFRunLoopDefaultMode));
}

__CFRunLoop::~__CFRunLoop() = default;

// Whether it was added; not if it is there already, or must not be.
bool __CFRunLoop::AddToMode(CFRunLoopSourceRef source, CFRunLoopMode mode) {
    {
        const MutexLock lock(mMutex);
        const MutexLock sourceLock(source->mMutex);
        if (mDead || !source->mValid) {
            return false;
        }
        const auto known = std::find_if(mModes.begin(), mModes.end(), [mode](const Mode& each) {
            return CFEqual(each.name.Get(), mode) != 0;
        });
        if (known != mModes.end() && std::find(known->sources.begin(), known->sources.end(),
                                               source) != known->sources.end()) {
            return false;
        }
        // The places first: nothing may fail once the first of them is taken.
        source->mPlaces.reserve(source->mPlaces.size() + 1);
        if (known == mModes.end()) {
            Mode fresh{CFOwned<CFRunLoopMode>::Retained(mode), {source}};
            mModes.push_back(std::move(fresh));
        } else {
            const auto after = std::upper_bound(
                known->sources.begin(), known->sources.end(), source,
                [](CFRunLoopSourceRef a, CFRunLoopSourceRef b) { return a->mOrder < b->mOrder; });
            known->sources.insert(after, source);
        }
        CFRetain(source);
        source->mPlaces.push_back({this, CFOwned<CFRunLoopMode>::Retained(mode)});
        CFRetain(this);
    }
    if (source->mContext.schedule != nullptr) {
        try {
            source->mContext.schedule(source->mContext.info, this, mode);
        } catch (...) { // a message port's: the library's own
            RemoveFromOneMode(source, mode);
            throw;
        }
    }
    return true;
}

// Takes the source out of one of the modes; false when it is in none of them. See IsAmong.
bool __CFRunLoop::RemoveFromOneMode(CFRunLoopSourceRef source, CFRunLoopMode modes) {
    CFOwned<CFRunLoopMode> mode;
    {
        const MutexLock lock(mMutex);
        const MutexLock sourceLock(source->mMutex);
        const auto holdsIt = [&](const Mode& each) QUORVEL_REQUIRES(mMutex) {
            return IsAmong(each.name.Get(), modes) &&
                   std::find(each.sources.begin(), each.sources.end(), source) !=
                       each.sources.end();
        };
        const auto found = std::find_if(mModes.begin(), mModes.end(), holdsIt);
        if (found == mModes.end()) {
            return false;
        }
        mode = found->name;
        std::erase(found->sources, source);
        if (found->sources.empty()) {
            mModes.erase(found);
        }
        std::erase_if(source->mPlaces, [&](const __CFRunLoopSource::Place& place) {
            return place.loop == this && CFEqual(place.mode.Get(), mode.Get()) != 0;
        });
    }
    if (source->mContext.cancel != nullptr) {
        source->mContext.cancel(source->mContext.info, this, mode.Get());
    }
    CFRelease(source);
    WakeUp(); // it may have been the last source of the mode that is running
    CFRelease(this);
    return true;
}

void __CFRunLoop::AddSource(CFRunLoopSourceRef source, CFRunLoopMode mode) {
    const MutexLock scheduleLock(source->mScheduleMutex);
    if (!IsCommonModes(mode)) {
        AddToMode(source, mode);
        WakeUp();
        return;
    }
    std::vector<CFOwned<CFRunLoopMode>> modes;
    bool added = false;
    {
        const MutexLock lock(mMutex);
        const MutexLock sourceLock(source->mMutex);
        if (mDead || !source->mValid) {
            return;
        }
        modes = mCommonModes;
        if (std::find(mCommonSources.begin(), mCommonSources.end(), source) ==
            mCommonSources.end()) {
            source->mPlaces.reserve(source->mPlaces.size() + 1);
            mCommonSources.push_back(source);
            CFRetain(source);
            source->mPlaces.push_back({this, CFOwned<CFRunLoopMode>::Retained(mode)});
            CFRetain(this);
            added = true;
        }
    }
    try {
        for (const auto& each : modes) {
            AddToMode(source, each.Get());
        }
    } catch (...) {
        if (added && RemoveFromCommonSources(source)) {
            while (RemoveFromOneMode(source, mode)) {
            }
        }
        throw;
    }
    WakeUp();
}

// Whether it was one of them.
bool __CFRunLoop::RemoveFromCommonSources(CFRunLoopSourceRef source) {
    {
        const MutexLock lock(mMutex);
        const MutexLock sourceLock(source->mMutex);
        if (std::erase(mCommonSources, source) == 0) {
            return false;
        }
        std::erase_if(source->mPlaces, [&](const __CFRunLoopSource::Place& place) {
            return place.loop == this && IsCommonModes(place.mode.Get());
        });
    }
    CFRelease(source);
    CFRelease(this);
    return true;
}

void __CFRunLoop::RemoveSource(CFRunLoopSourceRef source, CFRunLoopMode mode) {
    CFRetain(this);
    CFRetain(source);
    {
        const MutexLock scheduleLock(source->mScheduleMutex);
        // A source is in each of its modes once.
        if (!IsCommonModes(mode) || RemoveFromCommonSources(source)) {
            while (RemoveFromOneMode(source, mode)) {
            }
        }
    }
    CFRelease(source);
    CFRelease(this);
}

bool __CFRunLoop::IsCommonMode(CFRunLoopMode mode) const {
    return std::any_of(
        mCommonModes.begin(), mCommonModes.end(),
        [mode](const CFOwned<CFRunLoopMode>& each) { return CFEqual(each.Get(), mode) != 0; });
}

// `modes` is a mode, the common modes, or null: any.
bool __CFRunLoop::IsAmong(CFRunLoopMode mode, CFRunLoopMode modes) const {
    if (modes == nullptr) {
        return true;
    }
    return IsCommonModes(modes) ? IsCommonMode(mode) : CFEqual(mode, modes) != 0;
}

// Null when it has no source.
const __CFRunLoop::Mode* __CFRunLoop::FindMode(CFRunLoopMode mode) const {
    const auto found = std::find_if(mModes.begin(), mModes.end(), [mode](const Mode& each) {
        return CFEqual(each.name.Get(), mode) != 0;
    });
    return found == mModes.end() ? nullptr : &*found;
}

bool __CFRunLoop::ContainsSource(CFRunLoopSourceRef source, CFRunLoopMode mode) const {
    const MutexLock lock(mMutex);
    const SourceList* list = &mCommonSources;
    if (!IsCommonModes(mode)) {
        const Mode* const found = FindMode(mode);
        if (found == nullptr) {
            return false;
        }
        list = &found->sources;
    }
    return std::find(list->begin(), list->end(), source) != list->end();
}

void __CFRunLoop::AddCommonMode(CFRunLoopMode mode) {
    std::vector<CFOwned<CFRunLoopSourceRef>> sources;
    std::vector<bool> wasThere;
    {
        const MutexLock lock(mMutex);
        if (mDead || IsCommonModes(mode) || IsCommonMode(mode)) {
            return;
        }
        sources.reserve(mCommonSources.size());
        for (const CFRunLoopSourceRef source : mCommonSources) {
            sources.push_back(CFOwned<CFRunLoopSourceRef>::Retained(source));
        }
        wasThere.resize(sources.size());
        mCommonModes.push_back(CFOwned<CFRunLoopMode>::Retained(mode));
    }
    std::size_t added = 0;
    try {
        for (; added < sources.size(); ++added) {
            const CFRunLoopSourceRef source = sources[added].Get();
            const MutexLock scheduleLock(source->mScheduleMutex);
            wasThere[added] = !AddToMode(source, mode);
        }
    } catch (...) {
        {
            const MutexLock lock(mMutex);
            std::erase_if(mCommonModes, [mode](const CFOwned<CFRunLoopMode>& each) {
                return CFEqual(each.Get(), mode) != 0;
            });
        }
        for (std::size_t i = 0; i < added; ++i) {
            if (!wasThere[i]) {
                RemoveSource(sources[i].Get(), mode);
            }
        }
        throw;
    }
    WakeUp();
}

bool __CFRunLoop::ModeIsEmpty(CFRunLoopMode mode) const {
    const MutexLock lock(mMutex);
    return FindMode(mode) == nullptr;
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
    // Both exchanges are read-modify-writes of one variable: the handler that clears the flag sees
    // whatever was done before each wake-up that found it set, and the loop passes after it.
    if (!mContext->posted.exchange(true, std::memory_order_acq_rel)) {
        boost::asio::post(mContext->context, WakeHandler(*mContext));
    }
}

CFRunLoopMode __CFRunLoop::CopyCurrentMode() const {
    const MutexLock lock(mMutex);
    return mInnermost == nullptr ? nullptr : static_cast<CFRunLoopMode>(CFRetain(mInnermost->mode));
}

bool __CFRunLoop::PerformSources(CFRunLoopMode mode) {
    SourceList ready;
    // Without memory for a list of them one is performed; as it was, another pass comes for the
    // rest.
    CFRunLoopSourceRef only = nullptr;
    {
        const MutexLock lock(mMutex);
        const Mode* const found = FindMode(mode);
        if (found == nullptr) {
            return false;
        }
        CFRuntimeGuard([&] { ready.reserve(found->sources.size()); });
        for (const CFRunLoopSourceRef source : found->sources) {
            if (!source->IsSignalled() || only != nullptr) {
                continue;
            }
            CFRetain(source);
            if (ready.capacity() == 0) {
                only = source;
            } else {
                ready.push_back(source);
            }
        }
    }
    if (only != nullptr) {
        return PerformSource(only, mode);
    }
    bool handled = false;
    for (const CFRunLoopSourceRef source : ready) {
        handled = PerformSource(source, mode) || handled;
    }
    return handled;
}

// Gives the reference up.
bool __CFRunLoop::PerformSource(CFRunLoopSourceRef source, CFRunLoopMode mode) {
    const CFOwned<CFRunLoopSourceRef> owned(source);
    // An earlier one may have removed it, and a loop of another thread may have performed it.
    if (!ContainsSource(source, mode) || !source->IsValid() || !source->TakeSignal()) {
        return false;
    }
    if (source->mContext.perform != nullptr) {
        source->mContext.perform(source->mContext.info);
    }
    return true;
}

void __CFRunLoop::PollContext() {
    // What a handler cannot do for want of memory it leaves.
    const auto pollOne = [this] { return mContext->context.poll_one() != 0; };
    for (int i = 0; i < kHandlersPerPass && CFRuntimeGuard(false, pollOne); ++i) {
    }
}

CFRunLoopRunResult __CFRunLoop::Run(CFRunLoopMode mode, CFTimeInterval seconds,
                                    bool returnAfterSourceHandled, bool* wasStopped) {
    if (IsCommonModes(mode) || ModeIsEmpty(mode)) {
        return kCFRunLoopRunFinished;
    }
    const Clock::time_point deadline = DeadlineAfter(seconds);
    CFRetain(this);
    // Kept for the runs in it and for who asks which mode it is.
    const CFOwned<CFRunLoopMode> kept = CFOwned<CFRunLoopMode>::Retained(mode);
    Activation activation{mode};
    {
        const MutexLock lock(mMutex);
        activation.outer = std::exchange(mInnermost, &activation);
    }
    CFRunLoopRunResult result = 0;
    while (result == 0) {
        mContext->context.restart();
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
            // After a source was performed another pass comes first: it may have signalled others.
            mWaiting.store(true, std::memory_order_relaxed);
            CFRuntimeGuard([&] { mContext->context.run_one_until(deadline); });
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
    while (const CFRunLoopSourceRef source = CopyAnySource()) {
        {
            const MutexLock scheduleLock(source->mScheduleMutex);
            RemoveWholly(source);
        }
        CFRelease(source);
    }
}

void __CFRunLoop::RemoveWholly(CFRunLoopSourceRef source) {
    RemoveFromCommonSources(source);
    while (RemoveFromOneMode(source, nullptr)) {
    }
}

CFRunLoopSourceRef __CFRunLoop::CopyAnySource() const {
    const MutexLock lock(mMutex);
    if (mModes.empty() && mCommonSources.empty()) {
        return nullptr;
    }
    const SourceList& list = mModes.empty() ? mCommonSources : mModes.front().sources;
    CFRetain(list.front());
    return list.front();
}

CFTypeID CFRunLoopGetTypeID() {
    static const CFTypeID id = CFRuntimeRegisterType("CFRunLoop");
    return id;
}

CFRunLoopRef CFRunLoopGetMain() {
    return CFRuntimeGuard<CFRunLoopRef>(nullptr, [] {
        // Never freed: threads that outlive main's return may still ask for it.
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

void CFRunLoopAddCommonMode(CFRunLoopRef rl, CFRunLoopMode mode) {
    auto* loop = CFRuntimeArgument<__CFRunLoop>(rl, "rl");
    const bool isMode = CFRuntimeIsArgument(mode, kCFRuntimeStringType, "mode");
    if (loop != nullptr && isMode) {
        CFRuntimeGuard([&] { loop->AddCommonMode(mode); });
    }
}

Boolean CFRunLoopContainsSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    const auto* loop = CFRuntimeArgument<__CFRunLoop>(rl, "rl");
    auto* object = CFRuntimeArgument<__CFRunLoopSource>(source, "source");
    const bool isMode = CFRuntimeIsArgument(mode, kCFRuntimeStringType, "mode");
    return loop != nullptr && object != nullptr && isMode && loop->ContainsSource(object, mode);
}

void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    auto* loop = CFRuntimeArgument<__CFRunLoop>(rl, "rl");
    auto* object = CFRuntimeArgument<__CFRunLoopSource>(source, "source");
    const bool isMode = CFRuntimeIsArgument(mode, kCFRuntimeStringType, "mode");
    if (loop != nullptr && object != nullptr && isMode) {
        CFRuntimeGuard([&] { loop->AddSource(object, mode); });
    }
}

void CFRunLoopRemoveSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    auto* loop = CFRuntimeArgument<__CFRunLoop>(rl, "rl");
    auto* object = CFRuntimeArgument<__CFRunLoopSource>(source, "source");
    const bool isMode = CFRuntimeIsArgument(mode, kCFRuntimeStringType, "mode");
    if (loop != nullptr && object != nullptr && isMode) {
        loop->RemoveSource(object, mode);
    }
}
