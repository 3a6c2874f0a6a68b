// A run loop is the event loop of a thread: it sleeps until one of its sources has work, and then
// performs the source.
//
// Every thread has one run loop. It is made when it is first asked for and freed when the thread
// ends; the main thread's loop lives as long as the process. A source is watched only while the
// loop runs in one of the modes that the source was added to. The loop's thread performs a source
// with no lock held; the source may call any function below, and may even run the loop anew.
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
    kCFRunLoopRunFinished = 1,      // the mode has no source, or cannot be run
    kCFRunLoopRunStopped = 2,       // `CFRunLoopStop` was called
    kCFRunLoopRunTimedOut = 3,      // the seconds went by
    kCFRunLoopRunHandledSource = 4, // a source was performed, and the caller asked to be told
};

// The mode that sources are normally added to and that `CFRunLoopRun` runs in.
CF_EXPORT const CFRunLoopMode kCFRunLoopDefaultMode;
// A name for a set of modes, which is not a mode itself. The set holds only the default mode here,
// so that adding a source to the set, or removing it from there, does so for the default mode.
CF_EXPORT const CFRunLoopMode kCFRunLoopCommonModes;

CF_EXPORT CFTypeID CFRunLoopGetTypeID(void);

// Return the loop of the calling thread and that of the main thread, without a reference added, or
// null if there is no memory.
CF_EXPORT CFRunLoopRef CFRunLoopGetCurrent(void);
CF_EXPORT CFRunLoopRef CFRunLoopGetMain(void);

// Returns the mode that the loop runs in now, or null if it does not run. The caller owns the
// result.
CF_EXPORT CFRunLoopMode CFRunLoopCopyCurrentMode(CFRunLoopRef rl);

// Runs the calling thread's loop in the default mode until it is stopped or has no source left.
CF_EXPORT void CFRunLoopRun(void);

// Runs the calling thread's loop in one mode for at most `seconds` (0 or less: one pass over what
// is ready, without waiting; ten years or more: without a limit, and the thread then wakes up for
// nothing but its sources). With `returnAfterSourceHandled` it returns after the first pass that
// performed a source. One result per call, in this order of precedence: HandledSource, TimedOut,
// Stopped, Finished; a mode without sources, null and `kCFRunLoopCommonModes` give Finished at
// once.
CF_EXPORT CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                                Boolean returnAfterSourceHandled);

// Ends the innermost run of the loop that is going on. If the loop does not run, it has no effect,
// not even on the next run.
CF_EXPORT void CFRunLoopStop(CFRunLoopRef rl);

// Whether the loop's thread is asleep in a run right now.
CF_EXPORT Boolean CFRunLoopIsWaiting(CFRunLoopRef rl);

// Makes a sleeping loop pass over its sources once. It is needed after `CFRunLoopSourceSignal` if
// the loop may be asleep. A loop that is awake makes one more pass before it sleeps next.
CF_EXPORT void CFRunLoopWakeUp(CFRunLoopRef rl);

// A loop keeps a reference to each source that is added. A source that is added twice to the same
// mode is in it once. Adding does nothing if the source is invalid, if the loop's thread has ended,
// or if there is no memory; removing does nothing if the source is not there. A source may be in
// several modes and several loops.
CF_EXPORT Boolean CFRunLoopContainsSource(CFRunLoopRef rl, CFRunLoopSourceRef source,
                                          CFRunLoopMode mode);
CF_EXPORT void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode);
CF_EXPORT void CFRunLoopRemoveSource(CFRunLoopRef rl, CFRunLoopSourceRef source,
                                     CFRunLoopMode mode);

// The callbacks of a source, each of which may be null. `retain` is called once when the source is
// made, and its result replaces `info`; `release` is called once when the source is freed.
// `schedule` and `cancel` are called once for each loop and mode that the source is added to and
// removed from, never both at the same time. `perform` is called on the loop's thread after the
// source was signalled. `copyDescription`, `equal` and `hash` are not used: a source equals only
// itself.
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

// Makes a source that its owner signals. Sources that are ready in the same pass are performed by
// increasing `order`, and in the order of their addition where that is equal. Returns null if the
// context is null or its version is not 0: sources made of a kernel port do not exist here.
CF_EXPORT CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef allocator, CFIndex order,
                                                   CFRunLoopSourceContext* context);

// Takes the source out of every loop for good. `perform` is not started any more after this
// returns; the call does not wait for a `perform` that runs on another thread.
CF_EXPORT void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source);
CF_EXPORT Boolean CFRunLoopSourceIsValid(CFRunLoopSourceRef source);

// Marks the source as ready. The next pass of a loop that holds it performs it once, however often
// it was signalled. Does not wake the loop.
CF_EXPORT void CFRunLoopSourceSignal(CFRunLoopSourceRef source);
