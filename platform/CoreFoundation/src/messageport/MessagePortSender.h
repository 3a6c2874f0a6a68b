// The sending side of a remote message port: connections to one listening socket.
//
// A connection is lent to one request at a time and then used again, so the requests of one thread
// travel in order; requests of several threads at once each have their own. A connection that the
// listener let go of while it was idle is replaced, as long as the socket is still the same.
//
// Thread-safe.
#pragma once

#include "platform/CoreFoundation/src/messageport/MessagePortAddress.h"
#include "platform/CoreFoundation/src/messageport/MessagePortFrame.h"
#include "platform/support/FileDescriptor.h"
#include "platform/support/Mutex.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class MessagePortSender {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    struct Connection {
        FileDescriptor socket;
        MessagePort::FrameReader reader;
        std::uint32_t nextSequence = 1;
    };

    enum class Result {
        kDone,
        kTimedOut,
        kNotTaken, // the connection ended before all was handed over: the request can be sent anew
        kRefused,  // no connection can be made, though the listener may well live
        kGone,     // the listener is gone, or `Close` was called
    };

    // Null when nobody listens under the name, or somebody else does.
    static std::unique_ptr<MessagePortSender> Open(const std::string& name);

    MessagePortSender(const std::string& path, const MessagePort::SocketIdentity& identity);
    MessagePortSender(const MessagePortSender&) = delete;
    MessagePortSender& operator=(const MessagePortSender&) = delete;

    // Sends a request and lends the connection that it went over, a used one only when asked to;
    // its reply will bear `sequence`. Blocks until everything is handed over or the deadline has
    // passed.
    Result Send(MessagePort::FrameHeader header, std::vector<std::uint8_t> payload,
                Deadline deadline, bool mayReuse, std::shared_ptr<Connection>& connection,
                std::uint32_t& sequence);

    // Gives a connection back; one that is not reusable is closed.
    void Return(const std::shared_ptr<Connection>& connection, bool reusable);

    // Whether the listener lives, as far as can be told without waiting.
    bool IsAlive();
    // The same, told by a new connection: while the listener ends, a used one may still be open.
    bool CanBeReached();

    // Ends every request that is under way. No other is sent.
    void Close();
    bool IsClosed() const;

private:
    Result Borrow(Deadline deadline, bool mayReuse, std::shared_ptr<Connection>& connection);
    Result ConnectAnew(Deadline deadline, std::shared_ptr<Connection>& connection);
    static Result WriteAll(MessagePort::FrameWriter& writer, int socket, Deadline deadline);

    const std::string mPath;
    const MessagePort::SocketIdentity mIdentity;
    mutable Mutex mMutex;
    bool mClosed QUORVEL_GUARDED_BY(mMutex) = false;
    std::shared_ptr<Connection> mIdle QUORVEL_GUARDED_BY(mMutex); // at most one is kept
    // So that `Close` can end them.
    std::vector<std::shared_ptr<Connection>> mLent QUORVEL_GUARDED_BY(mMutex);
};
