// Bundles whose modules offer objects through factory functions.
//
// `Info.plist` names the factories: `CFPlugInFactories` maps each factory's UUID to the function's
// name, `CFPlugInTypes` maps each type's UUID to the UUIDs of the factories that make it. Only
// static registration exists: `CFPlugInDynamicRegistration` is absent or NO.
//
// Loading and unloading: a module is loaded when its first instance is asked for. It is unloaded
// when the last reference to its plug-in is released and no instance is registered. If instances
// are registered then, plug-in and module stay; since the last of them says goodbye from code of
// the module itself, the module is not unloaded on the spot but by the host's next
// `CFPlugInHostUnloadUnused` (CFPlugInHost.h).
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

// The plug-in at a bundle's folder, its factories registered; the caller owns a reference, and
// while the plug-in lives the same folder gives the same one. Null when the bundle is missing or
// its property list is not that of a plug-in: `CFPlugInHostCopyLastError` tells which file and key.
CF_EXPORT CFPlugInRef CFPlugInCreate(CFAllocatorRef allocator, CFURLRef plugInURL);

// The plug-in as a bundle; no reference is added.
CF_EXPORT CFBundleRef CFPlugInGetBundle(CFPlugInRef plugIn);

// The UUIDs (CFUUIDRef) of the factories that make a type, of all plug-ins or of one, in no
// particular order; null when there are none. The caller owns the array.
CF_EXPORT CFArrayRef CFPlugInFindFactoriesForPlugInType(CFUUIDRef typeUUID);
CF_EXPORT CFArrayRef CFPlugInFindFactoriesForPlugInTypeInPlugIn(CFUUIDRef typeUUID,
                                                                CFPlugInRef plugIn);

// Calls a factory and returns what it made (for COM-style plug-ins an object with one reference);
// null when the factory is unknown, does not make the type, cannot be loaded or returns null.
CF_EXPORT void* CFPlugInInstanceCreate(CFAllocatorRef allocator, CFUUIDRef factoryUUID,
                                       CFUUIDRef typeUUID);

// Called by a plug-in's code as an instance comes and goes, so that its module stays loaded
// between. A factory that no plug-in has registered (code linked into the program) is ignored, and
// so is a removal without an instance.
CF_EXPORT void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID);
CF_EXPORT void CFPlugInRemoveInstanceForFactory(CFUUIDRef factoryID);
