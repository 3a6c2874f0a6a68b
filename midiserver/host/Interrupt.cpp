#include "midiserver/host/Interrupt.h"

#include <atomic>
#include <csignal>

namespace MidiServer {

namespace {

constexpr unsigned kPatience = 2;

// A signal handler may touch nothing but a lock-free atomic.
std::atomic<unsigned> msCount = 0;
static_assert(std::atomic<unsigned>::is_always_lock_free);

// Who handled the signals before; written while Handle is not installed.
struct sigaction msInterruptBefore {};
struct sigaction msTerminateBefore {};

void Handle(int number) {
    if (msCount.fetch_add(1, std::memory_order_relaxed) + 1 > kPatience) {
        ::sigaction(number, number == SIGINT ? &msInterruptBefore : &msTerminateBefore, nullptr);
        std::raise(number);
    }
}

} // namespace

Interrupt::Interrupt() {
    msCount.store(0, std::memory_order_relaxed);
    struct sigaction action {};
    action.sa_handler = Handle;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, nullptr, &msInterruptBefore);
    ::sigaction(SIGTERM, nullptr, &msTerminateBefore);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

Interrupt::~Interrupt() {
    ::sigaction(SIGINT, &msInterruptBefore, nullptr);
    ::sigaction(SIGTERM, &msTerminateBefore, nullptr);
}

unsigned Interrupt::Count() {
    return msCount.load(std::memory_order_relaxed);
}

} // namespace MidiServer
