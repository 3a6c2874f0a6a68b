#include "platform/CoreFoundation/src/messageport/MessagePortListener.h"

#include "platform/CoreFoundation/src/runloop/CFRunLoopObject.h"

#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

using MessagePort::FrameReader;
using MessagePort::FrameWriter;
using Clock = std::chrono::steady_clock; // whose epoch is that of CLOCK_MONOTONIC

namespace {

constexpr std::size_t kMaximumConnections = 64;
// The time that a peer has to complete a message, or to take one.
constexpr auto kFrameTimeout = std::chrono::seconds(5);
// A connection that was not served yet is not let go of for another one this long.
constexpr auto kGracePeriod = std::chrono::seconds(1);
constexpr auto kAcceptPause = std::chrono::milliseconds(100);
// Peers that keep sockets ready must not keep the loop from its other sources.
constexpr int kStepsPerTurn = 64;

bool HasUnreadBytes(int socket) {
    int count = 0;
    return ioctl(socket, FIONREAD, &count) == 0 && count > 0;
}

// Registers a descriptor, or registers it anew, for events; `tag` comes back with them.
bool Register(const FileDescriptor& events, int operation, const FileDescriptor& descriptor,
              std::uint32_t wanted, void* tag) {
    epoll_event event{};
    event.events = wanted;
    event.data.ptr = tag;
    return epoll_ctl(events.Get(), operation, descriptor.Get(), &event) == 0;
}

} // namespace

// Under the mutex of its listener.
struct MessagePortListener::Connection {
    enum class State { kReading, kQueued, kServing, kWriting };

    FileDescriptor socket;
    State state = State::kReading;
    FrameReader reader;
    std::optional<FrameWriter> writer;
    std::uint64_t arrival = 0; // tells which of two queued requests came first
    bool served = false;
    Time lastUse = Clock::now();
    Time deadline = Time::max();
};

struct MessagePortListener::Watch {
    const CFRunLoopRef loop;
    const CFRunLoopSourceRef source;
    boost::asio::posix::stream_descriptor events; // closed when it is detached
    int count = 1;
};

std::shared_ptr<MessagePortListener> MessagePortListener::Open(const std::string& name,
                                                               std::string& error) {
    const auto path = MessagePort::SocketPath(name, error);
    if (!path) {
        return nullptr;
    }
    auto listener = std::make_shared<MessagePortListener>(*path);
    const MutexLock lock(listener->mMutex);
    listener->mSocket = MessagePort::Listen(*path, listener->mIdentity, error);
    if (!listener->mSocket) {
        return nullptr;
    }
    FileDescriptor& events = listener->mEvents = FileDescriptor(epoll_create1(EPOLL_CLOEXEC));
    FileDescriptor& timer = listener->mTimer =
        FileDescriptor(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    if (!events || !timer || !Register(events, EPOLL_CTL_ADD, timer, EPOLLIN, &timer) ||
        !Register(events, EPOLL_CTL_ADD, listener->mSocket, EPOLLIN | EPOLLONESHOT, nullptr)) {
        error = *path + ": " + std::strerror(errno);
        return nullptr;
    }
    return listener;
}

MessagePortListener::MessagePortListener(const std::string& path) : mPath(path) {}

MessagePortListener::~MessagePortListener() {
    Close();
}

void MessagePortListener::Attach(CFRunLoopRef loop, CFRunLoopSourceRef source) {
    const MutexLock lock(mMutex);
    for (const auto& watch : mWatches) {
        if (watch->loop == loop && watch->source == source) {
            ++watch->count;
            return;
        }
    }
    const auto watch = std::make_shared<Watch>(Watch{loop, source, loop->Watch(mEvents.Get())});
    mWatches.reserve(mWatches.size() + 1); // nothing may fail once the watch is armed
    Arm(watch);
    mWatches.push_back(watch);
}

void MessagePortListener::Detach(CFRunLoopRef loop, CFRunLoopSourceRef source) {
    const MutexLock lock(mMutex);
    std::erase_if(mWatches, [&](const auto& watch) {
        const bool ends = watch->loop == loop && watch->source == source && --watch->count == 0;
        if (ends) {
            watch->events.close();
        }
        return ends;
    });
}

// A handler that runs after its watch was closed, or after the listener has gone, does nothing. As
// long as the watch is open its source is in the loop, which keeps the source.
void MessagePortListener::Arm(const std::shared_ptr<Watch>& watch) {
    watch->events.async_wait(
        boost::asio::posix::stream_descriptor::wait_read,
        [listener = weak_from_this(), watch](const boost::system::error_code& error) {
            const auto self = listener.lock();
            if (error || self == nullptr) {
                return;
            }
            const MutexLock lock(self->mMutex);
            if (!watch->events.is_open() || !self->mSocket) {
                return;
            }
            if (self->ServeWhatIsReady()) {
                watch->source->SignalAndWake();
            }
            // This takes the memory that the handler which runs had: there is always some.
            self->Arm(watch);
        });
}

// Whether a request has arrived.
bool MessagePortListener::ServeWhatIsReady() {
    const std::uint64_t before = mArrivals;
    epoll_event event{};
    // One event at a time, since a step may drop the connection that another event is for.
    for (int i = 0; i < kStepsPerTurn && epoll_wait(mEvents.Get(), &event, 1, 0) > 0; ++i) {
        if (event.data.ptr == &mTimer) {
            break; // deadlines are looked at below, which sets the timer anew
        }
        auto* const connection = static_cast<Connection*>(event.data.ptr);
        try {
            if (connection == nullptr) {
                Accept();
            } else if (connection->state == Connection::State::kReading) {
                ReadFrom(*connection);
            } else {
                WriteTo(*connection);
            }
        } catch (const std::bad_alloc&) {
            // A connection that there is no memory for must not be left with nobody watching it:
            // its peer would wait.
            if (connection != nullptr) {
                Drop(*connection);
            } else {
                mHeldUntil = Clock::now() + kAcceptPause;
            }
        }
    }
    const Time now = Clock::now();
    for (auto each = mConnections.begin(); each != mConnections.end();) {
        Connection& connection = *each++;
        if (connection.deadline <= now) {
            Drop(connection);
        }
    }
    if (mHeldUntil && *mHeldUntil <= now) {
        AwaitPeer();
    }
    SetTimer();
    return mArrivals != before;
}

// Lets the timer run out at the next deadline; it is then not ready before.
void MessagePortListener::SetTimer() {
    Time next = mHeldUntil.value_or(Time::max());
    for (const Connection& connection : mConnections) {
        next = std::min(next, connection.deadline);
    }
    itimerspec when{};
    if (next != Time::max()) {
        const auto since = next.time_since_epoch();
        const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
        when.it_value.tv_sec = static_cast<time_t>(seconds.count());
        when.it_value.tv_nsec =
            static_cast<long>(std::chrono::nanoseconds(since - seconds).count());
    }
    timerfd_settime(mTimer.Get(), TFD_TIMER_ABSTIME, &when, nullptr);
}

void MessagePortListener::AwaitPeer() {
    mHeldUntil.reset();
    Register(mEvents, EPOLL_CTL_MOD, mSocket, EPOLLIN | EPOLLONESHOT, nullptr);
}

// A connection was dropped or is idle again: there may be a place for another one.
void MessagePortListener::ResumeAccepting() {
    if (mHeldUntil) {
        AwaitPeer();
    }
}

// Accepts the connection that waits.
void MessagePortListener::Accept() {
    if (mConnections.size() >= kMaximumConnections && !MakeRoom()) {
        return;
    }
    FileDescriptor accepted(accept4(mSocket.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!accepted && errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
        // Out of descriptors or memory: the socket stays ready, so waiting would not wait.
        mHeldUntil = Clock::now() + kAcceptPause;
        return;
    }
    if (accepted && MessagePort::PeerIsThisUser(accepted.Get())) {
        Connection& connection = mConnections.emplace_back();
        connection.socket = std::move(accepted);
        if (!Register(mEvents, EPOLL_CTL_ADD, connection.socket, EPOLLIN | EPOLLONESHOT,
                      &connection)) {
            Drop(connection);
        }
    }
    AwaitPeer();
}

// Lets go of the connection that has been idle longest; one that is in the middle of something, or
// that has not had the time to be served once, is never chosen. When there is none, holds accepting
// until there may be.
bool MessagePortListener::MakeRoom() {
    while (true) {
        const Time now = Clock::now();
        Time next = Time::max();
        Connection* oldest = nullptr;
        for (Connection& connection : mConnections) {
            if (connection.state != Connection::State::kReading || connection.reader.HasBegun() ||
                HasUnreadBytes(connection.socket.Get())) {
                continue;
            }
            const Time from =
                connection.served ? connection.lastUse : connection.lastUse + kGracePeriod;
            if (from > now) {
                next = std::min(next, from);
            } else if (oldest == nullptr || connection.lastUse < oldest->lastUse) {
                oldest = &connection;
            }
        }
        if (oldest == nullptr) {
            mHeldUntil = next;
            return false;
        }
        // A request that comes after this fails to be sent, and its sender connects anew. One that
        // came between the two looks is served.
        shutdown(oldest->socket.Get(), SHUT_RD);
        if (!HasUnreadBytes(oldest->socket.Get())) {
            Drop(*oldest);
            return true;
        }
    }
}

void MessagePortListener::Await(Connection& connection, std::uint32_t event) {
    Register(mEvents, EPOLL_CTL_MOD, connection.socket, event | EPOLLONESHOT, &connection);
}

void MessagePortListener::ReadFrom(Connection& connection) {
    const FrameReader::Result result = connection.reader.Read(connection.socket.Get());
    if (result == FrameReader::Result::kIncomplete) {
        if (connection.reader.HasBegun()) {
            connection.deadline = std::min(connection.deadline, Clock::now() + kFrameTimeout);
        }
        Await(connection, EPOLLIN);
        return;
    }
    const auto kind = connection.reader.Header().kind;
    if (result != FrameReader::Result::kComplete ||
        (kind != MessagePort::FrameKind::kRequest && kind != MessagePort::FrameKind::kOneWay)) {
        Drop(connection);
        return;
    }
    connection.deadline = Time::max();
    connection.arrival = ++mArrivals;
    connection.state = Connection::State::kQueued;
}

void MessagePortListener::WriteTo(Connection& connection) {
    const FrameWriter::Result result = connection.writer->Write(connection.socket.Get());
    if (result == FrameWriter::Result::kComplete) {
        BecomeIdle(connection);
    } else if (result == FrameWriter::Result::kFailed || !mSocket) {
        Drop(connection); // a port that is closed does not wait for anybody
    } else {
        connection.deadline = std::min(connection.deadline, Clock::now() + kFrameTimeout);
        Await(connection, EPOLLOUT);
    }
}

void MessagePortListener::BecomeIdle(Connection& connection) {
    if (!mSocket) {
        Drop(connection);
        return;
    }
    connection.writer.reset();
    connection.deadline = Time::max();
    connection.served = true;
    connection.lastUse = Clock::now();
    connection.state = Connection::State::kReading;
    Await(connection, EPOLLIN);
    ResumeAccepting();
}

void MessagePortListener::Drop(Connection& connection) {
    // A child process that was forked may still have the socket, which closing alone would leave
    // registered.
    Register(mEvents, EPOLL_CTL_DEL, connection.socket, 0, nullptr);
    mConnections.remove_if([&](const Connection& each) { return &each == &connection; });
    ResumeAccepting();
}

std::optional<MessagePortListener::Request> MessagePortListener::TakeRequest() {
    const MutexLock lock(mMutex);
    Connection* first = nullptr;
    for (Connection& each : mConnections) {
        if (each.state == Connection::State::kQueued &&
            (first == nullptr || each.arrival < first->arrival)) {
            first = &each;
        }
    }
    if (first == nullptr) {
        return std::nullopt;
    }
    first->state = Connection::State::kServing;
    return Request{first, first->reader.Header(), first->reader.TakePayload()};
}

bool MessagePortListener::HasRequest() const {
    const MutexLock lock(mMutex);
    return std::any_of(mConnections.begin(), mConnections.end(), [](const Connection& each) {
        return each.state == Connection::State::kQueued;
    });
}

void MessagePortListener::Answer(const Request& request, MessagePort::FrameKind kind,
                                 std::vector<std::uint8_t> data) {
    const MutexLock lock(mMutex);
    MessagePort::FrameHeader header;
    header.kind = kind;
    header.sequence = request.header.sequence;
    request.from->writer.emplace(header, std::move(data));
    request.from->state = Connection::State::kWriting;
    WriteTo(*request.from);
    SetTimer();
}

void MessagePortListener::Finish(const Request& request) {
    const MutexLock lock(mMutex);
    BecomeIdle(*request.from);
}

void MessagePortListener::Close() {
    const MutexLock lock(mMutex);
    if (!mSocket) {
        return;
    }
    // While the socket listens nobody replaces its file, so first remove that, then close.
    if (MessagePort::IdentityOf(mPath) == mIdentity) {
        unlink(mPath.c_str());
    }
    mSocket.Reset();
    for (auto each = mConnections.begin(); each != mConnections.end();) {
        Connection& connection = *each++;
        if (connection.state != Connection::State::kServing) {
            Drop(connection);
        }
    }
}
