// What a host of plug-ins needs to know beyond the platform's interface. Linux only; never used by
// plug-ins.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>

// Tells why the last bundle or plug-in call that failed on this thread did so. The result is one
// line, without a line break, that names the file and, where one is at fault, the key and what was
// expected there. Returns null if no call has failed yet. A call that succeeds does not change it.
// The caller owns the result.
CF_EXPORT CFStringRef CFPlugInHostCopyLastError(void);

// Unloads the modules of plug-ins that were released while instances were registered and whose last
// instance has been removed since. Returns the number of modules unloaded. Call it when no code of
// such a module is on any stack, that is after the instance's last `Release` has returned.
CF_EXPORT CFIndex CFPlugInHostUnloadUnused(void);
