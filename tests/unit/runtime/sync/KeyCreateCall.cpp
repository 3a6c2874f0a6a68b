// Compiled without sanitizers: their start-up calls this before they can bear instrumented code.
#include "tests/unit/runtime/sync/PlatformCalls.h"

constinit bool PlatformCalls::sKeyCreateIsHooked = false;

extern "C" {

int HookedKeyCreate(pthread_key_t* key, void (*destructor)(void*));

int __wrap_pthread_key_create(pthread_key_t* key, void (*destructor)(void*));
int __wrap_pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) {
    return PlatformCalls::sKeyCreateIsHooked ? HookedKeyCreate(key, destructor)
                                             : __real_pthread_key_create(key, destructor);
}

} // extern "C"
