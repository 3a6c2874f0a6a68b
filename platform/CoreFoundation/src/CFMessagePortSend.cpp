// Requests of a remote port: handed over with the thread blocked, answered with its run loop
// running.
#include "platform/CoreFoundation/src/CFMessagePortObject.h"
#include "platform/CoreFoundation/src/CFRunLoopObject.h"
#include "platform/CoreFoundation/src/Utf8String.h"

#include <CoreFoundation/CFMessagePortHost.h>

#include <algorithm>
#include <chrono>
#include <utility>

using MessagePort::FrameKind;
using MessagePort::FrameReader;
using Clock = std::chrono::steady_clock;

namespace {

constexpr CFTimeInterval kLongestWait = 10.0 * 365 * 24 * 3600;

Clock::time_point DeadlineAfter(CFTimeInterval seconds) {
    if (!(seconds > 0)) { // a NaN is no time
        return Clock::now();
    }
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(
                              std::chrono::duration<double>(std::min(seconds, kLongestWait)));
}

CFTimeInterval SecondsUntil(Clock::time_point deadline) {
    return std::chrono::duration<double>(deadline - Clock::now()).count();
}

// Makes the calling thread's run loop return once a socket has something to read: a source of its
// own is added to the mode for as long as this lives.
class ReplyWatch {
public:
    ReplyWatch(int socket, CFStringRef mode)
        : mLoop(CFRunLoopGetCurrent()),
          mModeName(Utf8Of(mode).value_or("")),
          mDescriptor(*mLoop->Context(), socket) {
        CFRunLoopSourceContext context{};
        mSource = CFRunLoopSourceCreate(nullptr, 0, &context);
        CFRunLoopAddSource(mLoop, mSource, mode);
    }
    ReplyWatch(const ReplyWatch&) = delete;
    ReplyWatch& operator=(const ReplyWatch&) = delete;
    ~ReplyWatch() {
        mDescriptor.release(); // the connection goes on
        CFRunLoopSourceInvalidate(mSource);
        CFRelease(mSource);
        // A stop was meant for the run that the caller is in, not for the one made here.
        if (mStopped) {
            CFRunLoopStop(mLoop);
        }
    }

    // Runs the loop until something may be there to read, or other work of the mode was done, or
    // the deadline has passed.
    void Wait(Clock::time_point deadline) {
        if (!std::exchange(mArmed->waiting, true)) {
            CFRetain(mSource);
            mDescriptor.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                                   [armed = mArmed, source = CFOwned<CFRunLoopSourceRef>(mSource)](
                                       const boost::system::error_code&) {
                                       armed->waiting = false;
                                       CFRunLoopSourceSignal(source.get());
                                   });
        }
        bool stopped = false;
        mLoop->Run(mModeName, SecondsUntil(deadline), true, &stopped);
        mStopped = mStopped || stopped;
    }

private:
    struct Armed {
        bool waiting = false;
    };

    const CFRunLoopRef mLoop;
    const std::string mModeName;
    boost::asio::posix::stream_descriptor mDescriptor;
    CFRunLoopSourceRef mSource = nullptr;
    const std::shared_ptr<Armed> mArmed = std::make_shared<Armed>();
    bool mStopped = false;
};

enum class Awaited { Answered, TimedOut, Closed };

// Replies to earlier requests, which were given up, are skipped.
Awaited AwaitReply(MessagePortSender::Connection& connection, std::uint32_t sequence,
                   Clock::time_point deadline, CFStringRef mode) {
    ReplyWatch watch(connection.socket.Get(), mode);
    while (true) {
        const bool late = Clock::now() >= deadline;
        watch.Wait(deadline);
        while (true) {
            const FrameReader::Result result = connection.reader.Read(connection.socket.Get());
            if (result == FrameReader::Result::Incomplete) {
                break;
            }
            if (result != FrameReader::Result::Complete) {
                return Awaited::Closed;
            }
            const FrameKind kind = connection.reader.Header().kind;
            if (kind == FrameKind::Request || kind == FrameKind::OneWay) {
                return Awaited::Closed;
            }
            if (connection.reader.Header().sequence == sequence) {
                return Awaited::Answered;
            }
            connection.reader.TakePayload();
        }
        if (late) {
            return Awaited::TimedOut;
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
    std::shared_ptr<MessagePortSender::Connection> connection;
    std::uint32_t sequence = 0;
    switch (mSender->Send(header, payload, DeadlineAfter(sendTimeout), connection, sequence)) {
    case MessagePortSender::Result::Done:
        break;
    case MessagePortSender::Result::TimedOut:
        return kCFMessagePortSendTimeout;
    case MessagePortSender::Result::Broken:
        return kCFMessagePortTransportError;
    case MessagePortSender::Result::Gone:
        Invalidate(true);
        return kCFMessagePortBecameInvalidError;
    }
    if (replyMode == nullptr) {
        mSender->Return(connection, true);
        return kCFMessagePortSuccess;
    }
    switch (AwaitReply(*connection, sequence, DeadlineAfter(receiveTimeout), replyMode)) {
    case Awaited::Answered:
        break;
    case Awaited::TimedOut:
        mSender->Return(connection, true);
        return mSender->IsClosed() ? kCFMessagePortBecameInvalidError
                                   : kCFMessagePortReceiveTimeout;
    case Awaited::Closed:
        mSender->Return(connection, false);
        if (!mSender->IsAlive()) {
            Invalidate(true);
            return kCFMessagePortBecameInvalidError;
        }
        return kCFMessagePortTransportError;
    }
    const FrameKind kind = connection->reader.Header().kind;
    const std::vector<std::uint8_t> reply = connection->reader.TakePayload();
    mSender->Return(connection, true);
    if (kind == FrameKind::Refusal) {
        return kCFMessagePortTransportError;
    }
    if (kind == FrameKind::Reply && returnData != nullptr) {
        *returnData = CFDataCreate(nullptr, reply.data(), static_cast<CFIndex>(reply.size()));
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
    header.kind = replyMode == nullptr ? FrameKind::OneWay : FrameKind::Request;
    header.msgid = msgid;
    CFRetain(port);
    const SInt32 result = port->Send(header, data, sendTimeout, rcvTimeout, replyMode, returnData);
    CFRelease(port);
    return result;
}
