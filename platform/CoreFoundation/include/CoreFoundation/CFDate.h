// A CFDate is a moment in time, kept in seconds since 1 January 2001, 00:00 UTC.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef CFTimeInterval CFAbsoluteTime;

typedef const struct __CFDate* CFDateRef;

// 1 January 2001 in seconds since 1 January 1970.
CF_EXPORT const CFTimeInterval kCFAbsoluteTimeIntervalSince1970;

// Returns the present moment on the system's clock, which may be set back.
CF_EXPORT CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);

CF_EXPORT CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime at);
// Returns 0 if the object is not a date.
CF_EXPORT CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef theDate);
