#include "platform/CoreFoundation/src/messageport/MessagePortSender.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>
#include <thread>
#include <utility>

using MessagePort::ConnectResult;
using MessagePort::FrameWriter;
using Clock = std::chrono::steady_clock;

namespace {

constexpr auto kRetryInterval = std::chrono::milliseconds(2);
// The longest that a process takes, once killed, to close its sockets one after the other.
constexpr auto kEnding = std::chrono::seconds(1);

int MillisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, INT_MAX));
}

// Whether the other side does not close it until then. The reply to a request that was given up may
// wait.
bool IsOpen(int socket, Clock::time_point deadline = Clock::now()) {
    pollfd state{socket, POLLRDHUP, 0};
    return poll(&state, 1, MillisecondsUntil(deadline)) == 0;
}

} // namespace

std::unique_ptr<MessagePortSender> MessagePortSender::Open(const std::string& name) {
    std::string error;
    const auto path = MessagePort::SocketPath(name, error);
    if (!path) {
        return nullptr;
    }
    const auto identity = MessagePort::IdentityOf(*path);
    if (!identity) {
        return nullptr;
    }
    auto sender = std::make_unique<MessagePortSender>(*path, *identity);
    std::shared_ptr<Connection> connection;
    const Result result = sender->ConnectAnew(Clock::now(), connection);
    if (result != Result::kDone && result != Result::kTimedOut) {
        return nullptr;
    }
    sender->Return(std::move(connection));
    return sender;
}

MessagePortSender::MessagePortSender(const std::string& path,
                                     const MessagePort::SocketIdentity& identity)
    : mPath(path), mIdentity(identity) {}

MessagePortSender::Result MessagePortSender::ConnectAnew(Deadline deadline,
                                                         std::shared_ptr<Connection>& connection) {
    auto made = std::make_shared<Connection>();
    while (true) {
        if (IsClosed() || MessagePort::IdentityOf(mPath) != mIdentity) {
            return Result::kGone;
        }
        switch (MessagePort::Connect(mPath, made->socket)) {
        case ConnectResult::kConnected:
            // Another port may have taken the name over in between.
            if (MessagePort::IdentityOf(mPath) != mIdentity || !Register(made)) {
                return Result::kGone;
            }
            connection = std::move(made);
            return Result::kDone;
        case ConnectResult::kBusy:
            break;
        case ConnectResult::kAbsent:
            return Result::kGone;
        case ConnectResult::kRefused:
            return Result::kRefused;
        }
        // No event tells when there is room for another connection.
        if (Clock::now() >= deadline) {
            return Result::kTimedOut;
        }
        std::this_thread::sleep_for(kRetryInterval);
    }
}

// Whether it may be used: not once `Close` was called.
bool MessagePortSender::Register(const std::shared_ptr<Connection>& connection) {
    const MutexLock lock(mMutex);
    if (mClosed) {
        return false;
    }
    std::erase_if(mConnections, [](const auto& known) { return known.expired(); });
    mConnections.push_back(connection);
    return true;
}

MessagePortSender::Result MessagePortSender::Borrow(Deadline deadline, bool mayReuse,
                                                    std::shared_ptr<Connection>& connection) {
    connection = nullptr;
    {
        const MutexLock lock(mMutex);
        if (mClosed) {
            return Result::kGone;
        }
        if (mayReuse) {
            connection = std::exchange(mIdle, nullptr);
        }
    }
    return connection != nullptr && IsOpen(connection->socket.Get())
               ? Result::kDone
               : ConnectAnew(deadline, connection);
}

MessagePortSender::Result MessagePortSender::WriteAll(FrameWriter& writer, int socket,
                                                      Deadline deadline) {
    while (true) {
        switch (writer.Write(socket)) {
        case FrameWriter::Result::kComplete:
            return Result::kDone;
        case FrameWriter::Result::kFailed:
            return Result::kNotTaken;
        case FrameWriter::Result::kIncomplete:
            break;
        }
        const int left = MillisecondsUntil(deadline);
        if (left == 0) {
            return Result::kTimedOut;
        }
        pollfd wait{socket, POLLOUT, 0};
        poll(&wait, 1, left);
    }
}

MessagePortSender::Result MessagePortSender::Send(MessagePort::FrameHeader header,
                                                  std::vector<std::uint8_t> payload,
                                                  Deadline deadline, bool mayReuse,
                                                  std::shared_ptr<Connection>& connection) {
    const Result borrowed = Borrow(deadline, mayReuse, connection);
    if (borrowed != Result::kDone) {
        return borrowed;
    }
    header.sequence = ++connection->sequence;
    FrameWriter writer(header, std::move(payload));
    const Result written = WriteAll(writer, connection->socket.Get(), deadline);
    if (written == Result::kTimedOut && !writer.HasBegun()) {
        Return(std::move(connection));
    }
    return written;
}

void MessagePortSender::Return(std::shared_ptr<Connection> connection) {
    const MutexLock lock(mMutex);
    if (!mClosed && mIdle == nullptr) {
        mIdle = std::move(connection);
    }
}

bool MessagePortSender::IsAlive() {
    {
        const MutexLock lock(mMutex);
        if (mClosed) {
            return false;
        }
        if (mIdle != nullptr && IsOpen(mIdle->socket.Get())) {
            return true;
        }
        mIdle.reset();
    }
    // A new connection tells: while the listener ends, a used one may still be open.
    std::shared_ptr<Connection> connection;
    const Result result = ConnectAnew(Clock::now(), connection);
    if (result == Result::kDone) {
        Return(std::move(connection));
    }
    // When no connection could be made for want of descriptors, nothing says that it is gone.
    return result != Result::kGone;
}

bool MessagePortSender::GoesOn() {
    const Deadline deadline = Clock::now() + kEnding;
    while (true) {
        std::shared_ptr<Connection> connection;
        const Result result = ConnectAnew(deadline, connection);
        if (result != Result::kDone) {
            return result != Result::kGone;
        }
        if (IsOpen(connection->socket.Get(), deadline)) {
            Return(std::move(connection));
            return true;
        }
        // A living listener closes it to make room for others.
        if (Clock::now() >= deadline) {
            return true;
        }
    }
}

void MessagePortSender::Close() {
    const MutexLock lock(mMutex);
    mClosed = true;
    mIdle.reset();
    // Not closed: the thread that borrowed it may be waiting on the descriptor.
    for (const auto& each : mConnections) {
        if (const auto connection = each.lock()) {
            shutdown(connection->socket.Get(), SHUT_RDWR);
        }
    }
}

bool MessagePortSender::IsClosed() const {
    const MutexLock lock(mMutex);
    return mClosed;
}
