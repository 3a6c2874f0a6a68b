// Maps from keys to values, both pointers and normally references to objects. Keys have no order.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef struct __CFDictionary* CFMutableDictionaryRef;

// What to do with keys and values as they come and go. Null members: they are kept as they are,
// described as addresses, compared and hashed as pointers. Version is 0.
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

// For objects; null keys and values are kept as null. The second is for keys of strings (strings
// are immutable here, so that nothing needs to be copied: it is the same as the first).
CF_EXPORT const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
CF_EXPORT const CFDictionaryKeyCallBacks kCFCopyStringDictionaryKeyCallBacks;
CF_EXPORT const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

typedef void (*CFDictionaryApplierFunction)(const void* key, const void* value, void* context);

CF_EXPORT CFTypeID CFDictionaryGetTypeID(void);

// Of keys that are equal, the first counts. Null when `numValues` is negative, or `keys` or
// `values` is null and `numValues` is not 0.
CF_EXPORT CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys,
                                             const void** values, CFIndex numValues,
                                             const CFDictionaryKeyCallBacks* keyCallBacks,
                                             const CFDictionaryValueCallBacks* valueCallBacks);
CF_EXPORT CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef allocator, CFDictionaryRef theDict);
// `capacity` is a hint; the dictionary grows as needed. Null when it is negative.
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef allocator, CFIndex capacity, const CFDictionaryKeyCallBacks* keyCallBacks,
    const CFDictionaryValueCallBacks* valueCallBacks);
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef allocator,
                                                               CFIndex capacity,
                                                               CFDictionaryRef theDict);

CF_EXPORT CFIndex CFDictionaryGetCount(CFDictionaryRef theDict);
CF_EXPORT Boolean CFDictionaryContainsKey(CFDictionaryRef theDict, const void* key);
// Null when there is no such key, or its value is null: the second function tells which.
CF_EXPORT const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key);
CF_EXPORT Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef theDict, const void* key,
                                                const void** value);
// Both arrays have room for all entries, or are null; entry for entry in one order.
CF_EXPORT void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void** keys,
                                            const void** values);
// Calls the function for each entry; it must not change the dictionary. Needs no memory.
CF_EXPORT void CFDictionaryApplyFunction(CFDictionaryRef theDict,
                                         CFDictionaryApplierFunction applier, void* context);

// Changes; they do nothing for a dictionary that is immutable and when there is no memory. Add
// leaves a key that is there alone, Replace one that is not, Set does either.
CF_EXPORT void CFDictionaryAddValue(CFMutableDictionaryRef theDict, const void* key,
                                    const void* value);
CF_EXPORT void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key,
                                    const void* value);
CF_EXPORT void CFDictionaryReplaceValue(CFMutableDictionaryRef theDict, const void* key,
                                        const void* value);
CF_EXPORT void CFDictionaryRemoveValue(CFMutableDictionaryRef theDict, const void* key);
CF_EXPORT void CFDictionaryRemoveAllValues(CFMutableDictionaryRef theDict);
