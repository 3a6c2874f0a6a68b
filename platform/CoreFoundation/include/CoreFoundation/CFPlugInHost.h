// What a host of plug-ins needs to know beyond the platform's interface. Linux only; never used by
// plug-ins.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>

// Why the last bundle or plug-in call that failed on this thread did so: one line without a line
// break that names the file and, where one is at fault, the key and what was expected there. Null
// when none has failed yet. A call that succeeds leaves it alone. The caller owns the result.
CF_EXPORT CFStringRef CFPlugInHostCopyLastError(void);

// Unloads the modules of plug-ins that have been released while instances were registered and whose
// last instance has been removed since. Call it when no code of such a module is on any stack, that
// is after the instance's last `Release` has returned. The number of modules unloaded.
CF_EXPORT CFIndex CFPlugInHostUnloadUnused(void);
