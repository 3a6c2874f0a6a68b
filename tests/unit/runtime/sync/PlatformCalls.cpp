#include "tests/unit/runtime/sync/PlatformCalls.h"

namespace PlatformCalls {

Hooks& TheHooks() {
    // Never destroyed: static objects of the test program use the functions to the last.
    static auto* const hooks = new Hooks;
    return *hooks;
}

} // namespace PlatformCalls

using PlatformCalls::TheHooks;

extern "C" {

OSStatus __wrap_MPCreateCriticalRegion(MPCriticalRegionID* region);
OSStatus __wrap_MPCreateCriticalRegion(MPCriticalRegionID* region) {
    const auto& hook = TheHooks().mCreateCriticalRegion;
    return hook ? hook(region) : __real_MPCreateCriticalRegion(region);
}

OSStatus __wrap_MPEnterCriticalRegion(MPCriticalRegionID region, Duration timeout);
OSStatus __wrap_MPEnterCriticalRegion(MPCriticalRegionID region, Duration timeout) {
    const auto& hook = TheHooks().mEnterCriticalRegion;
    return hook ? hook(region, timeout) : __real_MPEnterCriticalRegion(region, timeout);
}

OSStatus __wrap_MPExitCriticalRegion(MPCriticalRegionID region);
OSStatus __wrap_MPExitCriticalRegion(MPCriticalRegionID region) {
    const auto& hook = TheHooks().mExitCriticalRegion;
    return hook ? hook(region) : __real_MPExitCriticalRegion(region);
}

OSStatus __wrap_MPDeleteCriticalRegion(MPCriticalRegionID region);
OSStatus __wrap_MPDeleteCriticalRegion(MPCriticalRegionID region) {
    const auto& hook = TheHooks().mDeleteCriticalRegion;
    return hook ? hook(region) : __real_MPDeleteCriticalRegion(region);
}

OSStatus __wrap_MPCreateSemaphore(MPSemaphoreCount maximum, MPSemaphoreCount initial,
                                  MPSemaphoreID* semaphore);
OSStatus __wrap_MPCreateSemaphore(MPSemaphoreCount maximum, MPSemaphoreCount initial,
                                  MPSemaphoreID* semaphore) {
    const auto& hook = TheHooks().mCreateSemaphore;
    return hook ? hook(maximum, initial, semaphore)
                : __real_MPCreateSemaphore(maximum, initial, semaphore);
}

OSStatus __wrap_MPWaitOnSemaphore(MPSemaphoreID semaphore, Duration timeout);
OSStatus __wrap_MPWaitOnSemaphore(MPSemaphoreID semaphore, Duration timeout) {
    const auto& hook = TheHooks().mWaitOnSemaphore;
    return hook ? hook(semaphore, timeout) : __real_MPWaitOnSemaphore(semaphore, timeout);
}

OSStatus __wrap_MPSignalSemaphore(MPSemaphoreID semaphore);
OSStatus __wrap_MPSignalSemaphore(MPSemaphoreID semaphore) {
    const auto& hook = TheHooks().mSignalSemaphore;
    return hook ? hook(semaphore) : __real_MPSignalSemaphore(semaphore);
}

OSStatus __wrap_MPDeleteSemaphore(MPSemaphoreID semaphore);
OSStatus __wrap_MPDeleteSemaphore(MPSemaphoreID semaphore) {
    const auto& hook = TheHooks().mDeleteSemaphore;
    return hook ? hook(semaphore) : __real_MPDeleteSemaphore(semaphore);
}

int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    const auto& hook = TheHooks().mCondWait;
    return hook ? hook(condition, mutex) : __real_pthread_cond_wait(condition, mutex);
}

int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline);
int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
    const auto& hook = TheHooks().mCondTimedWait;
    return hook ? hook(condition, mutex, deadline)
                : __real_pthread_cond_timedwait(condition, mutex, deadline);
}

int __wrap_pthread_cond_broadcast(pthread_cond_t* condition);
int __wrap_pthread_cond_broadcast(pthread_cond_t* condition) {
    const auto& hook = TheHooks().mCondBroadcast;
    return hook ? hook(condition) : __real_pthread_cond_broadcast(condition);
}

int __wrap_pthread_condattr_init(pthread_condattr_t* attributes);
int __wrap_pthread_condattr_init(pthread_condattr_t* attributes) {
    const auto& hook = TheHooks().mCondAttrInit;
    return hook ? hook(attributes) : __real_pthread_condattr_init(attributes);
}

int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes);
int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes) {
    const auto& hook = TheHooks().mCondInit;
    return hook ? hook(condition, attributes) : __real_pthread_cond_init(condition, attributes);
}

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    const auto& hook = TheHooks().mMutexInit;
    return hook ? hook(mutex, attributes) : __real_pthread_mutex_init(mutex, attributes);
}

int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    const auto& hook = TheHooks().mMutexDestroy;
    return hook ? hook(mutex) : __real_pthread_mutex_destroy(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    const auto& hook = TheHooks().mMutexUnlock;
    return hook ? hook(mutex) : __real_pthread_mutex_unlock(mutex);
}

int HookedKeyCreate(pthread_key_t* key, void (*destructor)(void*));
int HookedKeyCreate(pthread_key_t* key, void (*destructor)(void*)) {
    const auto& hook = TheHooks().mKeyCreate;
    return hook ? hook(key, destructor) : __real_pthread_key_create(key, destructor);
}

int __wrap_pthread_key_delete(pthread_key_t key);
int __wrap_pthread_key_delete(pthread_key_t key) {
    const auto& hook = TheHooks().mKeyDelete;
    return hook ? hook(key) : __real_pthread_key_delete(key);
}

int __wrap_gettimeofday(timeval* time, void* zone);
int __wrap_gettimeofday(timeval* time, void* zone) {
    const auto& hook = TheHooks().mGetTimeOfDay;
    return hook ? hook(time) : __real_gettimeofday(time, zone);
}

} // extern "C"
