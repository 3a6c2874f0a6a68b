// Property lists as bytes: XML and the binary format (version 00).
//
// A property list is a string, number, boolean, date, data, or an array or dictionary (with strings
// as keys) of property lists. Limits, for reading and for writing: 16 MiB (as bytes), 128 levels of
// containers, 1048576 values and 64 MiB of text and data (an object of a binary property list
// counts as often as it is referred to). Strings are valid Unicode without NUL, integers 64-bit
// signed, dates of the years 1 to 9999, of which XML keeps whole seconds. XML is UTF-8.
//
// Of a dictionary's entries with the same key the first one counts.
//
// Bytes that are not a property list, whatever is wrong with them, give null and an error.
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

// `*format` and `*error` may be null pointers; they are set when there is a property list and when
// there is none, respectively. The caller owns the result and the error.
CF_EXPORT CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                                         CFOptionFlags options,
                                                         CFPropertyListFormat* format,
                                                         CFErrorRef* error);
// `options` is not used. The same property list always gives the same bytes.
CF_EXPORT CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator,
                                             CFPropertyListRef propertyList,
                                             CFPropertyListFormat format, CFOptionFlags options,
                                             CFErrorRef* error);
// Containers and data are copied, other values retained. Null for what is not a property list.
CF_EXPORT CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef allocator,
                                                         CFPropertyListRef propertyList,
                                                         CFOptionFlags mutabilityOption);
