// Makes the platform's calls fail that the driver makes, one call at a time.
//
// Takes the place of the functions named in PlatformFaults.cpp for the whole program. Counted and
// failed are the calls that come from the program itself (the driver linked into it, and the test),
// not those that the platform's libraries make among themselves. A call that is made to fail does
// not reach the platform. Any thread.
#pragma once

#include <MacTypes.h>

#include <string>

namespace TestSupport {

// The n-th call of `function` from now on (1 is the next) fails: with `status` if it returns one,
// else with its null result.
void FailPlatformCall(const std::string& function, int n = 1, OSStatus status = -50);

// Forgets what was to fail and sets all counts to zero.
void ResetPlatformFaults();

// The calls since the program's start or the last reset, failed ones included.
int PlatformCalls(const std::string& function);

} // namespace TestSupport
