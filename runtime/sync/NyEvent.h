#pragma once

#include <memory>
#include <string>

struct NyEventPlatformData;
struct NyTime;

// A named event, which is signalled or not. Waiters pass while it is signalled.
//
// Any number of threads may signal, reset and wait. What a thread did before `Signal` is visible to
// a thread whose `Wait` returns true because of it. Only `Wait` blocks; only the constructors
// allocate. The event must outlive every call: a signal still uses it after a waiter has passed.
//
// If the platform could not build the event, it is inert: `Signal` and `Reset` do nothing, and
// every `Wait` returns true at once.
//
//     NyEvent ready(NyEvent::kManualReset, NyEvent::kNotSignaled, "ready");
//     ready.Signal();                    // on one thread
//     const bool inTime = ready.Wait(500); // on another one
class NyEvent {
public:
    enum tResetPolicy : int {
        kManualReset = 0, // only `Reset` clears the event
        kAutoReset = 1,   // the waiter that passes clears it, so that one signal lets one pass
    };
    enum tState : int {
        kNotSignaled = 0,
        kSignaled = 1,
    };

    NyEvent(tResetPolicy policy, tState state, const char* name);
    NyEvent(tResetPolicy policy, tState state); // named "unnamed"
    virtual ~NyEvent();
    NyEvent(const NyEvent&) = delete;
    NyEvent& operator=(const NyEvent&) = delete;

    void Signal();
    void Reset();

    // These two make up `Signal`, for a caller that signals under a lock which the waiter takes
    // next. SignalUnderLock, called under the lock, signals: from then on a wait passes.
    // WakeWaiters, called once the lock is free, wakes the threads that sleep in `Wait`. If they
    // were woken earlier, a waiter of higher priority would run into the lock at once; it would be
    // put to sleep and woken a second time.
    void SignalUnderLock();
    void WakeWaiters();

    // Waits for up to `timeoutMs` milliseconds; 0xFFFFFFFF means without limit, and 0 looks without
    // waiting. Returns true when the event was or became signalled, false on time-out. The limit is
    // on the wall clock. A wake-up that finds the event not signalled, because another waiter took
    // the signal or because it was spurious, starts the full limit over again.
    bool Wait(unsigned int timeoutMs);

    // The same for an interval. An infinite one waits without limit; a finite one is cut to whole
    // milliseconds and to 32 bits.
    bool Wait(NyTime& timeout);

    const std::string& GetName() const { return mName; }

private:
    std::string mName;
    std::unique_ptr<NyEventPlatformData> mPlatformData;
};
