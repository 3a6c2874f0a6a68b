// What a host and its tests need to know about the objects of this library. Linux only; never used
// by plug-ins.
#pragma once

#include <CoreFoundation/CFBase.h>

// Returns how many objects of a type exist now, or of all types together for the type 0, or -1 if
// no type has the number. Constants (`CFSTR`, `CFUUIDGetConstantUUIDWithBytes`, `kCFBooleanTrue`,
// allocators) are not counted: they are never destroyed, and there is one object for each different
// constant. Any thread may call; the number is exact while no other thread makes or destroys
// objects.
CF_EXPORT CFIndex CFRuntimeHostLiveObjectCount(CFTypeID type);
