// Named ports through which the processes of one user send each other requests and replies.
//
// A local port is a listening Unix-domain socket, named after the port, in the user's runtime
// directory: `$QUORVEL_RUNTIME_DIR`, else `$XDG_RUNTIME_DIR/quorvel`, else `/tmp/quorvel-<uid>`.
// The directory is made with mode 0700 when it is missing; one that another user owns or may write
// to is refused. The socket has mode 0600 and both sides check that the other runs as the same
// user. The environment is read whenever a port is made. Names hold at most 128 bytes of UTF-8, at
// least one and no NUL; a name that is too long for a socket address is stored by its hash.
//
// Limits: a request and a reply hold at most 1 MiB (`kCFMessagePortMaximumLength` of
// CFMessagePortHost.h) of data, which is passed on as it is; a local port serves at most 64
// connections and lets the one that was silent longest go when another waits, but none that was not
// served yet in its first second. A peer that begins a message must complete it, and one that is
// sent a reply must take it, within 5 seconds, else its connection is closed; so is that of one
// that sends what is not a message. No peer can make the run loop wait. A remote port connects anew
// when it was let go, and sends a request again that was not read; none is performed twice.
//
// Threads: every function may be called from any thread. None raises SIGPIPE; no descriptor
// outlives an exec. A failure to make a local port is also written to syslog, with its cause.
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
    // A request or reply that is too long, or a peer that does not speak this protocol or cannot be
    // connected to; never because the port ended.
    kCFMessagePortTransportError = -4,
    kCFMessagePortBecameInvalidError = -5, // the port became invalid while the call went on
};

// `retain` is called once with `info` when a port is made (its result replaces `info`), `release`
// once when the port is invalidated. Callbacks may be null; version is 0.
typedef struct CFMessagePortContext {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
} CFMessagePortContext;

// Answers a request. `data` is never null, is empty for a request without data and must be retained
// to be kept. The data returned is released once sent; null sends a reply without data. Data that
// is too long is not sent: the requester gets kCFMessagePortTransportError.
typedef CFDataRef (*CFMessagePortCallBack)(CFMessagePortRef local, SInt32 msgid, CFDataRef data,
                                           void* info);
typedef void (*CFMessagePortInvalidationCallBack)(CFMessagePortRef ms, void* info);

CF_EXPORT CFTypeID CFMessagePortGetTypeID(void);

// A port that receives requests under `name`. A valid local port of that name in this process is
// returned anew (retained; its callout and context stay). Null when the name cannot be used,
// another process serves it, or the socket cannot be made; a socket whose process is gone is
// replaced.
// `*shouldFreeInfo` (may be null) is true when the context was not taken on: for null and for an
// existing port. Blocks for up to two seconds while other processes make ports.
// Requests wait until the port's run-loop source is in a loop that runs.
CF_EXPORT CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef allocator, CFStringRef name,
                                                    CFMessagePortCallBack callout,
                                                    CFMessagePortContext* context,
                                                    Boolean* shouldFreeInfo);

// A connection to the local port `name` of any process of this user; null when nobody serves it.
// It becomes invalid for good when that port goes away, even if another of the same name follows:
// make a new one then.
CF_EXPORT CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef allocator, CFStringRef name);

CF_EXPORT Boolean CFMessagePortIsRemote(CFMessagePortRef ms);

// The port's name; the port owns it.
CF_EXPORT CFStringRef CFMessagePortGetName(CFMessagePortRef ms);

// Called once when the port becomes invalid, on the thread on which that shows: for a remote port
// that is the next `CFMessagePortIsValid` or `CFMessagePortSendRequest`. If the port is invalid
// already, it is called at once. Null clears it.
CF_EXPORT CFMessagePortInvalidationCallBack
CFMessagePortGetInvalidationCallBack(CFMessagePortRef ms);
CF_EXPORT void CFMessagePortSetInvalidationCallBack(CFMessagePortRef ms,
                                                    CFMessagePortInvalidationCallBack callout);

// Ends the port for good: removes its socket, unless another port has taken the name over, closes
// its connections and invalidates its run-loop source. No callout is started after it returns; one
// that runs is not waited for, and its reply is still sent if that does not block. A send that
// waits on another thread returns kCFMessagePortBecameInvalidError. Releasing the last reference to
// a valid port ends it too, without the invalidation callback.
CF_EXPORT void CFMessagePortInvalidate(CFMessagePortRef ms);
CF_EXPORT Boolean CFMessagePortIsValid(CFMessagePortRef ms);

// Sends a request and, when `replyMode` is not null, runs the calling thread's loop in that mode
// until the reply is there (so a local port whose source is in that mode is served meanwhile, this
// very request included). Times are in seconds. `*returnData` (may be null) is then the reply's
// data, which the caller owns, null for a reply without data and for every failure. With a null
// `replyMode` the call returns once the request is handed over, and no reply is sent. `data` may be
// null. Requests that one thread sends through a port that no other thread uses meanwhile arrive in
// order. Sending alone blocks the thread, for at most `sendTimeout`.
CF_EXPORT SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 msgid, CFDataRef data,
                                          CFTimeInterval sendTimeout, CFTimeInterval rcvTimeout,
                                          CFStringRef replyMode, CFDataRef* returnData);

// The source through which a local port's requests are performed, one per pass of the loop. The
// same source each time while it lives; the caller owns a reference. It keeps the port alive until
// it is invalidated or freed. Null for a remote or invalid port. When it is in several loops the
// one that it was added to first receives for all.
CF_EXPORT CFRunLoopSourceRef CFMessagePortCreateRunLoopSource(CFAllocatorRef allocator,
                                                              CFMessagePortRef local,
                                                              CFIndex order);
