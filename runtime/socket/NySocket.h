// A BSD socket whose failures are the runtime's result codes (see NyResult.h).
//
// An object is used by one thread at a time; the class-wide functions by any. Calls block only as
// the system call of their name does on a blocking socket. None allocates memory of its own.
//
// Every operation returns 0 on success. Where nothing else is said a failure is the mapped error of
// the system call, the same on every host; kNyNoSocket (5) stands for an object without a
// descriptor.
#pragma once

#include <atomic>

#include "runtime/socket/NySocketAddress.h"
#include "runtime/time/NyTime.h"

enum tNySocketFamily : int {
    kNyIPv4 = 2,
    kNyIPv6 = 30, // on every host
};

enum tNySocketType : int {
    kNyStream = 1,
    kNyDatagram = 2,
};

class NySocket {
public:
    // No descriptor, blocking, IPv4, stream, not bound.
    NySocket() = default;
    // Wraps a descriptor; `owns` says whether Close and the destructor close it. Family and type
    // are taken to be IPv4 and stream: what only a stream has is offered on it.
    NySocket(int descriptor, bool owns);
    NySocket(const NySocket&) = delete;
    NySocket& operator=(const NySocket&) = delete;
    // Closes.
    virtual ~NySocket();

    // Stores family and type, then creates the socket: TCP for kNyStream, UDP for any other type.
    // kNyAlreadyOpen (4) when there is a descriptor already, which stays. A write to a closed
    // connection does not raise SIGPIPE where the host can be told so.
    virtual int Open(tNySocketFamily family, tNySocketType type);

    // Closes an owned descriptor and forgets it, also when closing fails; the object then counts as
    // not blocking and not bound. Does nothing, and returns 0, without an owned descriptor.
    virtual int Close();

    // kNyAlreadyBound (8) for a second call.
    virtual int Bind(const NySocketAddress& address);

    int GetRemoteAddress(NySocketAddress& address) const;
    int GetLocalAddress(NySocketAddress& address) const;

    // Any failure gives kNyUnknownError (7).
    int SetBlocking(bool blocking);
    bool IsBlocking() const { return mBlocking; }

    int SetNoSigPipe(bool on);
    int GetNoSigPipe(bool& on) const;
    int SetBroadcast(bool on);
    int GetBroadcast(bool& on) const;
    int SetReuseAddress(bool on);
    int GetReuseAddress(bool& on) const;

    // Stream sockets only; kNyNotForThisSocketType (35) on any other.
    int SetLinger(bool on, int seconds);
    int GetLinger(bool& on) const;
    int SetNoDelay(bool on);
    int GetNoDelay(bool& on) const;
    int SetKeepAlive(bool on);
    int GetKeepAlive(bool& on) const;

    // An infinite time waits without limit, and so does a finite one of 0, which reads back as
    // infinite.
    int SetReceiveTimeout(const NyTime& timeout);
    int GetReceiveTimeout(NyTime& timeout) const;
    int SetSendTimeout(const NyTime& timeout);
    int GetSendTimeout(NyTime& timeout) const;

    // In bytes. What is set reads back, within the limits that the host sets to buffers. When the
    // receive size is refused the send size is not tried.
    int SetBufferSizes(unsigned long receive, unsigned long send);
    int GetBufferSizes(unsigned long& receive, unsigned long& send) const;

    int GetDescriptor() const { return mDescriptor; }
    tNySocketFamily GetFamily() const { return mFamily; }
    tNySocketType GetType() const { return mType; }

    // Sets and clears the layer's initialised flag; Open sets it too. Any thread, never blocks.
    static void Initialize();
    static void Cleanup();
    static bool IsInitialized();

private:
    int SetFlag(int level, int option, bool on);
    int GetFlag(int level, int option, bool& on) const;
    int SetTimeout(int option, const NyTime& timeout);
    int GetTimeout(int option, NyTime& timeout) const;
    // Whether a stream's option may be used: 0, or the result to return.
    int CheckStream() const;

    bool mOwnsDescriptor = false;
    bool mBlocking = true;
    int mDescriptor = -1;
    tNySocketFamily mFamily = kNyIPv4;
    tNySocketType mType = kNyStream;
    bool mBound = false;

    // It orders nothing: the flag is all there is to the layer's start-up.
    static std::atomic<bool> mInitialized;
};
