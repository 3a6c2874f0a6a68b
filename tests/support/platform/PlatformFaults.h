// Makes single calls of the driver to the platform fail.
//
// Takes the place of the functions named in PlatformFaults.cpp for the whole program. It counts and
// fails the calls of the program itself (the driver linked into it, and the test), not those that
// the platform's libraries make among themselves. A call that is made to fail does not reach the
// platform. Any thread may call.
#pragma once

#include <MacTypes.h>

#include <string>

namespace TestSupport {

// Makes the n-th call of `function` from now on (1 is the next) fail: it returns `status` or, if
// the function returns no status, its null result.
void FailPlatformCall(const std::string& function, int n = 1, OSStatus status = -50);

// Cancels all failures that are still to come and sets all counts to zero.
void ResetPlatformFaults();

// Returns the number of calls since the program's start or the last reset, failed ones included.
int PlatformCalls(const std::string& function);

} // namespace TestSupport
