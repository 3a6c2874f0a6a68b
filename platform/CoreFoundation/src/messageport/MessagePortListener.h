// A MessagePortListener is the serving side of a local message port: its socket, its connections,
// and the requests that have arrived whole and wait to be performed.
//
// Everything that the listener waits for (its sockets and its next deadline) is gathered in one
// epoll descriptor. Each run loop that the listener is attached to watches that one descriptor and
// does what is ready; every step is a non-blocking one. A listener that is attached to no loop
// keeps its connections and requests.
//
// A connection has one request at a time: it is not read from until that one is answered. The
// number of connections therefore bounds the memory that requests take.
//
//     const auto listener = MessagePortListener::Open(name, error);
//     listener->Attach(loop, source); // signals the source when a request has arrived
//     if (const auto request = listener->TakeRequest()) {
//         listener->Answer(*request, MessagePort::FrameKind::kReply, bytes);
//     }
//
// Thread-safe: one mutex guards all state.
#pragma once

#include "platform/CoreFoundation/src/messageport/MessagePortAddress.h"
#include "platform/CoreFoundation/src/messageport/MessagePortFrame.h"
#include "platform/support/FileDescriptor.h"
#include "platform/support/Mutex.h"

#include <CoreFoundation/CFRunLoop.h>

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class MessagePortListener : public std::enable_shared_from_this<MessagePortListener> {
public:
    struct Connection;
    struct Request {
        Connection* from;
        MessagePort::FrameHeader header;
        std::vector<std::uint8_t> data;
    };

    // Returns null, and a reason in `error`, if the socket cannot be made.
    static std::shared_ptr<MessagePortListener> Open(const std::string& name, std::string& error);

    explicit MessagePortListener(const std::string& path);
    MessagePortListener(const MessagePortListener&) = delete;
    MessagePortListener& operator=(const MessagePortListener&) = delete;
    ~MessagePortListener();

    // Serves on the loop's thread, until it was detached from there as often as it was attached,
    // and signals the source after each request that arrives. Loop and source outlive that time.
    // Throws std::bad_alloc, or a std::runtime_error if there is no descriptor left.
    void Attach(CFRunLoopRef loop, CFRunLoopSourceRef source);
    void Detach(CFRunLoopRef loop, CFRunLoopSourceRef source);

    // Returns the request that waits longest, or nothing if none does. The caller calls either
    // Answer or Finish (which sends no answer) for it.
    std::optional<Request> TakeRequest();
    bool HasRequest() const;
    void Answer(const Request& request, MessagePort::FrameKind kind,
                std::vector<std::uint8_t> data);
    void Finish(const Request& request);

    // Removes the socket if it is still this one's and closes all connections; one whose request is
    // being performed is closed after its answer. Requests that wait are dropped.
    void Close();

private:
    using Time = std::chrono::steady_clock::time_point;
    struct Watch; // of one loop

    void Arm(const std::shared_ptr<Watch>& watch) QUORVEL_REQUIRES(mMutex);
    bool ServeWhatIsReady() QUORVEL_REQUIRES(mMutex);
    void Accept() QUORVEL_REQUIRES(mMutex);
    bool MakeRoom() QUORVEL_REQUIRES(mMutex);
    void AwaitPeer() QUORVEL_REQUIRES(mMutex);
    void ResumeAccepting() QUORVEL_REQUIRES(mMutex);
    void SetTimer() QUORVEL_REQUIRES(mMutex);
    void Await(Connection& connection, std::uint32_t event) QUORVEL_REQUIRES(mMutex);
    void ReadFrom(Connection& connection) QUORVEL_REQUIRES(mMutex);
    void WriteTo(Connection& connection) QUORVEL_REQUIRES(mMutex);
    void BecomeIdle(Connection& connection) QUORVEL_REQUIRES(mMutex);
    void Drop(Connection& connection) QUORVEL_REQUIRES(mMutex);

    const std::string mPath;
    mutable Mutex mMutex;
    MessagePort::SocketIdentity mIdentity QUORVEL_GUARDED_BY(mMutex);
    FileDescriptor mSocket QUORVEL_GUARDED_BY(mMutex); // none once it is closed
    // Every socket is registered for one event and, once that has come, anew for the next.
    FileDescriptor mEvents QUORVEL_GUARDED_BY(mMutex);
    FileDescriptor mTimer QUORVEL_GUARDED_BY(mMutex); // runs out at the next deadline
    std::vector<std::shared_ptr<Watch>> mWatches QUORVEL_GUARDED_BY(mMutex);
    std::list<Connection> mConnections QUORVEL_GUARDED_BY(mMutex);
    std::uint64_t mArrivals QUORVEL_GUARDED_BY(mMutex) = 0; // of requests
    // Set while there is no place, or no descriptor, for another connection: when to try again.
    std::optional<Time> mHeldUntil QUORVEL_GUARDED_BY(mMutex);
};
