// A CFError tells why a call failed.
#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXPORT const CFStringRef kCFErrorDomainPOSIX; // codes are values of errno
CF_EXPORT const CFStringRef kCFErrorDomainCocoa; // codes are those of CFPropertyList.h

CF_EXPORT const CFStringRef kCFErrorLocalizedDescriptionKey;

// `userInfo` may be null. Returns null if the domain is not a string.
CF_EXPORT CFErrorRef CFErrorCreate(CFAllocatorRef allocator, CFStringRef domain, CFIndex code,
                                   CFDictionaryRef userInfo);
CF_EXPORT CFIndex CFErrorGetCode(CFErrorRef err);
// Returns one line for people, without a line break: the `kCFErrorLocalizedDescriptionKey` of the
// user info or, if it has none, a line made from domain and code. Never returns null for an error.
CF_EXPORT CFStringRef CFErrorCopyDescription(CFErrorRef err);
