// Ordered lists of pointers, normally references to objects. Indexes count from 0.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef struct __CFArray* CFMutableArrayRef;

// The functions that an array calls for its values. A null member means that values are kept as
// they are, described as addresses or compared as pointers. The array keeps the value that `retain`
// returns. The version is 0.
typedef const void* (*CFArrayRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFArrayEqualCallBack)(const void* value1, const void* value2);
typedef struct CFArrayCallBacks {
    CFIndex version;
    CFArrayRetainCallBack retain;
    CFArrayReleaseCallBack release;
    CFArrayCopyDescriptionCallBack copyDescription;
    CFArrayEqualCallBack equal;
} CFArrayCallBacks;

// Callbacks for arrays of objects, which are retained, released and compared by CFRetain, CFRelease
// and CFEqual. Null values are kept as null.
CF_EXPORT const CFArrayCallBacks kCFTypeArrayCallBacks;

CF_EXPORT CFTypeID CFArrayGetTypeID(void);

// Makes an array of the given values. Null `callBacks` count as callbacks whose members are all
// null. Returns null if `numValues` is negative, or if `values` is null and `numValues` is not 0.
CF_EXPORT CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex numValues,
                                   const CFArrayCallBacks* callBacks);
// `capacity` is a hint; the array grows as needed. Returns null if it is negative.
CF_EXPORT CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFArrayCallBacks* callBacks);
CF_EXPORT CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                                     CFArrayRef theArray);

CF_EXPORT CFIndex CFArrayGetCount(CFArrayRef theArray);
// Returns null if the index is outside of the array.
CF_EXPORT const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx);

// The functions below change an array. They do nothing if the array is immutable, if the index is
// outside of the array, or if there is no memory.
CF_EXPORT void CFArrayAppendValue(CFMutableArrayRef theArray, const void* value);
// If the index is one beyond the last, the value is appended.
CF_EXPORT void CFArraySetValueAtIndex(CFMutableArrayRef theArray, CFIndex idx, const void* value);
CF_EXPORT void CFArrayRemoveValueAtIndex(CFMutableArrayRef theArray, CFIndex idx);
