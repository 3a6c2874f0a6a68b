// A UUID is a universally unique identifier of 16 bytes.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef const struct __CFUUID* CFUUIDRef;

// The bytes in the order in which they are written.
typedef struct CFUUIDBytes {
    UInt8 byte0;
    UInt8 byte1;
    UInt8 byte2;
    UInt8 byte3;
    UInt8 byte4;
    UInt8 byte5;
    UInt8 byte6;
    UInt8 byte7;
    UInt8 byte8;
    UInt8 byte9;
    UInt8 byte10;
    UInt8 byte11;
    UInt8 byte12;
    UInt8 byte13;
    UInt8 byte14;
    UInt8 byte15;
} CFUUIDBytes;

CF_EXPORT CFTypeID CFUUIDGetTypeID(void);

CF_EXPORT CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef alloc, CFUUIDBytes bytes);

// Makes a UUID from text of the form "68753A44-4D6F-1226-9C60-0050E4C00067", in upper or lower
// case. Returns null for any other text.
CF_EXPORT CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef alloc, CFStringRef uuidStr);

// Returns the UUID in that form, in upper case, or null if the object is not a UUID.
CF_EXPORT CFStringRef CFUUIDCreateString(CFAllocatorRef alloc, CFUUIDRef uuid);

// Returns the bytes, which are all 0 if the object is not a UUID.
CF_EXPORT CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);

// Returns the constant object of these bytes, which is the same one each time and is never
// destroyed; retaining and releasing it do nothing. It is meant for interface identifiers.
CF_EXPORT CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef alloc, UInt8 byte0, UInt8 byte1,
                                                   UInt8 byte2, UInt8 byte3, UInt8 byte4,
                                                   UInt8 byte5, UInt8 byte6, UInt8 byte7,
                                                   UInt8 byte8, UInt8 byte9, UInt8 byte10,
                                                   UInt8 byte11, UInt8 byte12, UInt8 byte13,
                                                   UInt8 byte14, UInt8 byte15);
