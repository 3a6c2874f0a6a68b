// What a host and its tests need to know about the objects of this library. Linux only; never used
// by plug-ins.
#pragma once

#include <CoreFoundation/CFBase.h>

// How many objects of a type exist now, with those of 0 for all types together. Constants
// (`CFSTR`, `CFUUIDGetConstantUUIDWithBytes`, `kCFBooleanTrue`, allocators), which are never
// destroyed, are not counted; they grow only with the number of different constants. -1 for a
// number that is not a type's. Any thread; exact when no other thread makes or destroys objects.
CF_EXPORT CFIndex CFRuntimeHostLiveObjectCount(CFTypeID type);
