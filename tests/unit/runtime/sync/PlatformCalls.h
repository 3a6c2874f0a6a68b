// The platform functions under the synchronisation classes, each replaceable. A hook that is not
// set passes the call on; it may pass calls on itself, through __real_<function>. Hooks are set
// before other threads start.
#pragma once

#include <CoreServices/CoreServices.h>

#include <pthread.h>
#include <sys/time.h>

#include <functional>

namespace PlatformCalls {

struct Hooks {
    std::function<OSStatus(MPCriticalRegionID*)> mCreateCriticalRegion;
    std::function<OSStatus(MPCriticalRegionID, Duration)> mEnterCriticalRegion;
    std::function<OSStatus(MPCriticalRegionID)> mExitCriticalRegion;
    std::function<OSStatus(MPCriticalRegionID)> mDeleteCriticalRegion;
    std::function<OSStatus(MPSemaphoreCount, MPSemaphoreCount, MPSemaphoreID*)> mCreateSemaphore;
    std::function<OSStatus(MPSemaphoreID, Duration)> mWaitOnSemaphore;
    std::function<OSStatus(MPSemaphoreID)> mSignalSemaphore;
    std::function<OSStatus(MPSemaphoreID)> mDeleteSemaphore;
    std::function<int(pthread_cond_t*, pthread_mutex_t*)> mCondWait;
    std::function<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)> mCondTimedWait;
    std::function<int(pthread_cond_t*)> mCondBroadcast;
    std::function<int(pthread_condattr_t*)> mCondAttrInit;
    std::function<int(pthread_cond_t*, const pthread_condattr_t*)> mCondInit;
    std::function<int(pthread_mutex_t*, const pthread_mutexattr_t*)> mMutexInit;
    std::function<int(pthread_mutex_t*)> mMutexDestroy;
    std::function<int(pthread_mutex_t*)> mMutexUnlock;
    std::function<int(pthread_key_t*, void (*)(void*))> mKeyCreate;
    std::function<int(pthread_key_t)> mKeyDelete;
    std::function<int(timeval*)> mGetTimeOfDay;
};

Hooks& TheHooks();

// Set while a Scope exists.
extern bool sKeyCreateIsHooked;

// Clears the hooks when a test ends.
class Scope {
public:
    Scope() { sKeyCreateIsHooked = true; }
    ~Scope() {
        sKeyCreateIsHooked = false;
        TheHooks() = Hooks{};
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    Hooks* operator->() { return &TheHooks(); }
};

} // namespace PlatformCalls

extern "C" {
OSStatus __real_MPCreateCriticalRegion(MPCriticalRegionID* region);
OSStatus __real_MPEnterCriticalRegion(MPCriticalRegionID region, Duration timeout);
OSStatus __real_MPExitCriticalRegion(MPCriticalRegionID region);
OSStatus __real_MPDeleteCriticalRegion(MPCriticalRegionID region);
OSStatus __real_MPCreateSemaphore(MPSemaphoreCount maximum, MPSemaphoreCount initial,
                                  MPSemaphoreID* semaphore);
OSStatus __real_MPWaitOnSemaphore(MPSemaphoreID semaphore, Duration timeout);
OSStatus __real_MPSignalSemaphore(MPSemaphoreID semaphore);
OSStatus __real_MPDeleteSemaphore(MPSemaphoreID semaphore);
int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline);
int __real_pthread_cond_broadcast(pthread_cond_t* condition);
int __real_pthread_condattr_init(pthread_condattr_t* attributes);
int __real_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes);
int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __real_pthread_mutex_destroy(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __real_pthread_key_create(pthread_key_t* key, void (*destructor)(void*));
int __real_pthread_key_delete(pthread_key_t key);
int __real_gettimeofday(timeval* time, void* zone);
}
