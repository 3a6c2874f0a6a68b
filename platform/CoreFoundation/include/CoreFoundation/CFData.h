// A CFData object holds a sequence of bytes. Lengths and locations count bytes.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef struct __CFData* CFMutableDataRef;

CF_EXPORT CFTypeID CFDataGetTypeID(void);

// Copies the bytes. Returns null if `length` is negative, or if `bytes` is null and `length` is not
// 0.
CF_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
CF_EXPORT CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef theData);
// `capacity` is a hint; the data grows as needed. Returns null if it is negative.
CF_EXPORT CFMutableDataRef CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);

CF_EXPORT CFIndex CFDataGetLength(CFDataRef theData);
// Return the address of the bytes, which is valid until the data is changed or destroyed and not
// null even if the data is empty. `CFDataGetMutableBytePtr` returns null for immutable data.
CF_EXPORT const UInt8* CFDataGetBytePtr(CFDataRef theData);
CF_EXPORT UInt8* CFDataGetMutableBytePtr(CFMutableDataRef theData);
CF_EXPORT void CFDataGetBytes(CFDataRef theData, CFRange range, UInt8* buffer);

// The functions below change data. They do nothing if the data is immutable, if a length is
// negative or a range outside of the data, or if there is no memory. Bytes that a greater length
// adds are 0.
CF_EXPORT void CFDataSetLength(CFMutableDataRef theData, CFIndex length);
CF_EXPORT void CFDataIncreaseLength(CFMutableDataRef theData, CFIndex extraLength);
CF_EXPORT void CFDataAppendBytes(CFMutableDataRef theData, const UInt8* bytes, CFIndex length);
CF_EXPORT void CFDataReplaceBytes(CFMutableDataRef theData, CFRange range, const UInt8* newBytes,
                                  CFIndex newLength);
CF_EXPORT void CFDataDeleteBytes(CFMutableDataRef theData, CFRange range);
