// The basic types that every framework header builds on, under their platform names.
#pragma once

#include <stdint.h>

typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;
typedef float Float32;
typedef double Float64;

typedef UInt8 Byte;
typedef SInt8 SignedByte;
typedef unsigned char Boolean;
typedef UInt16 UniChar;
typedef UInt32 UTF32Char;

typedef SInt16 OSErr;
typedef SInt32 OSStatus;
typedef unsigned long ItemCount;
typedef unsigned long ByteCount;
typedef UInt32 OptionBits;

// A length of time: positive counts milliseconds, negative microseconds.
typedef SInt32 Duration;

// An unsigned 64-bit number as two words that lie in memory as the number itself does.
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
typedef struct UnsignedWide {
    UInt32 hi;
    UInt32 lo;
} UnsignedWide;
#else
typedef struct UnsignedWide {
    UInt32 lo;
    UInt32 hi;
} UnsignedWide;
#endif

// A moment on the monotonic clock of `UpTime`, in host ticks.
typedef UnsignedWide AbsoluteTime;

enum {
    noErr = 0,
    paramErr = -50,
    memFullErr = -108,
};

enum {
    kDurationImmediate = 0,
    kDurationForever = 0x7FFFFFFF,
    kDurationMillisecond = 1,
    kDurationMicrosecond = -1,
};
