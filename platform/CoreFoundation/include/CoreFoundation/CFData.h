// A CFData object holds a sequence of bytes, which never change. Lengths count bytes.
#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXPORT CFTypeID CFDataGetTypeID(void);

// Copies the bytes. Returns null if `length` is negative, or if `bytes` is null and `length` is not
// 0.
CF_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
// Returns a copy, which may be the object itself with a further reference.
CF_EXPORT CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef theData);

CF_EXPORT CFIndex CFDataGetLength(CFDataRef theData);
// Returns the address of the bytes, which is valid until the data is destroyed and not null even if
// the data is empty.
CF_EXPORT const UInt8* CFDataGetBytePtr(CFDataRef theData);
