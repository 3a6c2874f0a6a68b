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

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
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

    // All of these with mMutex held.
    void Serve(const std::shared_ptr<boost::asio::io_context>& context);
    std::shared_ptr<boost::asio::io_context> StopServing();
    void WaitToAccept();
    void HoldAccepting(std::chrono::steady_clock::time_point until);
    void ResumeAccepting();
    bool SomebodyWaits() const;
    void AcceptSome();
    bool MakeRoom();
    void Watch(const std::shared_ptr<Connection>& connection);
    void Unwatch(Connection& connection);
    void SetDeadline(const std::shared_ptr<Connection>& connection);
    void WatchDeadline(const std::shared_ptr<Connection>& connection);
    void ClearDeadline(Connection& connection);
    bool ReadFrom(const std::shared_ptr<Connection>& connection);
    void WriteTo(const std::shared_ptr<Connection>& connection);
    void BecomeIdle(const std::shared_ptr<Connection>& connection);
    void Drop(const std::shared_ptr<Connection>& connection);

    const std::string mPath;
    const MessagePort::SocketIdentity mIdentity;
    const std::function<void()> mOnRequest;

    mutable std::mutex mMutex;
    FileDescriptor mSocket;
    bool mClosed = false;
    std::vector<Attachment> mAttachments;
    std::shared_ptr<boost::asio::io_context> mContext; // the one that serves
    // Counts periods of service: a handler of an earlier one finds that it is none of its business.
    std::uint64_t mService = 0;
    std::optional<boost::asio::posix::stream_descriptor> mAcceptor;
    std::optional<boost::asio::steady_timer> mAcceptTimer;
    bool mAcceptingHeld = false; // there is no place, or no descriptor, for another connection
    std::vector<std::shared_ptr<Connection>> mConnections;
    std::deque<std::shared_ptr<Connection>> mQueue;
};
