#include "tests/support/platform/ControllableClock.h"

#include <CoreServices/CoreServices.h>

#include <dlfcn.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>

namespace TestSupport {

namespace {

using std::chrono::microseconds;
using std::chrono::nanoseconds;
using SleepHandler = std::function<void(microseconds)>;

// Sequentially consistent throughout: a test may reason about the order of its own steps.
std::atomic<bool> sHeld{false};
std::atomic<std::int64_t> sUpTime{0};   // nanoseconds
std::atomic<std::int64_t> sWallTime{0}; // microseconds
std::atomic<std::int64_t> sWallStep{0}; // microseconds
std::atomic<std::uint64_t> sWallReadings{0};
std::atomic<std::uint64_t> sSleeps{0};
std::mutex sHandlerMutex;
std::shared_ptr<const SleepHandler> sHandler;
thread_local std::int64_t tlsLastUpTime = 0;

template <typename Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void MoveOn(nanoseconds length) {
    sUpTime += length.count();
    sWallTime += std::chrono::duration_cast<microseconds>(length).count();
}

} // namespace

ControllableClock::ControllableClock() {
    sUpTime = kFirstUpTime.count();
    sWallTime = kFirstWallTime.count();
    sWallStep = 0;
    sWallReadings = 0;
    sSleeps = 0;
    sHeld = true;
}

ControllableClock::~ControllableClock() {
    sHeld = false;
    OnSleep(nullptr);
}

void ControllableClock::Advance(nanoseconds length) {
    MoveOn(length);
}

void ControllableClock::AdvanceWallTime(microseconds length) {
    sWallTime += length.count();
}

void ControllableClock::StepWallTimeAtReadings(microseconds length) {
    sWallStep = length.count();
}

nanoseconds ControllableClock::UpTime() const {
    return nanoseconds(sUpTime.load());
}

std::uint64_t ControllableClock::WallTimeReadings() const {
    return sWallReadings;
}

std::uint64_t ControllableClock::Sleeps() const {
    return sSleeps;
}

void ControllableClock::OnSleep(SleepHandler handler) {
    const std::lock_guard lock(sHandlerMutex);
    sHandler = handler ? std::make_shared<const SleepHandler>(std::move(handler)) : nullptr;
}

nanoseconds ControllableClock::LastUpTimeOfThisThread() {
    return nanoseconds(tlsLastUpTime);
}

} // namespace TestSupport

using namespace TestSupport;

AbsoluteTime UpTime() {
    if (!sHeld) {
        static const auto real = Next<AbsoluteTime (*)()>("UpTime");
        const AbsoluteTime now = real();
        tlsLastUpTime = (static_cast<std::int64_t>(now.hi) << 32) | now.lo;
        return now;
    }
    tlsLastUpTime = sUpTime;
    AbsoluteTime now;
    now.hi = static_cast<UInt32>(static_cast<std::uint64_t>(tlsLastUpTime) >> 32);
    now.lo = static_cast<UInt32>(tlsLastUpTime);
    return now;
}

extern "C" __attribute__((visibility("default"))) int usleep(useconds_t length) {
    if (!sHeld) {
        static const auto real = Next<int (*)(useconds_t)>("usleep");
        return real(length);
    }
    std::shared_ptr<const SleepHandler> handler;
    {
        const std::lock_guard lock(sHandlerMutex);
        handler = sHandler;
    }
    ++sSleeps;
    if (handler != nullptr) {
        (*handler)(microseconds(length));
    } else {
        MoveOn(microseconds(length));
    }
    return 0;
}

extern "C" __attribute__((visibility("default"))) int gettimeofday(timeval* time,
                                                                   void* zone) noexcept {
    if (!sHeld) {
        static const auto real = Next<int (*)(timeval*, void*)>("gettimeofday");
        return real(time, zone);
    }
    const std::int64_t now = sWallTime += sWallStep;
    ++sWallReadings;
    time->tv_sec = static_cast<time_t>(now / 1000000);
    time->tv_usec = static_cast<suseconds_t>(now % 1000000);
    return 0;
}
