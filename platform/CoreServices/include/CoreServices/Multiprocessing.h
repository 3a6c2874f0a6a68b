// Multiprocessing Services: critical regions (recursive, timed mutexes) and counting semaphores.
//
// Contract of all functions: any thread may call. An identifier that never existed, was deleted or
// is null is answered with kMPInvalidIDErr. Nothing but the two Create functions allocates, and
// nothing but MPEnterCriticalRegion and MPWaitOnSemaphore blocks; an uncontended call costs no
// system call, but for a thread's first on a region, which asks the kernel for the thread's number.
// Deleting an object wakes its waiters, whose calls return kMPDeletedErr.
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

// Deletes the region, whoever holds it. Results: noErr; kMPInvalidIDErr.
CORESERVICES_EXPORT OSStatus MPDeleteCriticalRegion(MPCriticalRegionID criticalRegion);

// Takes the region. The thread that holds it may enter again, up to 65535 times in all, and must
// exit as often. Everything done before the last exit is visible to the thread that enters next.
// Results: noErr; kMPTimeoutErr; kMPDeletedErr; kMPInvalidIDErr; kMPInsufficientResourcesErr (the
// caller is in it 65535 times; nothing changes).
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

// Takes one unit. Results: noErr; kMPTimeoutErr; kMPDeletedErr; kMPInvalidIDErr.
CORESERVICES_EXPORT OSStatus MPWaitOnSemaphore(MPSemaphoreID semaphore, Duration timeout);

// Gives one unit: to a waiter if there is one, else into the semaphore.
// Results: noErr; kMPInsufficientResourcesErr (the semaphore is full; nothing changes);
// kMPInvalidIDErr.
CORESERVICES_EXPORT OSStatus MPSignalSemaphore(MPSemaphoreID semaphore);
