// Immutable Unicode text. Lengths and indexes count UTF-16 units (CFIndex), sizes count bytes.
#pragma once

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>

#include <stdarg.h>

typedef UInt32 CFStringEncoding;
enum {
    kCFStringEncodingMacRoman = 0,
    kCFStringEncodingASCII = 0x0600,
    kCFStringEncodingUTF8 = 0x08000100,
};
#define kCFStringEncodingInvalidId (0xffffffffU)

typedef CFOptionFlags CFStringCompareFlags;
enum {
    kCFCompareCaseInsensitive = 1,
};

// The constant string of a literal, in ASCII or UTF-8. Equal texts give the same object, which is
// never destroyed and does not refer to the module that the literal is in, so that the module may
// be unloaded. May be used before `main` in C++ initialisers; in C within functions only, since it
// is a call.
#define CFSTR(cStr) __CFStringMakeConstantString("" cStr "")
CF_EXPORT CFStringRef __CFStringMakeConstantString(const char* cStr);

CF_EXPORT CFTypeID CFStringGetTypeID(void);

// Makes strings. Null for a null or negative argument, for bytes that are not valid in the encoding
// (ASCII: above 127; UTF-8: malformed, surrogates) and for an encoding other than the three.
// `isExternalRepresentation` lets a byte order mark at the front of UTF-8 be left out.
CF_EXPORT CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr,
                                                CFStringEncoding encoding);
CF_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const UInt8* bytes,
                                              CFIndex numBytes, CFStringEncoding encoding,
                                              Boolean isExternalRepresentation);
CF_EXPORT CFStringRef CFStringCreateWithCharacters(CFAllocatorRef alloc, const UniChar* chars,
                                                   CFIndex numChars);
// A copy may be the string itself, retained. Null when it is not a string.
CF_EXPORT CFStringRef CFStringCreateCopy(CFAllocatorRef alloc, CFStringRef theString);
CF_EXPORT CFStringRef CFStringCreateWithSubstring(CFAllocatorRef alloc, CFStringRef str,
                                                  CFRange range);

// Formats as printf does, always with a decimal point, plus "%@": an object's description, "(null)"
// for null. "%s" takes UTF-8, and what is not UTF-8 as MacRoman; "%C" takes one UTF-16 unit.
// Widths, precisions, "*", and the sizes hh h l ll q j z t L are known. Null when the format is not
// a string or has a conversion that is not known (so are "%n" and positions such as "%1$d");
// `formatOptions` is not used.
CF_EXPORT CFStringRef CFStringCreateWithFormat(CFAllocatorRef alloc, CFDictionaryRef formatOptions,
                                               CFStringRef format, ...);
CF_EXPORT CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef alloc,
                                                           CFDictionaryRef formatOptions,
                                                           CFStringRef format, va_list arguments);

CF_EXPORT CFIndex CFStringGetLength(CFStringRef theString);
// 0 when the index is outside of the string.
CF_EXPORT UniChar CFStringGetCharacterAtIndex(CFStringRef theString, CFIndex idx);
CF_EXPORT void CFStringGetCharacters(CFStringRef theString, CFRange range, UniChar* buffer);

// Writes the text and a NUL. False, and nothing but an empty string in the buffer (if it has room),
// when it is not a string, does not fit into `bufferSize` bytes or cannot be represented. Never
// allocates.
CF_EXPORT Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                                     CFStringEncoding encoding);
// The text itself, which lives as long as the string; null unless it is all ASCII without a NUL.
CF_EXPORT const char* CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding encoding);

// Writes as many whole characters of `range` as fit into `maxBufLen` bytes (any number when
// `buffer` is null: only counts), without a NUL. A character that cannot be represented is written
// as `lossByte`, or ends the conversion when that is 0. `usedBufLen` (may be null) gets the bytes.
// The number of UTF-16 units converted.
CF_EXPORT CFIndex CFStringGetBytes(CFStringRef theString, CFRange range, CFStringEncoding encoding,
                                   UInt8 lossByte, Boolean isExternalRepresentation, UInt8* buffer,
                                   CFIndex maxBufLen, CFIndex* usedBufLen);

// The most bytes that `length` units take, without a NUL; kCFNotFound when that is no CFIndex or
// the encoding is not known.
CF_EXPORT CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);

// The order of two strings by UTF-16 unit; kCFCompareCaseInsensitive folds Latin, Greek and
// Cyrillic letters first, other options are not used. What is not a string comes before every
// string, and two that are not are equal only if they are the same.
CF_EXPORT CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                             CFStringCompareFlags compareOptions);
CF_EXPORT Boolean CFStringHasPrefix(CFStringRef theString, CFStringRef prefix);
CF_EXPORT Boolean CFStringHasSuffix(CFStringRef theString, CFStringRef suffix);

// The decimal number at the front: white space is passed over, a sign may follow, the first
// character that is not a digit ends it. 0 without digits; the largest or smallest SInt32 when the
// number is beyond those.
CF_EXPORT SInt32 CFStringGetIntValue(CFStringRef str);

// The parts between the separators, one more than there are separators (empty ones included).
// An empty separator is found nowhere. Null when one of the two is not a string.
CF_EXPORT CFArrayRef CFStringCreateArrayBySeparatingStrings(CFAllocatorRef alloc,
                                                            CFStringRef theString,
                                                            CFStringRef separatorString);
// Null when an element is not a string.
CF_EXPORT CFStringRef CFStringCreateByCombiningStrings(CFAllocatorRef alloc, CFArrayRef theArray,
                                                       CFStringRef separatorString);
