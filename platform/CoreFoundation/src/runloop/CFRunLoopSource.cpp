#include "platform/CoreFoundation/src/runloop/CFRunLoopObject.h"

__CFRunLoopSource::__CFRunLoopSource(CFIndex order, const CFRunLoopSourceContext& context)
    : CFRuntimeObject(CFRunLoopSourceGetTypeID()), mOrder(order), mContext(context) {
    if (mContext.retain != nullptr) {
        mContext.info = const_cast<void*>(mContext.retain(mContext.info));
    }
}

__CFRunLoopSource::~__CFRunLoopSource() {
    // Invalidate cannot do this, since the source may be performing on its loop's thread then.
    if (mContext.release != nullptr) {
        mContext.release(mContext.info);
    }
}

bool __CFRunLoopSource::IsValid() const {
    const MutexLock lock(mMutex);
    return mValid;
}

void __CFRunLoopSource::Invalidate() {
    CFRetain(this);
    {
        const MutexLock scheduleLock(mScheduleMutex);
        // It removes itself from one loop at a time, since there may be no memory for a list of
        // them. No other thread adds it to a loop any more, nor removes it while the lock above is
        // held.
        while (const CFRunLoopRef loop = InvalidateAndCopyAnyLoop()) {
            loop->RemoveWholly(this);
            CFRelease(loop);
        }
    }
    CFRelease(this);
}

CFRunLoopRef __CFRunLoopSource::InvalidateAndCopyAnyLoop() {
    const MutexLock lock(mMutex);
    mValid = false;
    if (mLoops.empty()) {
        return nullptr;
    }
    CFRetain(mLoops.front());
    return mLoops.front();
}

void __CFRunLoopSource::SignalAndWake() {
    // Waking a loop takes none of the locks, so that this one can be held, which keeps the loops.
    const MutexLock lock(mMutex);
    if (!mValid) {
        return;
    }
    Signal();
    for (const CFRunLoopRef loop : mLoops) {
        loop->WakeUp();
    }
}

CFTypeID CFRunLoopSourceGetTypeID() {
    static const CFTypeID id = CFRuntimeRegisterType("CFRunLoopSource");
    return id;
}

CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef allocator, CFIndex order,
                                         CFRunLoopSourceContext* context) {
    if (context == nullptr || context->version != 0) {
        return nullptr;
    }
    return CFRuntimeCreate<__CFRunLoopSource>(allocator, order, *context);
}

void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source) {
    if (auto* object = CFRuntimeArgument<__CFRunLoopSource>(source, "source")) {
        object->Invalidate();
    }
}

Boolean CFRunLoopSourceIsValid(CFRunLoopSourceRef source) {
    const auto* object = CFRuntimeArgument<__CFRunLoopSource>(source, "source");
    return object != nullptr && object->IsValid();
}

void CFRunLoopSourceSignal(CFRunLoopSourceRef source) {
    auto* object = CFRuntimeArgument<__CFRunLoopSource>(source, "source");
    if (object != nullptr && object->IsValid()) {
        object->Signal();
    }
}
