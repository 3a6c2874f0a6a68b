// What hosts and tests need to know of message ports beyond the platform's interface. Linux only;
// never used by plug-ins.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>

// The longest request or reply, in bytes.
enum { kCFMessagePortMaximumLength = 1024 * 1024 };

// Tells why the last local port that this process could not make failed, if `name` was its name.
// The result is one line that says which file or folder is at fault, how, and what to do. Returns
// null if the last failure was about another name, or if a port of this name has been made since.
// The caller owns the result. Any thread may call.
CF_EXPORT CFStringRef CFMessagePortHostCopyLocalFailure(CFStringRef name);

// Returns the folder in which this process's local ports would be made now, in UTF-8 and without a
// slash at its end. A missing folder is made, as for a port. Returns null if the folder cannot be
// used; `failure` (unless it is null) is then one line that says what is wrong and what to do, or
// null if there is no memory. The caller owns the result and the failure. Any thread may call.
CF_EXPORT CFStringRef CFMessagePortHostCopyFolder(CFStringRef* failure);
