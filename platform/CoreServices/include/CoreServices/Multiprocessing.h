// Multiprocessing Services: critical regions (recursive, timed mutexes) and counting semaphores.
//
// Contract of all functions: any thread may call. An identifier that never existed, was deleted or
// is null is answered with kMPInvalidIDErr. Nothing but the two Create functions allocates, and
// nothing but MPEnterCriticalRegion and MPWaitOnSemaphore blocks. Entering a region that is free,
// leaving one that nobody waits for, taking a unit that is there and giving one that nobody waits
// for cost no system call.
//
// An object may be deleted only while no other call with its identifier is under way. The original
// platform ends the waits of such calls with kMPDeletedErr; here nothing returns that status, and a
// thread that waits for a deleted object may wait for ever.
//
// A wait takes a Duration: kDurationImmediate (0) polls, kDurationForever has no limit, a positive
// value counts milliseconds, a negative one microseconds, both on the monotonic clock.
#pragma once

#include <CoreServices/CoreServicesBase.h>

typedef struct OpaqueMPCriticalRegionID* MPCriticalRegionID;
typedef struct OpaqueMPSemaphoreID* MPSemaphoreID;
typedef ItemCount MPSemaphoreCount;

enum {
    kMPDeletedErr = -29295,
    kMPTimeoutErr = -29296,
    kMPInsufficientResourcesErr = -29298,
    kMPInvalidIDErr = -29299,
};

// Makes a region that no thread holds and stores its identifier, never null.
// Results: noErr; paramErr (null pointer); kMPInsufficientResourcesErr (out of memory).
CORESERVICES_EXPORT OSStatus MPCreateCriticalRegion(MPCriticalRegionID* criticalRegion);

// Deletes the region, even if a thread is in it, whose exit is then answered with kMPInvalidIDErr.
// Results: noErr; kMPInvalidIDErr.
CORESERVICES_EXPORT OSStatus MPDeleteCriticalRegion(MPCriticalRegionID criticalRegion);

// Takes the region. The thread that holds it may enter again and must exit as often. Everything
// done before the last exit is visible to the thread that enters next.
// Results: noErr; kMPTimeoutErr; kMPInvalidIDErr.
CORESERVICES_EXPORT OSStatus MPEnterCriticalRegion(MPCriticalRegionID criticalRegion,
                                                   Duration timeout);

// Undoes one enter. Results: noErr; kMPInsufficientResourcesErr (the caller does not hold the
// region; nothing changes); kMPInvalidIDErr.
CORESERVICES_EXPORT OSStatus MPExitCriticalRegion(MPCriticalRegionID criticalRegion);

// Makes a semaphore with `initialValue` units that never holds more than `maximumValue`, and
// stores its identifier, never null. Results: noErr; paramErr (null pointer, or an initial value
// above the maximum); kMPInsufficientResourcesErr (out of memory).
CORESERVICES_EXPORT OSStatus MPCreateSemaphore(MPSemaphoreCount maximumValue,
                                               MPSemaphoreCount initialValue,
                                               MPSemaphoreID* semaphore);

// Deletes the semaphore. Results: noErr; kMPInvalidIDErr.
CORESERVICES_EXPORT OSStatus MPDeleteSemaphore(MPSemaphoreID semaphore);

// Takes one unit. Everything done before the unit was given is visible to the thread that takes it.
// Results: noErr; kMPTimeoutErr; kMPInvalidIDErr.
CORESERVICES_EXPORT OSStatus MPWaitOnSemaphore(MPSemaphoreID semaphore, Duration timeout);

// Gives one unit: to a waiting thread, which may exceed the maximum until that thread has taken it,
// else into the semaphore. A thread that comes to wait meanwhile may be the one that gets the unit.
// Results: noErr; kMPInsufficientResourcesErr (the semaphore is full; nothing changes);
// kMPInvalidIDErr.
CORESERVICES_EXPORT OSStatus MPSignalSemaphore(MPSemaphoreID semaphore);
