#include "platform/CoreFoundation/src/messageport/MessagePortListener.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

using MessagePort::FrameReader;
using MessagePort::FrameWriter;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kAcceptsPerHandler = 16;
constexpr auto kAcceptPause = std::chrono::milliseconds(100);

bool HasUnreadBytes(int socket) {
    int count = 0;
    return ioctl(socket, FIONREAD, &count) == 0 && count > 0;
}

} // namespace

// Under the mutex of its listener.
struct MessagePortListener::Connection {
    enum class State { kReading, kQueued, kServing, kWriting, kClosed };

    State state = State::kReading;
    FileDescriptor socket;
    FrameReader reader;
    std::optional<FrameWriter> writer;
    bool served = false;
    Clock::time_point lastUse = Clock::now();
    Clock::time_point deadline = Clock::time_point::max();
    // Present while a context serves; the descriptor never owns the socket.
    std::optional<boost::asio::posix::stream_descriptor> watched;
    std::optional<boost::asio::steady_timer> timer;
};

std::shared_ptr<MessagePortListener> MessagePortListener::Open(const std::string& name,
                                                               std::function<void()> onRequest,
                                                               std::string& error) {
    const auto path = MessagePort::SocketPath(name, error);
    if (!path) {
        return nullptr;
    }
    MessagePort::SocketIdentity identity;
    FileDescriptor socket = MessagePort::Listen(*path, identity, error);
    if (!socket) {
        return nullptr;
    }
    try {
        return std::make_shared<MessagePortListener>(*path, std::move(socket), identity,
                                                     std::move(onRequest));
    } catch (...) {
        unlink(path->c_str());
        throw;
    }
}

MessagePortListener::MessagePortListener(const std::string& path, FileDescriptor socket,
                                         const MessagePort::SocketIdentity& identity,
                                         std::function<void()> onRequest)
    : mPath(path),
      mIdentity(identity),
      mOnRequest(std::move(onRequest)),
      mSocket(std::move(socket)) {}

MessagePortListener::~MessagePortListener() {
    Close();
}

void MessagePortListener::Attach(const std::shared_ptr<boost::asio::io_context>& context) {
    const MutexLock lock(mMutex);
    if (mClosed) {
        return;
    }
    const auto known =
        std::find_if(mAttachments.begin(), mAttachments.end(),
                     [&](const Attachment& each) { return each.context == context; });
    if (known != mAttachments.end()) {
        ++known->count;
        return;
    }
    mAttachments.push_back({context, 1});
    if (mAttachments.size() == 1) {
        Serve(context);
    }
}

void MessagePortListener::Detach(const std::shared_ptr<boost::asio::io_context>& context) {
    // The last reference to a context may go here, and with it handlers that hold this object: that
    // has to happen without the lock.
    std::shared_ptr<boost::asio::io_context> unused;
    const MutexLock lock(mMutex);
    const auto known =
        std::find_if(mAttachments.begin(), mAttachments.end(),
                     [&](const Attachment& each) { return each.context == context; });
    if (known == mAttachments.end() || --known->count != 0) {
        return;
    }
    mAttachments.erase(known);
    if (mContext == context) {
        unused = StopServing();
        if (!mAttachments.empty()) {
            Serve(mAttachments.front().context);
        }
    }
}

void MessagePortListener::Serve(const std::shared_ptr<boost::asio::io_context>& context) {
    mContext = context;
    ++mService;
    mAcceptingHeld = false;
    WaitToAccept();
    for (const auto& connection : mConnections) {
        Watch(connection);
        WatchDeadline(connection);
    }
}

std::shared_ptr<boost::asio::io_context> MessagePortListener::StopServing() {
    ++mService;
    if (mAcceptor) {
        mAcceptor->release();
        mAcceptor.reset();
    }
    mAcceptTimer.reset();
    for (const auto& connection : mConnections) {
        Unwatch(*connection);
    }
    return std::exchange(mContext, nullptr);
}

void MessagePortListener::WaitToAccept() {
    if (mContext == nullptr || mClosed || mAcceptingHeld) {
        return;
    }
    if (!mAcceptor) {
        mAcceptor.emplace(*mContext, mSocket.Get());
    }
    mAcceptor->async_wait(
        boost::asio::posix::stream_descriptor::wait_read,
        [self = shared_from_this(), service = mService](const boost::system::error_code& error) {
            const MutexLock lock(self->mMutex);
            if (!error && service == self->mService && !self->mClosed) {
                try {
                    self->AcceptSome();
                } catch (const std::bad_alloc&) {
                    self->WaitToAccept(); // for those that come when there is memory again
                }
            }
        });
}

// Until a connection is dropped or idle again, or the time has come.
void MessagePortListener::HoldAccepting(Clock::time_point until) {
    mAcceptingHeld = true;
    mAcceptTimer.emplace(*mContext, until);
    mAcceptTimer->async_wait(
        [self = shared_from_this(), service = mService](const boost::system::error_code& error) {
            const MutexLock lock(self->mMutex);
            if (!error && service == self->mService) {
                self->ResumeAccepting();
            }
        });
}

void MessagePortListener::ResumeAccepting() {
    if (std::exchange(mAcceptingHeld, false)) {
        mAcceptTimer.reset();
        WaitToAccept();
    }
}

bool MessagePortListener::SomebodyWaits() const {
    pollfd waiting{mSocket.Get(), POLLIN, 0};
    return poll(&waiting, 1, 0) > 0;
}

void MessagePortListener::AcceptSome() {
    for (int i = 0; i < kAcceptsPerHandler; ++i) {
        if (mConnections.size() >= kMaximumConnections) {
            if (!SomebodyWaits()) {
                break;
            }
            if (!MakeRoom()) {
                return;
            }
        }
        FileDescriptor accepted(
            accept4(mSocket.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!accepted) {
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                break;
            }
            if (errno == EINTR || errno == ECONNABORTED) {
                continue;
            }
            // Out of descriptors or memory: the socket stays ready, so waiting would not wait.
            HoldAccepting(Clock::now() + kAcceptPause);
            return;
        }
        if (!MessagePort::PeerIsThisUser(accepted.Get())) {
            continue;
        }
        auto connection = std::make_shared<Connection>();
        connection->socket = std::move(accepted);
        mConnections.push_back(connection);
        WatchOrDrop(connection);
    }
    WaitToAccept();
}

// Lets go of the connection that has been idle longest; one that is in the middle of something, or
// that has not had the time to be served once, is never chosen. When there is none, holds accepting
// until there may be.
bool MessagePortListener::MakeRoom() {
    const Clock::time_point now = Clock::now();
    Clock::time_point next = Clock::time_point::max();
    std::vector<std::shared_ptr<Connection>> idle;
    for (const auto& connection : mConnections) {
        if (connection->state != Connection::State::kReading || connection->reader.HasBegun() ||
            HasUnreadBytes(connection->socket.Get())) {
            continue;
        }
        const Clock::time_point from =
            connection->served ? connection->lastUse : connection->lastUse + kGracePeriod;
        if (from <= now) {
            idle.push_back(connection);
        } else {
            next = std::min(next, from);
        }
    }
    std::sort(idle.begin(), idle.end(),
              [](const auto& a, const auto& b) { return a->lastUse < b->lastUse; });
    for (const auto& connection : idle) {
        // A request that comes after this fails to be sent, and its sender connects anew. One that
        // came between the two looks is served.
        shutdown(connection->socket.Get(), SHUT_RD);
        if (!HasUnreadBytes(connection->socket.Get())) {
            Drop(connection);
            return true;
        }
    }
    HoldAccepting(next);
    return false;
}

void MessagePortListener::Watch(const std::shared_ptr<Connection>& connection) {
    const bool reads = connection->state == Connection::State::kReading;
    const bool writes = connection->state == Connection::State::kWriting;
    if (mContext == nullptr || (!reads && !writes)) {
        return;
    }
    if (!connection->watched) {
        connection->watched.emplace(*mContext, connection->socket.Get());
    }
    connection->watched->async_wait(
        reads ? boost::asio::posix::stream_descriptor::wait_read
              : boost::asio::posix::stream_descriptor::wait_write,
        [self = shared_from_this(), connection, reads,
         service = mService](const boost::system::error_code& error) {
            bool arrived = false;
            {
                const MutexLock lock(self->mMutex);
                const auto expected =
                    reads ? Connection::State::kReading : Connection::State::kWriting;
                if (error || service != self->mService || connection->state != expected) {
                    return;
                }
                // A connection that there is no memory for must not be left with nobody watching
                // it: its peer would wait.
                try {
                    if (reads) {
                        arrived = self->ReadFrom(connection);
                    } else {
                        self->WriteTo(connection);
                    }
                } catch (const std::bad_alloc&) {
                    self->Drop(connection);
                }
            }
            if (arrived) {
                self->mOnRequest();
            }
        });
}

void MessagePortListener::WatchOrDrop(const std::shared_ptr<Connection>& connection) {
    try {
        Watch(connection);
    } catch (const std::bad_alloc&) {
        Drop(connection);
    }
}

void MessagePortListener::Unwatch(Connection& connection) {
    if (connection.watched) {
        connection.watched->release();
        connection.watched.reset();
    }
    connection.timer.reset();
}

void MessagePortListener::SetDeadline(const std::shared_ptr<Connection>& connection) {
    if (connection->deadline == Clock::time_point::max()) {
        connection->deadline = Clock::now() + kFrameTimeout;
        WatchDeadline(connection);
    }
}

void MessagePortListener::WatchDeadline(const std::shared_ptr<Connection>& connection) {
    if (mContext == nullptr || connection->deadline == Clock::time_point::max()) {
        return;
    }
    connection->timer.emplace(*mContext, connection->deadline);
    connection->timer->async_wait([self = shared_from_this(), connection,
                                   service = mService](const boost::system::error_code& error) {
        const MutexLock lock(self->mMutex);
        // A timer that ran out just as the deadline was met has been cleared in vain.
        if (!error && service == self->mService &&
            connection->state != Connection::State::kClosed &&
            connection->deadline <= Clock::now()) {
            self->Drop(connection);
        }
    });
}

void MessagePortListener::ClearDeadline(Connection& connection) {
    connection.deadline = Clock::time_point::max();
    connection.timer.reset();
}

// Whether a request has been put into the queue.
bool MessagePortListener::ReadFrom(const std::shared_ptr<Connection>& connection) {
    switch (connection->reader.Read(connection->socket.Get())) {
    case FrameReader::Result::kIncomplete:
        if (connection->reader.HasBegun()) {
            SetDeadline(connection);
        }
        Watch(connection);
        return false;
    case FrameReader::Result::kComplete: {
        ClearDeadline(*connection);
        const auto kind = connection->reader.Header().kind;
        if (kind != MessagePort::FrameKind::kRequest && kind != MessagePort::FrameKind::kOneWay) {
            Drop(connection);
            return false;
        }
        mQueue.push_back(connection);
        connection->state = Connection::State::kQueued;
        return true;
    }
    case FrameReader::Result::kClosed:
    case FrameReader::Result::kReset:
    case FrameReader::Result::kMalformed:
        Drop(connection);
        return false;
    }
    return false;
}

void MessagePortListener::WriteTo(const std::shared_ptr<Connection>& connection) {
    switch (connection->writer->Write(connection->socket.Get())) {
    case FrameWriter::Result::kIncomplete:
        // A port that is closed does not wait for anybody.
        if (mClosed) {
            Drop(connection);
            return;
        }
        SetDeadline(connection);
        Watch(connection);
        return;
    case FrameWriter::Result::kFailed:
        Drop(connection);
        return;
    case FrameWriter::Result::kComplete:
        break;
    }
    ClearDeadline(*connection);
    connection->writer.reset();
    BecomeIdle(connection);
}

void MessagePortListener::BecomeIdle(const std::shared_ptr<Connection>& connection) {
    connection->served = true;
    connection->lastUse = Clock::now();
    connection->state = Connection::State::kReading;
    if (mClosed) {
        Drop(connection);
        return;
    }
    Watch(connection);
    ResumeAccepting();
}

void MessagePortListener::Drop(const std::shared_ptr<Connection>& connection) {
    Unwatch(*connection);
    connection->state = Connection::State::kClosed;
    connection->socket.Reset();
    std::erase(mConnections, connection);
    std::erase(mQueue, connection);
    ResumeAccepting();
}

std::optional<MessagePortListener::Request> MessagePortListener::TakeRequest() {
    const MutexLock lock(mMutex);
    if (mQueue.empty()) {
        return std::nullopt;
    }
    const std::shared_ptr<Connection> connection = mQueue.front();
    mQueue.pop_front();
    connection->state = Connection::State::kServing;
    return Request{connection, connection->reader.Header(), connection->reader.TakePayload()};
}

bool MessagePortListener::HasRequest() const {
    const MutexLock lock(mMutex);
    return !mQueue.empty();
}

void MessagePortListener::Answer(const Request& request, MessagePort::FrameKind kind,
                                 std::vector<std::uint8_t> data) {
    const MutexLock lock(mMutex);
    if (request.from->state != Connection::State::kServing) {
        return;
    }
    MessagePort::FrameHeader header;
    header.kind = kind;
    header.sequence = request.header.sequence;
    request.from->writer.emplace(header, std::move(data));
    request.from->state = Connection::State::kWriting;
    WriteTo(request.from);
}

void MessagePortListener::Finish(const Request& request) {
    const MutexLock lock(mMutex);
    if (request.from->state != Connection::State::kServing) {
        return;
    }
    BecomeIdle(request.from);
}

void MessagePortListener::Close() {
    std::shared_ptr<boost::asio::io_context> unused;
    std::vector<Attachment> unusedAttachments;
    const MutexLock lock(mMutex);
    if (std::exchange(mClosed, true)) {
        return;
    }
    // While the socket listens nobody replaces its file, so first remove that, then close.
    if (MessagePort::IdentityOf(mPath) == mIdentity) {
        unlink(mPath.c_str());
    }
    unused = StopServing();
    unusedAttachments.swap(mAttachments);
    mSocket.Reset();
    for (std::size_t i = mConnections.size(); i-- > 0;) {
        const std::shared_ptr<Connection> connection = mConnections[i];
        if (connection->state != Connection::State::kServing) {
            Drop(connection);
        }
    }
}
