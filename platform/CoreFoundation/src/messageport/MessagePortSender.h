// A MessagePortSender is the sending side of a remote message port: its connections to one
// listening socket.
//
//     const auto sender = MessagePortSender::Open(name);
//     if (sender->Send(header, payload, deadline, true, connection) == Result::kDone) {
//         connection->reader.Read(connection->socket.Get()); // the reply
//         sender->Return(std::move(connection));
//     }
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
        std::uint32_t sequence = 0; // of the last request; its reply bears the same
    };

    enum class Result {
        kDone,
        kTimedOut,
        kNotTaken, // the connection ended before all was handed over: the request can be sent anew
        kRefused,  // no connection can be made, though the listener may well live
        kGone,     // the listener is gone, or `Close` was called
    };

    // Returns null if nobody listens under the name, or if it is another user who does.
    static std::unique_ptr<MessagePortSender> Open(const std::string& name);

    MessagePortSender(const std::string& path, const MessagePort::SocketIdentity& identity);
    MessagePortSender(const MessagePortSender&) = delete;
    MessagePortSender& operator=(const MessagePortSender&) = delete;

    // Sends a request and lends the connection that it went over, a used one only when asked to.
    // Blocks until everything is handed over or the deadline has passed. A connection that is let
    // go of is closed; std::bad_alloc closes it too.
    Result Send(MessagePort::FrameHeader header, std::vector<std::uint8_t> payload,
                Deadline deadline, bool mayReuse, std::shared_ptr<Connection>& connection);

    // Gives a connection back, to be used again.
    void Return(std::shared_ptr<Connection> connection);

    // Returns whether the listener lives, as far as can be told without waiting.
    bool IsAlive();
    // Returns the same after a connection broke off, when the listener's process may be just about
    // to end: a killed one loses its sockets one by one, the listening one not first. Blocks for up
    // to a second.
    bool GoesOn();

    // Ends every request that is under way. No other is sent from then on.
    void Close();
    bool IsClosed() const;

private:
    Result Borrow(Deadline deadline, bool mayReuse, std::shared_ptr<Connection>& connection);
    Result ConnectAnew(Deadline deadline, std::shared_ptr<Connection>& connection);
    bool Register(const std::shared_ptr<Connection>& connection);
    static Result WriteAll(MessagePort::FrameWriter& writer, int socket, Deadline deadline);

    const std::string mPath;
    const MessagePort::SocketIdentity mIdentity;
    mutable Mutex mMutex;
    bool mClosed QUORVEL_GUARDED_BY(mMutex) = false;
    std::shared_ptr<Connection> mIdle QUORVEL_GUARDED_BY(mMutex); // at most one is kept
    // All that there are, so that `Close` can end them. They live as long as somebody uses them,
    // however that ends.
    std::vector<std::weak_ptr<Connection>> mConnections QUORVEL_GUARDED_BY(mMutex);
};
