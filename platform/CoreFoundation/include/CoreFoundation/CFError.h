// Why a call failed, for callers that asked to be told.
#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXPORT const CFStringRef kCFErrorDomainPOSIX; // codes are values of errno
CF_EXPORT const CFStringRef kCFErrorDomainCocoa; // codes are those of CFPropertyList.h

CF_EXPORT const CFStringRef kCFErrorLocalizedDescriptionKey;

// `userInfo` may be null. Null when the domain is not a string.
CF_EXPORT CFErrorRef CFErrorCreate(CFAllocatorRef allocator, CFStringRef domain, CFIndex code,
                                   CFDictionaryRef userInfo);
// The error owns the result.
CF_EXPORT CFStringRef CFErrorGetDomain(CFErrorRef err);
CF_EXPORT CFIndex CFErrorGetCode(CFErrorRef err);
// One line for people, without a line break: `kCFErrorLocalizedDescriptionKey` of the user info, or
// else one made from domain and code. Never null for an error.
CF_EXPORT CFStringRef CFErrorCopyDescription(CFErrorRef err);
