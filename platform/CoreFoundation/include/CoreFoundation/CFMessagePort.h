// Named ports through which the processes of one user send each other requests and replies.
//
// A local port is a listening Unix-domain socket, named after the port, in the user's runtime
// directory: `$QUORVEL_RUNTIME_DIR`, else `$XDG_RUNTIME_DIR/quorvel`, else `/tmp/quorvel-<uid>`. A
// missing directory is made with mode 0700; one that another user owns or may write to is refused.
// The socket has mode 0600, and both sides check that the other runs as the same user. The
// environment is read whenever a port is made. A name has 1 to 128 bytes of UTF-8 and no NUL; for a
// name that is too long for a socket address, the socket is named after the name's hash.
//
// Limits: a request or a reply holds at most 1 MiB of data (`kCFMessagePortMaximumLength` of
// CFMessagePortHost.h), which is passed on unchanged. A local port serves at most 64 connections.
// If another one waits, the port closes the connection that has been silent longest, though none
// that is in its first second and has not been served yet. A peer that begins a message has 5
// seconds to complete it, and one that is sent a reply has 5 seconds to take it; otherwise the port
// closes the connection, as it does if a peer sends something that is not a message. No peer can
// make the run loop wait. A remote port whose connection was closed connects anew and sends a
// request again that was not read; no request is performed twice.
//
// Threads: every function may be called from any thread. No function raises SIGPIPE, and no
// descriptor stays open over an exec. If a local port cannot be made, a line in syslog gives the
// cause.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>

typedef struct __CFMessagePort* CFMessagePortRef;

enum {
    kCFMessagePortSuccess = 0,
    kCFMessagePortSendTimeout = -1,
    kCFMessagePortReceiveTimeout = -2,
    kCFMessagePortIsInvalid = -3, // the port was invalid already; nothing was sent
    // A request or reply that is too long or for which either side has no memory, or a peer that
    // does not speak this protocol or cannot be connected to; never because the port ended.
    kCFMessagePortTransportError = -4,
    kCFMessagePortBecameInvalidError = -5, // the port became invalid while the call went on
};

// The context of a local port. `retain` is called once with `info` when the port is made, and its
// result replaces `info`; `release` is called once when the port is invalidated. Callbacks may be
// null. The version is 0.
typedef struct CFMessagePortContext {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
} CFMessagePortContext;

// Answers a request. `data` is never null; it is empty for a request without data, and the callback
// retains it if it keeps it. The port releases the data returned once it is sent; null sends a
// reply without data. Data that is too long is not sent; the requester then gets
// kCFMessagePortTransportError.
typedef CFDataRef (*CFMessagePortCallBack)(CFMessagePortRef local, SInt32 msgid, CFDataRef data,
                                           void* info);

CF_EXPORT CFTypeID CFMessagePortGetTypeID(void);

// Makes a port that receives requests under `name`. If this process has a valid local port of that
// name already, returns that one with a further reference; its callout and context stay. Returns
// null if the name cannot be used, if another process serves it, if the socket cannot be made, or
// if there is no memory. A socket whose process is gone is replaced.
//
// Sets `*shouldFreeInfo`, unless that is null, to true if the port did not take over the context,
// that is for the result null and for a port that existed already. Blocks for up to two seconds
// while other processes make ports. Requests wait until the port's run-loop source is in a loop
// that runs.
CF_EXPORT CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef allocator, CFStringRef name,
                                                    CFMessagePortCallBack callout,
                                                    CFMessagePortContext* context,
                                                    Boolean* shouldFreeInfo);

// Returns a connection to the local port `name` of any process of this user, or null if nobody
// serves it or there is no memory. The connection becomes invalid for good when that port goes
// away, even if another of the same name follows; the caller then makes a new connection.
CF_EXPORT CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef allocator, CFStringRef name);

// Ends the port for good: removes its socket (unless another port has taken over the name), closes
// its connections and invalidates its run-loop source. No callout is started after it returns. It
// does not wait for a callout that runs, whose reply is still sent if that does not block. A send
// that waits on another thread returns kCFMessagePortBecameInvalidError. Releasing the last
// reference to a valid port ends the port too.
CF_EXPORT void CFMessagePortInvalidate(CFMessagePortRef ms);
CF_EXPORT Boolean CFMessagePortIsValid(CFMessagePortRef ms);

// Sends a request. `data` may be null. Times are in seconds.
//
// If `replyMode` is not null, the call then runs the calling thread's loop in that mode until the
// reply is there; a local port whose source is in that mode is served meanwhile, even with this
// very request. `*returnData` (unless `returnData` is null) is then the data of the reply, which
// the caller owns; it is null for a reply without data and for every failure. If `replyMode` is
// null, the call returns once the request is handed over, and no reply is sent.
//
// Requests arrive in order if one thread sends them and no other thread uses the port meanwhile.
// The thread is blocked only while it sends, for at most `sendTimeout`.
CF_EXPORT SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 msgid, CFDataRef data,
                                          CFTimeInterval sendTimeout, CFTimeInterval rcvTimeout,
                                          CFStringRef replyMode, CFDataRef* returnData);

// Returns the source that performs a local port's requests, one in each pass of the loop. Further
// calls return the same source as long as it exists; the caller owns a reference. The source keeps
// the port alive until the source is invalidated or freed. Returns null for a remote or invalid
// port. If the source is in several loops, each of them receives requests while it runs.
CF_EXPORT CFRunLoopSourceRef CFMessagePortCreateRunLoopSource(CFAllocatorRef allocator,
                                                              CFMessagePortRef local,
                                                              CFIndex order);
