// Multiprocessing Services: critical regions (recursive, timed mutexes) and counting semaphores.
//
// Any thread may call the functions. They return kMPInvalidIDErr for an identifier that is null,
// never existed or was deleted. Only the two Create functions allocate, and only
// MPEnterCriticalRegion and MPWaitOnSemaphore block. There is no system call in entering a free
// region, leaving a region that nobody waits for, taking a unit that is there, or giving a unit
// that nobody waits for.
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

// Gives one unit to a waiting thread or, if none waits, to the semaphore. A unit for a waiting
// thread does not count towards the maximum; a thread that comes to wait before the other has woken
// may be the one that gets it. Results: noErr; kMPInsufficientResourcesErr (the semaphore
// is full; nothing changes); kMPInvalidIDErr.
CORESERVICES_EXPORT OSStatus MPSignalSemaphore(MPSemaphoreID semaphore);
