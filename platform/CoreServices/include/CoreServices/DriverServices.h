// The monotonic clock. An AbsoluteTime counts host ticks; here a host tick is one nanosecond of
// CLOCK_MONOTONIC. All functions: any thread, never block, never allocate, cannot fail.
#pragma once

#include <CoreServices/CoreServicesBase.h>

// The present moment.
CORESERVICES_EXPORT AbsoluteTime UpTime(void);

// `absoluteTime` moved later (Add) or earlier (Sub) by the length of `duration`: milliseconds when
// positive, microseconds when negative; kDurationForever is taken as its number of milliseconds.
// The result saturates at the ends of the 64-bit range: subtracting more than there is gives 0.
CORESERVICES_EXPORT AbsoluteTime AddDurationToAbsolute(Duration duration,
                                                       AbsoluteTime absoluteTime);
CORESERVICES_EXPORT AbsoluteTime SubDurationFromAbsolute(Duration duration,
                                                         AbsoluteTime absoluteTime);
