// Runs of bytes. Lengths and locations count bytes.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef struct __CFData* CFMutableDataRef;

CF_EXPORT CFTypeID CFDataGetTypeID(void);

// A copy of the bytes. Null when `length` is negative, or `bytes` is null and `length` is not 0.
CF_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
CF_EXPORT CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef theData);
// `capacity` is a hint; the data grows as needed. Null when it is negative.
CF_EXPORT CFMutableDataRef CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);

CF_EXPORT CFIndex CFDataGetLength(CFDataRef theData);
// Valid until the data is changed or destroyed. Never null for data, even when it is empty. The
// second is null for data that is immutable.
CF_EXPORT const UInt8* CFDataGetBytePtr(CFDataRef theData);
CF_EXPORT UInt8* CFDataGetMutableBytePtr(CFMutableDataRef theData);
CF_EXPORT void CFDataGetBytes(CFDataRef theData, CFRange range, UInt8* buffer);

// Changes; they do nothing for data that is immutable, for a negative length or a range outside of
// the data, and when there is no memory. New bytes of a longer length are 0.
CF_EXPORT void CFDataSetLength(CFMutableDataRef theData, CFIndex length);
CF_EXPORT void CFDataIncreaseLength(CFMutableDataRef theData, CFIndex extraLength);
CF_EXPORT void CFDataAppendBytes(CFMutableDataRef theData, const UInt8* bytes, CFIndex length);
CF_EXPORT void CFDataReplaceBytes(CFMutableDataRef theData, CFRange range, const UInt8* newBytes,
                                  CFIndex newLength);
CF_EXPORT void CFDataDeleteBytes(CFMutableDataRef theData, CFRange range);
