// A CFDate is a moment in time, kept in seconds since 1 January 2001, 00:00 UTC.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef CFTimeInterval CFAbsoluteTime;

typedef const struct __CFDate* CFDateRef;

// 1 January 2001 in seconds since 1 January 1970.
CF_EXPORT const CFTimeInterval kCFAbsoluteTimeIntervalSince1970;

CF_EXPORT CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime at);
// Returns 0 if the object is not a date.
CF_EXPORT CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef theDate);
