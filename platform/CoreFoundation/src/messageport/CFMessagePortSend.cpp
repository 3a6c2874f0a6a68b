// Requests of a remote port: handed over with the thread blocked, answered with its run loop
// running.
#include "platform/CoreFoundation/src/base/Deadline.h"
#include "platform/CoreFoundation/src/messageport/CFMessagePortObject.h"
#include "platform/CoreFoundation/src/runloop/CFRunLoopObject.h"

#include <CoreFoundation/CFMessagePortHost.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <optional>
#include <utility>

using MessagePort::FrameKind;
using MessagePort::FrameReader;
using Clock = std::chrono::steady_clock;

namespace {

// How often a request is handed over before the other side, which does not take it, is given up.
constexpr int kAttempts = 4;

CFTimeInterval SecondsUntil(Clock::time_point deadline) {
    return std::chrono::duration<double>(deadline - Clock::now()).count();
}

// Makes the calling thread's run loop return once a socket has something to read: a source of its
// own is in the mode for as long as this lives. The constructor throws std::bad_alloc, or a
// std::runtime_error if there is no descriptor left.
class ReplyWatch {
public:
    ReplyWatch(int socket, CFStringRef mode) : mLoop(CFRunLoopGetCurrent()), mMode(mode) {
        CFRunLoopSourceContext context{};
        mSource.Reset(CFRunLoopSourceCreate(nullptr, 0, &context));
        if (mLoop == nullptr || !mSource) {
            throw std::bad_alloc();
        }
        mWatch.emplace(mLoop->Watch(socket));
        mLoop->AddSource(mSource.Get(), mode);
    }
    ReplyWatch(const ReplyWatch&) = delete;
    ReplyWatch& operator=(const ReplyWatch&) = delete;
    ~ReplyWatch() {
        mSource->Invalidate();
        // A stop was meant for the run that the caller is in, not for the one made here.
        if (mStopped) {
            CFRunLoopStop(mLoop);
        }
    }

    // Runs the loop until something may be there to read, or other work of the mode was done, or
    // the deadline has passed.
    void Wait(Clock::time_point deadline) {
        if (!*mIsArmed) {
            mWatch->async_wait(
                boost::asio::posix::stream_descriptor::wait_read,
                [isArmed = mIsArmed, source = mSource](const boost::system::error_code&) {
                    *isArmed = false;
                    source->Signal();
                });
            *mIsArmed = true;
        }
        bool stopped = false;
        mLoop->Run(mMode, SecondsUntil(deadline), true, &stopped);
        mStopped = mStopped || stopped;
    }

private:
    const CFRunLoopRef mLoop;
    const CFStringRef mMode; // the caller's
    CFOwned<CFRunLoopSourceRef> mSource;
    std::optional<boost::asio::posix::stream_descriptor> mWatch;
    // Shared with the handler, which the loop may run after this object's end.
    const std::shared_ptr<bool> mIsArmed = std::make_shared<bool>(false);
    bool mStopped = false;
};

enum class Awaited {
    kAnswered,
    kTimedOut,
    kNotTaken, // the other side let go of the connection without having read the request
    kEnded,    // it read the request and ended
    kBroken,   // the reply breaks off, or is none
};

// Replies to earlier requests, which were given up, are skipped.
Awaited AwaitReply(MessagePortSender::Connection& connection, Clock::time_point deadline,
                   CFStringRef mode) {
    ReplyWatch watch(connection.socket.Get(), mode);
    while (true) {
        const bool late = Clock::now() >= deadline;
        watch.Wait(deadline);
        while (true) {
            const FrameReader::Result result = connection.reader.Read(connection.socket.Get());
            if (result == FrameReader::Result::kIncomplete) {
                break;
            }
            if (result == FrameReader::Result::kReset) {
                return Awaited::kNotTaken;
            }
            if (result == FrameReader::Result::kClosed && !connection.reader.HasBegun()) {
                return Awaited::kEnded;
            }
            if (result != FrameReader::Result::kComplete) {
                return Awaited::kBroken;
            }
            const FrameKind kind = connection.reader.Header().kind;
            if (kind == FrameKind::kRequest || kind == FrameKind::kOneWay) {
                return Awaited::kBroken;
            }
            if (connection.reader.Header().sequence == connection.sequence) {
                return Awaited::kAnswered;
            }
            connection.reader.TakePayload();
        }
        if (late) {
            return Awaited::kTimedOut;
        }
    }
}

bool CanRunIn(CFStringRef mode) {
    return mode == nullptr ||
           (CFRuntimeTypeOf(mode) == kCFRuntimeStringType && !CFEqual(mode, kCFRunLoopCommonModes));
}

} // namespace

SInt32 __CFMessagePort::Send(const MessagePort::FrameHeader& header, CFDataRef data,
                             CFTimeInterval sendTimeout, CFTimeInterval receiveTimeout,
                             CFStringRef replyMode, CFDataRef* returnData) {
    std::vector<std::uint8_t> payload;
    if (data != nullptr) {
        const UInt8* const bytes = CFDataGetBytePtr(data);
        payload.assign(bytes, bytes + CFDataGetLength(data));
    }
    const Clock::time_point sendDeadline = DeadlineAfter(sendTimeout);
    std::optional<Clock::time_point> receiveDeadline;
    // The other side may let go of a connection as long as it has not read a request from it, to
    // make room for others. Such a request goes over a new connection: it is never performed twice.
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        std::shared_ptr<MessagePortSender::Connection> connection;
        switch (mSender->Send(header, payload, sendDeadline, attempt == 0, connection)) {
        case MessagePortSender::Result::kDone:
            break;
        case MessagePortSender::Result::kTimedOut:
            return kCFMessagePortSendTimeout;
        case MessagePortSender::Result::kNotTaken:
            continue;
        case MessagePortSender::Result::kRefused:
            return kCFMessagePortTransportError;
        case MessagePortSender::Result::kGone:
            return BecomeInvalid();
        }
        if (replyMode == nullptr) {
            mSender->Return(std::move(connection));
            return kCFMessagePortSuccess;
        }
        if (!receiveDeadline) {
            receiveDeadline = DeadlineAfter(receiveTimeout);
        }
        switch (AwaitReply(*connection, *receiveDeadline, replyMode)) {
        case Awaited::kAnswered:
            return TakeReply(std::move(connection), returnData);
        case Awaited::kNotTaken:
            break;
        case Awaited::kTimedOut:
            mSender->Return(std::move(connection));
            return mSender->IsClosed() ? kCFMessagePortBecameInvalidError
                                       : kCFMessagePortReceiveTimeout;
        case Awaited::kEnded:
            return BecomeInvalid();
        case Awaited::kBroken:
            return mSender->GoesOn() ? kCFMessagePortTransportError : BecomeInvalid();
        }
    }
    return mSender->GoesOn() ? kCFMessagePortTransportError : BecomeInvalid();
}

SInt32 __CFMessagePort::BecomeInvalid() {
    Invalidate();
    return kCFMessagePortBecameInvalidError;
}

SInt32 __CFMessagePort::TakeReply(std::shared_ptr<MessagePortSender::Connection> connection,
                                  CFDataRef* returnData) {
    const FrameKind kind = connection->reader.Header().kind;
    const std::vector<std::uint8_t> reply = connection->reader.TakePayload();
    mSender->Return(std::move(connection));
    if (kind == FrameKind::kRefusal) {
        return kCFMessagePortTransportError;
    }
    if (kind == FrameKind::kReply && returnData != nullptr) {
        *returnData = CFDataCreate(nullptr, reply.data(), static_cast<CFIndex>(reply.size()));
        if (*returnData == nullptr) {
            return kCFMessagePortTransportError;
        }
    }
    return kCFMessagePortSuccess;
}

SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 msgid, CFDataRef data,
                                CFTimeInterval sendTimeout, CFTimeInterval rcvTimeout,
                                CFStringRef replyMode, CFDataRef* returnData) {
    if (returnData != nullptr) {
        *returnData = nullptr;
    }
    auto* port = CFRuntimeArgument<__CFMessagePort>(remote, "remote");
    if (port == nullptr || !port->IsRemote() || !port->IsValid()) {
        return kCFMessagePortIsInvalid;
    }
    CFRuntimeIsOptionalArgument(replyMode, kCFRuntimeStringType, "replyMode");
    if (!CanRunIn(replyMode) || !CFRuntimeIsOptionalArgument(data, kCFRuntimeDataType, "data") ||
        (data != nullptr && CFDataGetLength(data) > kCFMessagePortMaximumLength)) {
        return kCFMessagePortTransportError;
    }
    MessagePort::FrameHeader header;
    header.kind = replyMode == nullptr ? FrameKind::kOneWay : FrameKind::kRequest;
    header.msgid = msgid;
    CFRetain(port);
    const SInt32 result = CFRuntimeGuard(SInt32{kCFMessagePortTransportError}, [&] {
        return port->Send(header, data, sendTimeout, rcvTimeout, replyMode, returnData);
    });
    CFRelease(port);
    return result;
}
