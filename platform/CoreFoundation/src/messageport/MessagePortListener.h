// The serving side of a local message port: its socket, its connections, and the requests that have
// arrived whole and wait to be performed.
//
// While attached to an io_context it accepts and reads there; every step is a non-blocking one. A
// connection has one request at a time: it is not read from until that is answered, so what waits
// in memory is bounded by the number of connections. Detached, it keeps connections and requests.
//
// Thread-safe: one mutex guards all state, handlers take it too. `onRequest` is called without it.
#pragma once

#include "platform/CoreFoundation/src/messageport/MessagePortAddress.h"
#include "platform/CoreFoundation/src/messageport/MessagePortFrame.h"
#include "platform/support/FileDescriptor.h"
#include "platform/support/Mutex.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class MessagePortListener : public std::enable_shared_from_this<MessagePortListener> {
public:
    static constexpr std::size_t kMaximumConnections = 64;
    static constexpr auto kFrameTimeout = std::chrono::seconds(5);
    // A connection that was not served yet is not let go of for another one this long.
    static constexpr auto kGracePeriod = std::chrono::seconds(1);

    struct Connection;
    struct Request {
        std::shared_ptr<Connection> from;
        MessagePort::FrameHeader header;
        std::vector<std::uint8_t> data;
    };

    // Null with a reason when the socket cannot be made. `onRequest` is called after a request has
    // been put into the queue, on the thread that runs the io_context.
    static std::shared_ptr<MessagePortListener>
    Open(const std::string& name, std::function<void()> onRequest, std::string& error);

    MessagePortListener(const std::string& path, FileDescriptor socket,
                        const MessagePort::SocketIdentity& identity,
                        std::function<void()> onRequest);
    MessagePortListener(const MessagePortListener&) = delete;
    MessagePortListener& operator=(const MessagePortListener&) = delete;
    ~MessagePortListener();

    // Contexts count: the first attached one serves until it has been detached as often as it was
    // attached, then the next takes over.
    void Attach(const std::shared_ptr<boost::asio::io_context>& context);
    void Detach(const std::shared_ptr<boost::asio::io_context>& context);

    // The request that waits longest, null when none does. It must be answered or finished.
    std::optional<Request> TakeRequest();
    bool HasRequest() const;
    void Answer(const Request& request, MessagePort::FrameKind kind,
                std::vector<std::uint8_t> data);
    void Finish(const Request& request); // without an answer

    // Removes the socket if it is still this one's and closes all connections; one whose request is
    // being performed is closed after its answer. Requests that wait are dropped.
    void Close();

private:
    struct Attachment {
        std::shared_ptr<boost::asio::io_context> context;
        std::size_t count;
    };

    void Serve(const std::shared_ptr<boost::asio::io_context>& context) QUORVEL_REQUIRES(mMutex);
    std::shared_ptr<boost::asio::io_context> StopServing() QUORVEL_REQUIRES(mMutex);
    void WaitToAccept() QUORVEL_REQUIRES(mMutex);
    void HoldAccepting(std::chrono::steady_clock::time_point until) QUORVEL_REQUIRES(mMutex);
    void ResumeAccepting() QUORVEL_REQUIRES(mMutex);
    bool SomebodyWaits() const QUORVEL_REQUIRES(mMutex);
    void AcceptSome() QUORVEL_REQUIRES(mMutex);
    bool MakeRoom() QUORVEL_REQUIRES(mMutex);
    void Watch(const std::shared_ptr<Connection>& connection) QUORVEL_REQUIRES(mMutex);
    void WatchOrDrop(const std::shared_ptr<Connection>& connection) QUORVEL_REQUIRES(mMutex);
    void Unwatch(Connection& connection) QUORVEL_REQUIRES(mMutex);
    void SetDeadline(const std::shared_ptr<Connection>& connection) QUORVEL_REQUIRES(mMutex);
    void WatchDeadline(const std::shared_ptr<Connection>& connection) QUORVEL_REQUIRES(mMutex);
    void ClearDeadline(Connection& connection) QUORVEL_REQUIRES(mMutex);
    bool ReadFrom(const std::shared_ptr<Connection>& connection) QUORVEL_REQUIRES(mMutex);
    void WriteTo(const std::shared_ptr<Connection>& connection) QUORVEL_REQUIRES(mMutex);
    void BecomeIdle(const std::shared_ptr<Connection>& connection) QUORVEL_REQUIRES(mMutex);
    void Drop(const std::shared_ptr<Connection>& connection) QUORVEL_REQUIRES(mMutex);

    const std::string mPath;
    const MessagePort::SocketIdentity mIdentity;
    const std::function<void()> mOnRequest;

    mutable Mutex mMutex;
    FileDescriptor mSocket QUORVEL_GUARDED_BY(mMutex);
    bool mClosed QUORVEL_GUARDED_BY(mMutex) = false;
    std::vector<Attachment> mAttachments QUORVEL_GUARDED_BY(mMutex);
    // The one that serves.
    std::shared_ptr<boost::asio::io_context> mContext QUORVEL_GUARDED_BY(mMutex);
    // Counts periods of service: a handler of an earlier one finds that it is none of its business.
    std::uint64_t mService QUORVEL_GUARDED_BY(mMutex) = 0;
    std::optional<boost::asio::posix::stream_descriptor> mAcceptor QUORVEL_GUARDED_BY(mMutex);
    std::optional<boost::asio::steady_timer> mAcceptTimer QUORVEL_GUARDED_BY(mMutex);
    // There is no place, or no descriptor, for another connection.
    bool mAcceptingHeld QUORVEL_GUARDED_BY(mMutex) = false;
    std::vector<std::shared_ptr<Connection>> mConnections QUORVEL_GUARDED_BY(mMutex);
    std::deque<std::shared_ptr<Connection>> mQueue QUORVEL_GUARDED_BY(mMutex);
};
