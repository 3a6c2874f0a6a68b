// What hosts and tests need to know of message ports beyond the platform's interface. Linux only;
// never used by plug-ins.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>

// The longest request or reply, in bytes.
enum { kCFMessagePortMaximumLength = 1024 * 1024 };

// Why the local port that this process failed last to make could not be made, if `name` is its
// name: one line that says which file or folder is at fault, how, and what to do. Null when `name`
// is another's or a port of that name has been made since. The caller owns the result. Any thread.
CF_EXPORT CFStringRef CFMessagePortHostCopyLocalFailure(CFStringRef name);
