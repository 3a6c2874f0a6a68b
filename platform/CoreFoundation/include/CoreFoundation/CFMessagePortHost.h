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
