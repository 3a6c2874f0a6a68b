// A CFString is an immutable Unicode text. Lengths and indexes count UTF-16 units (CFIndex), sizes
// count bytes.
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

// Returns the constant string of a literal in ASCII or UTF-8. Equal texts give the same object. It
// is never destroyed and does not refer to the module that the literal is in, so that the module
// may be unloaded. C++ initialisers may use it before `main`; in C only functions may, since it is
// a call.
#define CFSTR(cStr) __CFStringMakeConstantString("" cStr "")
CF_EXPORT CFStringRef __CFStringMakeConstantString(const char* cStr);

CF_EXPORT CFTypeID CFStringGetTypeID(void);

// Make strings. They return null if an argument is null or negative, if the bytes are not valid in
// the encoding (above 127 in ASCII, malformed or surrogates in UTF-8), or if the encoding is not
// one of the three. With `isExternalRepresentation`, a byte order mark at the front of UTF-8 is
// skipped.
CF_EXPORT CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr,
                                                CFStringEncoding encoding);
CF_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const UInt8* bytes,
                                              CFIndex numBytes, CFStringEncoding encoding,
                                              Boolean isExternalRepresentation);
// Returns a copy, which may be the string itself with a further reference, or null if the object is
// not a string.
CF_EXPORT CFStringRef CFStringCreateCopy(CFAllocatorRef alloc, CFStringRef theString);

// Formats as printf does, in every locale with a decimal point. Besides, "%@" takes an object and
// gives its description, or "(null)" for null; "%s" takes UTF-8, or MacRoman if the bytes are not
// UTF-8; "%C" takes one UTF-16 unit. Widths, precisions, "*", and the sizes hh h l ll q j z t L are
// known. Returns null if the format is not a string or has an unknown conversion; "%n" and
// positions such as "%1$d" are unknown too. `formatOptions` is not used.
CF_EXPORT CFStringRef CFStringCreateWithFormat(CFAllocatorRef alloc, CFDictionaryRef formatOptions,
                                               CFStringRef format, ...);
CF_EXPORT CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef alloc,
                                                           CFDictionaryRef formatOptions,
                                                           CFStringRef format, va_list arguments);

CF_EXPORT CFIndex CFStringGetLength(CFStringRef theString);
// Returns 0 if the index is outside of the string.
CF_EXPORT UniChar CFStringGetCharacterAtIndex(CFStringRef theString, CFIndex idx);

// Writes the text and a NUL. Returns false if the object is not a string, or if the text does not
// fit into `bufferSize` bytes or cannot be represented; the buffer, if it has room, then holds an
// empty string. Never allocates.
CF_EXPORT Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                                     CFStringEncoding encoding);

// Writes as many whole characters of `range` as fit into `maxBufLen` bytes, without a NUL, and
// returns the number of UTF-16 units converted. If `buffer` is null, it only counts, without a
// limit. A character that cannot be represented is written as `lossByte`, or ends the conversion if
// that is 0. Sets `*usedBufLen`, unless `usedBufLen` is null, to the number of bytes.
CF_EXPORT CFIndex CFStringGetBytes(CFStringRef theString, CFRange range, CFStringEncoding encoding,
                                   UInt8 lossByte, Boolean isExternalRepresentation, UInt8* buffer,
                                   CFIndex maxBufLen, CFIndex* usedBufLen);

// Compares two strings by UTF-16 unit; `compareOptions` is not used. An object that is not a string
// comes before every string, and two such objects are equal only if they are the same.
CF_EXPORT CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                             CFStringCompareFlags compareOptions);

// Returns the decimal number at the front of the string. White space is skipped, a sign may follow,
// and the first character that is not a digit ends the number. Returns 0 if there are no digits,
// and the largest or smallest SInt32 if the number is beyond those.
CF_EXPORT SInt32 CFStringGetIntValue(CFStringRef str);

// Returns the parts between the separators, empty ones included; there is one part more than there
// are separators. An empty separator occurs nowhere. Returns null if one of the two is not a
// string.
CF_EXPORT CFArrayRef CFStringCreateArrayBySeparatingStrings(CFAllocatorRef alloc,
                                                            CFStringRef theString,
                                                            CFStringRef separatorString);
