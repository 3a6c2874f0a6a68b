// What every type of CoreFoundation shares: references, ownership, equality, allocators.
//
// An object is named by a reference, a pointer that may be passed as a CFTypeRef. Ownership: a
// function with Create or Copy in its name gives the caller a reference that the caller releases;
// one with Get gives a reference that lives as long as the object that it came from. Containers
// retain what they hold. The constants (`CFSTR`, `kCFBooleanTrue`, ...) live as long as the
// process.
//
// Wrong types: every function checks its arguments. If a reference is null or leads to an object of
// another type, the function returns the failure value that its header names or, if it names none,
// returns 0, false or null, or has no effect. A pointer that is not a reference at all is not
// recognised.
//
// The original platform does not check in release builds. A strict mode therefore shows the
// mistakes of code that is meant for both: with QUORVEL_CF_STRICT=1 in the environment (read when
// the first mistake is made), a function aborts if it is given null, an object of another type, or
// an immutable object to change. Before that it writes one line to standard error with its own
// name, the name of the argument and what it found. Null is not a mistake where a header gives it a
// meaning, as it does for allocators, callbacks, `CFCopyDescription`, values that remove a
// preference, requests without data, and run-loop modes. Arguments that are not references
// (buffers, indexes, ranges) are answered as they are without the strict mode.
//
// Threads: any function may be called from any thread. Several threads may retain and release the
// same object, and read the same immutable object, at the same time. As soon as one thread changes
// a mutable object, the callers have to lock. Unless a header says otherwise, functions do not
// block. Create and Copy functions allocate, and return null if there is no memory.
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

// A range of `length` elements that begins at `location`. A range that does not lie wholly inside
// of the object that it is applied to selects nothing.
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
// malloc's allocator are the same. Nothing can be made with `kCFAllocatorNull`: Create and Copy
// functions then return null, as they do for something that is not an allocator.
CF_EXPORT const CFAllocatorRef kCFAllocatorDefault; // null, as on the original platform
CF_EXPORT const CFAllocatorRef kCFAllocatorSystemDefault;
CF_EXPORT const CFAllocatorRef kCFAllocatorMalloc;
CF_EXPORT const CFAllocatorRef kCFAllocatorNull;

// Never returns null. The caller owns no reference.
CF_EXPORT CFAllocatorRef CFAllocatorGetDefault(void);

// `CFRetain` adds a reference, `CFRelease` gives one up and may destroy the object and what it
// holds. Both ignore null, which is a mistake in strict mode. Whatever a thread wrote to an object
// before it released it is visible to the thread that destroys the object.
CF_EXPORT CFTypeRef CFRetain(CFTypeRef cf);
CF_EXPORT void CFRelease(CFTypeRef cf);

// Returns the number of references to an object: 0 for null, and the largest CFIndex for an object
// that is never destroyed. It is of use in tests only, since other threads may retain and release
// meanwhile.
CF_EXPORT CFIndex CFGetRetainCount(CFTypeRef cf);

// Returns the type of an object, or 0 for null.
CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef cf);

// Whether both objects have the same type and equal values. A reference equals itself, and null
// equals null. Below 512 levels of nesting, containers are compared as references.
CF_EXPORT Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);
// Returns a hash, which is the same for equal objects of one process and 0 for null. The hash of a
// text or of bytes differs from one process to the next.
CF_EXPORT CFHashCode CFHash(CFTypeRef cf);

// Returns a text for people: a string itself, the digits of a number, the values of a container
// (but none below 64 levels), or something like "<CFUUID ...>". Returns null for null. The caller
// owns the result.
CF_EXPORT CFStringRef CFCopyDescription(CFTypeRef cf);
