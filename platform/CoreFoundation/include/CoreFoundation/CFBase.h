// What every type of CoreFoundation shares: references, ownership, equality, allocators.
//
// An object is named by a reference, a pointer that may be passed as a CFTypeRef. Ownership: a
// function with Create or Copy in its name gives the caller a reference that the caller releases;
// one with Get gives a reference that lives as long as the object that it came from. Containers
// retain what they hold. The constants (`CFSTR`, `kCFBooleanTrue`, ...) live as long as the
// process.
//
// Wrong types: every function checks what it is given. A null reference or one to an object of
// another type is answered with the failure value that the function's header names, or else with 0,
// false, null or no effect. A pointer that is not a reference at all is not recognised.
//
// The original platform does not check in release builds. So that code meant for both shows its
// mistakes here, there is a strict mode: with QUORVEL_CF_STRICT=1 in the environment (read when the
// first mistake is made) a function that is given null, an object of another type or an immutable
// object to change writes one line with its name, the argument's and what it found to standard
// error and aborts. Null is no mistake where a header gives it a meaning: allocators, callbacks,
// `CFCopyDescription`, values that remove a preference, requests without data, run-loop modes that
// none is run in, and the like. What is not a reference (null buffers, indexes, ranges) is answered
// as it is otherwise.
//
// Threads: any function may be called from any thread. References may be retained and released by
// several threads at once, immutable objects read by several threads at once. Mutable objects need
// a lock of the caller's as soon as one thread changes them. Unless a header says otherwise
// functions do not block; Create and Copy allocate, and give null when there is no memory.
#pragma once

#include <MacTypes.h>

#include <stddef.h>

#if defined(__cplusplus)
#define CF_EXPORT extern "C" __attribute__((visibility("default")))
#else
#define CF_EXPORT extern __attribute__((visibility("default")))
#endif

typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;
typedef signed long CFIndex;
typedef double CFTimeInterval; // seconds

typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFArray* CFArrayRef;
typedef const struct __CFData* CFDataRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef const struct __CFString* CFStringRef;
typedef struct __CFError* CFErrorRef;

// A string, number, boolean, date, data, array or dictionary (CFPropertyList.h).
typedef CFTypeRef CFPropertyListRef;

static const CFIndex kCFNotFound = -1;

typedef CFIndex CFComparisonResult;
enum { kCFCompareLessThan = -1, kCFCompareEqualTo = 0, kCFCompareGreaterThan = 1 };

// `length` elements from `location` on. A range that does not lie in what it is applied to selects
// nothing.
typedef struct CFRange {
    CFIndex location;
    CFIndex length;
} CFRange;

static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
    CFRange range;
    range.location = location;
    range.length = length;
    return range;
}

// Allocators. All memory comes from the C++ heap; null, `kCFAllocatorDefault`, the system's and
// malloc's are the same. Nothing can be made with `kCFAllocatorNull`: Create and Copy then give
// null, as they do for something that is not an allocator.
CF_EXPORT const CFAllocatorRef kCFAllocatorDefault; // null, as on the original platform
CF_EXPORT const CFAllocatorRef kCFAllocatorSystemDefault;
CF_EXPORT const CFAllocatorRef kCFAllocatorMalloc;
CF_EXPORT const CFAllocatorRef kCFAllocatorNull;

CF_EXPORT CFTypeID CFAllocatorGetTypeID(void);
// Never null; the caller owns no reference.
CF_EXPORT CFAllocatorRef CFAllocatorGetDefault(void);

// Adds and gives up a reference. Null is passed over (a mistake, in strict mode). What was written
// to an object before a release is seen by whoever destroys it. `CFRelease` may destroy the object
// and what it holds.
CF_EXPORT CFTypeRef CFRetain(CFTypeRef cf);
CF_EXPORT void CFRelease(CFTypeRef cf);

// The references to an object: 0 for null, the largest CFIndex for an object that cannot be
// released. Of use in tests only, since other threads may retain and release meanwhile.
CF_EXPORT CFIndex CFGetRetainCount(CFTypeRef cf);

// The type of an object, 0 for null.
CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef cf);
// The name of a type, for instance "CFString"; null for a number that is not a type's. Copy rule.
CF_EXPORT CFStringRef CFCopyTypeIDDescription(CFTypeID type_id);

// Whether both are of one type and of equal value; a reference equals itself and null equals null.
// Containers that are nested more than 512 deep are compared as references below that.
CF_EXPORT Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);
// Equal objects have equal hashes within one process; from one process to the next a hash of text
// or bytes is another. 0 for null.
CF_EXPORT CFHashCode CFHash(CFTypeRef cf);

// A text for people: the string itself, the number's digits, a container's values (nothing below 64
// levels), "<CFUUID ...>". Null for null. Copy rule.
CF_EXPORT CFStringRef CFCopyDescription(CFTypeRef cf);
