#include "midiserver/host/Interrupt.h"

#include <atomic>
#include <csignal>

namespace MidiServer {

namespace {

constexpr unsigned kPatience = 2;

// A signal handler may touch nothing but a lock-free atomic.
std::atomic<unsigned> sCount = 0;
static_assert(std::atomic<unsigned>::is_always_lock_free);

// The handlers that were there before. They are written only while Handle is not installed.
struct sigaction sInterruptBefore {};
struct sigaction sTerminateBefore {};

void Handle(int number) {
    if (sCount.fetch_add(1, std::memory_order_relaxed) + 1 > kPatience) {
        ::sigaction(number, number == SIGINT ? &sInterruptBefore : &sTerminateBefore, nullptr);
        std::raise(number);
    }
}

} // namespace

Interrupt::Interrupt() {
    sCount.store(0, std::memory_order_relaxed);
    struct sigaction action {};
    action.sa_handler = Handle;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, nullptr, &sInterruptBefore);
    ::sigaction(SIGTERM, nullptr, &sTerminateBefore);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

Interrupt::~Interrupt() {
    ::sigaction(SIGINT, &sInterruptBefore, nullptr);
    ::sigaction(SIGTERM, &sTerminateBefore, nullptr);
}

unsigned Interrupt::Count() {
    return sCount.load(std::memory_order_relaxed);
}

} // namespace MidiServer
