// What hosts and tests need to know of message ports beyond the platform's interface. Linux only;
// never used by plug-ins.
#pragma once

// The longest request or reply, in bytes.
enum { kCFMessagePortMaximumLength = 1024 * 1024 };
