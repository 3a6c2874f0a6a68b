// In which order a sender locks, signals, unlocks and wakes. The linker puts the functions below in
// front of the runtime's.
#include "runtime/sync/NyEvent.h"
#include "runtime/sync/NyMutex.h"
#include "tests/unit/MidiDriver/worker/WorkerHarness.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// What the calling thread did, while it is to be noted.
thread_local std::string* tlsTrace = nullptr;

void Note(const char* what) {
    if (tlsTrace != nullptr) {
        *tlsTrace += what;
    }
}

} // namespace

extern "C" {

bool __real__ZN7NyMutex4LockEj(NyMutex* mutex, unsigned int timeoutMs);
void __real__ZN7NyMutex6UnlockEv(NyMutex* mutex);
void __real__ZN7NyEvent15SignalUnderLockEv(NyEvent* event);
void __real__ZN7NyEvent11WakeWaitersEv(NyEvent* event);

bool __wrap__ZN7NyMutex4LockEj(NyMutex* mutex, unsigned int timeoutMs);
bool __wrap__ZN7NyMutex4LockEj(NyMutex* mutex, unsigned int timeoutMs) {
    Note("lock ");
    return __real__ZN7NyMutex4LockEj(mutex, timeoutMs);
}

void __wrap__ZN7NyMutex6UnlockEv(NyMutex* mutex);
void __wrap__ZN7NyMutex6UnlockEv(NyMutex* mutex) {
    Note("unlock ");
    __real__ZN7NyMutex6UnlockEv(mutex);
}

void __wrap__ZN7NyEvent15SignalUnderLockEv(NyEvent* event);
void __wrap__ZN7NyEvent15SignalUnderLockEv(NyEvent* event) {
    Note("signal ");
    __real__ZN7NyEvent15SignalUnderLockEv(event);
}

void __wrap__ZN7NyEvent11WakeWaitersEv(NyEvent* event);
void __wrap__ZN7NyEvent11WakeWaitersEv(NyEvent* event) {
    Note("wake ");
    __real__ZN7NyEvent11WakeWaitersEv(event);
}

} // extern "C"

TEST(EnqueueOrder, SignalsUnderTheLockAndWakesBehindIt) {
    TestWorker worker;
    std::string trace;
    tlsTrace = &trace;
    worker.Write(0, {1, 2, 3}, false);
    EXPECT_EQ(trace, "lock unlock ");
    trace.clear();
    worker.Write(0, {4}, true);
    tlsTrace = nullptr;
    EXPECT_EQ(trace, "lock signal unlock wake ");
    EXPECT_TRUE(worker.Sink().WaitForCount(1));
}
