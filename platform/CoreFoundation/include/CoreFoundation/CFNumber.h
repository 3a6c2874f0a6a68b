// Numbers and booleans. A number is kept as a 64-bit signed integer or as a double, whatever type
// it was made from. An integer and a double of the same value are equal. Booleans are not numbers.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef const struct __CFBoolean* CFBooleanRef;
typedef const struct __CFNumber* CFNumberRef;

CF_EXPORT const CFBooleanRef kCFBooleanTrue;
CF_EXPORT const CFBooleanRef kCFBooleanFalse;

CF_EXPORT CFTypeID CFBooleanGetTypeID(void);
// Returns false if the object is not a boolean.
CF_EXPORT Boolean CFBooleanGetValue(CFBooleanRef boolean);

typedef CFIndex CFNumberType;
enum {
    kCFNumberSInt8Type = 1,
    kCFNumberSInt16Type = 2,
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat32Type = 5,
    kCFNumberFloat64Type = 6,
    kCFNumberCharType = 7,
    kCFNumberShortType = 8,
    kCFNumberIntType = 9,
    kCFNumberLongType = 10,
    kCFNumberLongLongType = 11,
    kCFNumberFloatType = 12,
    kCFNumberDoubleType = 13,
    kCFNumberCFIndexType = 14,
    kCFNumberNSIntegerType = 15,
    kCFNumberCGFloatType = 16, // a float on 32-bit systems, a double on 64-bit ones
    kCFNumberMaxType = 16,
};

CF_EXPORT CFTypeID CFNumberGetTypeID(void);

// Makes a number of the value at `valuePtr`, which has the C type that `theType` names. Returns
// null if the pointer is null or the type is not listed.
CF_EXPORT CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType theType,
                                     const void* valuePtr);

// Whether the number is kept as a double.
CF_EXPORT Boolean CFNumberIsFloatType(CFNumberRef number);

// Writes the value as the C type that `theType` names and returns whether the value stayed the
// same. An integer type gets the nearest value that it holds, without a fraction, and 0 for
// not-a-number; a floating type gets a rounded value. Returns false and writes nothing if the
// object is not a number or the type is not listed.
CF_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);
