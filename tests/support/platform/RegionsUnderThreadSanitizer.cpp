// For programs that are about critical regions, under Clang 14's thread sanitizer. It does not know
// the function that locks a mutex until a moment of the monotonic clock, takes it for a fault of
// the program when a thread leaves a region that it is not in, which the platform answers, and
// gives up where a thread holds more than 64 regions, deleted ones included.
#include <dlfcn.h>
#include <pthread.h>
#include <sanitizer/tsan_interface.h>

extern "C" {

__attribute__((visibility("default"))) const char* __tsan_default_options();

const char* __tsan_default_options() {
    return "report_mutex_bugs=0:detect_deadlocks=0";
}

// Takes the place of the system's function for the whole program and tells the sanitizer of the
// mutex.
__attribute__((visibility("default"))) int
pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock, const timespec* moment) noexcept {
    static const auto real = reinterpret_cast<decltype(&pthread_mutex_clocklock)>(
        dlsym(RTLD_NEXT, "pthread_mutex_clocklock"));
    constexpr unsigned kKind = __tsan_mutex_write_reentrant | __tsan_mutex_try_lock;
    __tsan_mutex_pre_lock(mutex, kKind);
    const int result = real(mutex, clock, moment);
    __tsan_mutex_post_lock(mutex, result == 0 ? kKind : kKind | __tsan_mutex_try_lock_failed, 1);
    return result;
}
}
