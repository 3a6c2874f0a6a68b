// Whether this build of the tests runs many times slower than usual: under a sanitizer, or for
// PowerPC, where the tests run under emulation. The longest checks take a sample there, and
// everything in the everyday build.
#pragma once

#include "tests/support/Sanitized.h"

namespace TestSupport {

#if defined(QUORVEL_SANITIZED) || defined(__powerpc__)
inline constexpr bool kIsSlowBuild = true;
#else
inline constexpr bool kIsSlowBuild = false;
#endif

} // namespace TestSupport
