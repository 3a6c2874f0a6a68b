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

// Whether the other side has not closed it. The reply to a request that was given up may wait.
bool IsOpen(int socket) {
    pollfd state{socket, POLLRDHUP, 0};
    return poll(&state, 1, 0) == 0;
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
    sender->Return(connection, true);
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
            if (MessagePort::IdentityOf(mPath) != mIdentity) {
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
    if (connection == nullptr || !IsOpen(connection->socket.Get())) {
        const Result result = ConnectAnew(deadline, connection);
        if (result != Result::kDone) {
            return result;
        }
    }
    const MutexLock lock(mMutex);
    if (mClosed) {
        return Result::kGone;
    }
    mLent.push_back(connection);
    return Result::kDone;
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
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            return Result::kTimedOut;
        }
        pollfd wait{socket, POLLOUT, 0};
        poll(&wait, 1, static_cast<int>(std::min<std::int64_t>(left, INT_MAX)));
    }
}

MessagePortSender::Result MessagePortSender::Send(MessagePort::FrameHeader header,
                                                  std::vector<std::uint8_t> payload,
                                                  Deadline deadline, bool mayReuse,
                                                  std::shared_ptr<Connection>& connection,
                                                  std::uint32_t& sequence) {
    const Result borrowed = Borrow(deadline, mayReuse, connection);
    if (borrowed != Result::kDone) {
        return borrowed;
    }
    sequence = connection->nextSequence++;
    header.sequence = sequence;
    FrameWriter writer(header, std::move(payload));
    const Result written = WriteAll(writer, connection->socket.Get(), deadline);
    if (written != Result::kDone) {
        Return(connection, written == Result::kTimedOut && !writer.HasBegun());
    }
    return written;
}

void MessagePortSender::Return(const std::shared_ptr<Connection>& connection, bool reusable) {
    const MutexLock lock(mMutex);
    std::erase(mLent, connection);
    if (reusable && !mClosed && mIdle == nullptr) {
        mIdle = connection;
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
    return CanBeReached();
}

bool MessagePortSender::CanBeReached() {
    std::shared_ptr<Connection> connection;
    const Result result = ConnectAnew(Clock::now(), connection);
    if (result == Result::kDone) {
        Return(connection, true);
    }
    // When no connection could be made for want of descriptors, nothing says that it is gone.
    return result != Result::kGone;
}

void MessagePortSender::Close() {
    const MutexLock lock(mMutex);
    mClosed = true;
    mIdle.reset();
    // Not closed: the thread that borrowed it may be waiting on the descriptor.
    for (const auto& connection : mLent) {
        shutdown(connection->socket.Get(), SHUT_RDWR);
    }
}

bool MessagePortSender::IsClosed() const {
    const MutexLock lock(mMutex);
    return mClosed;
}
