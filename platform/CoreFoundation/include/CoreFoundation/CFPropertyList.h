// Property lists as bytes: XML and the binary format (version 00).
//
// A property list is a string, number, boolean, date, data, or an array or dictionary (with strings
// as keys) of property lists. Limits, for reading and for writing: 16 MiB (as bytes), 128 levels of
// containers, 1048576 values and 64 MiB of text and data (an object of a binary property list
// counts as often as it is referred to). Strings are valid Unicode without NUL, integers 64-bit
// signed, dates of the years 1 to 9999, of which XML keeps whole seconds. XML is UTF-8.
//
// If a dictionary has several entries with the same key, the first one counts. Bytes that are not a
// property list, whatever is wrong with them, give null and an error.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFError.h>

typedef CFIndex CFPropertyListFormat;
enum {
    kCFPropertyListXMLFormat_v1_0 = 100,
    kCFPropertyListBinaryFormat_v1_0 = 200,
};

typedef CFOptionFlags CFPropertyListMutabilityOptions;
enum {
    kCFPropertyListImmutable = 0,
    kCFPropertyListMutableContainers = 1 << 0,
};

// Codes of errors, in `kCFErrorDomainCocoa`.
enum {
    kCFPropertyListReadCorruptError = 3840,
    kCFPropertyListReadUnknownVersionError = 3841, // neither XML nor binary, or not supported
    kCFPropertyListReadStreamError = 3842,         // a limit was passed
    kCFPropertyListWriteStreamError = 3851,        // not a property list, or a limit was passed
};

// Whether the value is a property list within the limits, in either format. Needs no memory.
CF_EXPORT Boolean CFPropertyListIsValid(CFPropertyListRef plist, CFPropertyListFormat format);

// Reads a property list. Sets `*format` if there is one, and `*error` if there is none; both
// pointers may be null. The caller owns the result and the error.
CF_EXPORT CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                                         CFOptionFlags options,
                                                         CFPropertyListFormat* format,
                                                         CFErrorRef* error);
// Writes a property list; the same one always gives the same bytes. `options` is not used.
CF_EXPORT CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator,
                                             CFPropertyListRef propertyList,
                                             CFPropertyListFormat format, CFOptionFlags options,
                                             CFErrorRef* error);
// Copies containers and data, and retains other values. Returns null if the value is not a property
// list.
CF_EXPORT CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef allocator,
                                                         CFPropertyListRef propertyList,
                                                         CFOptionFlags mutabilityOption);
