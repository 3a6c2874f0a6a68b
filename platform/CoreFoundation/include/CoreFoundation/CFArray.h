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

typedef void (*CFArrayApplierFunction)(const void* value, void* context);

CF_EXPORT CFTypeID CFArrayGetTypeID(void);

// Makes an array of the given values. Null `callBacks` count as callbacks whose members are all
// null. Returns null if `numValues` is negative, or if `values` is null and `numValues` is not 0.
CF_EXPORT CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex numValues,
                                   const CFArrayCallBacks* callBacks);
CF_EXPORT CFArrayRef CFArrayCreateCopy(CFAllocatorRef allocator, CFArrayRef theArray);
// `capacity` is a hint; the array grows as needed. Returns null if it is negative.
CF_EXPORT CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFArrayCallBacks* callBacks);
CF_EXPORT CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                                     CFArrayRef theArray);

CF_EXPORT CFIndex CFArrayGetCount(CFArrayRef theArray);
// Returns null if the index is outside of the array.
CF_EXPORT const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx);
CF_EXPORT void CFArrayGetValues(CFArrayRef theArray, CFRange range, const void** values);
CF_EXPORT CFIndex CFArrayGetCountOfValue(CFArrayRef theArray, CFRange range, const void* value);
CF_EXPORT Boolean CFArrayContainsValue(CFArrayRef theArray, CFRange range, const void* value);
// Returns kCFNotFound if no value in the range is equal.
CF_EXPORT CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef theArray, CFRange range,
                                              const void* value);
CF_EXPORT void CFArrayApplyFunction(CFArrayRef theArray, CFRange range,
                                    CFArrayApplierFunction applier, void* context);

// The functions below change an array. They do nothing if the array is immutable, if the index is
// outside of the array (for an insertion: beyond its end), or if there is no memory.
CF_EXPORT void CFArrayAppendValue(CFMutableArrayRef theArray, const void* value);
CF_EXPORT void CFArrayAppendArray(CFMutableArrayRef theArray, CFArrayRef otherArray,
                                  CFRange otherRange);
CF_EXPORT void CFArrayInsertValueAtIndex(CFMutableArrayRef theArray, CFIndex idx,
                                         const void* value);
// If the index is one beyond the last, the value is appended.
CF_EXPORT void CFArraySetValueAtIndex(CFMutableArrayRef theArray, CFIndex idx, const void* value);
CF_EXPORT void CFArrayRemoveValueAtIndex(CFMutableArrayRef theArray, CFIndex idx);
CF_EXPORT void CFArrayRemoveAllValues(CFMutableArrayRef theArray);
