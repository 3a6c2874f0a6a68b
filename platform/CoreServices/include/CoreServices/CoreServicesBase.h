// What every header of this library needs: C linkage and the marker of an exported function.
#pragma once

#include <MacTypes.h>

#if defined(__cplusplus)
#define CORESERVICES_EXPORT extern "C" __attribute__((visibility("default")))
#else
#define CORESERVICES_EXPORT extern __attribute__((visibility("default")))
#endif
