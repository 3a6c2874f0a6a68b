#include "platform/CoreFoundation/src/messageport/CFMessagePortObject.h"
#include "platform/CoreFoundation/src/messageport/MessagePortAddress.h"
#include "platform/CoreFoundation/src/runloop/CFRunLoopObject.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFMessagePortHost.h>

#include <syslog.h>

#include <new>
#include <utility>
#include <vector>

namespace {

// The local ports of this process that have not been invalidated. The list does not keep them
// alive: whoever finds one tries to retain it, and the port's destructor takes it out under the
// same lock.
struct LocalPorts {
    Mutex mutex;
    std::vector<CFMessagePortRef> ports QUORVEL_GUARDED_BY(mutex);
    // Of the last that could not be made, and why.
    std::string failedName QUORVEL_GUARDED_BY(mutex);
    std::string failure QUORVEL_GUARDED_BY(mutex);
};

LocalPorts& TheLocalPorts() {
    static LocalPorts* const ports = new LocalPorts; // used by threads until the process ends
    return *ports;
}

// What a port's run-loop source carries: its port, retained, and itself, so that the end of an old
// source is not taken for that of a newer one.
struct SourceInfo {
    CFMessagePortRef port;
    CFRunLoopSourceRef source;
};

void ReleaseSourceInfo(const void* info) {
    const auto* const sourceInfo = static_cast<const SourceInfo*>(info);
    sourceInfo->port->ForgetSource(sourceInfo->source);
    CFRelease(sourceInfo->port);
    delete sourceInfo;
}

void ScheduleSource(void* info, CFRunLoopRef loop, CFRunLoopMode) {
    const auto* const own = static_cast<SourceInfo*>(info);
    own->port->mListener->Attach(loop, own->source);
}

void CancelSource(void* info, CFRunLoopRef loop, CFRunLoopMode) {
    const auto* const own = static_cast<SourceInfo*>(info);
    own->port->mListener->Detach(loop, own->source);
}

void PerformSource(void* info) {
    const auto* const own = static_cast<SourceInfo*>(info);
    own->port->PerformRequest(own->source);
}

} // namespace

__CFMessagePort::__CFMessagePort(const std::string& name, CFMessagePortCallBack callout,
                                 const CFMessagePortContext* context,
                                 std::shared_ptr<MessagePortListener> listener)
    : CFRuntimeObject(CFMessagePortGetTypeID()),
      mName(name),
      mCallOut(callout),
      mListener(std::move(listener)) {
    if (context == nullptr) {
        return;
    }
    mContext = *context;
    if (mContext.retain != nullptr) {
        mContext.info = const_cast<void*>(mContext.retain(mContext.info));
    }
    mInfo = std::shared_ptr<void>(mContext.info, [release = mContext.release](void* info) {
        if (release != nullptr) {
            release(info);
        }
    });
}

__CFMessagePort::__CFMessagePort(const std::string& name, std::unique_ptr<MessagePortSender> sender)
    : CFRuntimeObject(CFMessagePortGetTypeID()), mName(name), mSender(std::move(sender)) {}

__CFMessagePort::~__CFMessagePort() {
    Invalidate();
}

bool __CFMessagePort::IsValid() const {
    const MutexLock lock(mMutex);
    return mValid;
}

void __CFMessagePort::Invalidate() {
    std::shared_ptr<void> info;
    CFOwned<CFRunLoopSourceRef> source;
    {
        const MutexLock lock(mMutex);
        if (!std::exchange(mValid, false)) {
            return;
        }
        info = std::exchange(mInfo, nullptr);
        source = CopyLivingSource();
    }
    if (mSender != nullptr) {
        mSender->Close();
    }
    if (mListener != nullptr) {
        // Under the lock, so that whoever does not find the name finds the socket gone as well.
        LocalPorts& local = TheLocalPorts();
        const MutexLock lock(local.mutex);
        std::erase(local.ports, this);
        mListener->Close();
    }
    if (source) {
        source->Invalidate();
    }
}

// The source may just be being destroyed, and wait for the lock held here to be forgotten.
CFOwned<CFRunLoopSourceRef> __CFMessagePort::CopyLivingSource() const {
    return CFOwned<CFRunLoopSourceRef>(mSource != nullptr && mSource->RetainIfAlive() ? mSource
                                                                                      : nullptr);
}

void __CFMessagePort::ForgetSource(CFRunLoopSourceRef source) {
    const MutexLock lock(mMutex);
    if (mSource == source) {
        mSource = nullptr;
    }
}

CFRunLoopSourceRef __CFMessagePort::CopySource(CFIndex order) {
    CFOwned<CFRunLoopSourceRef> known; // which is released without the lock
    const MutexLock lock(mMutex);
    if (mListener == nullptr || !mValid) {
        return nullptr;
    }
    known = CopyLivingSource();
    if (known && known->IsValid()) {
        return known.Release();
    }
    auto info = std::make_unique<SourceInfo>(SourceInfo{this, nullptr});
    CFRunLoopSourceContext context{};
    context.info = info.get();
    context.release = ReleaseSourceInfo;
    context.schedule = ScheduleSource;
    context.cancel = CancelSource;
    context.perform = PerformSource;
    const CFRunLoopSourceRef source = CFRunLoopSourceCreate(nullptr, order, &context);
    if (source == nullptr) {
        return nullptr;
    }
    CFRetain(this);
    info.release()->source = source;
    return mSource = source;
}

void __CFMessagePort::PerformRequest(CFRunLoopSourceRef source) {
    const auto request = mListener->TakeRequest();
    if (!request) {
        return;
    }
    std::shared_ptr<void> info;
    {
        const MutexLock lock(mMutex);
        if (!mValid) {
            mListener->Finish(*request);
            return;
        }
        info = mInfo;
    }
    CFRetain(this);
    const bool performed = CFRuntimeGuard(false, [&] {
        Perform(*request, info.get());
        return true;
    });
    if (!performed && request->header.kind == MessagePort::FrameKind::kOneWay) {
        mListener->Finish(*request);
    } else if (!performed) {
        mListener->Answer(*request, MessagePort::FrameKind::kRefusal, {});
    }
    // One request for each time that the source is performed, so that other sources have their
    // turn.
    if (mListener->HasRequest()) {
        source->SignalAndWake();
    }
    CFRelease(this);
}

void __CFMessagePort::Perform(const MessagePortListener::Request& request, void* info) {
    const CFOwned<CFDataRef> data(
        CFDataCreate(nullptr, request.data.data(), static_cast<CFIndex>(request.data.size())));
    if (!data) {
        throw std::bad_alloc();
    }
    const CFOwned<CFDataRef> reply(mCallOut(this, request.header.msgid, data.Get(), info));
    if (request.header.kind == MessagePort::FrameKind::kOneWay) {
        mListener->Finish(request);
    } else if (!reply) {
        mListener->Answer(request, MessagePort::FrameKind::kEmptyReply, {});
    } else if (CFGetTypeID(reply.Get()) != CFDataGetTypeID() ||
               CFDataGetLength(reply.Get()) > kCFMessagePortMaximumLength) {
        mListener->Answer(request, MessagePort::FrameKind::kRefusal, {});
    } else {
        const UInt8* const bytes = CFDataGetBytePtr(reply.Get());
        mListener->Answer(request, MessagePort::FrameKind::kReply,
                          {bytes, bytes + CFDataGetLength(reply.Get())});
    }
}

namespace {

// The local port of that name, made if there is none, and then `isNew`. Null with the reason in the
// log, or std::bad_alloc.
CFMessagePortRef FindOrMakeLocal(const std::string& name, CFMessagePortCallBack callout,
                                 const CFMessagePortContext* context, bool& isNew) {
    LocalPorts& local = TheLocalPorts();
    const MutexLock lock(local.mutex);
    for (const CFMessagePortRef port : local.ports) {
        if (port->mName == name) {
            if (port->RetainIfAlive()) {
                return port;
            }
            // Its last reference has just gone and its destructor waits for the lock held here.
            port->mListener->Close();
        }
    }
    local.ports.reserve(local.ports.size() + 1); // a port that is made can be listed
    std::string error;
    auto listener = MessagePortListener::Open(name, error);
    if (listener == nullptr) {
        syslog(LOG_ERR, "CFMessagePort: cannot make the local port \"%s\": %s", name.c_str(),
               error.c_str());
        local.failedName = name;
        local.failure = error;
        return nullptr;
    }
    local.ports.push_back(new __CFMessagePort(name, callout, context, std::move(listener)));
    if (local.failedName == name) {
        local.failedName.clear();
    }
    isNew = true;
    return local.ports.back();
}

} // namespace

CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef, CFStringRef name,
                                          CFMessagePortCallBack callout,
                                          CFMessagePortContext* context, Boolean* shouldFreeInfo) {
    if (shouldFreeInfo != nullptr) {
        *shouldFreeInfo = true;
    }
    CFRuntimeIsOptionalArgument(name, kCFRuntimeStringType, "name");
    return CFRuntimeGuard<CFMessagePortRef>(nullptr, [&]() -> CFMessagePortRef {
        const auto text = UTF8OfString(name);
        if (!text || callout == nullptr || (context != nullptr && context->version != 0)) {
            return nullptr;
        }
        bool isNew = false;
        CFMessagePortRef port = FindOrMakeLocal(*text, callout, context, isNew);
        if (isNew && shouldFreeInfo != nullptr) {
            *shouldFreeInfo = false;
        }
        return port;
    });
}

CFStringRef CFMessagePortHostCopyLocalFailure(CFStringRef name) {
    return CFRuntimeGuard<CFStringRef>(nullptr, [&]() -> CFStringRef {
        const auto text = UTF8OfString(name);
        LocalPorts& local = TheLocalPorts();
        const MutexLock lock(local.mutex);
        return text && !text->empty() && *text == local.failedName ? CopyUTF8String(local.failure)
                                                                   : nullptr;
    });
}

CFStringRef CFMessagePortHostCopyFolder(CFStringRef* failure) {
    if (failure != nullptr) {
        *failure = nullptr;
    }
    return CFRuntimeGuard<CFStringRef>(nullptr, [&]() -> CFStringRef {
        std::string error;
        const auto folder = MessagePort::Folder(error);
        if (!folder && failure != nullptr) {
            *failure = CopyUTF8String(error);
        }
        return folder ? CopyUTF8String(*folder) : nullptr;
    });
}

CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef, CFStringRef name) {
    CFRuntimeIsArgument(name, kCFRuntimeStringType, "name");
    return CFRuntimeGuard<CFMessagePortRef>(nullptr, [&]() -> CFMessagePortRef {
        const auto text = UTF8OfString(name);
        auto sender = text ? MessagePortSender::Open(*text) : nullptr;
        return sender == nullptr ? nullptr : new __CFMessagePort(*text, std::move(sender));
    });
}

void CFMessagePortInvalidate(CFMessagePortRef ms) {
    if (auto* port = CFRuntimeArgument<__CFMessagePort>(ms, "ms")) {
        CFRetain(port);
        port->Invalidate();
        CFRelease(port);
    }
}

Boolean CFMessagePortIsValid(CFMessagePortRef ms) {
    auto* port = CFRuntimeArgument<__CFMessagePort>(ms, "ms");
    if (port == nullptr || !port->IsValid()) {
        return false;
    }
    // Without memory to ask, nothing says that it is gone.
    if (port->IsRemote() && !CFRuntimeGuard(true, [&] { return port->mSender->IsAlive(); })) {
        CFMessagePortInvalidate(port);
        return false;
    }
    return true;
}

CFRunLoopSourceRef CFMessagePortCreateRunLoopSource(CFAllocatorRef, CFMessagePortRef local,
                                                    CFIndex order) {
    auto* port = CFRuntimeArgument<__CFMessagePort>(local, "local");
    return port == nullptr ? nullptr : CFRuntimeGuard<CFRunLoopSourceRef>(nullptr, [&] {
        return port->CopySource(order);
    });
}

CFTypeID CFMessagePortGetTypeID() {
    static const CFTypeID id = CFRuntimeRegisterType("CFMessagePort");
    return id;
}
