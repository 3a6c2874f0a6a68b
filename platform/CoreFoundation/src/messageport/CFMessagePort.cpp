#include "platform/CoreFoundation/src/messageport/CFMessagePortObject.h"
#include "platform/CoreFoundation/src/messageport/MessagePortAddress.h"
#include "platform/CoreFoundation/src/runloop/CFRunLoopObject.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFMessagePortHost.h>

#include <syslog.h>

#include <map>
#include <new>
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
    CFRuntimeGuard(
        [&] { static_cast<SourceInfo*>(info)->port->mListener->Attach(loop->Context()); });
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
    {
        const MutexLock lock(mMutex);
        if (!std::exchange(mValid, false)) {
            return;
        }
        info = std::exchange(mInfo, nullptr);
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
        mSource->SignalAndWake();
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
    LocalPorts& ports = TheLocalPorts();
    const MutexLock lock(ports.mutex);
    const auto place = ports.byName.try_emplace(name, nullptr).first;
    if (place->second != nullptr) {
        if (place->second->RetainIfAlive()) {
            return place->second;
        }
        // Its last reference has just gone and its destructor waits for the lock held here.
        place->second->mListener->Close();
        place->second = nullptr;
    }
    const auto make = [&]() QUORVEL_REQUIRES(ports.mutex) -> CFMessagePortRef {
        const auto source = std::make_shared<MessagePortSource>();
        std::string error;
        auto listener = MessagePortListener::Open(
            name, [source] { source->SignalAndWake(); }, error);
        if (listener == nullptr) {
            syslog(LOG_ERR, "CFMessagePort: cannot make the local port \"%s\": %s", name.c_str(),
                   error.c_str());
            ports.failedName = name;
            ports.failure = error;
            return nullptr;
        }
        return new __CFMessagePort(name, callout, context, source, std::move(listener));
    };
    try {
        place->second = make();
    } catch (...) {
        ports.byName.erase(place);
        throw;
    }
    CFMessagePortRef port = place->second;
    if (port == nullptr) {
        ports.byName.erase(place);
    } else if (ports.failedName == name) {
        ports.failedName.clear();
    }
    isNew = port != nullptr;
    return port;
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
        LocalPorts& ports = TheLocalPorts();
        const MutexLock lock(ports.mutex);
        return text && !text->empty() && *text == ports.failedName ? CopyUTF8String(ports.failure)
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
