#include "platform/CoreFoundation/src/CFRunLoopObject.h"

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
    const std::lock_guard lock(mMutex);
    return mValid;
}

void __CFRunLoopSource::Invalidate() {
    CFRetain(this);
    {
        const std::lock_guard scheduleLock(mScheduleMutex);
        std::vector<Place> places;
        {
            const std::lock_guard lock(mMutex);
            mValid = false;
            places = mPlaces;
            for (const Place& place : places) {
                CFRetain(place.loop);
            }
        }
        for (const Place& place : places) {
            place.loop->RemoveSource(this, place.mode);
            CFRelease(place.loop);
        }
    }
    CFRelease(this);
}

void __CFRunLoopSource::SignalAndWake() {
    std::vector<CFRunLoopRef> loops;
    {
        const std::lock_guard lock(mMutex);
        if (!mValid) {
            return;
        }
        Signal();
        for (const Place& place : mPlaces) {
            CFRetain(place.loop);
            loops.push_back(place.loop);
        }
    }
    for (const CFRunLoopRef loop : loops) {
        loop->WakeUp();
        CFRelease(loop);
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
