// A dictionary maps keys to values. Both are pointers, normally references to objects. Keys have no
// order.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef struct __CFDictionary* CFMutableDictionaryRef;

// The functions that a dictionary calls for its keys and values. A null member means that they are
// kept as they are, described as addresses, or compared and hashed as pointers. The version is 0.
typedef const void* (*CFDictionaryRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFDictionaryReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFDictionaryCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFDictionaryEqualCallBack)(const void* value1, const void* value2);
typedef CFHashCode (*CFDictionaryHashCallBack)(const void* value);
typedef struct CFDictionaryKeyCallBacks {
    CFIndex version;
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
    CFDictionaryHashCallBack hash;
} CFDictionaryKeyCallBacks;
typedef struct CFDictionaryValueCallBacks {
    CFIndex version;
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
} CFDictionaryValueCallBacks;

// Callbacks for dictionaries of objects. Null keys and values are kept as null.
// `kCFCopyStringDictionaryKeyCallBacks` is for keys that are strings; since strings are immutable
// here, there is nothing to copy, and it does the same as `kCFTypeDictionaryKeyCallBacks`.
CF_EXPORT const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
CF_EXPORT const CFDictionaryKeyCallBacks kCFCopyStringDictionaryKeyCallBacks;
CF_EXPORT const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

typedef void (*CFDictionaryApplierFunction)(const void* key, const void* value, void* context);

CF_EXPORT CFTypeID CFDictionaryGetTypeID(void);

// Makes a dictionary; of equal keys, the first one counts. Returns null if `numValues` is negative,
// or if `keys` or `values` is null and `numValues` is not 0.
CF_EXPORT CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys,
                                             const void** values, CFIndex numValues,
                                             const CFDictionaryKeyCallBacks* keyCallBacks,
                                             const CFDictionaryValueCallBacks* valueCallBacks);
CF_EXPORT CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef allocator, CFDictionaryRef theDict);
// `capacity` is a hint; the dictionary grows as needed. Returns null if it is negative.
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef allocator, CFIndex capacity, const CFDictionaryKeyCallBacks* keyCallBacks,
    const CFDictionaryValueCallBacks* valueCallBacks);
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef allocator,
                                                               CFIndex capacity,
                                                               CFDictionaryRef theDict);

CF_EXPORT CFIndex CFDictionaryGetCount(CFDictionaryRef theDict);
CF_EXPORT Boolean CFDictionaryContainsKey(CFDictionaryRef theDict, const void* key);
// Returns null if there is no such key or if its value is null; `CFDictionaryGetValueIfPresent`
// tells which.
CF_EXPORT const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key);
CF_EXPORT Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef theDict, const void* key,
                                                const void** value);
// Writes all keys and all values in the same order. Each array has room for all entries or is null.
CF_EXPORT void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void** keys,
                                            const void** values);
// Calls the function for each entry; it must not change the dictionary. Needs no memory.
CF_EXPORT void CFDictionaryApplyFunction(CFDictionaryRef theDict,
                                         CFDictionaryApplierFunction applier, void* context);

// The functions below change a dictionary. They do nothing if it is immutable or if there is no
// memory. Set adds the key, or replaces its value if the key is there already.
CF_EXPORT void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key,
                                    const void* value);
CF_EXPORT void CFDictionaryRemoveValue(CFMutableDictionaryRef theDict, const void* key);
