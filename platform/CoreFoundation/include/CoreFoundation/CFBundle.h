// A folder that holds a module and describes it in `Contents/Info.plist`.
//
// On Linux the module is `Contents/Linux/<CFBundleExecutable>`, a shared object. It is opened with
// its symbols kept to itself and resolved at once.
//
// Threads: every function may be called from any thread. Creating a bundle reads its property list;
// the loading functions block for as long as the dynamic loader takes and run the module's static
// constructors and destructors. A failure's cause is in `CFPlugInHostCopyLastError`.
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

// The bundle at a folder; the caller owns a reference. While a bundle lives, the same folder gives
// the same bundle. Null when the folder or its property list is missing or cannot be read.
CF_EXPORT CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef bundleURL);

// What the bundle owns: the property list, one of its values (null when there is none), and the
// identifier (null unless it is a string).
CF_EXPORT CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle);
CF_EXPORT CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key);
CF_EXPORT CFStringRef CFBundleGetIdentifier(CFBundleRef bundle);

// The caller owns the result. Null when the property list names no executable.
CF_EXPORT CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle);

CF_EXPORT Boolean CFBundleIsExecutableLoaded(CFBundleRef bundle);

// Unloads the module. The caller sees to it that none of its code runs or is called any more. A
// module with registered instances stays loaded.
CF_EXPORT void CFBundleUnloadExecutable(CFBundleRef bundle);

// The address of an exported function; loads the module first. Null when there is none.
CF_EXPORT void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef functionName);
