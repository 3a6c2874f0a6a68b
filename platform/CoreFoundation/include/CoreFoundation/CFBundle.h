// A bundle is a folder that holds a module and describes it in `Contents/Info.plist`.
//
// On Linux the module is the shared object `Contents/Linux/<CFBundleExecutable>`. When it is
// loaded, all its symbols are resolved at once, and they stay invisible to other modules.
//
// Threads: every function may be called from any thread. Creating a bundle reads its property list.
// The functions that load and unload block for as long as the dynamic loader takes, and run the
// module's static constructors and destructors. `CFPlugInHostCopyLastError` tells why a call
// failed.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

typedef struct __CFBundle* CFBundleRef;
typedef struct __CFBundle* CFPlugInRef;

CF_EXPORT const CFStringRef kCFBundleIdentifierKey; // "CFBundleIdentifier"
CF_EXPORT const CFStringRef kCFBundleExecutableKey; // "CFBundleExecutable"

CF_EXPORT CFTypeID CFBundleGetTypeID(void);

// Returns the bundle of a folder, of which the caller owns a reference. As long as the bundle
// exists, the same folder gives the same bundle. Returns null if the folder or its property list is
// missing or cannot be read.
CF_EXPORT CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef bundleURL);

// Return the property list and the identifier (null unless it is a string). The bundle owns the
// results.
CF_EXPORT CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle);
CF_EXPORT CFStringRef CFBundleGetIdentifier(CFBundleRef bundle);

CF_EXPORT Boolean CFBundleIsExecutableLoaded(CFBundleRef bundle);
