// The event loop of a thread: it sleeps until one of its sources has work and then performs it.
//
// Every thread has one run loop, made when it is first asked for and freed when the thread ends
// (the main thread's lives as long as the process). A source is watched only while the loop runs in
// one of the modes that the source was added to. A source is performed on the loop's thread, with
// no lock held, and may call any function below, running the loop anew included.
//
// Threads: `CFRunLoopRun` and `CFRunLoopRunInMode` act on the calling thread's loop. All other
// functions may be called for any loop from any thread; they neither block nor run callbacks except
// the source's schedule and cancel callbacks, which run on the calling thread. They may allocate.
//
// A process that has used a run loop and forks must not use run loops in the child before it execs:
// parent and child would share the kernel's object that the loop sleeps on.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>

typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
typedef CFStringRef CFRunLoopMode;

typedef SInt32 CFRunLoopRunResult;
enum {
    kCFRunLoopRunFinished = 1,      // the mode has no source (any more), or cannot be run
    kCFRunLoopRunStopped = 2,       // `CFRunLoopStop` was called
    kCFRunLoopRunTimedOut = 3,      // the seconds went by
    kCFRunLoopRunHandledSource = 4, // a source was performed, and the caller asked to be told
};

// The mode that sources are normally added to and that `CFRunLoopRun` runs in.
CF_EXPORT const CFRunLoopMode kCFRunLoopDefaultMode;
// Not a mode but a name for a set of modes: adding to it adds to each mode of the set, now and
// later. The set holds the default mode and those given to `CFRunLoopAddCommonMode`.
CF_EXPORT const CFRunLoopMode kCFRunLoopCommonModes;

CF_EXPORT CFTypeID CFRunLoopGetTypeID(void);

// The calling thread's loop and the main thread's, no reference added. Null only without memory.
CF_EXPORT CFRunLoopRef CFRunLoopGetCurrent(void);
CF_EXPORT CFRunLoopRef CFRunLoopGetMain(void);

// The mode that the loop runs in now, null when it does not run. The caller owns the result.
CF_EXPORT CFRunLoopMode CFRunLoopCopyCurrentMode(CFRunLoopRef rl);

// Runs the calling thread's loop in the default mode until it is stopped or has no source left.
CF_EXPORT void CFRunLoopRun(void);

// Runs the calling thread's loop in one mode for at most `seconds` (0 or less: one pass over what
// is ready, without waiting). With `returnAfterSourceHandled` it returns after the first pass that
// performed a source. One result per call, in this order of precedence: HandledSource, TimedOut,
// Stopped, Finished; a mode without sources, null and `kCFRunLoopCommonModes` give Finished at
// once.
CF_EXPORT CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                                Boolean returnAfterSourceHandled);

// Ends the innermost run of the loop that is going on. A loop that does not run is not affected,
// nor is its next run. Whether the loop's thread is asleep in a run right now: true, false
// otherwise.
CF_EXPORT void CFRunLoopStop(CFRunLoopRef rl);
CF_EXPORT Boolean CFRunLoopIsWaiting(CFRunLoopRef rl);

// Makes a sleeping loop pass over its sources once. Needed after `CFRunLoopSourceSignal` when the
// loop may be asleep. A loop that is not asleep passes once more before it sleeps next.
CF_EXPORT void CFRunLoopWakeUp(CFRunLoopRef rl);

CF_EXPORT void CFRunLoopAddCommonMode(CFRunLoopRef rl, CFRunLoopMode mode);

// Adding keeps a reference to the source. Adding a source twice to one mode is one entry; adding an
// invalid one, or to the loop of a thread that has ended, or without memory does nothing. So does
// removing what is not there. A source may be in several modes and several loops.
CF_EXPORT Boolean CFRunLoopContainsSource(CFRunLoopRef rl, CFRunLoopSourceRef source,
                                          CFRunLoopMode mode);
CF_EXPORT void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode);
CF_EXPORT void CFRunLoopRemoveSource(CFRunLoopRef rl, CFRunLoopSourceRef source,
                                     CFRunLoopMode mode);

// A source is told of its life by these callbacks; each may be null. `retain` is called once when
// the source is made (its result replaces `info`), `release` once when it is freed; `schedule` and
// `cancel` once per loop and mode that it is added to and removed from, never both at once;
// `perform` on the loop's thread after the source was signalled. `equal` and `hash` compare the
// infos of sources.
typedef struct CFRunLoopSourceContext {
    CFIndex version; // 0
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
    Boolean (*equal)(const void* info1, const void* info2);
    CFHashCode (*hash)(const void* info);
    void (*schedule)(void* info, CFRunLoopRef rl, CFRunLoopMode mode);
    void (*cancel)(void* info, CFRunLoopRef rl, CFRunLoopMode mode);
    void (*perform)(void* info);
} CFRunLoopSourceContext;

CF_EXPORT CFTypeID CFRunLoopSourceGetTypeID(void);

// A source that its owner signals. Sources that are ready in one pass are performed in the order of
// `order`, then of addition. Null for a null context or a version other than 0: sources made of a
// kernel port do not exist here.
CF_EXPORT CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef allocator, CFIndex order,
                                                   CFRunLoopSourceContext* context);
CF_EXPORT CFIndex CFRunLoopSourceGetOrder(CFRunLoopSourceRef source);

// Copies the source's context into one whose version the caller has set to 0.
CF_EXPORT void CFRunLoopSourceGetContext(CFRunLoopSourceRef source,
                                         CFRunLoopSourceContext* context);

// Takes the source out of every loop for good; `perform` is not started any more after it returns
// (one that runs on another thread at that moment is not waited for).
CF_EXPORT void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source);
CF_EXPORT Boolean CFRunLoopSourceIsValid(CFRunLoopSourceRef source);

// Marks the source as ready: the next pass of a loop that holds it performs it, once however often
// it was signalled. Does not wake the loop.
CF_EXPORT void CFRunLoopSourceSignal(CFRunLoopSourceRef source);
