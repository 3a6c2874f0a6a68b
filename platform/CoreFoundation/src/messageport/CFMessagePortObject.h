// The object behind a CFMessagePortRef. A local port serves through a listener, and a remote one
// asks through a sender; which of the two it has never changes.
#pragma once

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/messageport/MessagePortListener.h"
#include "platform/CoreFoundation/src/messageport/MessagePortSender.h"
#include "platform/support/Mutex.h"

#include <CoreFoundation/CFMessagePort.h>

#include <memory>
#include <string>

struct __CFMessagePort final : CFRuntimeObject {
    __CFMessagePort(const std::string& name, CFMessagePortCallBack callout,
                    const CFMessagePortContext* context,
                    std::shared_ptr<MessagePortListener> listener);
    __CFMessagePort(const std::string& name, std::unique_ptr<MessagePortSender> sender);
    ~__CFMessagePort() override;

    bool IsRemote() const { return mSender != nullptr; }
    bool IsValid() const;
    void Invalidate();
    CFRunLoopSourceRef CopySource(CFIndex order);
    CFOwned<CFRunLoopSourceRef> CopyLivingSource() const QUORVEL_REQUIRES(mMutex);
    void ForgetSource(CFRunLoopSourceRef source);
    // Performs the request that waits longest. Without memory it is refused.
    void PerformRequest(CFRunLoopSourceRef source);
    void Perform(const MessagePortListener::Request& request, void* info);
    SInt32 Send(const MessagePort::FrameHeader& header, CFDataRef data, CFTimeInterval sendTimeout,
                CFTimeInterval receiveTimeout, CFStringRef replyMode, CFDataRef* returnData);
    SInt32 BecomeInvalid();
    SInt32 TakeReply(std::shared_ptr<MessagePortSender::Connection> connection,
                     CFDataRef* returnData);

    const std::string mName;
    const CFMessagePortCallBack mCallOut = nullptr;
    CFMessagePortContext mContext{};                      // constant once constructed
    const std::shared_ptr<MessagePortListener> mListener; // of a local port
    const std::unique_ptr<MessagePortSender> mSender;     // of a remote port

    mutable Mutex mMutex;
    bool mValid QUORVEL_GUARDED_BY(mMutex) = true;
    // A local port's source, if there is one. It keeps the port; the port holds no reference to it.
    CFRunLoopSourceRef mSource QUORVEL_GUARDED_BY(mMutex) = nullptr;
    // Released as the last user lets go of it: a callout that runs as the port is invalidated keeps
    // the info that it was given.
    std::shared_ptr<void> mInfo QUORVEL_GUARDED_BY(mMutex);
};
