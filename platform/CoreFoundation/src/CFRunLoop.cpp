#include "platform/CoreFoundation/src/CFRunLoopObject.h"
#include "platform/CoreFoundation/src/Utf8String.h"

#include <boost/asio/post.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <pthread.h>
#include <unistd.h>

using Clock = std::chrono::steady_clock;

namespace {

constexpr CFTimeInterval kLongestRun = 10.0 * 365 * 24 * 3600;
// What one pass takes from the watched descriptors, so that peers that keep them ready cannot keep
// the loop from its sources, its time and a stop.
constexpr int kHandlersPerPass = 64;

Clock::time_point DeadlineAfter(CFTimeInterval seconds) {
    if (!(seconds > 0)) { // a NaN is no time
        return Clock::now();
    }
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(
                              std::chrono::duration<double>(std::min(seconds, kLongestRun)));
}

const std::string& CommonModesName() {
    static const std::string* const name = new std::string("kCFRunLoopCommonModes");
    return *name;
}

constexpr const char* kDefaultModeName = "kCFRunLoopDefaultMode";

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
    : CFRuntimeObject(CFRunLoopGetTypeID()),
      mCommonModes{kDefaultModeName},
      mContext(std::make_shared<boost::asio::io_context>()),
      mWorkGuard(mContext->get_executor()) {}

__CFRunLoop::~__CFRunLoop() = default;

void __CFRunLoop::AddToMode(CFRunLoopSourceRef source, const std::string& mode) {
    {
        const std::lock_guard lock(mMutex);
        const std::lock_guard sourceLock(source->mMutex);
        if (mDead || !source->mValid) {
            return;
        }
        SourceList& list = mModes[mode];
        if (std::find(list.begin(), list.end(), source) != list.end()) {
            return;
        }
        const auto after = std::upper_bound(
            list.begin(), list.end(), source,
            [](CFRunLoopSourceRef a, CFRunLoopSourceRef b) { return a->mOrder < b->mOrder; });
        list.insert(after, source);
        CFRetain(source);
        source->mPlaces.push_back({this, mode});
        CFRetain(this);
    }
    if (source->mContext.schedule != nullptr) {
        const CFOwned<CFStringRef> name(CopyUtf8String(mode));
        source->mContext.schedule(source->mContext.info, this, name.get());
    }
}

void __CFRunLoop::RemoveFromMode(CFRunLoopSourceRef source, const std::string& mode) {
    {
        const std::lock_guard lock(mMutex);
        const std::lock_guard sourceLock(source->mMutex);
        const auto found = mModes.find(mode);
        if (found == mModes.end()) {
            return;
        }
        SourceList& list = found->second;
        const auto entry = std::find(list.begin(), list.end(), source);
        if (entry == list.end()) {
            return;
        }
        list.erase(entry);
        if (list.empty()) {
            mModes.erase(found);
        }
        std::erase_if(source->mPlaces, [&](const __CFRunLoopSource::Place& place) {
            return place.loop == this && place.mode == mode;
        });
    }
    if (source->mContext.cancel != nullptr) {
        const CFOwned<CFStringRef> name(CopyUtf8String(mode));
        source->mContext.cancel(source->mContext.info, this, name.get());
    }
    CFRelease(source);
    WakeUp(); // it may have been the last source of the mode that is running
    CFRelease(this);
}

void __CFRunLoop::AddSource(CFRunLoopSourceRef source, const std::string& mode) {
    const std::lock_guard scheduleLock(source->mScheduleMutex);
    if (mode != CommonModesName()) {
        AddToMode(source, mode);
        WakeUp();
        return;
    }
    std::vector<std::string> modes;
    {
        const std::lock_guard lock(mMutex);
        const std::lock_guard sourceLock(source->mMutex);
        if (mDead || !source->mValid) {
            return;
        }
        if (std::find(mCommonSources.begin(), mCommonSources.end(), source) ==
            mCommonSources.end()) {
            mCommonSources.push_back(source);
            CFRetain(source);
            source->mPlaces.push_back({this, mode});
            CFRetain(this);
        }
        modes = mCommonModes;
    }
    for (const std::string& each : modes) {
        AddToMode(source, each);
    }
    WakeUp();
}

void __CFRunLoop::RemoveSource(CFRunLoopSourceRef source, const std::string& mode) {
    CFRetain(this);
    CFRetain(source);
    {
        const std::lock_guard scheduleLock(source->mScheduleMutex);
        if (mode != CommonModesName()) {
            RemoveFromMode(source, mode);
        } else {
            std::vector<std::string> modes;
            bool removed = false;
            {
                const std::lock_guard lock(mMutex);
                const std::lock_guard sourceLock(source->mMutex);
                removed = std::erase(mCommonSources, source) != 0;
                if (removed) {
                    modes = mCommonModes;
                    std::erase_if(source->mPlaces, [&](const __CFRunLoopSource::Place& place) {
                        return place.loop == this && place.mode == mode;
                    });
                }
            }
            for (const std::string& each : modes) {
                RemoveFromMode(source, each);
            }
            if (removed) {
                CFRelease(source);
                CFRelease(this);
            }
        }
    }
    CFRelease(source);
    CFRelease(this);
}

bool __CFRunLoop::ModeContains(CFRunLoopSourceRef source, const std::string& mode) const {
    const auto found = mModes.find(mode);
    return found != mModes.end() &&
           std::find(found->second.begin(), found->second.end(), source) != found->second.end();
}

bool __CFRunLoop::ContainsSource(CFRunLoopSourceRef source, const std::string& mode) const {
    const std::lock_guard lock(mMutex);
    if (mode == CommonModesName()) {
        return std::find(mCommonSources.begin(), mCommonSources.end(), source) !=
               mCommonSources.end();
    }
    return ModeContains(source, mode);
}

void __CFRunLoop::AddCommonMode(const std::string& mode) {
    SourceList sources;
    {
        const std::lock_guard lock(mMutex);
        if (mDead || mode == CommonModesName() ||
            std::find(mCommonModes.begin(), mCommonModes.end(), mode) != mCommonModes.end()) {
            return;
        }
        mCommonModes.push_back(mode);
        sources = mCommonSources;
        for (const CFRunLoopSourceRef source : sources) {
            CFRetain(source);
        }
    }
    for (const CFRunLoopSourceRef source : sources) {
        {
            const std::lock_guard scheduleLock(source->mScheduleMutex);
            AddToMode(source, mode);
        }
        CFRelease(source);
    }
    WakeUp();
}

bool __CFRunLoop::ModeIsEmpty(const std::string& mode) const {
    const std::lock_guard lock(mMutex);
    return !mModes.contains(mode);
}

bool __CFRunLoop::InnermostIsStopped() const {
    const std::lock_guard lock(mMutex);
    return mActivations.back().stopped;
}

void __CFRunLoop::Stop() {
    {
        const std::lock_guard lock(mMutex);
        if (mActivations.empty()) {
            return;
        }
        mActivations.back().stopped = true;
    }
    WakeUp();
}

void __CFRunLoop::WakeUp() {
    // Both exchanges are read-modify-writes of one variable: the handler that clears the flag sees
    // whatever was done before each wake-up that found it set, and the loop passes after it.
    if (!mWakePosted.exchange(true, std::memory_order_acq_rel)) {
        boost::asio::post(*mContext,
                          [this] { mWakePosted.exchange(false, std::memory_order_acq_rel); });
    }
}

CFRunLoopMode __CFRunLoop::CopyCurrentMode() const {
    std::string mode;
    {
        const std::lock_guard lock(mMutex);
        if (mActivations.empty()) {
            return nullptr;
        }
        mode = mActivations.back().mode;
    }
    return CopyUtf8String(mode);
}

bool __CFRunLoop::PerformSources(const std::string& mode) {
    SourceList ready;
    {
        const std::lock_guard lock(mMutex);
        const auto found = mModes.find(mode);
        if (found == mModes.end()) {
            return false;
        }
        for (const CFRunLoopSourceRef source : found->second) {
            if (source->IsSignalled()) {
                ready.push_back(source);
                CFRetain(source);
            }
        }
    }
    bool handled = false;
    for (const CFRunLoopSourceRef source : ready) {
        // An earlier one may have removed it, and a loop of another thread may have performed it.
        if (ContainsSource(source, mode) && source->IsValid() && source->TakeSignal()) {
            if (source->mContext.perform != nullptr) {
                source->mContext.perform(source->mContext.info);
            }
            handled = true;
        }
        CFRelease(source);
    }
    return handled;
}

void __CFRunLoop::PollContext() {
    for (int i = 0; i < kHandlersPerPass && mContext->poll_one() != 0; ++i) {
    }
}

CFRunLoopRunResult __CFRunLoop::Run(const std::string& mode, CFTimeInterval seconds,
                                    bool returnAfterSourceHandled, bool* wasStopped) {
    if (mode == CommonModesName() || ModeIsEmpty(mode)) {
        return kCFRunLoopRunFinished;
    }
    const Clock::time_point deadline = DeadlineAfter(seconds);
    CFRetain(this);
    {
        const std::lock_guard lock(mMutex);
        mActivations.push_back({mode, false});
    }
    CFRunLoopRunResult result = 0;
    while (result == 0) {
        mContext->restart();
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
            mContext->run_one_until(deadline);
            mWaiting.store(false, std::memory_order_relaxed);
        }
    }
    {
        const std::lock_guard lock(mMutex);
        if (wasStopped != nullptr) {
            *wasStopped = mActivations.back().stopped;
        }
        mActivations.pop_back();
    }
    CFRelease(this);
    return result;
}

void __CFRunLoop::TearDown() {
    SourceList sources;
    {
        const std::lock_guard lock(mMutex);
        mDead = true;
        for (const auto& [mode, list] : mModes) {
            sources.insert(sources.end(), list.begin(), list.end());
        }
        sources.insert(sources.end(), mCommonSources.begin(), mCommonSources.end());
        for (const CFRunLoopSourceRef source : sources) {
            CFRetain(source);
        }
    }
    for (const CFRunLoopSourceRef source : sources) {
        std::vector<std::string> modes;
        {
            const std::lock_guard lock(source->mMutex);
            for (const __CFRunLoopSource::Place& place : source->mPlaces) {
                if (place.loop == this) {
                    modes.push_back(place.mode);
                }
            }
        }
        for (const std::string& mode : modes) {
            RemoveSource(source, mode);
        }
        CFRelease(source);
    }
}

CFTypeID CFRunLoopGetTypeID() {
    static const CFTypeID id = CFRuntimeRegisterType("CFRunLoop");
    return id;
}

CFRunLoopRef CFRunLoopGetMain() {
    // Never freed: threads that outlive main's return may still ask for it.
    static const CFRunLoopRef main = new __CFRunLoop;
    return main;
}

CFRunLoopRef CFRunLoopGetCurrent() {
    if (void* const known = pthread_getspecific(CurrentLoopKey())) {
        return static_cast<CFRunLoopRef>(known);
    }
    CFRunLoopRef loop = nullptr;
    if (gettid() == getpid()) {
        loop = CFRunLoopGetMain();
        CFRetain(loop);
    } else {
        loop = new __CFRunLoop;
    }
    if (pthread_setspecific(CurrentLoopKey(), loop) != 0) {
        std::abort();
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
        result = CFRunLoopGetCurrent()->Run(kDefaultModeName, kLongestRun, false, nullptr);
    } while (result == kCFRunLoopRunTimedOut);
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled) {
    CFRuntimeIsOptionalArgument(mode, kCFRuntimeStringType, "mode");
    const auto name = Utf8Of(mode);
    if (!name) {
        return kCFRunLoopRunFinished;
    }
    return CFRunLoopGetCurrent()->Run(*name, seconds, returnAfterSourceHandled != 0, nullptr);
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
    CFRuntimeIsArgument(mode, kCFRuntimeStringType, "mode");
    const auto name = Utf8Of(mode);
    if (loop != nullptr && name) {
        loop->AddCommonMode(*name);
    }
}

Boolean CFRunLoopContainsSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    const auto* loop = CFRuntimeArgument<__CFRunLoop>(rl, "rl");
    auto* object = CFRuntimeArgument<__CFRunLoopSource>(source, "source");
    CFRuntimeIsArgument(mode, kCFRuntimeStringType, "mode");
    const auto name = Utf8Of(mode);
    return loop != nullptr && object != nullptr && name && loop->ContainsSource(object, *name);
}

void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    auto* loop = CFRuntimeArgument<__CFRunLoop>(rl, "rl");
    auto* object = CFRuntimeArgument<__CFRunLoopSource>(source, "source");
    CFRuntimeIsArgument(mode, kCFRuntimeStringType, "mode");
    const auto name = Utf8Of(mode);
    if (loop != nullptr && object != nullptr && name) {
        loop->AddSource(object, *name);
    }
}

void CFRunLoopRemoveSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    auto* loop = CFRuntimeArgument<__CFRunLoop>(rl, "rl");
    auto* object = CFRuntimeArgument<__CFRunLoopSource>(source, "source");
    CFRuntimeIsArgument(mode, kCFRuntimeStringType, "mode");
    const auto name = Utf8Of(mode);
    if (loop != nullptr && object != nullptr && name) {
        loop->RemoveSource(object, *name);
    }
}
