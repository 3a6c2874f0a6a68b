#include "platform/CoreFoundation/src/runloop/CFRunLoopObject.h"

__CFRunLoopSource::__CFRunLoopSource(CFIndex order, const CFRunLoopSourceContext& context)
    : CFRuntimeObject(CFRunLoopSourceGetTypeID()), mOrder(order), mContext(context) {
    if (mContext.retain != nullptr) {
        mContext.info = const_cast<void*>(mContext.retain(mContext.info));
    }
}

__CFRunLoopSource::~__CFRunLoopSource() {
    // Only here and not as the source is invalidated: it may be performing on its loop's thread.
    if (mContext.release != nullptr) {
        mContext.release(mContext.info);
    }
}

bool __CFRunLoopSource::Equals(const CFRuntimeObject& other) const {
    const auto& source = static_cast<const __CFRunLoopSource&>(other);
    if (mOrder != source.mOrder || mContext.perform != source.mContext.perform ||
        mContext.equal == nullptr || mContext.equal != source.mContext.equal) {
        return false;
    }
    return mContext.equal(mContext.info, source.mContext.info) != 0;
}

CFHashCode __CFRunLoopSource::Hash() const {
    if (mContext.hash != nullptr) {
        return mContext.hash(mContext.info);
    }
    // Sources that their callback may call equal need equal hashes whatever their infos are.
    if (mContext.equal != nullptr) {
        return static_cast<CFHashCode>(mOrder);
    }
    return CFRuntimeObject::Hash();
}

bool __CFRunLoopSource::IsValid() const {
    const MutexLock lock(mMutex);
    return mValid;
}

void __CFRunLoopSource::Invalidate() {
    CFRetain(this);
    {
        const MutexLock scheduleLock(mScheduleMutex);
        // One place at a time, since there may be no memory for a list of them. No other thread
        // adds one any more, nor takes one away while the lock above is held.
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
    if (mPlaces.empty()) {
        return nullptr;
    }
    CFRetain(mPlaces.front().loop);
    return mPlaces.front().loop;
}

void __CFRunLoopSource::SignalAndWake() {
    // Waking takes none of the locks, so that it may be done under this one, which keeps the
    // places.
    const MutexLock lock(mMutex);
    if (!mValid) {
        return;
    }
    Signal();
    for (const Place& place : mPlaces) {
        place.loop->WakeUp();
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

CFIndex CFRunLoopSourceGetOrder(CFRunLoopSourceRef source) {
    const auto* object = CFRuntimeArgument<__CFRunLoopSource>(source, "source");
    return object == nullptr ? 0 : object->mOrder;
}

void CFRunLoopSourceGetContext(CFRunLoopSourceRef source, CFRunLoopSourceContext* context) {
    const auto* object = CFRuntimeArgument<__CFRunLoopSource>(source, "source");
    if (object != nullptr && context != nullptr && context->version == 0) {
        *context = object->mContext;
    }
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
