// Universally unique identifiers of 16 bytes.
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

// A new random UUID (version 4). Null when the system gives no random bytes. May block early in the
// system's start until it has any.
CF_EXPORT CFUUIDRef CFUUIDCreate(CFAllocatorRef alloc);

CF_EXPORT CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef alloc, CFUUIDBytes bytes);

// From the form "68753A44-4D6F-1226-9C60-0050E4C00067", in either case. Null for any other text.
CF_EXPORT CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef alloc, CFStringRef uuidStr);

// That form, in upper case. Null for what is not a UUID.
CF_EXPORT CFStringRef CFUUIDCreateString(CFAllocatorRef alloc, CFUUIDRef uuid);

// All 0 for what is not a UUID.
CF_EXPORT CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);

// The constant object of these bytes: the same one each time, never destroyed, to be neither
// retained nor released (both do nothing). Meant for interface identifiers.
CF_EXPORT CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef alloc, UInt8 byte0, UInt8 byte1,
                                                   UInt8 byte2, UInt8 byte3, UInt8 byte4,
                                                   UInt8 byte5, UInt8 byte6, UInt8 byte7,
                                                   UInt8 byte8, UInt8 byte9, UInt8 byte10,
                                                   UInt8 byte11, UInt8 byte12, UInt8 byte13,
                                                   UInt8 byte14, UInt8 byte15);
