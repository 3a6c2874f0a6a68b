// The monotonic clock. An AbsoluteTime counts host ticks; here a host tick is one nanosecond of
// CLOCK_MONOTONIC. Any thread may call the functions, which never block, allocate or fail.
#pragma once

#include <CoreServices/CoreServicesBase.h>

// Returns the present moment.
CORESERVICES_EXPORT AbsoluteTime UpTime(void);

// Return `absoluteTime` moved later (Add) or earlier (Sub) by the length of `duration`, which
// counts milliseconds if it is positive and microseconds if it is negative; kDurationForever counts
// as its number of milliseconds. The result saturates at the ends of the 64-bit range, so
// subtracting more than there is gives 0.
CORESERVICES_EXPORT AbsoluteTime AddDurationToAbsolute(Duration duration,
                                                       AbsoluteTime absoluteTime);
CORESERVICES_EXPORT AbsoluteTime SubDurationFromAbsolute(Duration duration,
                                                         AbsoluteTime absoluteTime);
