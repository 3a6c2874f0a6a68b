#include "runtime/sync/NyEvent.h"

#include "runtime/sync/NyEventPlatformData.h"
#include "runtime/time/NyTime.h"

#include <sys/time.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

namespace {

constexpr unsigned int kNoLimit = 0xFFFFFFFF;

// Returns the wall-clock moment `timeoutMs` from now. If the clock cannot be read, it counts from
// the epoch, which has passed.
timespec DeadlineAfter(unsigned int timeoutMs) {
    timeval now{};
    gettimeofday(&now, nullptr);
    auto microseconds = static_cast<long>(timeoutMs % 1000) * 1000 + static_cast<long>(now.tv_usec);
    time_t seconds = static_cast<time_t>(timeoutMs / 1000) + now.tv_sec;
    if (microseconds > 999999) {
        ++seconds;
        microseconds -= 1000000;
    }
    timespec deadline{};
    deadline.tv_sec = seconds;
    deadline.tv_nsec = microseconds * 1000;
    return deadline;
}

} // namespace

NyEventPlatformData::NyEventPlatformData() {
    mStatus = pthread_condattr_init(&mConditionAttributes);
    mStatus = pthread_cond_init(&mCondition, &mConditionAttributes);
    mStatus = pthread_mutex_init(&mMutex, nullptr);
}

NyEventPlatformData::~NyEventPlatformData() {
    if (mStatus == 0) {
        mStatus = pthread_condattr_destroy(&mConditionAttributes);
        mStatus = pthread_cond_destroy(&mCondition);
        mStatus = pthread_mutex_destroy(&mMutex);
    }
}

NyEvent::NyEvent(tResetPolicy policy, tState state, const char* name)
    : mName(name), mPlatformData(std::make_unique<NyEventPlatformData>()) {
    mPlatformData->mResetPolicy = policy;
    mPlatformData->mState.store(state, std::memory_order_relaxed);
}

NyEvent::NyEvent(tResetPolicy policy, tState state) : NyEvent(policy, state, "unnamed") {}

NyEvent::~NyEvent() = default;

// Ordering of the state. Mostly the mutex orders what the event guards, and the state is relaxed.
// The exception is a wait on a manual-reset event that is signalled: it does without the mutex, and
// so acquires the state, which the signal released.

void NyEvent::Signal() {
    SignalUnderLock();
    WakeWaiters();
}

void NyEvent::SignalUnderLock() {
    NyEventPlatformData& data = *mPlatformData;
    if (data.mStatus != 0) {
        return;
    }
    pthread_mutex_lock(&data.mMutex);
    data.mState.store(kSignaled, std::memory_order_release);
    pthread_mutex_unlock(&data.mMutex);
}

void NyEvent::WakeWaiters() {
    NyEventPlatformData& data = *mPlatformData;
    if (data.mStatus != 0) {
        return;
    }
    // The state is read again outside the mutex: if a waiter took the signal meanwhile, there is
    // nothing to broadcast. This thread reads its own store or a later one. So "not signalled" can
    // only come from a later store, by a waiter or by Reset, and then the threads that are blocked
    // are right to stay so. A later Signal makes its own broadcast.
    if (data.mState.load(std::memory_order_relaxed) == kSignaled) {
        pthread_cond_broadcast(&data.mCondition);
    }
}

void NyEvent::Reset() {
    NyEventPlatformData& data = *mPlatformData;
    if (data.mStatus != 0) {
        return;
    }
    pthread_mutex_lock(&data.mMutex);
    data.mState.store(kNotSignaled, std::memory_order_relaxed);
    pthread_mutex_unlock(&data.mMutex);
}

bool NyEvent::Wait(unsigned int timeoutMs) {
    NyEventPlatformData& data = *mPlatformData;
    if (data.mStatus != 0) {
        return true;
    }
    if (data.mResetPolicy == kManualReset &&
        data.mState.load(std::memory_order_acquire) == kSignaled) {
        return true;
    }
    pthread_mutex_lock(&data.mMutex);
    while (data.mState.load(std::memory_order_relaxed) != kSignaled) {
        if (timeoutMs == kNoLimit) {
            pthread_cond_wait(&data.mCondition, &data.mMutex);
            continue;
        }
        const timespec deadline = DeadlineAfter(timeoutMs);
        if (pthread_cond_timedwait(&data.mCondition, &data.mMutex, &deadline) == ETIMEDOUT) {
            pthread_mutex_unlock(&data.mMutex);
            return false;
        }
    }
    if (data.mResetPolicy == kAutoReset) {
        data.mState.store(kNotSignaled, std::memory_order_relaxed);
    }
    pthread_mutex_unlock(&data.mMutex);
    return true;
}

bool NyEvent::Wait(NyTime& timeout) {
    if (timeout.mSpecial != NyTime::kZero) {
        return Wait(kNoLimit);
    }
    return Wait(static_cast<std::uint32_t>(timeout.mMicroseconds / 1000));
}
