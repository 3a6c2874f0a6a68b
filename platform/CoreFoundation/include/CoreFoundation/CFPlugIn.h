// A plug-in is a bundle whose module offers objects through factory functions.
//
// `Info.plist` names the factories: `CFPlugInFactories` maps the UUID of each factory to the name
// of its function, and `CFPlugInTypes` maps the UUID of each type to the UUIDs of the factories
// that make it. Only static registration exists: `CFPlugInDynamicRegistration` is absent or NO.
//
// Loading and unloading: a module is loaded when its first instance is asked for. It is unloaded
// when the last reference to its plug-in is released and no instance is registered. If instances
// are registered then, plug-in and module stay. The last instance is removed by code of the module
// itself, so the module cannot be unloaded at that moment; the host's next call of
// `CFPlugInHostUnloadUnused` (CFPlugInHost.h) unloads it.
//
// Threads: every function may be called from any thread. `CFPlugInInstanceCreate` may block in the
// dynamic loader and runs the factory on the calling thread, with no lock held.
#pragma once

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFBundle.h>
#include <CoreFoundation/CFURL.h>
#include <CoreFoundation/CFUUID.h>

CF_EXPORT const CFStringRef kCFPlugInDynamicRegistrationKey; // "CFPlugInDynamicRegistration"
CF_EXPORT const CFStringRef kCFPlugInFactoriesKey;           // "CFPlugInFactories"
CF_EXPORT const CFStringRef kCFPlugInTypesKey;               // "CFPlugInTypes"

typedef void* (*CFPlugInFactoryFunction)(CFAllocatorRef allocator, CFUUIDRef typeUUID);

// Returns the plug-in of a bundle's folder with its factories registered; the caller owns a
// reference. As long as the plug-in exists, the same folder gives the same plug-in. Returns null if
// the bundle is missing or its property list is not that of a plug-in; `CFPlugInHostCopyLastError`
// then names the file and the key.
CF_EXPORT CFPlugInRef CFPlugInCreate(CFAllocatorRef allocator, CFURLRef plugInURL);

// The plug-in as a bundle; no reference is added.
CF_EXPORT CFBundleRef CFPlugInGetBundle(CFPlugInRef plugIn);

// Returns the UUIDs (CFUUIDRef) of a plug-in's factories that make a type, in no particular order,
// or null if there are none. The caller owns the array.
CF_EXPORT CFArrayRef CFPlugInFindFactoriesForPlugInTypeInPlugIn(CFUUIDRef typeUUID,
                                                                CFPlugInRef plugIn);

// Calls a factory and returns what it made, which for COM-style plug-ins is an object with one
// reference. Returns null if the factory is unknown, does not make the type, cannot be loaded or
// returns null.
CF_EXPORT void* CFPlugInInstanceCreate(CFAllocatorRef allocator, CFUUIDRef factoryUUID,
                                       CFUUIDRef typeUUID);

// The code of a plug-in calls these when an instance is made and when it is destroyed, so that its
// module stays loaded in between. They ignore a factory that no plug-in has registered (code linked
// into the program), and a removal without an instance.
CF_EXPORT void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID);
CF_EXPORT void CFPlugInRemoveInstanceForFactory(CFUUIDRef factoryID);
