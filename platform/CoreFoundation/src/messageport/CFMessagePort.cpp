#include "platform/CoreFoundation/src/messageport/CFMessagePortObject.h"
#include "platform/CoreFoundation/src/runloop/CFRunLoopObject.h"
#include "platform/CoreFoundation/src/values/Utf8String.h"

#include <CoreFoundation/CFMessagePortHost.h>

#include <syslog.h>

#include <map>
#include <utility>

namespace {

// The local ports of this process by name. Entries do not keep ports alive: whoever finds one tries
// to retain it, and the port's destructor takes the entry out under the same lock.
struct LocalPorts {
    Mutex mutex;
    std::map<std::string, CFMessagePortRef> byName QUORVEL_GUARDED_BY(mutex);
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
    sourceInfo->port->mSource->ClearIf(sourceInfo->source);
    CFRelease(sourceInfo->port);
    delete sourceInfo;
}

void ScheduleSource(void* info, CFRunLoopRef loop, CFRunLoopMode) {
    static_cast<SourceInfo*>(info)->port->mListener->Attach(loop->Context());
}

void CancelSource(void* info, CFRunLoopRef loop, CFRunLoopMode) {
    CFRuntimeGuard(
        [&] { static_cast<SourceInfo*>(info)->port->mListener->Detach(loop->Context()); });
}

void PerformSource(void* info) {
    static_cast<SourceInfo*>(info)->port->PerformRequest();
}

} // namespace

void MessagePortSource::Set(CFRunLoopSourceRef source) {
    const MutexLock lock(mMutex);
    mSource = source;
}

void MessagePortSource::ClearIf(CFRunLoopSourceRef source) {
    const MutexLock lock(mMutex);
    if (mSource == source) {
        mSource = nullptr;
    }
}

CFRunLoopSourceRef MessagePortSource::Copy() {
    const MutexLock lock(mMutex);
    return mSource != nullptr && mSource->RetainIfAlive() ? mSource : nullptr;
}

void MessagePortSource::SignalAndWake() {
    if (const CFRunLoopSourceRef source = Copy()) {
        source->SignalAndWake();
        CFRelease(source);
    }
}

__CFMessagePort::__CFMessagePort(const std::string& name, CFMessagePortCallBack callout,
                                 const CFMessagePortContext* context,
                                 std::shared_ptr<MessagePortSource> source,
                                 std::shared_ptr<MessagePortListener> listener)
    : CFRuntimeObject(CFMessagePortGetTypeID()),
      mName(name),
      mNameString(CopyUtf8String(name)),
      mCallOut(callout),
      mSource(std::move(source)),
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
    : CFRuntimeObject(CFMessagePortGetTypeID()),
      mName(name),
      mNameString(CopyUtf8String(name)),
      mSender(std::move(sender)) {}

__CFMessagePort::~__CFMessagePort() {
    Invalidate(false);
    if (mNameString != nullptr) {
        CFRelease(mNameString);
    }
}

bool __CFMessagePort::IsValid() const {
    const MutexLock lock(mMutex);
    return mValid;
}

bool __CFMessagePort::Invalidate(bool report) {
    std::shared_ptr<void> info;
    CFMessagePortInvalidationCallBack callBack = nullptr;
    {
        const MutexLock lock(mMutex);
        if (!std::exchange(mValid, false)) {
            return false;
        }
        info = std::exchange(mInfo, nullptr);
        callBack = std::exchange(mInvalidationCallBack, nullptr);
    }
    if (mSender != nullptr) {
        mSender->Close();
    }
    if (mListener != nullptr) {
        // Under the lock, so that whoever does not find the name finds the socket gone as well.
        LocalPorts& ports = TheLocalPorts();
        const MutexLock lock(ports.mutex);
        const auto entry = ports.byName.find(mName);
        if (entry != ports.byName.end() && entry->second == this) {
            ports.byName.erase(entry);
        }
        mListener->Close();
    }
    if (mSource != nullptr) {
        if (const CFRunLoopSourceRef source = mSource->Copy()) {
            source->Invalidate();
            CFRelease(source);
        }
    }
    if (report && callBack != nullptr) {
        callBack(this, info.get());
    }
    return true;
}

void __CFMessagePort::SetInvalidationCallBack(CFMessagePortInvalidationCallBack callBack) {
    {
        const MutexLock lock(mMutex);
        if (mValid) {
            mInvalidationCallBack = callBack;
            return;
        }
    }
    if (callBack != nullptr) {
        callBack(this, nullptr);
    }
}

CFRunLoopSourceRef __CFMessagePort::CopySource(CFIndex order) {
    const MutexLock lock(mMutex);
    if (mListener == nullptr || !mValid) {
        return nullptr;
    }
    if (const CFRunLoopSourceRef known = mSource->Copy()) {
        if (known->IsValid()) {
            return known;
        }
        CFRelease(known);
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
    mSource->Set(source);
    return source;
}

void __CFMessagePort::PerformRequest() {
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
    const CFOwned<CFDataRef> data(
        CFDataCreate(nullptr, request->data.data(), static_cast<CFIndex>(request->data.size())));
    const CFOwned<CFDataRef> reply(mCallOut(this, request->header.msgid, data.get(), info.get()));
    if (request->header.kind == MessagePort::FrameKind::kOneWay) {
        mListener->Finish(*request);
    } else if (reply.get() == nullptr) {
        mListener->Answer(*request, MessagePort::FrameKind::kEmptyReply, {});
    } else if (CFGetTypeID(reply.get()) != CFDataGetTypeID() ||
               CFDataGetLength(reply.get()) > kCFMessagePortMaximumLength) {
        mListener->Answer(*request, MessagePort::FrameKind::kRefusal, {});
    } else {
        const UInt8* const bytes = CFDataGetBytePtr(reply.get());
        mListener->Answer(*request, MessagePort::FrameKind::kReply,
                          {bytes, bytes + CFDataGetLength(reply.get())});
    }
    // One request for each time that the source is performed, so that other sources have their
    // turn.
    if (mListener->HasRequest()) {
        mSource->SignalAndWake();
    }
    CFRelease(this);
}

CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef, CFStringRef name,
                                          CFMessagePortCallBack callout,
                                          CFMessagePortContext* context, Boolean* shouldFreeInfo) {
    if (shouldFreeInfo != nullptr) {
        *shouldFreeInfo = true;
    }
    CFRuntimeIsOptionalArgument(name, kCFRuntimeStringType, "name");
    const auto text = Utf8Of(name);
    if (!text || callout == nullptr || (context != nullptr && context->version != 0)) {
        return nullptr;
    }
    LocalPorts& ports = TheLocalPorts();
    const MutexLock lock(ports.mutex);
    const auto known = ports.byName.find(*text);
    if (known != ports.byName.end()) {
        if (known->second->RetainIfAlive()) {
            return known->second;
        }
        // Its last reference has just gone and its destructor waits for the lock held here.
        known->second->mListener->Close();
        ports.byName.erase(known);
    }
    const auto source = std::make_shared<MessagePortSource>();
    std::string error;
    auto listener = MessagePortListener::Open(
        *text, [source] { source->SignalAndWake(); }, error);
    if (listener == nullptr) {
        syslog(LOG_ERR, "CFMessagePort: cannot make the local port \"%s\": %s", text->c_str(),
               error.c_str());
        ports.failedName = *text;
        ports.failure = error;
        return nullptr;
    }
    auto* const port = new __CFMessagePort(*text, callout, context, source, std::move(listener));
    ports.byName[*text] = port;
    if (ports.failedName == *text) {
        ports.failedName.clear();
    }
    if (shouldFreeInfo != nullptr) {
        *shouldFreeInfo = false;
    }
    return port;
}

CFStringRef CFMessagePortHostCopyLocalFailure(CFStringRef name) {
    const auto text = Utf8Of(name);
    LocalPorts& ports = TheLocalPorts();
    const MutexLock lock(ports.mutex);
    return text && !text->empty() && *text == ports.failedName ? CopyUtf8String(ports.failure)
                                                               : nullptr;
}

CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef, CFStringRef name) {
    CFRuntimeIsArgument(name, kCFRuntimeStringType, "name");
    const auto text = Utf8Of(name);
    if (!text) {
        return nullptr;
    }
    auto sender = MessagePortSender::Open(*text);
    return sender == nullptr ? nullptr : new __CFMessagePort(*text, std::move(sender));
}

Boolean CFMessagePortIsRemote(CFMessagePortRef ms) {
    const auto* port = CFRuntimeArgument<__CFMessagePort>(ms, "ms");
    return port != nullptr && port->IsRemote();
}

CFStringRef CFMessagePortGetName(CFMessagePortRef ms) {
    const auto* port = CFRuntimeArgument<__CFMessagePort>(ms, "ms");
    return port == nullptr ? nullptr : port->mNameString;
}

CFMessagePortInvalidationCallBack CFMessagePortGetInvalidationCallBack(CFMessagePortRef ms) {
    const auto* port = CFRuntimeArgument<__CFMessagePort>(ms, "ms");
    if (port == nullptr) {
        return nullptr;
    }
    const MutexLock lock(port->mMutex);
    return port->mInvalidationCallBack;
}

void CFMessagePortSetInvalidationCallBack(CFMessagePortRef ms,
                                          CFMessagePortInvalidationCallBack callout) {
    if (auto* port = CFRuntimeArgument<__CFMessagePort>(ms, "ms")) {
        port->SetInvalidationCallBack(callout);
    }
}

void CFMessagePortInvalidate(CFMessagePortRef ms) {
    if (auto* port = CFRuntimeArgument<__CFMessagePort>(ms, "ms")) {
        CFRetain(port);
        port->Invalidate(true);
        CFRelease(port);
    }
}

Boolean CFMessagePortIsValid(CFMessagePortRef ms) {
    auto* port = CFRuntimeArgument<__CFMessagePort>(ms, "ms");
    if (port == nullptr || !port->IsValid()) {
        return false;
    }
    if (port->IsRemote() && !port->mSender->IsAlive()) {
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
