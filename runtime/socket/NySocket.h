#pragma once

#include "runtime/socket/NySocketAddress.h"
#include "runtime/time/NyTime.h"

#include <atomic>

enum tNySocketFamily : int {
    kNyIPv4 = 2,
    kNyIPv6 = 30, // on every host, whatever the host's own number is
};

enum tNySocketType : int {
    kNyStream = 1,
    kNyDatagram = 2,
};

// A BSD socket whose failures are the runtime's result codes (see NyResult.h).
//
// One thread at a time may use an object; any thread may call the static functions. A call blocks
// only as the system call of its name does on a blocking socket. No call allocates memory of its
// own.
//
// Every operation returns 0 on success. Unless stated otherwise, a failure is the mapped error of
// the system call, which is the same on every host. An object without a descriptor gives
// kNyNoSocket (5).
//
//     NySocket socket;
//     socket.Open(kNyIPv4, kNyDatagram);
//     const int result = socket.Bind(NySocketAddress("127.0.0.1", htons(8000)));
class NySocket {
public:
    // Has no descriptor and counts as a blocking IPv4 stream socket that is not bound.
    NySocket() = default;
    // Wraps a descriptor; `owns` says whether Close and the destructor close it. The descriptor is
    // taken for an IPv4 stream socket, so that the operations for streams are offered on it.
    NySocket(int descriptor, bool owns);
    NySocket(const NySocket&) = delete;
    NySocket& operator=(const NySocket&) = delete;
    // Calls Close.
    virtual ~NySocket();

    // Stores family and type, then creates the socket: TCP for kNyStream, UDP for any other type.
    // Returns kNyAlreadyOpen (4) when there is a descriptor already; that descriptor stays. Where
    // the host has the option, a write to a closed connection will not raise SIGPIPE.
    virtual int Open(tNySocketFamily family, tNySocketType type);

    // Closes an owned descriptor and forgets it, even when closing fails. The object then counts as
    // not blocking and not bound. Without an owned descriptor it does nothing and returns 0.
    virtual int Close();

    // Binds the socket to an address of its own. Returns kNyAlreadyBound (8) once it is bound.
    virtual int Bind(const NySocketAddress& address);

    // The addresses of the connected peer and of the socket itself.
    int GetRemoteAddress(NySocketAddress& address) const;
    int GetLocalAddress(NySocketAddress& address) const;

    // Says whether the socket's calls block. Any failure gives kNyUnknownError (7).
    int SetBlocking(bool blocking);
    bool IsBlocking() const { return mBlocking; }

    // Options of the system by the same names, on or off.
    int SetNoSigPipe(bool on);
    int GetNoSigPipe(bool& on) const;
    int SetBroadcast(bool on);
    int GetBroadcast(bool& on) const;
    int SetReuseAddress(bool on);
    int GetReuseAddress(bool& on) const;

    // Options of stream sockets; any other socket gives kNyNotForThisSocketType (35).
    int SetLinger(bool on, int seconds);
    int GetLinger(bool& on) const;
    int SetNoDelay(bool on);
    int GetNoDelay(bool& on) const;
    int SetKeepAlive(bool on);
    int GetKeepAlive(bool& on) const;

    // How long a blocking call waits. An infinite time means without limit. A finite time of 0
    // means the same and reads back as infinite.
    int SetReceiveTimeout(const NyTime& timeout);
    int GetReceiveTimeout(NyTime& timeout) const;
    int SetSendTimeout(const NyTime& timeout);
    int GetSendTimeout(NyTime& timeout) const;

    // The sizes of the system's buffers in bytes. A size that is set reads back unchanged, unless
    // the host limits it. If the host refuses the receive size, the send size is not tried.
    int SetBufferSizes(unsigned long receive, unsigned long send);
    int GetBufferSizes(unsigned long& receive, unsigned long& send) const;

    int GetDescriptor() const { return mDescriptor; }
    tNySocketFamily GetFamily() const { return mFamily; }
    tNySocketType GetType() const { return mType; }

    // Initialize and Cleanup set and clear a flag that says whether the sockets are started; Open
    // sets it too. They do not block.
    static void Initialize();
    static void Cleanup();
    static bool IsInitialized();

private:
    int SetFlag(int level, int option, bool on);
    int GetFlag(int level, int option, bool& on) const;
    int SetTimeout(int option, const NyTime& timeout);
    int GetTimeout(int option, NyTime& timeout) const;
    // Returns 0 if a stream's option may be used on the socket, else the result for the caller.
    int CheckStream() const;

    bool mOwnsDescriptor = false;
    bool mBlocking = true;
    int mDescriptor = -1;
    tNySocketFamily mFamily = kNyIPv4;
    tNySocketType mType = kNyStream;
    bool mBound = false;

    // Relaxed: the flag is all there is to starting the sockets, so it orders nothing.
    static std::atomic<bool> mInitialized;
};
