#include "tests/integration/jack/ProcessWatch.h"

#include <jack/jack.h>

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <ctime>

namespace {

constinit thread_local bool tlsInProcess = false;
constinit std::atomic<std::uint64_t> sPeriods{0};
constinit std::atomic<void (*)()> sInjected{nullptr};

// One for each watched function. Nothing here may allocate or need to be
// constructed: they are called before any constructor.
struct Watched {
    const char* name;
    std::atomic<std::uint64_t> calls{0};
    std::atomic<void*> original{nullptr};

    void Called() {
        if (tlsInProcess) {
            calls.fetch_add(1, std::memory_order_relaxed);
        }
    }

    template <typename Function>
    Function* Original() {
        void* found = original.load(std::memory_order_relaxed);
        if (found == nullptr) {
            // The condition variables' plain names still stand for those of long ago,
            // too.
            found = dlvsym(RTLD_NEXT, name, "GLIBC_2.3.2");
            if (found == nullptr) {
                found = dlsym(RTLD_NEXT, name);
            }
            original.store(found, std::memory_order_relaxed);
        }
        return reinterpret_cast<Function*>(found);
    }
};

#define WATCHED_FUNCTIONS(WATCH)                                                                   \
    WATCH(int, pthread_mutex_lock, (pthread_mutex_t * a), (a))                                     \
    WATCH(int, pthread_mutex_trylock, (pthread_mutex_t * a), (a))                                  \
    WATCH(int, pthread_mutex_unlock, (pthread_mutex_t * a), (a))                                   \
    WATCH(int, pthread_rwlock_rdlock, (pthread_rwlock_t * a), (a))                                 \
    WATCH(int, pthread_rwlock_wrlock, (pthread_rwlock_t * a), (a))                                 \
    WATCH(int, pthread_cond_signal, (pthread_cond_t * a), (a))                                     \
    WATCH(int, pthread_cond_broadcast, (pthread_cond_t * a), (a))                                  \
    WATCH(int, pthread_cond_wait, (pthread_cond_t * a, pthread_mutex_t * b), (a, b))               \
    WATCH(int, sem_post, (sem_t * a), (a))                                                         \
    WATCH(int, sem_wait, (sem_t * a), (a))                                                         \
    WATCH(int, sem_trywait, (sem_t * a), (a))                                                      \
    WATCH(int, sem_timedwait, (sem_t * a, const timespec* b), (a, b))                              \
    WATCH(ssize_t, read, (int a, void* b, std::size_t c), (a, b, c))                               \
    WATCH(ssize_t, write, (int a, const void* b, std::size_t c), (a, b, c))                        \
    WATCH(ssize_t, send, (int a, const void* b, std::size_t c, int d), (a, b, c, d))               \
    WATCH(ssize_t, recv, (int a, void* b, std::size_t c, int d), (a, b, c, d))                     \
    WATCH(ssize_t, sendmsg, (int a, const msghdr* b, int c), (a, b, c))                            \
    WATCH(ssize_t, recvmsg, (int a, msghdr* b, int c), (a, b, c))                                  \
    WATCH(int, poll, (pollfd * a, nfds_t b, int c), (a, b, c))                                     \
    WATCH(int, close, (int a), (a))                                                                \
    WATCH(int, usleep, (useconds_t a), (a))                                                        \
    WATCH(int, nanosleep, (const timespec* a, timespec* b), (a, b))                                \
    WATCH(int, sched_yield, (), ())                                                                \
    WATCH(int, munmap, (void* a, std::size_t b), (a, b))                                           \
    WATCH(int, mlock, (const void* a, std::size_t b), (a, b))                                      \
    WATCH(void, vsyslog, (int a, const char* b, va_list c), (a, b, c))                             \
    WATCH(long, syscall, (long a, long b, long c, long d, long e, long f, long g),                 \
          (a, b, c, d, e, f, g))

// The C library has its allocator under a second name too: to look for the
// first one allocates.
#define WATCHED_ALLOCATORS(WATCH)                                                                  \
    WATCH(void*, malloc, (std::size_t a), (a))                                                     \
    WATCH(void*, calloc, (std::size_t a, std::size_t b), (a, b))                                   \
    WATCH(void*, realloc, (void* a, std::size_t b), (a, b))                                        \
    WATCH(void, free, (void* a), (a))

#define DEFINE_WATCHED(result, name, parameters, arguments)                                        \
    constinit Watched sWatched_##name{#name};
WATCHED_FUNCTIONS(DEFINE_WATCHED)
WATCHED_ALLOCATORS(DEFINE_WATCHED)

#define ADDRESS_OF_WATCHED(result, name, parameters, arguments) &sWatched_##name,
constexpr std::array kWatched = {WATCHED_FUNCTIONS(ADDRESS_OF_WATCHED)
                                     WATCHED_ALLOCATORS(ADDRESS_OF_WATCHED)};

} // namespace

namespace JackTest {

std::uint64_t WatchedPeriods() {
    return sPeriods.load();
}

std::vector<std::string> TakeForbiddenCalls() {
    std::vector<std::string> names;
    for (Watched* const watched : kWatched) {
        if (watched->calls.exchange(0) != 0) {
            names.emplace_back(watched->name);
        }
    }
    return names;
}

void CallInProcess(void (*function)()) {
    sInjected = function;
}

} // namespace JackTest

extern "C" {

jack_nframes_t jack_cycle_wait(jack_client_t* client) {
    static constinit Watched sWait{"jack_cycle_wait"};
    const jack_nframes_t frames = sWait.Original<jack_nframes_t(jack_client_t*)>()(client);
    tlsInProcess = true;
    if (void (*const injected)() = sInjected.load()) {
        injected();
    }
    return frames;
}

void jack_cycle_signal(jack_client_t* client, int status) {
    static constinit Watched sSignal{"jack_cycle_signal"};
    tlsInProcess = false;
    sPeriods.fetch_add(1);
    sSignal.Original<void(jack_client_t*, int)>()(client, status);
}

// Under another name in C++: the headers' declarations have attributes of their
// own.
#define REPLACE_FUNCTION(result, name, parameters, arguments)                                      \
    __attribute__((visibility("default"))) result Replaced_##name parameters asm(#name);           \
    result Replaced_##name parameters {                                                            \
        sWatched_##name.Called();                                                                  \
        return sWatched_##name.Original<result parameters>() arguments;                            \
    }
#define REPLACE_ALLOCATOR(result, name, parameters, arguments)                                     \
    result __libc_##name parameters;                                                               \
    __attribute__((visibility("default"))) result Replaced_##name parameters asm(#name);           \
    result Replaced_##name parameters {                                                            \
        sWatched_##name.Called();                                                                  \
        return __libc_##name arguments;                                                            \
    }
WATCHED_FUNCTIONS(REPLACE_FUNCTION)
WATCHED_ALLOCATORS(REPLACE_ALLOCATOR)

} // extern "C"
