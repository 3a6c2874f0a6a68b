#pragma once

#include <memory>
#include <string>

struct NyEventPlatformData;
struct NyTime;

// A named event that is signalled or not. Waiters pass while it is signalled.
//
// Any number of threads may signal, reset and wait. What a thread did before `Signal` is visible to
// a thread whose `Wait` returns true because of it. Only `Wait` blocks; nothing allocates but the
// constructors. The event must outlive every call: a signal still uses it after a waiter passed.
//
// An event that the platform could not build is inert: `Signal` and `Reset` do nothing and every
// `Wait` returns true at once.
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

    // Signal in two steps, for one that is made under a lock which the waiter takes next. The
    // first, under the lock, signals: from then on a wait passes. The second, once the lock is
    // free, wakes who was asleep. Woken earlier, a waiter of higher priority would run into the
    // lock at once, to be put to sleep and woken a second time.
    void SignalUnderLock();
    void WakeWaiters();

    // Waits for up to `timeoutMs` milliseconds, 0xFFFFFFFF without limit, 0 to poll. True when the
    // event was or became signalled, false on time-out. The limit is on the wall clock, and a
    // wake-up that finds the event not signalled (another waiter took it, or it was spurious)
    // starts the full limit over again.
    bool Wait(unsigned int timeoutMs);

    // The same for an interval: an infinite one waits without limit, a finite one is cut to whole
    // milliseconds and to 32 bits.
    bool Wait(NyTime& timeout);

    const std::string& GetName() const { return mName; }

private:
    std::string mName;
    std::unique_ptr<NyEventPlatformData> mPlatformData;
};
