// Numbers and booleans. A number is a 64-bit signed integer or a double, whatever type it was made
// from; an integer and a double of the same value are equal. Booleans are not numbers.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef const struct __CFBoolean* CFBooleanRef;
typedef const struct __CFNumber* CFNumberRef;

CF_EXPORT const CFBooleanRef kCFBooleanTrue;
CF_EXPORT const CFBooleanRef kCFBooleanFalse;

CF_EXPORT CFTypeID CFBooleanGetTypeID(void);
// False for what is not a boolean.
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

// `valuePtr` points to a value of the C type that `theType` names. Null for a null pointer and for
// a type that is not listed.
CF_EXPORT CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType theType,
                                     const void* valuePtr);

// The type that a number is kept as: kCFNumberSInt64Type or kCFNumberFloat64Type; 0 for what is not
// a number.
CF_EXPORT CFNumberType CFNumberGetType(CFNumberRef number);
// The size of the C type, in bytes, that `CFNumberGetType` names.
CF_EXPORT CFIndex CFNumberGetByteSize(CFNumberRef number);
CF_EXPORT Boolean CFNumberIsFloatType(CFNumberRef number);

// Writes the value as the C type that `theType` names. False when the value had to be changed:
// integers are then cut to the nearest that the type holds and lose their fraction (not-a-number
// gives 0), floats are rounded. False and nothing written for what is not a number and for a type
// that is not listed.
CF_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);

// The order of two numbers by value; not-a-number comes first, what is not a number before that.
CF_EXPORT CFComparisonResult CFNumberCompare(CFNumberRef number, CFNumberRef otherNumber,
                                             void* context);
